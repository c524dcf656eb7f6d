#include "prep/store_zip.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>

#include "settings/zip_files.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

std::string bytes_of(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Stores of several pieces (one of them ending mid-piece), and an empty
// one, read back through the installer's unzip byte for byte: the pieces
// join into one stream, and the checksum and sizes are those of the whole.
TEST(StoreZip, PiecesDeflatedApartUnzipAsTheWholeStore) {
  testing::TempDir dir;
  std::mt19937 rng(5);
  for (size_t size : {size_t{0}, size_t{1234}, (size_t{2} << 20) * 3 + 777}) {
    std::string data(size, '\0');
    for (size_t i = 0; i < size; ++i)  // runs of text and noise, as a store has
      data[i] = (i / 4096) % 3 ? static_cast<char>('a' + i % 7) : static_cast<char>(rng());
    const auto store = dir / "new_arven_operations_LU.mdb";
    std::ofstream(store, std::ios::binary).write(data.data(), static_cast<std::streamsize>(size));
    testing::ScriptedUi ui;
    ASSERT_EQ(zip_store_on_all_cores(ui, store, dir / "a.zip"), kZipOk) << size;
    EXPECT_TRUE(ui.messages.empty());
    const auto out = dir / "out" / "store.mdb";
    std::filesystem::create_directories(out.parent_path());
    ASSERT_EQ(extract_store_entry(dir / "a.zip", "new_arven_operations_LU.mdb", out, 1u << 30), "")
        << size;
    EXPECT_TRUE(bytes_of(out) == data) << size;
    if (size > 100000) {
      EXPECT_LT(std::filesystem::file_size(dir / "a.zip"), size);
    }
  }
}

}  // namespace
}  // namespace arven

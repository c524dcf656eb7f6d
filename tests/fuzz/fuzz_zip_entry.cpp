// Country store archives as the downloader meets them: the entry check
// (only the expected store, within the size cap, passes) and the unpacking
// of any bytes as an archive, which must end in a store or a reason.
#include <fuzzer/FuzzedDataProvider.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "settings/zip_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace fs = std::filesystem;
  static const fs::path dir = [] {
    fs::path d = fs::temp_directory_path() / ("arven-fuzz-zip-" + std::to_string(getpid()));
    fs::create_directories(d);
    return d;
  }();
  const std::string expected = "new_arven_operations_LU.mdb";
  constexpr uint64_t kCap = 1 << 20;
  // The first byte picks the check; the rest is its input, so that an
  // archive among the seeds stays whole after it.
  if (size == 0) return 0;
  const bool entry_check = data[0] & 1;
  FuzzedDataProvider in(data + 1, size - 1);
  if (entry_check) {
    const uint64_t entry_size = in.ConsumeIntegral<uint64_t>();
    const uint64_t max_size = in.ConsumeIntegral<uint64_t>();
    const std::string name = in.ConsumeRemainingBytesAsString();
    const std::string why = arven::check_store_entry(name, entry_size, expected, max_size);
    if (why.empty() && (name != expected || entry_size > max_size)) std::abort();
    return 0;
  }
  const fs::path zip = dir / "in.zip", dest = dir / expected;
  {
    std::ofstream out(zip, std::ios::binary | std::ios::trunc);
    const std::string bytes = in.ConsumeRemainingBytesAsString();
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  const std::string why = arven::extract_store_entry(zip, expected, dest, kCap);
  std::error_code ec;
  if (why.empty() && fs::file_size(dest, ec) > kCap) std::abort();
  fs::remove(dest, ec);
  return 0;
}

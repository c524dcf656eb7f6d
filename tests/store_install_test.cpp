#include "settings/store_install.h"

#include <gtest/gtest.h>
#include <zip.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "core/preferences.h"
#include "core/registry.h"
#include "settings/zip_files.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/static_server.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using testing::StaticServer;
using testing::TempDir;
using testing::write_file;

std::string read_file(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// An archive of the given entries (name, content); `stored` keeps them
// uncompressed, so that a byte of the file is a byte of an entry.
void make_zip(const fs::path& zip, const std::vector<std::pair<std::string, std::string>>& entries,
              bool stored = false) {
  int err = 0;
  zip_t* za = zip_open(zip.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
  ASSERT_NE(za, nullptr);
  for (const auto& [name, content] : entries) {
    zip_source_t* src = zip_source_buffer(za, content.data(), content.size(), 0);
    zip_int64_t i = zip_file_add(za, name.c_str(), src, ZIP_FL_OVERWRITE);
    ASSERT_GE(i, 0);
    if (stored) zip_set_file_compression(za, static_cast<zip_uint64_t>(i), ZIP_CM_STORE, 0);
  }
  ASSERT_EQ(zip_close(za), 0);
}

class StoreInstallTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(dbases); }

  // A country store file with a Version row, as its bytes.
  std::string store_bytes(const std::string& date, int db_version = kDbVersion) {
    fs::path p = dir / ("store-" + date + std::to_string(db_version) + ".mdb");
    {
      Db db = create_country_store_base(p);
      db.insert("Version", {"Version", "DB Version"}, {date, db_version});
    }
    return read_file(p);
  }
  std::string installed() { return read_file(country_store_path(dir.path() / "app", "LU")); }

  TempDir dir;
  fs::path dbases = dir / "app/dbases";
  fs::path zip = dir / "arven_db_LU.zip";
};

TEST_F(StoreInstallTest, EntryCheckAcceptsOnlyTheStoreWithinTheCap) {
  const char* lu = "new_arven_operations_LU.mdb";
  EXPECT_EQ(check_store_entry(lu, 1000, lu, 1000), "");
  for (const char* name : {"arven_operations.mdb", "new_arven_operations_DK.mdb",
                           "x/new_arven_operations_LU.mdb", "../new_arven_operations_LU.mdb",
                           "/new_arven_operations_LU.mdb", "NEW_ARVEN_OPERATIONS_LU.MDB", ""})
    EXPECT_NE(check_store_entry(name, 10, lu, 1000), "") << name;
  EXPECT_NE(check_store_entry(lu, 1001, lu, 1000), "");
  // The default cap refuses a gibibyte.
  EXPECT_NE(check_store_entry(lu, uint64_t{1} << 30, lu, kMaxStoreBytes), "");
}

TEST_F(StoreInstallTest, BadArchivesInstallNothingAndLeaveTheOldStore) {
  std::string old_store = store_bytes("2024-01-01 00:00:00");
  write_file(dbases / "new_arven_operations_LU.mdb", old_store);
  std::string good = store_bytes("2025-01-01 00:00:00");
  struct Case {
    const char* what;
    std::vector<std::pair<std::string, std::string>> entries;
    uint64_t cap;
    const char* says;
  } cases[] = {
      {"junk named as the store",
       {{"new_arven_operations_LU.mdb", "junk bytes, no store"}},
       kMaxStoreBytes,
       "not a readable store"},
      {"the master store", {{"arven_operations.mdb", good}}, kMaxStoreBytes, "only"},
      {"zeros past the cap",
       {{"new_arven_operations_LU.mdb", std::string(4 << 20, '\0')}},
       1 << 20,
       "allowed"},
      {"a second entry",
       {{"new_arven_operations_LU.mdb", good}, {"readme.txt", "hello"}},
       kMaxStoreBytes,
       "2 entries"},
      {"another DB Version",
       {{"new_arven_operations_LU.mdb", store_bytes("2025-01-01", 4)}},
       kMaxStoreBytes,
       "DB Version 4"},
  };
  for (const auto& c : cases) {
    make_zip(zip, c.entries);
    std::string why = install_store_archive(zip, 29, dbases, "", c.cap);
    EXPECT_NE(why.find(c.says), std::string::npos) << c.what << ": " << why;
    EXPECT_EQ(installed(), old_store) << c.what;
  }
  // Not a zip at all, and a checksum that does not match.
  write_file(zip, "<html>404 Not Found</html>");
  EXPECT_NE(install_store_archive(zip, 29, dbases), "");
  make_zip(zip, {{"new_arven_operations_LU.mdb", good}});
  EXPECT_NE(install_store_archive(zip, 29, dbases, std::string(64, '0')).find("checksum"),
            std::string::npos);
  EXPECT_EQ(installed(), old_store);

  // A damaged entry: its CRC error is named, not "No error".
  make_zip(zip, {{"new_arven_operations_LU.mdb", good}}, true);
  std::string bytes = read_file(zip);
  size_t at = bytes.find("SQLite format 3");
  ASSERT_NE(at, std::string::npos);
  bytes[at + 200] = static_cast<char>(bytes[at + 200] ^ 0x55);
  write_file(zip, bytes);
  std::string why = install_store_archive(zip, 29, dbases);
  EXPECT_NE(why.find("CRC"), std::string::npos) << why;
  EXPECT_EQ(installed(), old_store);
  // Nothing is left behind in the folder but the store.
  EXPECT_EQ(std::distance(fs::directory_iterator(dbases), fs::directory_iterator()), 1);

  // The good archive, with its checksum, replaces the store.
  make_zip(zip, {{"new_arven_operations_LU.mdb", good}});
  write_sha256_file(zip);
  std::string line = read_file(dir / "arven_db_LU.zip.sha256");
  EXPECT_EQ(line.substr(64), "  arven_db_LU.zip\n");
  EXPECT_EQ(install_store_archive(zip, 29, dbases, sha256_of_line(line)), "");
  EXPECT_EQ(installed(), good);
}

TEST_F(StoreInstallTest, ChecksumLinesAreSha256sumsFormat) {
  write_file(zip, "abc");
  // The SHA-256 of "abc".
  EXPECT_EQ(sha256_file(zip), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  std::string d = sha256_file(zip);
  EXPECT_EQ(sha256_of_line(d + "  arven_db_LU.zip\n"), d);
  std::string upper = d;
  for (auto& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  EXPECT_EQ(sha256_of_line(upper), d);
  EXPECT_EQ(sha256_of_line("<html>" + d), "");
  EXPECT_EQ(sha256_of_line(d.substr(1)), "");
  EXPECT_EQ(sha256_of_line(d + "x"), "");
}

// The downloader program, fetching from a real static server, then
// starting the program named after "--".
TEST_F(StoreInstallTest, DownloaderFetchesInstallsClearsTheKeyAndRestarts) {
  std::string old_store = store_bytes("2024-01-01 00:00:00");
  write_file(dbases / "new_arven_operations_LU.mdb", old_store);
  std::string good = store_bytes("2025-01-01 00:00:00");
  fs::path www = dir / "www/downloads";
  fs::create_directories(www);
  make_zip(www / "arven_db_LU.zip", {{"new_arven_operations_LU.mdb", good}});
  write_sha256_file(www / "arven_db_LU.zip");
  StaticServer server(dir / "www");
  fs::path ini = dir / "config/arven/ARVEN.ini";
  auto run = [&] {
    write_file(ini, "[Settings]\nUpdate_Server=" + server.address() +
                        "\n\n[Download]\nItem to download=29\n");
    fs::remove(dir / "restarted");
    std::string cmd = "XDG_CONFIG_HOME='" + (dir / "config").string() +
                      "' '" ARVEN_BINARY_DIR "/arven-downloader' --app-dir '" +
                      (dir / "app").string() + "' -- /bin/sh -c 'echo \"$0\" > \"$1\"' again '" +
                      (dir / "restarted").string() + "' >/dev/null 2>&1";
    return std::system(cmd.c_str());
  };

  // A checksum that does not match: nothing installed, the reason kept.
  write_file(www / "arven_db_LU.zip.sha256", std::string(64, 'a') + "  arven_db_LU.zip\n");
  EXPECT_EQ(run(), 0);  // the restarted program's status
  EXPECT_EQ(installed(), old_store);
  testing::PreferencesGuard prefs(ini);
  EXPECT_NE(get_setting("Download", "Result", "").find("checksum"), std::string::npos);
  EXPECT_EQ(get_setting("Download", "Installed", "?"), "");
  EXPECT_EQ(read_file(dir / "restarted"), "again\n");

  write_sha256_file(www / "arven_db_LU.zip");
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(installed(), good);
  EXPECT_EQ(get_setting("Download", "Item to download", "?"), "");
  EXPECT_EQ(get_setting("Download", "Result", "?"), "");
  EXPECT_EQ(get_setting("Download", "Installed", ""), "29");
  EXPECT_EQ(read_file(dir / "restarted"), "again\n");
}

}  // namespace
}  // namespace arven

#include "base/replace_file.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "stores/db.h"
#include "support/small_disk.h"
#include "support/store_fixture.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using testing::read_file;
using testing::ReadOnlyFolder;
using testing::SmallDisk;
using testing::TempDir;

void write_file(const fs::path& p, const std::string& text) {
  std::ofstream(p, std::ios::binary | std::ios::trunc) << text;
}

// The names in a folder, the filler of a full disk left out.
std::vector<std::string> names_in(const fs::path& folder) {
  std::vector<std::string> out;
  for (const auto& e : fs::directory_iterator(folder))
    if (e.path().filename() != ".filler") out.push_back(e.path().filename().string());
  std::sort(out.begin(), out.end());
  return out;
}

TEST(ReplaceFile, ReplacesWholeKeepsPermissionsAndLeavesNoTemporary) {
  TempDir dir;
  const fs::path target = dir / "ARVEN.ini";
  write_file(target, "[Settings]\nold=1\n");
  ::chmod(target.c_str(), 0640);
  replace_file(target, "[Settings]\nnew=2\n");
  EXPECT_EQ(read_file(target), "[Settings]\nnew=2\n");
  struct stat st {};
  ASSERT_EQ(::stat(target.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
  EXPECT_EQ(names_in(dir.path()), std::vector<std::string>{"ARVEN.ini"});

  {
    // Left by an exception before its commit: the old file stays.
    ReplacingFile file(target);
    file.write("half");
    EXPECT_EQ(file.temp().parent_path(), dir.path());
    EXPECT_EQ(file.temp().filename().string()[0], '.');
  }
  EXPECT_EQ(read_file(target), "[Settings]\nnew=2\n");
  EXPECT_EQ(names_in(dir.path()), std::vector<std::string>{"ARVEN.ini"});

  ReplacingFile patched(dir / "new.bin");
  patched.write("0000abcd");
  patched.write_at(0, "12");
  patched.commit();
  EXPECT_EQ(read_file(dir / "new.bin"), "1200abcd");
  EXPECT_THROW(replace_file(dir / "missing" / "x.txt", "x"), FileWriteError);
}

TEST(ReplaceFile, FullDiskKeepsTheOldFileAndSaysSo) {
  TempDir dir;
  SmallDisk disk(dir / "disk", 1 << 20);
  if (!disk.mounted()) GTEST_SKIP() << disk.why();
  const fs::path target = disk.folder() / "page.htm";
  write_file(target, "the old page");
  Db store = Db::create(disk.folder() / "store.mdb");
  store.exec_script("CREATE TABLE t (x BLOB)");
  disk.fill();

  try {
    replace_file(target, std::string(200000, 'x'));
    ADD_FAILURE() << "a full disk took the file";
  } catch (const FileWriteError& e) {
    EXPECT_EQ(e.fault(), WriteFault::disk_full);
    EXPECT_EQ(std::string(e.what()),
              "The disk is full: \"" + target.string() + "\" could not be written.");
  }
  EXPECT_EQ(read_file(target), "the old page");
  EXPECT_EQ(names_in(disk.folder()), (std::vector<std::string>{"page.htm", "store.mdb"}));

  // A store on the same disk says the same, in the same words.
  try {
    store.exec("INSERT INTO t VALUES (zeroblob(100000))");
    ADD_FAILURE() << "a full disk took the row";
  } catch (const StoreError& e) {
    EXPECT_EQ(write_fault_of(e), WriteFault::disk_full);
    EXPECT_EQ(std::string(e.what()).rfind("The disk is full: \"", 0), 0u) << e.what();
  }
  // A file a library writes by name: its failure is diagnosed from the disk.
  ReplacingFile by_name(target);
  std::ofstream(by_name.for_library()) << std::string(200000, 'y');
  EXPECT_THROW(by_name.fail("write error"), FileWriteError);
  EXPECT_EQ(diagnosed_write_error(target, "x").fault(), WriteFault::disk_full);
  EXPECT_EQ(read_file(target), "the old page");
}

TEST(ReplaceFile, ReadOnlyFolderSaysSo) {
  TempDir dir;
  const fs::path target = dir / "summary.htm";
  write_file(target, "old");
  ReadOnlyFolder read_only(dir.path());
  if (!read_only.ok()) GTEST_SKIP() << "the folder could not be made read-only";
  try {
    replace_file(target, "new");
    ADD_FAILURE() << "a read-only folder took the file";
  } catch (const FileWriteError& e) {
    EXPECT_EQ(e.fault(), WriteFault::read_only_folder);
    EXPECT_EQ(std::string(e.what()), "The folder \"" + dir.path().string() + "\" is read-only: \"" +
                                         target.string() + "\" could not be written.");
  }
  EXPECT_EQ(read_file(target), "old");
  try {
    Db::create(dir / "new.arv");
    ADD_FAILURE() << "a store was made in a read-only folder";
  } catch (const StoreError& e) {
    EXPECT_EQ(e.write_fault(), WriteFault::read_only_folder) << e.what();
  }
  EXPECT_EQ(write_failure_text("/a/b.txt", WriteFault::in_use),
            "\"/a/b.txt\" is in use by another program: it could not be written.");
}

// A store of 300 rows whose deletion a killed writer left half done: the
// store's pages partly changed, the journal hot beside it.
void leave_hot_journal(const fs::path& path) {
  {
    Db db = Db::create(path);
    db.exec_script("CREATE TABLE t (x BLOB)");
    Transaction tx(db);
    for (int i = 0; i < 300; ++i) db.exec("INSERT INTO t VALUES (zeroblob(1000))");
    tx.commit();
  }
  pid_t child = ::fork();
  if (child == 0) {
    sqlite3* h = nullptr;
    sqlite3_open(path.c_str(), &h);
    // A cache of two pages spills the changed pages into the store.
    sqlite3_exec(h, "PRAGMA cache_size = 2; BEGIN; DELETE FROM t WHERE rowid % 2 = 0;", nullptr,
                 nullptr, nullptr);
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
}

int64_t rows_in(const fs::path& path) {
  Db db = Db::open(path);
  auto q = db.query("SELECT count(*) FROM t");
  return q.next() ? q.get(0).as_int() : -1;
}

TEST(HotJournal, RolledBackWhenOpenedWhoeverOpensIt) {
  TempDir dir;
  const fs::path journal_of = dir / "a.arv-journal";
  for (const char* name : {"a.arv", "b.arv", "c.arv"}) {
    leave_hot_journal(dir / name);
    ASSERT_TRUE(fs::exists(dir / (std::string(name) + "-journal"))) << name;
  }
  // Opened as usual, and opened read-only (another program holds it).
  EXPECT_EQ(rows_in(dir / "a.arv"), 300);
  EXPECT_FALSE(fs::exists(journal_of));
  set_read_only_file(dir / "b.arv");
  EXPECT_EQ(rows_in(dir / "b.arv"), 300);
  set_read_only_file({});
  EXPECT_FALSE(fs::exists(dir / "b.arv-journal"));
  // In a read-only folder the journal stays, and a copy is read rolled back.
  const std::string before = read_file(dir / "c.arv");
  {
    ReadOnlyFolder read_only(dir.path());
    if (!read_only.ok()) GTEST_SKIP() << "the folder could not be made read-only";
    EXPECT_EQ(rows_in(dir / "c.arv"), 300);
  }
  EXPECT_EQ(read_file(dir / "c.arv"), before);
  EXPECT_EQ(rows_in(dir / "c.arv"), 300);
}

}  // namespace
}  // namespace arven

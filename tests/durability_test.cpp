// Commands on a disk that is full or read-only, and on a file that another
// program holds: the user's data stay byte for byte, and one message in
// words says why.
#include <gtest/gtest.h>
#include <sys/file.h>

#include <fstream>

#include "assessment/assessment_file.h"
#include "base/replace_file.h"
#include "core/preferences.h"
#include "core/registry.h"
#include "engine/impact_cache.h"
#include "engine/regional_impact.h"
#include "reports/export.h"
#include "settings/store_install.h"
#include "settings/zip_files.h"
#include "support/small_disk.h"
#include "support/store_fixture.h"
#include "windows/explorer.h"
#include "windows/main_pages.h"
#include "windows/settings_dialog.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using testing::read_file;
using testing::ReadOnlyFolder;
using testing::SmallDisk;

bool starts_with(const std::string& text, const std::string& start) {
  return text.rfind(start, 0) == 0;
}

// Four operations with figures in the Danish store, a region of the open
// file, and `disk`: a small file system for the files a test puts on it.
class DiskTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    activity(5, "Fertiliser");
    for (int64_t id : {10, 11, 12, 13}) {
      store_->insert("Operations",
                     {"Operation ID", "Operation Type ID", "Operation Name", "Scaling up technique",
                      "ST Value", "Uptake"},
                     {id, 1, "Op " + std::to_string(id), 1, 100.0, 50.0});
      add_ops({.area = 1, .op = id, .value = 10.0 * static_cast<double>(id)});
    }
    region("DK011", 1);
    store_->insert("NUTS3", {"NUTS3_ID", "NUTS", "NAME", "SQKM", "AV_FS"},
                   {1, "DK011", "Byen København", 10.0, 1.0});
  }

  // Moves the open file onto a small disk; false (the test skipped) where
  // none can be mounted.
  bool file_on_disk() {
    disk_.emplace(dir_ / "disk", 2 << 20);
    if (!disk_->mounted()) return false;
    file_db_.reset();
    const fs::path moved = disk_->folder() / "test.arv";
    fs::copy_file(file_, moved);
    file_ = moved;
    session().current_file = moved.string();
    file_db_.emplace(Db::open(file_));
    return true;
  }
  int64_t chosen() { return file_value("SELECT count(*) FROM Operations").as_int(); }

  std::optional<SmallDisk> disk_;
};

TEST_F(DiskTest, FullDiskStopsSelectAllAndRecalculationAtOneMessage) {
  if (!file_on_disk()) GTEST_SKIP() << disk_->why();
  addto_oplist(ui_, 10);
  addto_oplist(ui_, 11);
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;
  ASSERT_EQ(chosen(), 2);
  file_db_->exec("UPDATE Version SET \"Regional data changed\" = 'Yes'");
  disk_->fill();
  const std::string before = read_file(file_);

  // Operation 12 cannot be stored: the run stops there, told once.
  ui_.messages.clear();
  op_search(ui_, "");
  select_all(ui_);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, kFileWriteTitle);
  EXPECT_EQ(ui_.messages[0].text,
            "The disk is full: \"" + file_.string() + "\" could not be written.");
  EXPECT_EQ(read_file(file_), before);

  // A recalculation of both in one transaction: rolled back, told once.
  ui_.messages.clear();
  explorer_state().recalc_list = {10, 11};
  EXPECT_EQ(data_update(ui_, explorer_cache_hooks()), ImpactStatus::failed);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_TRUE(starts_with(ui_.messages[0].text, "The disk is full: ")) << ui_.messages[0].text;
  EXPECT_EQ(read_file(file_), before);
  EXPECT_EQ(chosen(), 2);
  EXPECT_EQ(cache_state(), CacheState::stale_region);
}

TEST_F(DiskTest, FullDiskKeepsPreferencesExportsAndPages) {
  disk_.emplace(dir_ / "disk", 1 << 20);
  if (!disk_->mounted()) GTEST_SKIP() << disk_->why();
  const fs::path ini = disk_->folder() / "ARVEN.ini";
  std::ofstream(ini) << "[Settings]\nUpdate_Server=http://updates.example\nmiti_weight=80\n\n"
                        "[Download]\nItem to download=\n";
  testing::PreferencesGuard prefs(ini);
  session().miti_weight = 80;
  session().app_folder = disk_->folder();
  fs::create_directories(disk_->folder() / "exports");
  std::ofstream(disk_->folder() / "exports" / "ranked.csv") << "old export";
  std::ofstream(disk_->folder() / "summary.htm") << "old page";
  disk_->fill();
  const std::string settings = read_file(ini);

  // A settings save: the file and the session stay, one message.
  settings_load();
  settings_dialog().miti_weight = 30;
  EXPECT_FALSE(apply(ui_));
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text,
            "The disk is full: \"" + ini.string() + "\" could not be written.");
  EXPECT_EQ(read_file(ini), settings);
  EXPECT_EQ(session().miti_weight, 80);

  // An export, as CSV over an old one and as a new workbook.
  GridTable grid(2);
  grid.add_row();
  grid.cell(0, 1) = "Name";
  for (bool xlsx : {false, true}) {
    ui_.messages.clear();
    EXPECT_FALSE(export_grid(ui_, grid, "ranked", xlsx));
    ASSERT_EQ(ui_.messages.size(), 1u);
    EXPECT_TRUE(starts_with(ui_.messages[0].text, "The disk is full: ")) << ui_.messages[0].text;
  }
  EXPECT_EQ(read_file(disk_->folder() / "exports" / "ranked.csv"), "old export");
  EXPECT_FALSE(fs::exists(disk_->folder() / "exports" / "ranked.xlsx"));

  // A page.
  try {
    no_ops_selected_html(ui_);
    ADD_FAILURE() << "a full disk took the page";
  } catch (const FileWriteError& e) {
    EXPECT_EQ(e.fault(), WriteFault::disk_full);
  }
  EXPECT_EQ(read_file(disk_->folder() / "summary.htm"), "old page");

  // Room again: one write holds every key, and the others are kept.
  disk_->empty();
  ASSERT_TRUE(apply(ui_));
  EXPECT_EQ(get_setting("Settings", "miti_weight", ""), "30");
  EXPECT_EQ(get_setting("Settings", "Update_Server", ""), "http://updates.example");
  EXPECT_EQ(get_setting("Settings", "hotspot_regional", ""), "0");
}

TEST_F(DiskTest, FullDiskKeepsTheInstalledStore) {
  disk_.emplace(dir_ / "disk", 1 << 20);
  if (!disk_->mounted()) GTEST_SKIP() << disk_->why();
  const fs::path dbases = disk_->folder() / "dbases";
  const fs::path installed = country_store_path(disk_->folder(), "LU");
  fs::create_directories(dbases);
  {
    Db old = create_country_store_base(installed);
    old.insert("Version", {"Version", "DB Version"}, {"2024-01-01", 5});
  }
  const fs::path fresh = dir_ / "new" / installed.filename();
  {
    Db db = create_country_store_base(fresh);
    db.insert("Version", {"Version", "DB Version"}, {"2024-06-01", 5});
    db.exec_script(
        "CREATE TABLE padding (x BLOB); INSERT INTO padding VALUES (randomblob(400000))");
  }
  const fs::path zip = dir_ / "arven_db_LU.zip";
  ASSERT_EQ(zip_single_file(ui_, fresh.string(), zip.string()), kZipOk);
  disk_->fill();
  const std::string before = read_file(installed);
  const std::string why = install_store_archive(zip, 29, dbases);
  EXPECT_TRUE(starts_with(why, "The disk is full: \"" + installed.string())) << why;
  EXPECT_EQ(read_file(installed), before);
  EXPECT_EQ(std::distance(fs::directory_iterator(dbases), fs::directory_iterator()), 1);
}

TEST_F(DiskTest, ReadOnlyDocumentsFolderOpensTheFileAndRefusesChangesOnce) {
  ReadOnlyFolder documents(dir_.path());
  if (!documents.ok()) GTEST_SKIP() << "the folder could not be made read-only";
  file_db_.reset();
  OpenResult opened = open_assessment_file(ui_, file_.string());
  EXPECT_TRUE(opened.file_open);
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;
  const std::string before = read_file(file_);
  addto_oplist(ui_, 10);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_TRUE(
      starts_with(ui_.messages[0].text, "The folder \"" + dir_.path().string() + "\" is read-only"))
      << ui_.messages[0].text;
  EXPECT_EQ(read_file(file_), before);
}

TEST_F(DiskTest, SecondProgramOpensAFileInUseReadOnlyOrNotAtAll) {
  // Another program has the file open: it holds the lock.
  file_db_.reset();
  const std::string path = file_.string();
  const std::string before = read_file(file_);
  int other = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(other, LOCK_EX | LOCK_NB), 0);
  session().current_file.clear();

  ui_.answers = {Answer::Cancel};
  EXPECT_FALSE(open_assessment_file(ui_, path).changed);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "File in use");
  EXPECT_EQ(ui_.messages[0].buttons, MsgButtons::OkCancel);
  EXPECT_TRUE(session().current_file.empty());

  ui_.messages.clear();
  EXPECT_TRUE(open_assessment_file(ui_, path).file_open);
  EXPECT_TRUE(session().current_file_read_only);
  summary_page(ui_);
  EXPECT_NE(page("summary_display.htm").find("(read-only: in use by another ARVEN)"),
            std::string::npos);
  ui_.messages.clear();
  addto_oplist(ui_, 10);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text, write_failure_text(path, WriteFault::in_use));
  EXPECT_EQ(read_file(file_), before);
  // Nor may it be replaced by a new file of that name.
  ui_.messages.clear();
  ui_.files = {path};
  EXPECT_FALSE(file_new(ui_).changed);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "File in use");
  EXPECT_EQ(read_file(file_), before);
  ::close(other);

  // Opened by this program once free: now it holds the lock, until another
  // file is open.
  const fs::path second = dir_ / "second.arv";
  create_assessment_file(second.string());
  ui_.messages.clear();
  ASSERT_TRUE(open_assessment_file(ui_, path).file_open);
  EXPECT_TRUE(ui_.messages.empty());
  EXPECT_FALSE(session().current_file_read_only);
  other = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_NE(::flock(other, LOCK_EX | LOCK_NB), 0);
  ASSERT_TRUE(open_assessment_file(ui_, second.string()).file_open);
  EXPECT_EQ(::flock(other, LOCK_EX | LOCK_NB), 0);
  ::close(other);
}

TEST_F(DiskTest, LevelOutOfRangeNamesTheRegionNotTheStore) {
  file_db_->exec("UPDATE Regions SET \"NUTS Type ID\" = 9223372036854775807");
  try {
    summary_page(ui_);
    ADD_FAILURE() << "the level was taken";
  } catch (const ImpactError& e) {
    EXPECT_NE(std::string(e.what()).find("The area DK011 of the region"), std::string::npos);
    EXPECT_EQ(std::string(e.what()).find("data store"), std::string::npos);
  }
}

}  // namespace
}  // namespace arven

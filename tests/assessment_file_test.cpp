#include "assessment/assessment_file.h"
#include "windows/settings_dialog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "core/session.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
constexpr int kDK = 13, kDE = 12;

void set_times(const fs::path& path, time_t accessed, time_t modified) {
  const struct timespec times[2] = {{accessed, 0}, {modified, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

// The first column of the first row of a query on a store.
Value first_value(const std::string& path, const std::string& sql) {
  Db db = Db::open(path);
  auto rows = db.query(sql);
  return rows.next() ? rows.get(0) : Value();
}

Strings recent() {
  return Strings(session().recent_files.begin() + 1, session().recent_files.end());
}

Strings files_rows() {
  Strings out;
  Db db = Db::open(session().files_db_path);
  auto rows = db.query("SELECT Location FROM Files");
  while (rows.next()) out.push_back(rows.get(0).as_text());
  return out;
}

class AssessmentFileTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    Session& s = session();
    s.app_folder = dir_.path();
    s.structure_version = kStructureVersion;
    s.documents_folder = (dir_ / "docs").string();
    fs::create_directories(folder_);
    s.files_db_path = (dir_ / "ARVEN_Files.mdb").string();
    create_files_store(s.files_db_path);
    create_country_store_base(dk_).insert("Version", {"Version", "DB Version"},
                                          {"2024-03-01 00:00:00", kDbVersion});
    s.country_installed[kDK] = 1;
    s.country_db_path[kDK] = dk_;
    s.country_name[kDE] = "Germany (DE)";
    s.ops_db_path = s.rvc_db_path = "default";
  }

  std::string make_file(const std::string& name, std::vector<int> countries = {}) {
    std::string path = (folder_ / name).string();
    create_assessment_file(path);
    Db db = Db::open(path);
    for (int cc : countries) db.insert("Regions", {"NUTS0_ID", "NUTS Name"}, {cc, "Área's"});
    return path;
  }

  testing::TempDir dir_;
  fs::path folder_ = dir_ / "docs" / "My ARVEN Files";
  std::string dk_ = (dir_ / "new_arven_operations_DK.mdb").string();
  testing::ScriptedUi ui_;
};

TEST_F(AssessmentFileTest, RefusesOtherStructuresAndMissingCountryStores) {
  for (int version : {7, 9}) {
    std::string path = make_file("v" + std::to_string(version) + ".arv");
    Db::open(path).exec("UPDATE \"Version\" SET \"Structure Version\" = ?", {version});
    session().current_file = "previous.arv";
    EXPECT_FALSE(open_assessment_file(ui_, path).file_open);
    EXPECT_EQ(session().current_file, "");
    EXPECT_EQ(ui_.messages.back().title, "Incompatible file version");
    EXPECT_EQ(ui_.messages.back().text,
              "The file you are attempting to open has an old ARVEN file structure. "
              "Unfortunately, it cannot be opened with this version of ARVEN.");
    EXPECT_EQ(ui_.messages.back().icon, MsgIcon::Stop);
  }

  // The last row decides, and Germany's store is missing.
  std::string path = make_file("de.arv", {kDK, kDE});
  ui_.log.clear();
  const OpenResult yes = open_assessment_file(ui_, path);
  EXPECT_FALSE(yes.file_open);
  EXPECT_TRUE(yes.wants_download);
  EXPECT_EQ(ui_.messages.back().text,
            "The file you are trying to requires a database that you do not have installed: "
            "Germany (DE).\n\nWould you like to download this database now?");
  EXPECT_TRUE(ui_.messages.back().buttons == MsgButtons::YesNo &&
              ui_.messages.back().icon == MsgIcon::Question);
  // The window then shows the update tab, whose check, with no server
  // configured, says so twice (no connection, no software version).
  offer_store_download(ui_, yes);
  EXPECT_EQ(ui_.log, (Strings{"message:Database not installed", "message:Cannot proceed",
                              "message:Cannot proceed", "modal:settings:5"}));
  ui_.answers.push_back(Answer::No);
  ui_.log.clear();
  EXPECT_FALSE(open_assessment_file(ui_, path).wants_download);
  EXPECT_EQ(ui_.log, (Strings{"message:Database not installed"}));
  EXPECT_EQ(session().current_file, "");
  EXPECT_EQ(session().ops_db_path + session().rvc_db_path, "defaultdefault");
  EXPECT_TRUE(files_rows().empty());
}

TEST_F(AssessmentFileTest, OpensFilesAndTakesTheCountryStoreOfTheRegion) {
  std::string empty = make_file("empty.arv");
  OpenResult r = open_assessment_file(ui_, empty);
  EXPECT_TRUE(r.file_open && r.edit_region_enabled && !r.hotspot_enabled);
  EXPECT_EQ(session().ops_db_path, "default");

  // A path with apostrophes, spaces and non-ASCII letters, opened twice.
  fs::create_directories(folder_ / "O'Brien's Ærø");
  std::string odd = make_file("O'Brien's Ærø/l'été à Søby.arv", {kDK, kDK});
  set_times(odd, 1'000'000'000, 1'000'000'000);
  open_assessment_file(ui_, odd);
  r = open_assessment_file(ui_, odd);
  EXPECT_TRUE(r.file_open && r.hotspot_enabled);
  EXPECT_EQ(session().current_file, odd);
  EXPECT_EQ(session().ops_db_path, dk_);
  EXPECT_EQ(session().rvc_db_path, dk_);
  struct stat st {};
  stat(odd.c_str(), &st);
  EXPECT_GT(st.st_mtime, 1'000'000'000);  // touched, and no Z1 row left behind
  EXPECT_EQ(first_value(odd, "SELECT count(*) FROM Regions WHERE \"NUTS Name\" = 'Z1'").as_int(),
            0);
  EXPECT_EQ(files_rows(), (Strings{empty, odd}));

  // A read-only file opens and still counts as just used.
  std::string locked = make_file("locked.arv");
  fs::permissions(locked, fs::perms::owner_read);
  set_times(locked, 1'000'000'000, 1'000'000'000);
  EXPECT_TRUE(open_assessment_file(ui_, locked).file_open);
  EXPECT_EQ(session().recent_files[1], locked);
  EXPECT_EQ(session().ops_db_path, dk_);  // the store stays chosen
  EXPECT_TRUE(ui_.messages.empty());

  EXPECT_FALSE(open_assessment_file(ui_, (dir_ / "gone.arv").string()).file_open);
  EXPECT_EQ(session().current_file, "");
  EXPECT_TRUE(ui_.messages.empty());
}

TEST_F(AssessmentFileTest, DamagedFilesAreNamedAndLeaveTheSessionAsItWas) {
  std::string good = make_file("good.arv", {kDK});
  open_assessment_file(ui_, good);
  session().ops_db_path = "ops";
  const Session before = session();

  std::string text = (folder_ / "notes.arv").string();
  std::ofstream(text) << "Notes, not a store.";
  std::string no_regions = make_file("no regions.arv");
  Db::open(no_regions).exec_script("DROP TABLE \"Regions\"");
  std::string no_version = make_file("no version.arv", {kDK});
  Db::open(no_version).exec_script("DROP TABLE \"Version\"");
  std::string no_column = make_file("no column.arv");
  Db::open(no_column).exec_script("ALTER TABLE \"Operations\" DROP COLUMN \"TArea\"");
  // A copy cut short keeps its first pages, Version among them: damaged,
  // not an old structure.
  std::string cut = make_file("cut.arv", {kDK});
  fs::resize_file(cut, fs::file_size(cut) / 2);

  for (const std::string& path : {text, no_regions, no_version, no_column, cut}) {
    ui_.messages.clear();
    EXPECT_FALSE(open_assessment_file(ui_, path).changed);
    ASSERT_EQ(ui_.messages.size(), 1u) << path;
    EXPECT_EQ(ui_.messages[0].title, "Cannot open file");
    EXPECT_NE(ui_.messages[0].text.find(path), std::string::npos);
    EXPECT_EQ(ui_.messages[0].icon, MsgIcon::Exclamation);
    EXPECT_EQ(session().current_file, before.current_file);
    EXPECT_EQ(session().ops_db_path, "ops");
    EXPECT_EQ(session().rvc_db_path, before.rvc_db_path);
    EXPECT_EQ(session().recent_files, before.recent_files);
  }
  EXPECT_NE(ui_.messages[0].text.find("damaged"), std::string::npos);
  EXPECT_EQ(files_rows(), Strings{good});
}

// A file that cannot be made leaves nothing behind, and a file it was to
// replace stays as it was.
TEST_F(AssessmentFileTest, AFailedNewFileLeavesNoHalfMadeFile) {
  std::string kept = make_file("kept.arv");
  Db::open(kept).insert("Operations", {"Operation ID", "Operation Name"}, {7, "Hedges"});
  ui_.files = {(folder_ / (std::string(300, 'n') + ".arv")).string()};
  EXPECT_FALSE(file_new(ui_).changed);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "Cannot create file");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
  EXPECT_EQ(first_value(kept, "SELECT \"Operation Name\" FROM Operations").as_text(), "Hedges");
}

TEST_F(AssessmentFileTest, RecentListKeepsTheFourLatestFilesLatestFirst) {
  Strings p;
  for (const char* name : {"a.arv", "b.arv", "c.arv", "d.arv", "e.arv"}) {
    p.push_back(make_file(name));
    add_recent_file("", "", p.back());
  }
  add_recent_file("renamed", "farm", p[0]);
  EXPECT_EQ(files_rows().size(), 5u);
  // Last used is the later of access and modification; c and e tie, e is the later row.
  set_times(p[0], 100'000, 100'000);
  set_times(p[1], 900'000, 200'000);
  set_times(p[2], 300'000, 500'000);
  set_times(p[3], 400'000, 800'000);
  set_times(p[4], 500'000, 100'000);
  refresh_recent_files();
  EXPECT_EQ(recent(), (Strings{p[1], p[3], p[4], p[2]}));

  open_assessment_file(ui_, p[0]);  // opening puts even the oldest first
  EXPECT_EQ(recent(), (Strings{p[0], p[1], p[3], p[4]}));

  fs::remove(p[1]);
  refresh_recent_files();
  EXPECT_EQ(recent(), (Strings{p[0], p[3], p[4], p[2]}));
  EXPECT_EQ(files_rows(), (Strings{p[0], p[2], p[3], p[4]}));

  EXPECT_EQ(file_attribute(p[0], 4).as_int(), static_cast<int64_t>(fs::file_size(p[0])));
  set_times(p[2], 100'000, 86'400 * 400);
  EXPECT_EQ(file_attribute(p[2], 3).as_text().substr(0, 4), "1971");
  EXPECT_TRUE(file_attribute(p[1], 3).is_null());
}

TEST_F(AssessmentFileTest, NewOpenAndSaveAsGoThroughTheChooser) {
  EXPECT_FALSE(file_new(ui_).changed || file_open(ui_).changed || file_save_as(ui_).changed);
  EXPECT_EQ(ui_.log,
            (Strings{"file_dialog:Save ARVEN File As...", "file_dialog:Open ARVEN File..."}));
  EXPECT_TRUE(fs::is_empty(folder_));

  std::string path = (folder_ / "farm.arv").string();
  ui_.files = {path};
  EXPECT_TRUE(file_new(ui_).file_open);
  EXPECT_EQ(session().current_file, path);
  EXPECT_EQ(Db::open(path).table_names(), (Strings{"Regions", "Operations", "Activity-Impact data",
                                                   "Operation-Impact data", "Version"}));
  EXPECT_EQ(first_value(path,
                        "SELECT \"Structure Version\" || \"Regional data changed\" || "
                        "ifnull(\"Carbon seq included\", '-') FROM Version")
                .as_text(),
            "8No-");
  Db::open(path).insert("Operations", {"Operation ID", "Operation Name"}, {7, "Hedges"});

  // The same file, also under another spelling: nothing is copied.
  auto stamp = fs::last_write_time(path);
  ui_.files = {path, (folder_ / "." / "farm.arv").string(), ""};
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(file_save_as(ui_).changed);
  EXPECT_EQ(fs::last_write_time(path), stamp);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);

  std::string copy = (folder_ / "farm copy.arv").string();
  ui_.files = {copy};
  EXPECT_TRUE(file_save_as(ui_).file_open);
  EXPECT_EQ(session().current_file, copy);
  EXPECT_EQ(first_value(copy, "SELECT \"Operation Name\" FROM Operations").as_text(), "Hedges");

  ui_.files = {path};
  EXPECT_TRUE(file_open(ui_).file_open);
  EXPECT_TRUE(recent_file_open(ui_, 2).file_open);
  EXPECT_EQ(session().current_file, copy);
  EXPECT_FALSE(recent_file_open(ui_, 3).changed);
  EXPECT_TRUE(ui_.messages.empty());
}

}  // namespace
}  // namespace arven

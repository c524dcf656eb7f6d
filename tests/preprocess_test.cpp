#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "core/session.h"
#include "prep/master_import.h"
#include "prep/packaging.h"
#include "prep/preprocess.h"
#include "stores/db.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/small_disk.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

using testing::ScriptedUi;
using testing::TempDir;

std::string file_bytes(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// The demo masters in a program folder, copied to the working copies as
// "Copy DBs" does; runs over Luxembourg (four areas) keep the tests quick.
class PreprocessTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = dir.path();
    session().db_version = 5;
    auto dbases = dir / "dbases";
    import_master_csv(std::string(ARVEN_SOURCE_DIR) + "/data/demo", dbases / "arven_operations.mdb",
                      dbases / "arven_rvcs.mdb");
    session().ops_db_path = (dbases / "arven_operations.mdb").string();
    session().rvc_db_path = (dbases / "arven_rvcs.mdb").string();
    copy_dbs();
    for (const auto& item : prepro_operation_search(""))
      params.operations.push_back({item.data, item.text, false});
    params.countries = {29};  // LU
    params.level = 3;
    params.mode = RunMode::all;
  }

  bool run() {
    ui.messages.clear();
    return process_start2(ui, params, control);
  }
  Db target() { return Db::open(country_target_path("LU")); }
  // Marks every stored row, so a test can see which ones a run rewrote.
  void mark_rows() {
    Db t = target();
    for (int k = 0; k <= 3; ++k)
      t.exec("UPDATE \"NUTS" + std::to_string(k) + "_OPS\" SET \"Refs\" = 'old'");
  }
  // Operations whose rows were rewritten since mark_rows, at NUTS3.
  std::set<int64_t> rewritten() {
    std::set<int64_t> out;
    auto rows = target().query(
        "SELECT DISTINCT \"Operation ID\" FROM \"NUTS3_OPS\" WHERE ifnull(\"Refs\", '') <> 'old'");
    while (rows.next()) out.insert(rows.get(0).as_int());
    return out;
  }

  TempDir dir;
  ScriptedUi ui;
  RunParams params;
  RunControl control;
};

TEST_F(PreprocessTest, FullRunStoresEveryLevelStampsAndPublishes) {
  ASSERT_TRUE(run());
  ASSERT_EQ(ui.messages.back().text, "Done");
  EXPECT_EQ(ui.messages.back().title, "Pre-processing");
  Db t = target();
  auto rows = t.query("SELECT * FROM \"NUTS0_OPS\"");
  int n = 0;
  while (rows.next()) {
    ++n;
    EXPECT_EQ(rows.get("NUTS Type ID").as_int(), 3);  // the literal, at every level
    EXPECT_TRUE(rows.get("NUTS1_ID").is_null());
    EXPECT_EQ(rows.get("NUTS0_ID").as_int(), 29);
    EXPECT_EQ(rows.get("Number of fields").as_int(), 0);
    int type = static_cast<int>(rows.get("Impact Type").as_int());
    EXPECT_EQ(type == 2, rows.get("Cseq Years").as_double() > 0);
    if (type != 3) {
      EXPECT_EQ(rows.get("Impact max").as_double(), 0);
    }
  }
  EXPECT_GT(n, 100);
  // Data quality: the factor row's score times the master's Operation_DQ.
  Db masters = Db::open(prepro_ops_master_path());
  std::map<int64_t, double> operation_dq, factor_dq;
  auto m = masters.query("SELECT * FROM \"Operations\"");
  while (m.next()) operation_dq[m.get("Operation ID").as_int()] = m.get("Operation_DQ").as_double();
  auto f = masters.query("SELECT * FROM \"Yield_Activity_Impact_Factors\" ORDER BY rowid");
  while (f.next())
    factor_dq.emplace(f.get("Activity ID").as_int(), f.get("Data_Quality").as_double());
  auto dq = t.query("SELECT * FROM \"NUTS3_OPS\" WHERE \"Impact Type\" = 4");
  int checked = 0;
  while (dq.next()) {
    double expected = factor_dq.at(dq.get("Activity ID").as_int()) *
                      operation_dq.at(dq.get("Operation ID").as_int());
    EXPECT_NEAR(dq.get("Data_Quality").as_double(), expected, 0.5);
    ++checked;
  }
  EXPECT_GT(checked, 0);
  auto version = t.query("SELECT * FROM \"Version\"");
  ASSERT_TRUE(version.next());
  EXPECT_EQ(version.get("DB Version").as_int(), 5);
  std::vector<int64_t> ids;
  for (const auto& op : params.operations) ids.push_back(op.id);
  EXPECT_EQ(version.get("Version").as_text(), latest_last_updated(ids));
  EXPECT_TRUE(std::filesystem::exists(country_archive_path("LU")));
  EXPECT_EQ(file_bytes(country_version_file_path("LU")),
            version_file_text(version.get("Version").as_text()) + "\n");
  // The store paths are restored.
  EXPECT_EQ(session().ops_db_path, (dir / "dbases/arven_operations.mdb").string());
}

TEST_F(PreprocessTest, ModesChooseByDateRowsAndSelection) {
  ASSERT_TRUE(run());
  int64_t a = params.operations[0].id, b = params.operations[1].id;
  params.existing_db = true;
  {
    Db m = Db::open(prepro_ops_master_path());
    // A later edit of a on the same day does not count; a later day does.
    m.exec(
        "UPDATE \"Operations\" SET \"Last_Updated\" = substr(\"Last_Updated\", 1, 10) || "
        "' 23:59:59' WHERE \"Operation ID\" = ?",
        {Value(b)});
    m.exec(
        "UPDATE \"Operations\" SET \"Last_Updated\" = '2031-01-01 00:00:00' WHERE \"Operation ID\" "
        "= ?",
        {Value(a)});
  }
  mark_rows();
  params.mode = RunMode::by_date;
  ASSERT_TRUE(run());
  EXPECT_EQ(rewritten(), std::set<int64_t>{a});
  ASSERT_TRUE(run());  // the store now remembers the date: nothing is due
  mark_rows();
  ASSERT_TRUE(run());
  EXPECT_TRUE(rewritten().empty());

  target().exec("DELETE FROM \"NUTS3_OPS\" WHERE \"Operation ID\" = ?", {Value(b)});
  params.mode = RunMode::add_new;
  ASSERT_TRUE(run());
  EXPECT_EQ(rewritten(), std::set<int64_t>{b});

  mark_rows();
  params.mode = RunMode::update_selected;  // nothing selected: nothing regenerated
  ASSERT_TRUE(run());
  EXPECT_TRUE(rewritten().empty());
  EXPECT_EQ(ui.messages.back().text, "Done");
  params.operations[1].selected = true;
  ASSERT_TRUE(run());
  EXPECT_EQ(rewritten(), std::set<int64_t>{b});
}

TEST_F(PreprocessTest, DataFaultStopsTheRunAndKeepsThePublishedPair) {
  ASSERT_TRUE(run());
  std::string archive = file_bytes(country_archive_path("LU"));
  std::string version = file_bytes(country_version_file_path("LU"));
  {
    // A class-by-class marker on an activity with adaptation factors.
    Db m = Db::open(prepro_ops_master_path());
    m.exec("INSERT INTO \"Operation_Activity_Delta\" VALUES (?, 1, 20, 0, 0, 'Multi')",
           {Value(params.operations[0].id)});
  }
  EXPECT_FALSE(run());
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_NE(ui.messages[0].text.find("operation " + std::to_string(params.operations[0].id)),
            std::string::npos);
  EXPECT_NE(ui.messages[0].text.find("activity 20"), std::string::npos);
  EXPECT_EQ(file_bytes(country_archive_path("LU")), archive);
  EXPECT_EQ(file_bytes(country_version_file_path("LU")), version);
  EXPECT_EQ(session().rvc_db_path, (dir / "dbases/arven_rvcs.mdb").string());

  std::filesystem::remove(prepro_rvcs_master_path());
  EXPECT_FALSE(run());
  EXPECT_NE(ui.messages[0].text.find("arven_rvcs.mdb"), std::string::npos);
}

// A run on a disk that fills up stops at the first write that fails, with
// one message in words, and leaves the published store, archive and
// version file as they were.
TEST_F(PreprocessTest, FullDiskStopsTheRunOnceAndKeepsWhatWasPublished) {
  ASSERT_TRUE(run());
  testing::SmallDisk disk(dir / "disk", 64 << 20);
  if (!disk.mounted()) GTEST_SKIP() << disk.why();
  const auto prepro = prepro_folder();
  std::filesystem::copy(prepro, disk.folder(), std::filesystem::copy_options::recursive);
  std::filesystem::remove_all(prepro);
  std::filesystem::create_directory_symlink(disk.folder(), prepro);
  const std::string store = file_bytes(country_target_path("LU"));
  const std::string archive = file_bytes(country_archive_path("LU"));
  const std::string version = file_bytes(country_version_file_path("LU"));
  disk.fill();
  EXPECT_FALSE(run());
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].text.rfind("The pre-processing run stopped: The disk is full: ", 0), 0u)
      << ui.messages[0].text;
  EXPECT_EQ(file_bytes(country_target_path("LU")), store);
  EXPECT_EQ(file_bytes(country_archive_path("LU")), archive);
  EXPECT_EQ(file_bytes(country_version_file_path("LU")), version);
  for (const auto& e : std::filesystem::recursive_directory_iterator(disk.folder()))
    EXPECT_EQ(e.path().string().find(".tmp"), std::string::npos) << e.path();
  std::filesystem::remove(prepro);
}

// Halts after the first area has been written.
class HaltingUi : public ScriptedUi {
 public:
  RunControl* control = nullptr;
  void progress(int value, int max, const std::string& label) override {
    ScriptedUi::progress(value, max, label);
    if (max > 1 && value >= 1) control->halted = true;
  }
};

TEST_F(PreprocessTest, HaltStopsAfterTheAreaWithoutPublishing) {
  HaltingUi halting;
  halting.control = &control;
  ASSERT_TRUE(process_start2(halting, params, control));
  EXPECT_EQ(halting.messages.back().text, "Processing halted");
  EXPECT_FALSE(std::filesystem::exists(country_archive_path("LU")));
  auto rows = target().query("SELECT count(*) FROM \"NUTS3_OPS\"");
  rows.next();
  EXPECT_EQ(rows.get(0).as_int(), 0);  // the run stopped before NUTS3
}

// A copy killed half way left a 0-byte target and temporaries: the next run
// removes the temporaries and keeps the backup of the last whole target.
TEST_F(PreprocessTest, DamagedTargetNeverReplacesTheBackupAndTemporariesGo) {
  ASSERT_TRUE(run());
  ASSERT_TRUE(run());
  const auto backup = prepro_folder() / "backup_new_arven_operations_LU.mdb";
  const std::string good = file_bytes(backup);
  ASSERT_FALSE(good.empty());
  std::ofstream(country_target_path("LU"), std::ios::trunc).close();
  const auto stale = {prepro_folder() / "zipped" / "arven_db_LU.zip.tmp.Xy12ab",
                      prepro_folder() / "new_arven_operations_LU.mdb.tmp"};
  for (const auto& p : stale) std::ofstream(p) << "half";
  ASSERT_TRUE(run());
  EXPECT_EQ(file_bytes(backup), good);
  for (const auto& p : stale) EXPECT_FALSE(std::filesystem::exists(p)) << p;
  EXPECT_TRUE(store_is_whole(country_target_path("LU")));
  EXPECT_EQ(ui.messages.back().text, "Done");
}

// The batch form's --operations selects within the list of all operations.
TEST_F(PreprocessTest, BatchOperationsSelectWithinTheList) {
  auto batch = [&](const std::string& mode) {
    std::string cmd = std::string(ARVEN_BINARY_DIR) + "/arven-admin preprocess --app-dir '" +
                      dir.path().string() + "' --countries LU --level 0 --mode " + mode +
                      " --operations " + std::to_string(params.operations[1].id) + " >/dev/null";
    EXPECT_EQ(std::system(cmd.c_str()), 0) << cmd;
    std::set<int64_t> ops;
    auto rows = target().query("SELECT DISTINCT \"Operation ID\" FROM \"NUTS0_OPS\"");
    while (rows.next()) ops.insert(rows.get(0).as_int());
    return ops;
  };
  EXPECT_EQ(batch("selected"), (std::set<int64_t>{params.operations[1].id}));
  // Add new and update selected: the selected one and every one not yet there.
  EXPECT_EQ(batch("new-and-selected").size(), params.operations.size());
  EXPECT_EQ(batch("all").size(), params.operations.size());
}

}  // namespace
}  // namespace arven

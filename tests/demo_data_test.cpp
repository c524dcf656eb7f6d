#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>
#include <string>

#include "core/session.h"
#include "prep/master_import.h"
#include "prep/packaging.h"
#include "prep/preprocess.h"
#include "stores/db.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

using testing::ScriptedUi;
using testing::TempDir;

// The demo data as set-up builds them: the CSV masters imported, then the
// pre-processor's run over the three demo countries at every level.
class DemoDataTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TempDir();
    reset_session();
    session().app_folder = dir_->path();
    session().db_version = 5;
    const auto dbases = dir_->path() / "dbases";
    import_master_csv(std::string(ARVEN_SOURCE_DIR) + "/data/demo", dbases / "arven_operations.mdb",
                      dbases / "arven_rvcs.mdb");
    session().ops_db_path = (dbases / "arven_operations.mdb").string();
    session().rvc_db_path = (dbases / "arven_rvcs.mdb").string();
    copy_dbs();
    RunParams params;
    for (const auto& item : prepro_operation_search(""))
      params.operations.push_back({item.data, item.text, false});
    params.countries = {13, 23, 29};  // DK, IE, LU
    params.level = 3;
    params.mode = RunMode::all;
    ScriptedUi ui;
    RunControl control;
    ran_ = process_start2(ui, params, control);
  }
  static void TearDownTestSuite() {
    delete dir_;
    dir_ = nullptr;
  }
  void SetUp() override { ASSERT_TRUE(ran_) << "the pre-processing run failed"; }

  static Db masters() { return Db::open(prepro_ops_master_path()); }
  static Db rvcs() { return Db::open(session().rvc_db_path); }

  static TempDir* dir_;
  static bool ran_;
};

TempDir* DemoDataTest::dir_ = nullptr;
bool DemoDataTest::ran_ = false;

// Every operation in every area of the three stores: where its land is
// absent (no treated area) it has no figure either, of any kind; and an
// operation with activity deltas has figures somewhere.
TEST_F(DemoDataTest, NoOperationHasFiguresWithoutLand) {
  std::set<int64_t> with_deltas;
  {
    auto rows =
        masters().query("SELECT DISTINCT \"Operation ID\" FROM \"Operation_Activity_Delta\"");
    while (rows.next()) with_deltas.insert(rows.get(0).as_int());
  }
  ASSERT_GT(with_deltas.size(), 40u);
  std::set<int64_t> with_figures;
  std::map<int64_t, std::set<std::string>> faults;  // operation -> areas
  int areas_checked = 0;
  for (const char* cc : {"DK", "IE", "LU"}) {
    Db store = Db::open(country_target_path(cc));
    for (int k = 0; k <= 3; ++k) {
      auto rows = store.query(
          "SELECT \"NUTS Code\", \"Operation ID\", \"Impact Type\", "
          "\"Impact value\", \"Impact area\" FROM \"NUTS" +
          std::to_string(k) + "_OPS\"");
      while (rows.next()) {
        ++areas_checked;
        const int64_t op = rows.get(1).as_int();
        const double value = rows.get(3).as_double(), area = rows.get(4).as_double();
        EXPECT_GE(area, 0) << cc << " operation " << op;
        if (value != 0 && area > 0) with_figures.insert(op);
        if (value != 0 && area == 0)
          faults[op].insert(rows.get(0).as_text() + " (type " + rows.get(2).as_text() + ")");
      }
    }
  }
  EXPECT_GT(areas_checked, 1000);
  for (const auto& [op, where] : faults) {
    std::ostringstream list;
    for (const auto& w : where) list << ' ' << w;
    ADD_FAILURE() << "operation " << op << " has figures where its land is absent:" << list.str();
  }
  for (int64_t op : with_deltas) EXPECT_TRUE(with_figures.count(op)) << "operation " << op;
}

// The land of every operation is distributed somewhere, and every RVC its
// factors read has a child for that land: without one the figures would
// be taken over the whole area while the treated area is the land's share.
TEST_F(DemoDataTest, EveryLandAndClassAnOperationUsesIsDistributed) {
  Db r = rvcs();
  std::map<int64_t, int64_t> corine_rvc;           // land class -> its RVC
  std::set<std::pair<int64_t, int64_t>> children;  // (parent RVC, land class)
  auto list =
      r.query("SELECT \"RVC ID\", \"RVC Type\", \"RVC Parent\", \"CORINE Class\" FROM RVC_List");
  while (list.next()) {
    const int64_t id = list.get(0).as_int(), type = list.get(1).as_int();
    const int64_t parent = list.get(2).as_int(), land = list.get(3).as_int();
    if (type == 5) corine_rvc.emplace(land, id);
    if (parent != 0) children.insert({parent, land});
  }
  auto shared = [&](int64_t rvc) {
    auto q = r.query(
        "SELECT count(*) FROM \"NUTS3_RVC_Data_Dist\" WHERE \"RVC ID\" = ? AND \"RVC Class\" = 1 "
        "AND \"Percent\" > 0",
        {Value(rvc)});
    return q.next() && q.get(0).as_int() > 0;
  };

  Db m = masters();
  auto uses = m.query(
      "SELECT DISTINCT o.\"Operation ID\", o.\"CORINE Class\", d.\"RVC ID\", f.\"RVC ID\" "
      "FROM \"Operations\" o JOIN \"Operation_Activity_Delta\" d ON d.\"Operation ID\" = "
      "o.\"Operation ID\" JOIN (SELECT \"Activity ID\", \"RVC ID\" FROM "
      "\"Mitigation_Activity_Emission_Factors\" UNION SELECT \"Activity ID\", \"RVC ID\" FROM "
      "\"Adaptation_Activity_Impact_Factors\" UNION SELECT \"Activity ID\", \"RVC ID\" FROM "
      "\"Yield_Activity_Impact_Factors\") f ON f.\"Activity ID\" = d.\"Activity ID\" "
      "WHERE o.\"CORINE Class\" <> 0");
  int checked = 0;
  while (uses.next()) {
    ++checked;
    const int64_t op = uses.get(0).as_int(), land = uses.get(1).as_int();
    ASSERT_TRUE(corine_rvc.count(land)) << "operation " << op << ", land " << land;
    EXPECT_TRUE(shared(corine_rvc.at(land))) << "operation " << op << ", land " << land;
    // The "any land" factor RVC stands for the delta's RVC, or for the land.
    int64_t rvc = uses.get(3).as_int();
    if (rvc == 19) rvc = uses.get(2).is_empty() ? 0 : uses.get(2).as_int();
    if (rvc == 0 || rvc == 15) continue;
    EXPECT_TRUE(children.count({rvc, land}))
        << "operation " << op << ": RVC " << rvc << " has no child for land " << land;
  }
  EXPECT_GT(checked, 50);
}

}  // namespace
}  // namespace arven

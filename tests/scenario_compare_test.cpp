#include "reports/scenario_compare.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "assessment/assessment_file.h"
#include "core/session.h"
#include "reports/explorer_window.h"
#include "stores/db.h"
#include "support/store_fixture.h"
#include "windows/explorer.h"

namespace arven {
namespace {

using Row = std::vector<std::string>;

// The open file over 10 km² (1000 ha); a second file over 20 km² with other
// uptakes and one operation more.
class ScenarioCompareTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    fix_page_date();
    region("DK011", 1);
    other_ = (dir_ / "other.arv").string();
    create_assessment_file(other_);
    Db other = Db::open(other_);
    other.insert("Regions", {"NUTS0_ID", "NUTS Type ID", "NUTS Code", "NUTS ID", "NUTS AREA"},
                 {kDK, 3, "DK012", 2, 20.0});
    // Operation 1: 10 % of 1000 ha at 2 €/ha a year; in file 2 20 % of 2000 ha.
    choose(*file_db_, 1, "Hedges & <banks>", 10, 2, 100);
    figures(*file_db_, 1, -100, -1, 5, 40);
    choose(other, 1, "Hedges & <banks>", 20, 2, 100);
    figures(other, 1, -450, -1.125, 7, 10);
    choose(other, 2, "Slurry", 50, 0, 30);
    figures(other, 2, -50, -0.05, 0, 0);
  }
  static void choose(Db& db, int64_t id, const std::string& name, double uptake, double annual,
                     double single) {
    db.insert("Operations",
              {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "Uptake",
               "Cost", "Cost Single", "TEA_Inc", "TEA_Factor", "TEA_Cost"},
              {id, name, 1, 100.0, uptake, annual, single, 0, 0.0, 0.0});
  }
  static void figures(Db& db, int64_t id, double ghg, double ghg_ha, double risk,
                      double production) {
    const std::vector<std::string> cols = {
        "Operation ID",       "Impact type",           "Time horizon",
        "Regional impact ha", "Regional impact total", "Regional risk reduction total"};
    db.insert("Operation-Impact data", cols, {id, 1, 50, ghg_ha, ghg, Value()});
    db.insert("Operation-Impact data", cols, {id, 1, 10, 99.0, 99.0, Value()});  // not read
    db.insert("Operation-Impact data", cols, {id, 2, 1, Value(), Value(), risk});
    db.insert("Operation-Impact data", cols, {id, 4, 50, Value(), production, Value()});
  }
  std::string other_;
};

TEST_F(ScenarioCompareTest, EachOperationOfEitherFileWithDifferencesAndTotals) {
  const CostOptions options{1, 2, 50};
  const Scenario a = read_scenario(ui_, file_.string(), options);
  const Scenario b = read_scenario(ui_, other_, options);
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;
  // The second file's costs are over its own region: 400 ha × 2 € × 50 + 100.
  ASSERT_EQ(b.operations.size(), 2u);
  EXPECT_DOUBLE_EQ(b.operations[0].cost, 40100);
  EXPECT_EQ(b.regions, "DK012 ");
  EXPECT_EQ(session().current_file, file_.string());

  const GridTable g = compare_scenarios(a, b);
  ASSERT_EQ(g.rows(), 4);
  EXPECT_EQ(g.cell(0, 2), "GHG (tCO2e) (total), file 1");
  EXPECT_EQ(g.cell(0, 16), "Cost (€), difference");
  // Operation 1: cost 100 ha × 2 € × 50 + 100 = 10100 in file 1.
  EXPECT_EQ((Row{g.cell(1, 0), g.cell(1, 1), g.cell(1, 2), g.cell(1, 3), g.cell(1, 4)}),
            (Row{"1", "Hedges &amp; &lt;banks&gt;", "-100", "-450", "-350"}));
  EXPECT_EQ((Row{g.cell(1, 5), g.cell(1, 6), g.cell(1, 7)}), (Row{"-1", "-1.125", "-0.125"}));
  EXPECT_EQ((Row{g.cell(1, 8), g.cell(1, 9), g.cell(1, 10)}), (Row{"5", "7", "2"}));
  EXPECT_EQ((Row{g.cell(1, 11), g.cell(1, 12), g.cell(1, 13)}), (Row{"40", "10", "-30"}));
  EXPECT_EQ((Row{g.cell(1, 14), g.cell(1, 15), g.cell(1, 16)}), (Row{"10100", "40100", "30000"}));
  // Operation 2 is in file 2 only: its file-1 cells are empty, counted 0.
  EXPECT_EQ((Row{g.cell(2, 2), g.cell(2, 3), g.cell(2, 4), g.cell(2, 16)}),
            (Row{"", "-50", "-50", "30"}));
  // Totals: no sum of per-hectare figures.
  EXPECT_EQ((Row{g.cell(3, 1), g.cell(3, 2), g.cell(3, 3), g.cell(3, 4), g.cell(3, 5)}),
            (Row{"Total", "-100", "-500", "-400", ""}));
  EXPECT_EQ(g.cell(3, 16), "30030");
}

TEST_F(ScenarioCompareTest, PageChartAndExportCarryBothFiles) {
  ui_.files.push_back(other_);
  toolbar_click(ui_, "Compare");
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;
  EXPECT_EQ(ui_.log.back(), "navigate:report:compare.htm");
  const std::string p = page("compare.htm");
  EXPECT_NE(p.find("File 2: other.arv, regions: DK012"), std::string::npos);
  EXPECT_NE(p.find("data: [-350, -50]"), std::string::npos);
  EXPECT_NE(p.find("'Hedges &amp; &lt;banks&gt;', 'Slurry'"), std::string::npos);
  ASSERT_TRUE(dispatch_navigation(ui_, "32.exc"));
  const std::string csv = testing::read_file(dir_ / "exports/comparison.csv");
  EXPECT_NE(csv.find("Compared with (file 2)," + other_), std::string::npos);
  EXPECT_NE(csv.find("Regions of file 2,DK012"), std::string::npos);
  EXPECT_NE(csv.find("1,Hedges & <banks>,-100,-450,-350"), std::string::npos);
}

}  // namespace
}  // namespace arven

#include "reports/mac_curves.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "core/session.h"
#include "reports/aggregation.h"
#include "reports/explorer_window.h"
#include "reports/page_kit.h"
#include "stores/db.h"
#include "support/store_fixture.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using Cells = std::vector<std::string>;

Cells row_of(const GridTable& g, int r, int from = 0) {
  Cells cells;
  for (int c = from; c < g.cols(); ++c) cells.push_back(g.cell(r, c));
  return cells;
}

// A sorted curve table: ID, name, value, [total cost,] unit cost.
GridTable curve(bool measures, const std::vector<std::pair<std::string, std::string>>& items) {
  GridTable g(measures ? 5 : 4);
  g.add_row();
  g.cell(0, 3) = "head 3";
  if (measures) g.cell(0, 4) = "head 4";
  for (const auto& [value, cost] : items) {
    const int r = g.add_row();
    g.cell(r, 2) = value;
    g.cell(r, measures ? 4 : 3) = cost;
  }
  return g;
}

TEST(MacStepsTest, ScaleThresholds) {
  EXPECT_EQ(mac_scale(-1000), 1);
  EXPECT_EQ(mac_scale(-1000.5), 10);
  EXPECT_EQ(mac_scale(-10000), 10);
  EXPECT_EQ(mac_scale(-10001), 100);
  EXPECT_EQ(mac_scale(-10000000000.0), 10000000);
  EXPECT_EQ(mac_scale(-10000000001.0), 100000000);
}

TEST(MacStepsTest, TwoGhgItemsShareTheirBorderColumn) {
  // total -5.4: width round(-5.4) + 1 = -4, so 4 + 2 + 4 columns: the steps
  // run over columns 4..9, the first 4..7 (3 units), the second 7..9.
  GridTable ops = curve(false, {{"-3", "-5"}, {"-2.4", "7"}});
  build_curve_steps(ops, -5.4, 1, {false, 3, 4});
  ASSERT_EQ(ops.cols(), 10);
  EXPECT_EQ(row_of(ops, 0, 3), (Cells{"head 3", "1", "2", "3", "4", "5", "6"}));
  EXPECT_EQ(row_of(ops, 1, 3), (Cells{"-5", "-5", "-5", "-5", "-5", "null", "null"}));
  EXPECT_EQ(row_of(ops, 2, 3), (Cells{"7", "null", "null", "null", "7", "7", "7"}));

  // The measure table: one column more, running numbers from column 5, the
  // unit cost cell the first point of the series.
  GridTable measures = curve(true, {{"-3", "-5"}, {"-2.4", "7"}});
  build_curve_steps(measures, -5.4, 1, {false, 4, 5});
  ASSERT_EQ(measures.cols(), 11);
  EXPECT_EQ(row_of(measures, 0, 4), (Cells{"head 4", "1", "2", "3", "4", "5", "6"}));
  EXPECT_EQ(row_of(measures, 1, 4), (Cells{"-5", "-5", "-5", "-5", "null", "null", "null"}));
  EXPECT_EQ(row_of(measures, 2, 4), (Cells{"null", "null", "null", "7", "7", "7", "null"}));

  // A span that rounds to 0 is a single column.
  GridTable thin = curve(false, {{"-0.4", "1"}, {"-2", "2.5"}});
  build_curve_steps(thin, -2.4, 1, {false, 3, 4});
  EXPECT_EQ(row_of(thin, 1, 4), (Cells{"1", "null", "null"}));
  EXPECT_EQ(row_of(thin, 2, 4), (Cells{"2.5", "2.5", "2.5"}));
}

TEST(MacStepsTest, AdaptationStepsAreAtLeastOneUnitAndSizeIsBounded) {
  // total 5.5: width 6 (half to even), columns 4..9; 0.3 still spans 4..5.
  GridTable ops = curve(false, {{"0.3", "1"}, {"5.2", "2"}});
  build_curve_steps(ops, 5.5, 1, {true, 3, 4});
  ASSERT_EQ(ops.cols(), 10);
  EXPECT_EQ(row_of(ops, 1, 4), (Cells{"1", "1", "null", "null", "null", "null"}));
  EXPECT_EQ(row_of(ops, 2, 4), (Cells{"null", "2", "2", "2", "2", "2"}));

  GridTable huge = curve(false, {{"200000", "1"}});
  EXPECT_THROW(build_curve_steps(huge, 200000, 1, {true, 3, 4}), CurveTooLarge);
  EXPECT_EQ(huge.cols(), 4);
}

// Hubs over an assessment file with a 1000 ha region and entered costs.
class MacHubTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    fix_page_date();
    region("DK011", 1);
    explorer_window().tab2 = 2;  // the mitigation list is on show
  }

  // An operation on 1000 ha × 40% × 50% = 200 ha with its costs and a
  // mitigation and an adaptation figure.
  void operation(int64_t id, const std::string& name, double single, double ghg, double risk,
                 double annual = 0, double tea_cost = 0) {
    file_db_->insert("Operations",
                     {"Operation ID", "Operation Name", "Scaling up technique", "ST Value",
                      "Uptake", "Cost", "Cost Single", "TEA_Inc", "TEA_Factor", "TEA_Cost"},
                     {id, name, 1, 50.0, 40.0, annual, single, 1, 0.0, tea_cost});
    file_db_->insert(
        "Operation-Impact data",
        {"Operation ID", "Impact type", "Time horizon", "Regional impact total", "Data_Quality"},
        {id, 1, 50, ghg, 3});
    file_db_->insert("Operation-Impact data",
                     {"Operation ID", "Impact type", "Time horizon",
                      "Regional risk reduction total", "Data_Quality"},
                     {id, 2, 1, risk, 3});
  }
  std::vector<std::string> titles() const {
    std::vector<std::string> t;
    for (const auto& m : ui_.messages) t.push_back(m.title);
    return t;
  }
};

// The cost of one operation under each basis and source, for both signs.
TEST_F(MacHubTest, OperationCostByBasisAndSource) {
  // Annual 2/ha, single 300, TEA 40; a production figure of 1234 at 50 years.
  operation(10, "Op", 300, 0, 0, 2, 40);
  file_db_->insert("Operation-Impact data",
                   {"Operation ID", "Impact type", "Time horizon", "Regional impact total"},
                   {int64_t{10}, 4, 50, 1234.0});
  const Db& file = *file_db_;
  auto cost = [&](int basis, int source, bool adaptation) {
    return operation_cost(ui_, file, 10, adaptation, {basis, source, 50});
  };
  EXPECT_DOUBLE_EQ(cost(1, 2, false).total, 40 + 300 + 50 * 200 * 2);
  EXPECT_DOUBLE_EQ(cost(2, 2, false).total, 40 + 300);
  EXPECT_DOUBLE_EQ(cost(3, 2, false).total, 40 + 50 * 200 * 2);
  EXPECT_DOUBLE_EQ(cost(1, 2, false).tea, 40);
  EXPECT_DOUBLE_EQ(cost(1, 2, true).total, -(40 + 300 + 50 * 200 * 2));
  EXPECT_DOUBLE_EQ(cost(3, 2, true).tea, -40);
  // The production figure at the costs' horizon; no row gives 0.
  EXPECT_DOUBLE_EQ(cost(1, 1, false).total, 1234);
  EXPECT_DOUBLE_EQ(cost(2, 1, true).total, -1234);
  EXPECT_DOUBLE_EQ(cost(1, 1, false).tea, 0);
  EXPECT_DOUBLE_EQ(operation_cost(ui_, file, 10, false, {1, 1, 25}).total, 0);
  EXPECT_TRUE(ui_.messages.empty());
}

TEST_F(MacHubTest, GhgCurveOfOperationsSortedByUnitCost) {
  const std::string odd = "Hedges 'n' <walls>";
  operation(1, odd, 600, -30, 0);
  operation(2, "Slurry", 100, -10, 0);
  operation(3, "Drainage", 500, 20, 0);  // raises emissions: left out
  mac_curve_ghg_hub(ui_);
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;

  const GridTable& g = explorer_window().MACCGrid1;
  ASSERT_EQ(g.rows(), 3);
  // 600 / -30 = -20 comes before 100 / -10 = -10; the name stays plain.
  EXPECT_EQ(row_of(g, 1, 0).at(1), odd);
  EXPECT_EQ(g.cell(1, 3), "-20");
  EXPECT_EQ(g.cell(2, 3), "-10");
  // total -40: 4 + 2 + 39 columns, the first step 4..34, the second 34..44.
  ASSERT_EQ(g.cols(), 45);
  EXPECT_EQ(g.cell(1, 34), "-20");
  EXPECT_EQ(g.cell(1, 35), "null");
  EXPECT_EQ(g.cell(2, 34), "-10");
  EXPECT_EQ(g.cell(2, 44), "-10");

  const std::string rep = page("rep1.htm");
  EXPECT_NE(rep.find("MAC (GHG) curve for RDP Operations"), std::string::npos);
  EXPECT_NE(rep.find("name: 'Slurry'"), std::string::npos);
  EXPECT_NE(
      rep.find("<div id=\"container\" style=\"width: 1023px; height: 630px; margin: 0 auto\">"),
      std::string::npos);
  EXPECT_NE(page("summary.htm").find("Compiling data..."), std::string::npos);
  EXPECT_EQ(ui_.log, (std::vector<std::string>{"navigate:explorer:summary.htm", "window:report",
                                               "navigate:report:rep1.htm",
                                               "navigate:explorer:mitigation.htm"}));
}

TEST_F(MacHubTest, ZeroCostsStillDrawAndNothingAbatingDrawsNothing) {
  operation(1, "Slurry", 0, -10, 0.3);
  mac_curve_ghg_hub(ui_);
  EXPECT_EQ(titles(), (std::vector<std::string>{"No cost data"}));
  EXPECT_EQ(ui_.messages[0].text.rfind("Cost data for all the operations is currently set", 0), 0u);
  EXPECT_EQ(ui_.messages[0].icon, MsgIcon::Information);
  EXPECT_NE(page("rep1.htm").find("Every cost is zero, so the curve lies flat"), std::string::npos);
  fs::remove(dir_ / "rep1.htm");

  // A cost too small beside the reduction to show in a cost per unit of
  // two decimals (4 / -1,000,000) draws flat too, and the page says why.
  file_db_->exec(
      "UPDATE \"Operation-Impact data\" SET \"Regional impact total\" = -1000000 "
      "WHERE \"Impact type\" = 1");
  file_db_->exec("UPDATE Operations SET TEA_Cost = 4");
  ui_.messages.clear();
  mac_curve_ghg_hub(ui_);
  EXPECT_TRUE(ui_.messages.empty());
  const std::string tiny = page("rep1.htm");
  EXPECT_NE(tiny.find("Every cost per unit rounds to 0.00 €"), std::string::npos);
  EXPECT_EQ(tiny.find("Every cost is zero"), std::string::npos);
  file_db_->exec("UPDATE Operations SET TEA_Cost = 0");
  file_db_->exec(
      "UPDATE \"Operation-Impact data\" SET \"Regional impact total\" = -10 "
      "WHERE \"Impact type\" = 1");
  fs::remove(dir_ / "rep1.htm");

  // The adaptation list has 0.3 only: it abates, so a curve comes.
  ui_.messages.clear();
  mac_curve_adapt_hub(ui_);
  EXPECT_EQ(titles(), (std::vector<std::string>{"No cost data"}));
  EXPECT_TRUE(fs::exists(dir_ / "rep1.htm"));
  fs::remove(dir_ / "rep1.htm");

  // Nothing abates: the no-cost message first, then the refusal.
  file_db_->exec("UPDATE \"Operation-Impact data\" SET \"Regional impact total\" = 5");
  ui_.messages.clear();
  ui_.log.clear();
  mac_curve_ghg_hub(ui_);
  EXPECT_EQ(titles(), (std::vector<std::string>{"No cost data", "Cannot produce MAC curve"}));
  EXPECT_EQ(ui_.messages[1].text, "The operations selected will not reduce GHG emissions.");
  EXPECT_EQ(ui_.messages[1].icon, MsgIcon::Information);
  EXPECT_FALSE(fs::exists(dir_ / "rep1.htm"));
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:mitigation.htm");
}

TEST_F(MacHubTest, MeasureCurvesDrawFromTheAggregation) {
  store_->insert("New_Measures", {"Measure ID", "Measure name"}, {int64_t{2}, "Agri & climate"});
  store_->insert("New_Measures", {"Measure ID", "Measure name"}, {int64_t{3}, "Forestry"});
  store_->insert("Operations_New_Measures", {"Operation ID", "Measure ID"}, {int64_t{1}, 2});
  store_->insert("Operations_New_Measures", {"Operation ID", "Measure ID"}, {int64_t{2}, 3});
  operation(1, "Slurry", 100, -10, 0);
  operation(2, "Hedges", 100, 10, 0);
  aggregate_new_measure(ui_);
  const GridTable before = explorer_window().MACCGrid2_M;

  ui_.log.clear();
  mac_curve_ghg_measures_hub(ui_);
  mac_curve_ghg_measures_hub(ui_);  // the measure table is left as it was
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;
  EXPECT_EQ(explorer_window().MACCGrid2_M.cols(), before.cols());
  EXPECT_EQ(row_of(explorer_window().MACCGrid2_M, 2), row_of(before, 2));
  const std::string rep = page("rep1.htm");
  EXPECT_NE(rep.find("MAC (GHG) curve for RDP Measures"), std::string::npos);
  EXPECT_NE(rep.find("name: 'Agri &amp; climate'"), std::string::npos);
  EXPECT_EQ(rep.find("Forestry"), std::string::npos);  // raises emissions
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:aggregate1.htm");

  // No measure reduces risk: the measures' wording of both messages.
  fs::remove(dir_ / "rep1.htm");
  mac_curve_adapt_measures_hub(ui_);
  ASSERT_EQ(titles(), (std::vector<std::string>{"No cost data", "Cannot produce MAC curve"}));
  EXPECT_EQ(ui_.messages[0].text.rfind("Cost data for all the measures", 0), 0u);
  EXPECT_EQ(ui_.messages[1].text,
            "The measures selected will not reduce the risk to any ecosystem services.");
  EXPECT_FALSE(fs::exists(dir_ / "rep1.htm"));
}

}  // namespace
}  // namespace arven

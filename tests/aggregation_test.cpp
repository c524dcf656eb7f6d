#include "reports/aggregation.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "core/session.h"
#include "reports/explorer_window.h"
#include "reports/mac_curves.h"
#include "reports/page_kit.h"
#include "stores/db.h"
#include "support/store_fixture.h"

namespace arven {
namespace {

namespace fs = std::filesystem;

TEST(QualityTextTest, AccumulatesAsSinglePrecisionAndMeansFromTwoEntries) {
  EXPECT_EQ(quality_accumulate("", 3), "3/1");
  // A single entry deliberately yields 0, not its own value.
  EXPECT_EQ(quality_mean("3/1"), 0);
  EXPECT_EQ(quality_mean(""), 0);
  EXPECT_EQ(quality_accumulate("3/1", 4), "7/2");
  EXPECT_DOUBLE_EQ(quality_mean("7/2"), 3.5);
  // The running sum is read in single precision: 16777217 is not a float.
  EXPECT_EQ(quality_accumulate("16777217/1", 0), "16777216/2");
}

// A Danish country store with four measures, an assessment file with a
// region of 1000 ha, and the costs taken from the entered data.
class AggregationTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    fix_page_date();
    region("DK011", 1);
    measure(1, "Training & advice");
    measure(2, "Agri-environment <climate>");
    measure(3, "Forestry");
    measure(4, "Unused");
  }

  void measure(int64_t id, const std::string& name) {
    store_->insert("New_Measures", {"Measure ID", "Measure name"}, {id, name});
  }
  void link(int64_t op, int64_t measure_id) {
    store_->insert("Operations_New_Measures", {"Operation ID", "Measure ID"}, {op, measure_id});
  }
  void choose(int64_t id, double st, double uptake, double cost, double single, int tea_inc,
              double tea_factor, double tea_cost) {
    file_db_->insert("Operations",
                     {"Operation ID", "Operation Name", "Scaling up technique", "ST Value",
                      "Uptake", "Cost", "Cost Single", "TEA_Inc", "TEA_Factor", "TEA_Cost"},
                     {id, "Op " + std::to_string(id), 1, st, uptake, cost, single, tea_inc,
                      tea_factor, tea_cost});
  }
  void figure(int64_t id, int type, int horizon, double total, double risk, int dq) {
    file_db_->insert("Operation-Impact data",
                     {"Operation ID", "Impact type", "Time horizon", "Regional impact total",
                      "Regional risk reduction total", "Data_Quality"},
                     {id, type, horizon, total, risk, dq});
  }
};

TEST_F(AggregationTest, SplitsOverMeasuresAndBooksTeaToTheTrainingMeasure) {
  // Operation 10 in measures 2 and 3: area 1000 × 40% × 50% = 200 ha, cost
  // 100 + 50 years × 200 ha × 1 = 10100, half to each measure.
  choose(10, 50, 40, 1, 100, 0, 0, 0);
  link(10, 2);
  link(10, 3);
  figure(10, 1, 50, -100, 0, 4);
  figure(10, 1, 10, -9999, 0, 1);  // another horizon, never read
  figure(10, 2, 1, 0, 3, 2);
  figure(10, 4, 50, 101, 0, 3);
  // Operation 20 in measure 2, TEA factor 10: cost 40 (TEA) + 300.
  choose(20, 100, 10, 0, 300, 1, 10, 40);
  link(20, 2);
  figure(20, 1, 50, -100, 0, 2);
  figure(20, 2, 1, 0, 5, 2);
  figure(20, 4, 50, 20, 0, 2);
  // Operation 30 is in no measure: its share is dropped.
  choose(30, 50, 40, 1, 100, 0, 0, 0);
  figure(30, 1, 50, -1000, 0, 5);

  aggregate_new_measure(ui_);
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;
  const ExplorerWindow& w = explorer_window();
  const GridTable& ag = w.AgGrid1;
  ASSERT_EQ(ag.rows(), 5);
  // The row of a measure: the page writers sort AgGrid1 and its ranked form
  // by name (state 1), the cost tables keep the store's order.
  auto row = [](const GridTable& g, int id) {
    std::vector<std::string> cells;
    for (int r = 1; r < g.rows(); ++r)
      if (g.cell(r, 0) == std::to_string(id))
        for (int c = 0; c < g.cols(); ++c) cells.push_back(g.cell(r, c));
    return cells;
  };
  using Row = std::vector<std::string>;
  // Measure 1: the TEA shares -10 and 0.5 → 0 (to an integer, half to
  // even) and 2; three bookings of quality 2.
  EXPECT_EQ(row(ag, 1), (Row{"1", "Training & advice", "-10", "0", "2", "2"}));
  // Measure 2: -50 - 90; 1.5 + 4.5 kept to 1 decimal; 50.5 + 18.
  EXPECT_EQ(row(ag, 2), (Row{"2", "Agri-environment <climate>", "-140", "6", "68.5", "2.5"}));
  EXPECT_EQ(row(ag, 3), (Row{"3", "Forestry", "-50", "1.5", "50.5", "3"}));
  EXPECT_EQ(row(ag, 4), (Row{"4", "Unused", "0", "0", "0", "0"}));
  EXPECT_EQ(ag.cell(1, 0), "2");  // A to Z: Agri-environment first

  const GridTable& ghg = w.MACCGrid2_M;
  EXPECT_EQ(row(ghg, 1), (Row{"1", "Training & advice", "-10", "40", "-4"}));
  EXPECT_EQ(row(ghg, 2), (Row{"2", "Agri-environment <climate>", "-140", "5390", "-38.5"}));
  EXPECT_EQ(row(ghg, 3), (Row{"3", "Forestry", "-50", "5050", "-101"}));
  EXPECT_EQ(row(ghg, 4), (Row{"4", "Unused", "", "", ""}));
  // Adaptation costs are negated; the cost table's cells are integers: 1.5
  // → 2, then 2 + 4.5 → 6; measure 1's 0 risk gives the unit cost "0".
  const GridTable& adapt = w.MACCGrid2_A;
  EXPECT_EQ(row(adapt, 1), (Row{"1", "Training & advice", "0", "-40", "0"}));
  EXPECT_EQ(row(adapt, 2), (Row{"2", "Agri-environment <climate>", "6", "-5390", "-898.33"}));
  EXPECT_EQ(row(adapt, 3), (Row{"3", "Forestry", "2", "-5050", "-2525"}));

  // Ranked: scales 140, 6 and 68.5; combined (36 + 25 + 74) / 3.
  const GridTable& ranked = w.AgGrid1_Ranked;
  ASSERT_EQ(ranked.rows(), 5);
  EXPECT_EQ(row(ranked, 2),
            (Row{"2", "Agri-environment <climate>", "100", "100", "100", "100", "2.5"}));
  EXPECT_EQ(row(ranked, 3), (Row{"3", "Forestry", "36", "25", "74", "45", "3"}));
  EXPECT_EQ(row(ranked, 4), (Row{"4", "Unused", "0", "0", "0", "0", "0"}));

  // The pages escape the names; the explorer shows the first one.
  const std::string agg = page("aggregate1.htm");
  EXPECT_NE(agg.find("Agri-environment &lt;climate&gt;"), std::string::npos);
  EXPECT_EQ(agg.find("<climate>"), std::string::npos);
  EXPECT_NE(agg.find("based on the 50 year time horizon"), std::string::npos);
  EXPECT_NE(agg.find("<a href=aggregate_ranked1.htm>Display ranked list</a>."), std::string::npos);
  EXPECT_NE(agg.find("<a href=2.mmm>"), std::string::npos);
  const std::string ranked_page = page("aggregate_ranked1.htm");
  EXPECT_NE(ranked_page.find("Aggregated by RDP Measures (post-2013) - Ranked"), std::string::npos);
  EXPECT_NE(ranked_page.find("Training &amp; advice"), std::string::npos);
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:aggregate1.htm");
}

TEST_F(AggregationTest, AssessmentWithoutOperationsGivesZeroRows) {
  aggregate_new_measure(ui_);
  EXPECT_TRUE(ui_.messages.empty());
  const ExplorerWindow& w = explorer_window();
  ASSERT_EQ(w.AgGrid1.rows(), 5);
  EXPECT_EQ(w.AgGrid1.cell(2, 2), "0");
  EXPECT_EQ(w.AgGrid1_Ranked.cell(2, 5), "0");
  EXPECT_TRUE(fs::exists(dir_ / "aggregate1.htm"));

  // A damaged file is reported and leaves the tables with their heads.
  fs::remove(file_);
  std::ofstream(file_) << "not a store";
  aggregate_new_measure(ui_);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(w.AgGrid1.rows(), 1);
  EXPECT_EQ(w.MACCGrid2_M.rows(), 1);
}

}  // namespace
}  // namespace arven

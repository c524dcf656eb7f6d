#include "reports/analyst_pages.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/session.h"
#include "reports/explorer_window.h"
#include "stores/db.h"
#include "support/store_fixture.h"
#include "windows/explorer.h"

namespace arven {
namespace {

using Row = std::vector<std::string>;

Row row_of(const GridTable& g, int r) {
  Row cells;
  for (int c = 0; c < g.cols(); ++c) cells.push_back(g.cell(r, c));
  return cells;
}

// A region of 1000 ha and operations with entered costs.
class AnalystPagesTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    fix_page_date();
    region("DK011", 1);
  }
  void choose(int64_t id, const std::string& name, double st, double uptake, double annual,
              double single) {
    file_db_->insert("Operations",
                     {"Operation ID", "Operation Name", "Scaling up technique", "ST Value",
                      "Uptake", "Cost", "Cost Single", "TEA_Inc", "TEA_Factor", "TEA_Cost"},
                     {id, name, 1, st, uptake, annual, single, 0, 0, 0});
  }
  void figure(int64_t id, int type, int horizon, double total) {
    file_db_->insert("Operation-Impact data",
                     {"Operation ID", "Impact type", "Time horizon", "Regional impact total"},
                     {id, type, horizon, total});
  }
};

TEST_F(AnalystPagesTest, TotalsAddUpEachHorizonAndCostOverItsYears) {
  // Operation 1: 1000 ha × 40% × 50% = 200 ha at 1 €/ha a year, 100 € once.
  // Operation 2: 1000 × 10% × 100% = 100 ha at 2 €/ha, 300 € once.
  choose(1, "One", 50, 40, 1, 100);
  choose(2, "Two & co", 100, 10, 2, 300);
  figure(1, 1, 50, -100.5);
  figure(2, 1, 50, -20.25);
  figure(1, 1, 10, -7);
  figure(1, 4, 50, 30);
  figure(2, 4, 50, 12.5);
  figure(2, 2, 1, 99);  // adaptation: in no column

  GridTable t = portfolio_totals(ui_, *file_db_, CostOptions{1, 2, 50});
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;
  ASSERT_EQ(t.rows(), 8);
  EXPECT_EQ(row_of(t, 0), (Row{"Time horizon (years)", "GHG (tCO2e) (total)",
                               "Production (€) (total)", "Cost (€) (total)"}));
  // 1 year: 400 € once and 200 + 200 € a year.
  EXPECT_EQ(row_of(t, 1), (Row{"1", "0", "0", "800"}));
  EXPECT_EQ(row_of(t, 3), (Row{"10", "-7", "0", "4400"}));
  EXPECT_EQ(row_of(t, 5), (Row{"50", "-120.75", "42.5", "20400"}));
  EXPECT_EQ(row_of(t, 7), (Row{"250", "0", "0", "100400"}));
  // Single costs only, and the production figure as the cost.
  EXPECT_EQ(portfolio_totals(ui_, *file_db_, CostOptions{2, 2, 50}).cell(5, 3), "400");
  EXPECT_EQ(portfolio_totals(ui_, *file_db_, CostOptions{1, 1, 50}).cell(5, 3), "42.5");

  // The page: the not-additive line, the figures, a link to each working.
  toolbar_click(ui_, "Totals");  // the chosen tab is not on show: nothing
  EXPECT_TRUE(ui_.log.empty());
  ASSERT_TRUE(dispatch_navigation(ui_, "totals.tot"));
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:totals.htm");
  const std::string p = page("totals.htm");
  EXPECT_NE(p.find("not additive"), std::string::npos);
  EXPECT_NE(p.find("-120.75"), std::string::npos);
  EXPECT_NE(p.find("<a href=2.wrk>Two &amp; co</a>"), std::string::npos);
  EXPECT_NE(p.find("<a href=30.exc>"), std::string::npos);
}

TEST_F(AnalystPagesTest, WorkingTracesDeltasFactorsSharesAndResults) {
  region("DK012", 2, 3, 30);
  choose(7, "Cover <crops>", 100, 100, 0, 0);
  activity(5, "Mineral N");
  store_->insert("References", {"Ref ID", "Ref Short"}, {1, "Demo (2009)"});
  store_->insert("References", {"Ref ID", "Ref Short"}, {2, "Larsen & Quinn (2011)"});
  store_->insert("Operation_Activity_Delta",
                 {"Operation ID", "Baseline ID", "Activity ID", "RVC ID", "RVC Class", "Delta"},
                 {7, 1, 5, 10, 2, "-10"});
  store_->insert("Operation_Activity_Delta",
                 {"Operation ID", "Baseline ID", "Activity ID", "RVC ID", "RVC Class", "Delta"},
                 {7, 1, 5, 10, 1, "-15"});
  store_->insert("Operation_Activity_Delta",
                 {"Operation ID", "Baseline ID", "Activity ID", "RVC ID", "RVC Class", "Delta"},
                 {8, 1, 6, 10, 1, "-99"});  // another operation
  store_->insert(
      "Mitigation_Activity_Emission_Factors",
      {"Activity ID", "RVC ID", "RVC Value", "Mitigation Type", "tCO2e", "Refs", "Data_Quality"},
      {5, 4, 1, 1, 0.0003, "2, 1", 3});
  // Area 1 (10 km²) all class 1 of RVC 10, area 2 (30 km²) half and half;
  // RVC 4's classes are shared as well, RVC 11 is no RVC of the operation.
  auto dist = [&](int64_t area, int64_t rvc, double cls, int64_t percent) {
    store_->insert("NUTS3_RVC_Data_Dist", {"NUTS3_ID", "RVC ID", "RVC Class", "Percent"},
                   {area, rvc, cls, percent});
  };
  dist(1, 10, 1, 100);
  dist(2, 10, 1, 50);
  dist(2, 10, 2, 50);
  dist(1, 4, 1, 100);
  dist(1, 11, 1, 100);
  file_db_->insert("Activity-Impact data",
                   {"Operation ID", "Activity ID", "Impact type", "Time horizon",
                    "Regional impact ha", "Regional impact total", "Data_Quality", "Refs"},
                   {7, 5, 1, 50, -0.5, -2000, 3, "2"});

  const GridTable g = figure_working(*file_db_, *store_, 7);
  ASSERT_EQ(g.rows(), 1 + 2 + 1 + 3 + 2);
  EXPECT_EQ(row_of(g, 1),
            (Row{"Delta", "5", "Mineral N", "10", "1", "Delta against baseline 1", "-15", "", ""}));
  EXPECT_EQ(row_of(g, 2)[6], "-10");
  EXPECT_EQ(row_of(g, 3),
            (Row{"Factor", "5", "Mineral N", "4", "1", "Emission factor (tCO2e), mitigation type 1",
                 "0.0003", "3", "[2] Larsen & Quinn (2011); [1] Demo (2009)"}));
  // Shares by area: RVC 4 class 1 on 10 of 40 km²; RVC 10 class 1 on
  // (10 × 100 + 30 × 50) / 40 = 62.5 %.
  EXPECT_EQ(row_of(g, 4)[3] + ":" + row_of(g, 4)[4] + "=" + row_of(g, 4)[6], "4:1=25");
  EXPECT_EQ(row_of(g, 5)[3] + ":" + row_of(g, 5)[4] + "=" + row_of(g, 5)[6], "10:1=62.5");
  EXPECT_EQ(row_of(g, 6)[3] + ":" + row_of(g, 6)[4] + "=" + row_of(g, 6)[6], "10:2=37.5");
  EXPECT_EQ(row_of(g, 8),
            (Row{"Result", "5", "Mineral N", "", "", "GHG, 50 years: regional impact total",
                 "-2000", "3", "[2] Larsen & Quinn (2011)"}));

  // The page escapes store text; the export gives it back as it was.
  ASSERT_TRUE(dispatch_navigation(ui_, "7.wrk"));
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:working_figures.htm");
  const std::string p = page("working_figures.htm");
  EXPECT_NE(p.find("Cover &lt;crops&gt;"), std::string::npos);
  EXPECT_NE(p.find("Larsen &amp; Quinn"), std::string::npos);
  ASSERT_TRUE(dispatch_navigation(ui_, "31.exc"));
  const std::string csv = testing::read_file(dir_ / "exports/working.csv");
  EXPECT_NE(csv.find("[2] Larsen & Quinn (2011); [1] Demo (2009)"), std::string::npos);
  // An operation that is not in the file has no working page.
  ui_.log.clear();
  EXPECT_TRUE(dispatch_navigation(ui_, "8.wrk"));
  EXPECT_TRUE(ui_.log.empty());
}

}  // namespace
}  // namespace arven

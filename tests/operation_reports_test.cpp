#include "reports/operation_reports.h"

#include <gtest/gtest.h>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_cache.h"
#include "engine/impact_summaries.h"
#include "reports/explorer_window.h"
#include "reports/page_kit.h"
#include "stores/db.h"
#include "support/golden.h"
#include "support/store_fixture.h"

namespace arven {
namespace {

const std::string kOddName = "Hedges 'n' <walls> & banks";
const std::string kOddEscaped = "Hedges &#39;n&#39; &lt;walls&gt; &amp; banks";
using testing::expect_golden;

// ---- the arithmetic, worked by hand ----

TEST(OperationScoresTest, ScalesScoresCombinedAndQuality) {
  EXPECT_EQ(largest_magnitude({}), 0);
  EXPECT_EQ(largest_magnitude({2, 4}), 4);
  EXPECT_EQ(largest_magnitude({-5, 3}), 5);
  EXPECT_EQ(largest_magnitude({-3, -1}), 3);

  // One operation: each figure is its own scale, so 100 everywhere; an
  // emission reduction (negative figure) counts positive.
  OperationScores one = score_operation({-40, 3}, {6, 4}, {900, 2}, 40, 6, 900, 100, 100, 100);
  EXPECT_EQ(one.mitigation, 100);
  EXPECT_EQ(one.adaptation, 100);
  EXPECT_EQ(one.production, 100);
  EXPECT_EQ(one.combined, 100);
  EXPECT_DOUBLE_EQ(one.quality, 3);

  // An emitter scores negative; 12.5 and 13.5 round to even.
  OperationScores emitter = score_operation({10, 1}, {0, 0}, {0, 0}, 80, 6, 900, 100, 100, 100);
  EXPECT_EQ(emitter.mitigation, -12);
  EXPECT_EQ(score_operation({-27, 1}, {}, {}, 200, 1, 1, 100, 100, 100).mitigation, 14);  // 13.5
  EXPECT_EQ(emitter.combined, -4);                                                        // -12 / 3
  // A missing row is {0, 0}: its quality still counts in the mean.
  EXPECT_DOUBLE_EQ(emitter.quality, 1.0 / 3);

  // The cap works above only: heavier weights push past 100 and below -100.
  OperationScores heavy = score_operation({-40, 5}, {6, 5}, {900, 5}, 40, 6, 900, 300, 100, 100);
  EXPECT_EQ(heavy.combined, 100);  // (300 + 100 + 100) / 3 = 166.7
  OperationScores low = score_operation({40, 5}, {-6, 5}, {-900, 5}, 40, 6, 900, 300, 100, 100);
  EXPECT_EQ(low.combined, -167);
  // Half weight on mitigation: (50 + 100 + 100) / 3 = 83.3; quality weighted.
  OperationScores half = score_operation({-40, 1}, {6, 4}, {900, 4}, 40, 6, 900, 50, 100, 100);
  EXPECT_EQ(half.combined, 83);
  EXPECT_DOUBLE_EQ(half.quality, (0.5 * 1 + 4 + 4) / 2.5);

  // A zero scale gives 0 for every score; weights of 0 give quality 0.
  OperationScores zero = score_operation({0, 3}, {0, 3}, {0, 3}, 0, 0, 0, 0, 0, 0);
  EXPECT_EQ(zero.mitigation, 0);
  EXPECT_EQ(zero.combined, 0);
  EXPECT_EQ(zero.quality, 0);
}

// ---- fixtures: a Danish country store and an assessment file ----

class OperationReportsTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    fix_page_date();
  }

  void choose(int64_t id, const std::string& name) {
    file_db_->insert("Operations",
                     {"Operation ID", "Operation Name", "Scaling up technique", "ST Value",
                      "Uptake", "Cost", "Cost Single", "TEA_Inc", "TEA_Factor", "TEA_Cost"},
                     {id, name, 1, 50.0, 40.0, 12.5, 300.0, 0, 20.0, 150.0});
  }
  // One row of Operation-Impact data.
  void figure(int64_t id, int type, int horizon, double ha, double total, double risk, int dq) {
    file_db_->insert("Operation-Impact data",
                     {"Operation ID", "Impact type", "Time horizon", "Regional impact ha",
                      "Regional impact total", "Regional risk reduction total", "Data_Quality"},
                     {id, type, horizon, ha, total, risk, dq});
  }
  // Three chosen operations with figures worked by hand in the tests.
  void three_operations() {
    choose(1, kOddName);
    choose(2, "Slurry");
    choose(3, "Drainage");
    figure(1, 1, 50, -2, -400, 0, 3);
    figure(1, 1, 10, -90, -9000, 0, 1);  // another horizon: never read
    figure(1, 2, 1, 0, 0, 6, 4);
    figure(1, 4, 50, 10, 1000, 0, 2);
    figure(2, 1, 50, -4, -200, 0, 5);
    figure(2, 4, 50, -1, -500, 0, 1);
    figure(3, 1, 50, 1, 100, 0, 2);
    figure(3, 2, 1, 0, 0, -3, 2);
  }

  // A store operation 7 with activities of all three kinds over one area.
  void report_store(const std::string& store_name) {
    Db& st = *store_;
    st.insert("Operations",
              {"Operation ID", "Operation Type ID", "Operation Name", "CORINE Class",
               "Scaling up technique", "ST Value", "Uptake", "Cost", "Cost Single", "TEA_Inc",
               "TEA_Factor", "TEA_Cost"},
              {int64_t{7}, 1, store_name, 2, 1, 50.0, 10.0, 20.0, 0.0, 1, 0.0, 0.0});
    activity(5, "Fertiliser & lime");
    activity(4, "Wheat");
    st.insert("RVC_List", {"RVC ID", "Risk statement"}, {int64_t{11}, "Less flooding & erosion"});
    st.insert("Practicality_Items", {"Practicality ID", "Practicality Text"},
              {int64_t{1}, "Needs <skilled> labour"});
    st.insert("Operations_Practicality", {"Operation ID", "Practicality ID"}, {int64_t{7}, 1});
    st.insert("References", {"Ref ID", "Ref Short", "Ref Long", "URL"},
              {int64_t{1}, "Smith 2009", "Soil & carbon", "http://example.org/a?b=1&c=2"});
    st.insert("References", {"Ref ID", "Ref Short", "Ref Long"},
              {int64_t{3}, "Jones 2011", "Flood plains"});
    region("DK011", 1);
    auto ops = [&](int64_t activity, int type, double value, Value category, Value max, int dq,
                   const char* refs) {
      st.insert("NUTS3_OPS",
                {"NUTS3_ID", "Operation ID", "Activity ID", "Impact Type", "Impact value",
                 "Impact area", "Average field size", "Cseq Years", "Impact max", "Impact Category",
                 "Data_Quality", "Refs"},
                {int64_t{1}, int64_t{7}, activity, type, value, 100.0, 1.0, 0.0, max, category, dq,
                 refs});
    };
    ops(5, 1, -10, Value(), Value(), 3, "1");
    ops(5, 3, 10, Value(int64_t{11}), Value(40.0), 2, "3, 1");
    ops(4, 4, 50, Value(), Value(), 5, "3");
  }
};

TEST_F(OperationReportsTest, ListsScoreThreeOperationsByTotalAndPerHectare) {
  three_operations();
  ExplorerWindow& w = explorer_window();
  load_my_operations_data();

  // Lists hold the ranking_TH rows (adaptation: horizon 1), names escaped.
  const GridTable& mit = w.MSFlexGrid3;
  ASSERT_EQ(mit.rows(), 4);
  EXPECT_EQ(mit.cell(1, 1), kOddEscaped);
  EXPECT_EQ(mit.cell(1, 2), "-2");
  EXPECT_EQ(mit.cell(1, 3), "-400");
  EXPECT_EQ(mit.cell(1, 4), "3");
  ASSERT_EQ(w.MSFlexGrid4.rows(), 3);
  EXPECT_EQ(w.MSFlexGrid4.cell(2, 0), "3");
  EXPECT_EQ(w.MSFlexGrid4.cell(2, 2), "-3");
  ASSERT_EQ(w.MSFlexGrid12.rows(), 3);

  // By total: scales 400 (GHG), 6 (adaptation), 1000 (production).
  // 1: 100, 100, 100 -> 100, quality (3 + 4 + 2) / 3 = 3.
  // 2: 50, 0 (no row), -50 -> 0, quality (5 + 0 + 1) / 3 = 2.
  // 3: -25 (an emitter), -50, 0 (no row) -> -25, quality (2 + 2 + 0) / 3.
  auto ranked = [&](int r) {
    std::vector<std::string> cells;
    for (int c = 0; c < 7; ++c) cells.push_back(w.MSFlexGrid5.cell(r, c));
    return cells;
  };
  ASSERT_EQ(w.MSFlexGrid5.rows(), 4);
  using V = std::vector<std::string>;
  EXPECT_EQ(ranked(1), (V{"1", kOddEscaped, "100", "100", "100", "100", "3"}));
  EXPECT_EQ(ranked(2), (V{"2", "Slurry", "50", "0", "-50", "0", "2"}));
  EXPECT_EQ(ranked(3), (V{"3", "Drainage", "-25", "-50", "0", "-25", number_to_cell(4.0 / 3)}));

  // Per hectare: scales 4 and 10; adaptation keeps its field.
  // 1: 50, 100, 100 -> 83.3 -> 83; 2: 100, 0, -10 -> 30; 3: -25, -50, 0 -> -25.
  w.ranking_mode = 2;
  load_my_operations_data();
  EXPECT_EQ(ranked(1), (V{"1", kOddEscaped, "50", "100", "100", "83", "3"}));
  EXPECT_EQ(ranked(2), (V{"2", "Slurry", "100", "0", "-10", "30", "2"}));
  EXPECT_EQ(ranked(3)[3], "-50");

  // The tables are rebuilt, not appended to.
  load_my_operations_data();
  EXPECT_EQ(w.MSFlexGrid5.rows(), 4);
  EXPECT_EQ(w.MSFlexGrid3.rows(), 4);
}

TEST_F(OperationReportsTest, ListPagesUseTheStoredSortStates) {
  three_operations();
  session().ranking_TH = 50;
  explorer_window().sort_grid5 = 6;
  explorer_window().sort_grid4 = 4;
  load_my_operations_data();
  my_operation_list_html();
  expect_golden("ops_ranked.htm", page("ranked.htm"));
  const std::string mitigation = page("mitigation.htm");
  EXPECT_NE(mitigation.find("Data shown are for the 50 year time horizon"), std::string::npos);
  EXPECT_NE(mitigation.find("sort.3s3"), std::string::npos);
  EXPECT_NE(page("adaptation.htm").find("sort.3s4><img src=graphics/sorted_down.gif"),
            std::string::npos);
  EXPECT_NE(page("production.htm").find("sort.5s12"), std::string::npos);
}

TEST_F(OperationReportsTest, DetailedReportOfAFreshCalculation) {
  report_store(kOddName);
  explorer_window().current_operation = 7;
  ASSERT_EQ(operation_impact(ui_, 7, explorer_state()), ImpactStatus::done);
  ASSERT_EQ(explorer_state().adaptation_shape, AdaptationShape::calculated);
  operation_specific_html_hub(ui_, 0, 2);
  // Opened in the report window by the timer, not in the explorer.
  EXPECT_EQ(ui_.log,
            (std::vector<std::string>{"window:report", "navigate:report:detailed_report.htm"}));
  const std::string html = page("detailed_report.htm");
  expect_golden("ops_detailed_report.htm", html);
  // The calculated adaptation table shows the RVC's statement, not its key.
  EXPECT_NE(html.find("Less flooding &amp; erosion"), std::string::npos);
  EXPECT_EQ(html.find("<walls>"), std::string::npos);
  EXPECT_NE(html.find(kOddEscaped), std::string::npos);
}

TEST_F(OperationReportsTest, SummaryReportOfAStoredOperation) {
  report_store("Store name");
  choose(7, kOddName);
  explorer_window().current_operation = 7;
  ASSERT_EQ(operation_impact(ui_, 7, explorer_state()), ImpactStatus::done);
  ASSERT_EQ(save_impact_data(ui_, 7, explorer_state()), ImpactStatus::done);
  reset_explorer_state();
  ASSERT_EQ(load_impact_data(ui_, 7, explorer_state()), ImpactStatus::done);
  operation_specific_html_hub(ui_, 1, 1);
  EXPECT_EQ(ui_.log, (std::vector<std::string>{"navigate:explorer:summary.htm",
                                               "navigate:explorer:summary_report.htm"}));
  const std::string html = page("summary_report.htm");
  expect_golden("ops_summary_report.htm", html);
  EXPECT_EQ(html.find("Store name"), std::string::npos);  // the file's own name
  EXPECT_EQ(html.find("<walls>"), std::string::npos);
  EXPECT_EQ(html.find("is 0 ha"), std::string::npos);

  // Nothing treated (no land of its type in the regions): the report says
  // why its figures are 0.
  file_db_->exec("UPDATE Operations SET TArea = 0 WHERE \"Operation ID\" = 7");
  operation_specific_html_hub(ui_, 1, 1);
  EXPECT_NE(page("summary_report.htm")
                .find("The area treated by this operation in the region(s) currently selected "
                      "is 0 ha</b>"),
            std::string::npos);

  // The loaded table in a detailed report: statements as stored, no lookup.
  store_->exec("DELETE FROM RVC_List");
  ui_.log.clear();
  operation_specific_html_hub(ui_, 1, 2);
  EXPECT_NE(page("detailed_report.htm").find("Less flooding &amp; erosion"), std::string::npos);
}

TEST_F(OperationReportsTest, EmptyReportSaysNoData) {
  store_->insert("Operations", {"Operation ID", "Operation Name"}, {int64_t{9}, "Bare"});
  explorer_window().current_operation = 9;
  reset_summary_tables(explorer_state());
  operation_specific_html_hub(ui_, 0, 1);
  const std::string html = page("summary_report.htm");
  EXPECT_EQ(html.find("Highcharts"), std::string::npos);  // no chart without GHG rows
  size_t no_data = 0;
  for (size_t p = html.find("No data"); p != std::string::npos; p = html.find("No data", p + 1))
    ++no_data;
  EXPECT_EQ(no_data, 7u);  // three summary rows, three sections, practicality
  EXPECT_NE(html.find("<a href=9.xxx>"), std::string::npos);
  EXPECT_EQ(html.find("edit.opd"), std::string::npos);
}

TEST_F(OperationReportsTest, ChosenListAndCataloguePages) {
  Tree& chosen = catalogue().chosen;
  chosen.nodes = {{"P1", "My Operations...", true}, {"P1O1", kOddName, false}, {"P1O2", "Slurry"}};
  chosen.select(0);
  myops_list_html(ui_);
  const std::string oplist = page("oplist.htm");
  EXPECT_NE(oplist.find("<a href=1.zzz>" + kOddEscaped + "</a>"), std::string::npos);
  EXPECT_NE(oplist.find("<a href=2.yyy>REMOVE</a>"), std::string::npos);
  EXPECT_NE(oplist.find("<a href=remove.rem>REMOVE ALL</a>"), std::string::npos);
  chosen.nodes.resize(1);
  myops_list_html(ui_);
  EXPECT_EQ(page("oplist.htm").find("remove.rem"), std::string::npos);

  // By measure, with a measure selected: every leaf of the tree is listed,
  // an operation of two measures under each, whichever group is on show.
  chosen.nodes = {
      {"M5", "M04: Investments", true},      {"M5O1", kOddName}, {"M5O2", "Slurry"},
      {"M9", "M10: Agri-environment", true}, {"M9O2", "Slurry"}, {"M9O3", "Buffer strips"}};
  chosen.select(3);
  myops_list_html(ui_);
  expect_golden("ops_oplist_measures.htm", page("oplist.htm"));

  // A measure lists only operations with activity deltas.
  Db& st = *store_;
  st.insert("Operations", {"Operation ID", "Operation Name"}, {int64_t{7}, kOddName});
  st.insert("Operations", {"Operation ID", "Operation Name"}, {int64_t{8}, "No data yet"});
  for (int64_t op : {7, 8})
    st.insert("Operations_Measures", {"Operation ID", "Measure ID"}, {op, 4});
  st.insert("Activities", {"Activity ID", "Activity Name"}, {int64_t{5}, "Fertiliser"});
  st.insert("RVC_List", {"RVC ID", "Risk statement"}, {int64_t{11}, "Less flooding"});
  auto delta = [&](const char* d) {
    st.insert("Operation_Activity_Delta", {"Operation ID", "Activity ID", "Delta"},
              {int64_t{7}, int64_t{5}, d});
  };
  delta("Multi");
  delta("0.5");
  delta("-2");
  for (double f : {2.0, -1.0})
    st.insert("Mitigation_Activity_Emission_Factors", {"Activity ID", "tCO2e"}, {int64_t{5}, f});
  st.insert("Adaptation_Activity_Impact_Factors", {"Activity ID", "RVC ID", "Impact factor"},
            {int64_t{5}, int64_t{11}, 0.25});
  Tree tree;
  tree.nodes = {{"P4", "M4: Measure", true}, {"P4O7", kOddName, false}};
  tree.select(0);
  operation_general_html_hub(ui_, tree, TreeViewKind::measures);
  std::string html = page("operation.htm");
  EXPECT_NE(html.find("<a href=7.xxx>SELECT</a>"), std::string::npos);
  EXPECT_EQ(html.find("8.zzz"), std::string::npos);

  // An operation with no region: products of deltas and factors, 0.5 × 2,
  // 0.5 × -1, -2 × 2, -2 × -1: from -4 to 2; the marker row adds nothing.
  tree.select(1);
  operation_general_html_hub(ui_, tree, TreeViewKind::measures);
  html = page("operation.htm");
  EXPECT_NE(html.find("-4.000 to 2.000"), std::string::npos);
  EXPECT_NE(html.find("Less flooding"), std::string::npos);
  EXPECT_NE(html.find("0.25"), std::string::npos);
  EXPECT_NE(html.find("<a href=7.xxx>SELECT</a>"), std::string::npos);  // a file is open
  EXPECT_NE(html.find(kOddEscaped), std::string::npos);
  choose(7, kOddName);
  operation_general_html_hub(ui_, tree, TreeViewKind::measures);
  EXPECT_NE(page("operation.htm").find("<a href=7.yyy>REMOVE</a>"), std::string::npos);
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:operation.htm");
}

}  // namespace
}  // namespace arven

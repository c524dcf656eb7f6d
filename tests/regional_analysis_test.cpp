#include "reports/regional_analysis.h"

#include <gtest/gtest.h>

#include "base/numbers.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/regional_impact.h"
#include "reports/explorer_window.h"
#include "reports/page_kit.h"
#include "stores/db.h"
#include "support/store_fixture.h"

namespace arven {
namespace {

// A Danish country store with NUTS3 areas, and an assessment file.
class RegionalAnalysisTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    activity(5, "Fertiliser");
    activity(6, "Hedge");
    activity(4, "Wheat", 2.5);
  }

  void choose(int64_t id, const std::string& name, int technique, double st, double uptake,
              int tea_inc, double tea_factor) {
    file_db_->insert("Operations",
                     {"Operation ID", "Operation Name", "Scaling up technique", "ST Value",
                      "Uptake", "TEA_Inc", "TEA_Factor"},
                     {id, name, technique, st, uptake, tea_inc, tea_factor});
  }
  // A region of the assessment without an area.
  void region(const std::string& code, int64_t nuts_id, int level) {
    file_db_->insert("Regions", {"NUTS0_ID", "NUTS Type ID", "NUTS Code", "NUTS ID"},
                     {kDK, level, code, nuts_id});
  }
  void nuts3(int64_t id, int64_t nuts2, const std::string& code, const std::string& name) {
    store_->insert("NUTS3", {"NUTS3_ID", "NUTS0_ID", "NUTS1_ID", "NUTS2_ID", "NUTS", "NAME"},
                   {id, int64_t{kDK}, int64_t{1}, nuts2, code, name});
  }
  const GridTable& grid() { return explorer_window().RegGrid1; }

  // Operation 7: hectare technique at 50 %, uptake 40 %, without TEA (20 %
  // off), so every value is scaled by 0.5 × 0.4 × 0.8 = 0.16 and the area by
  // 0.5 × 0.4 = 0.2. Region: the NUTS2 area 20 with three NUTS3 areas (and one
  // area of another NUTS2 area that is not listed).
  void two_area_setup() {
    choose(7, "Buffer & <strips>", 1, 50, 40, 0, 20);
    region("DK01", 20, 2);
    nuts3(1, 20, "DK011", "Nord's & <Øst>");
    nuts3(2, 20, "DK012", "Syd");
    nuts3(3, 20, "DK013", "Vest");
    nuts3(4, 21, "DK021", "Elsewhere");
    // Area 1: a plain row, a sequestration activity, adaptation, production.
    add_ops({.area = 1, .value = 10.4, .impact_area = 100});
    add_ops({.area = 1, .activity = 6, .type = 2, .value = 30.4, .impact_area = 100, .cseq = 10});
    add_ops({.area = 1, .type = 3, .value = 10, .impact_area = 100, .category = 11});
    add_ops({.area = 1, .activity = 4, .type = 4, .value = 4, .impact_area = 100});
    // Area 2: a plain row and an adaptation row over 70 ha.
    add_ops({.area = 2, .value = 7.3, .impact_area = 70});
    add_ops({.area = 2, .type = 3, .value = 1, .impact_area = 70, .category = 11});
    add_ops({.area = 4, .value = 1000});  // outside the region
    // Area 3 has no row of operation 7.
    add_ops({.area = 3, .op = 8, .value = 1000});
  }
};

TEST_F(RegionalAnalysisTest, TwoAreasWorkedByHand) {
  two_area_setup();
  session().cseq_years = 10;
  regional_analysis(ui_, 7, 1);
  EXPECT_TRUE(ui_.messages.empty());
  EXPECT_EQ(ui_.log.front(), "navigate:explorer:working.htm");
  EXPECT_NE(page("working.htm").find("Retrieving data..."), std::string::npos);
  ASSERT_EQ(grid().rows(), 4);
  EXPECT_EQ(grid().cell(0, 2), "tCO2e");
  EXPECT_EQ(grid().cell(0, 3), "tCO2e/ha");
  EXPECT_EQ(grid().cell(1, 0), "1");
  EXPECT_EQ(grid().cell(1, 1), "Nord's & <Øst>");  // raw in the grid
  // Area 1, 10 years: (round0(104) + 30 sequestered) × 0.16 = 21.44 over
  // 100 × 0.2 = 20 ha.
  EXPECT_EQ(grid().cell(1, 2), "21.4");
  EXPECT_EQ(grid().cell(1, 3), "1.072");
  // Area 2: 73 × 0.16 = 11.68 over 14 ha = 0.83428...
  EXPECT_EQ(grid().cell(2, 2), "11.7");
  EXPECT_EQ(grid().cell(2, 3), "0.834");
  // Area 3 has nothing.
  EXPECT_EQ(grid().cell(3, 1), "Vest");
  EXPECT_EQ(grid().cell(3, 2), "0");
  EXPECT_EQ(grid().cell(3, 3), "0");
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:reg_analysis_ghg.htm");
  EXPECT_EQ(explorer_window().reg_impact_kind, 1);
  EXPECT_EQ(explorer_window().current_operation, 7);

  // Without sequestration in the balance the hedge adds nothing:
  // 104 × 0.16 = 16.64 over 20 ha.
  session().cseq_included = 0;
  regional_analysis(ui_, 7, 1);
  EXPECT_EQ(grid().cell(1, 2), "16.6");
  EXPECT_EQ(grid().cell(1, 3), "0.832");
  EXPECT_EQ(grid().cell(2, 2), "11.7");

  // Adaptation: the per-hectare figure keeps six decimals. Area 1:
  // 10 × 0.16 = 1.6 over 20 ha; area 2: 0.16 over 14 ha = 0.0114285...
  regional_analysis(ui_, 7, 2);
  EXPECT_EQ(grid().cell(0, 2), "Risk reduction");
  EXPECT_EQ(grid().cell(1, 2), "1.6");
  EXPECT_EQ(grid().cell(1, 3), "0.08");
  EXPECT_EQ(grid().cell(2, 2), "0.2");
  EXPECT_EQ(grid().cell(2, 3), "0.011429");
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:reg_analysis_adapt.htm");

  // Production, a year's worth: 4 × Norm_factor 2.5 = 10, × 0.16 = 1.6.
  regional_analysis(ui_, 7, 4);
  EXPECT_EQ(grid().cell(0, 3), "Production (€)/ha");
  EXPECT_EQ(grid().cell(1, 2), "1.6");
  EXPECT_EQ(grid().cell(1, 3), "0.08");
  EXPECT_EQ(grid().cell(2, 2), "0");
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:reg_analysis_prod.htm");
}

TEST_F(RegionalAnalysisTest, BoundaryFeatureAgreesWithTheWholeRegionOnOneArea) {
  // Boundary strips of 5 m round 4 ha fields on 1000 ha: 97.5 ha of strips;
  // uptake 50 %, without TEA 10 % off. A NUTS3 region lists itself.
  choose(8, "Margins", 2, 5, 50, 0, 10);
  region("DK011", 1, 3);
  nuts3(1, 20, "DK011", "Nord");
  add_ops({.op = 8, .value = 100, .impact_area = 1000, .field = 4});
  add_ops({.op = 8, .type = 3, .value = 37, .impact_area = 1000, .field = 4, .category = 11});
  session().cseq_years = 1;
  regional_analysis(ui_, 8, 1);
  ASSERT_EQ(grid().rows(), 2);
  // 100 × 0.0975 × 0.5 × 0.9 = 4.3875 over 48.75 ha = 0.09.
  EXPECT_EQ(grid().cell(1, 2), "4.4");
  EXPECT_EQ(grid().cell(1, 3), "0.09");

  ASSERT_EQ(get_impact_data_direct_MT(ui_, 8, explorer_state()), ImpactStatus::done);
  const ExplorerState& ex = explorer_state();
  const GridTable& ghg = ex.ghg_activity_table;
  ASSERT_EQ(ghg.rows(), 2);
  for (int h = 1; h <= 7; ++h) {
    SCOPED_TRACE(kHorizonYears[h - 1]);
    session().cseq_years = kHorizonYears[h - 1];
    regional_analysis(ui_, 8, 1);
    EXPECT_EQ(grid().cell(1, 2), ghg.cell(1, 2 * h + 1));
    EXPECT_DOUBLE_EQ(cell_to_number(grid().cell(1, 3)), cell_to_number(ghg.cell(1, 2 * h)));
  }
  regional_analysis(ui_, 8, 2);
  const GridTable& a = ex.adaptation_activity_table;
  const double x = cell_to_number(a.cell(1, 4));  // 37 × 0.0975 × 0.5 × 0.9
  EXPECT_DOUBLE_EQ(cell_to_number(grid().cell(1, 2)), round_half_even(x, 1));
  EXPECT_DOUBLE_EQ(cell_to_number(grid().cell(1, 3)), round_half_even(x / ex.op_total_area, 6));
  EXPECT_TRUE(ui_.messages.empty());
}

TEST_F(RegionalAnalysisTest, ZeroAreaAndMissingRegion) {
  // Hectare technique does not need the impact area for the value, so an
  // area of 0 ha leaves a total without a per-hectare figure.
  choose(7, "Op", 1, 100, 100, 1, 0);
  region("DK011", 1, 3);
  nuts3(1, 20, "DK011", "Nord");
  add_ops({.value = 12, .impact_area = 0});
  regional_analysis(ui_, 7, 1);
  EXPECT_EQ(grid().cell(1, 2), "120");  // 10 years
  EXPECT_EQ(grid().cell(1, 3), "0");

  // No region: the message, and neither the table nor the page changes.
  file_db_->exec("DELETE FROM Regions");
  ui_.log.clear();
  regional_analysis(ui_, 7, 2);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "No region defined");
  EXPECT_EQ(ui_.messages[0].text,
            "No region has been defined, so cannot calculate regional impact.");
  EXPECT_EQ(ui_.messages[0].icon, MsgIcon::Stop);
  EXPECT_EQ(grid().cell(1, 2), "120");
  EXPECT_EQ(ui_.log.back(), "message:No region defined");
}

TEST_F(RegionalAnalysisTest, PageShowsEscapedNamesHorizonAndChartLinks) {
  two_area_setup();
  session().cseq_years = 1;
  regional_analysis(ui_, 7, 1);
  std::string html = page("reg_analysis_ghg.htm");
  EXPECT_NE(html.find("Buffer &amp; &lt;strips&gt;"), std::string::npos);
  EXPECT_NE(html.find("Nord&#39;s &amp; &lt;Øst&gt;"), std::string::npos);
  EXPECT_EQ(html.find("<Øst>"), std::string::npos);
  EXPECT_NE(html.find("Time Horizon: 1 year (the time horizon used can be changed in the software "
                      "settings)"),
            std::string::npos);
  EXPECT_NE(html.find("<a href=7.cg1>Total</a>&nbsp;or&nbsp;<a href=7.cg2>Per hectare</a>"),
            std::string::npos);
  EXPECT_NE(html.find("Regional breakdown"), std::string::npos);

  session().cseq_years = 25;
  reg_analysis_html(ui_, 7, 1);
  EXPECT_NE(page("reg_analysis_ghg.htm").find("Time Horizon: 25 years ("), std::string::npos);

  // Other kinds: no horizon, their own chart links.
  reg_analysis_html(ui_, 7, 2);
  html = page("reg_analysis_adapt.htm");
  EXPECT_EQ(html.find("Time Horizon"), std::string::npos);
  EXPECT_NE(html.find("<a href=7.ca2>"), std::string::npos);
  reg_analysis_html(ui_, 7, 4);
  EXPECT_NE(page("reg_analysis_prod.htm").find("<a href=7.cp1>"), std::string::npos);
  EXPECT_EQ(explorer_window().reg_impact_kind, 4);
}

TEST_F(RegionalAnalysisTest, ChartGivesEveryAreaFifteenPixels) {
  ExplorerWindow& w = explorer_window();
  w.browser_width = 1000;
  w.browser_height = 500;
  GridTable& g = w.RegGrid1;
  g.resize(1, 4);
  for (int i = 1; i <= 40; ++i) {
    const int r = g.add_row();
    g.cell(r, 0) = std::to_string(i);
    g.cell(r, 1) = i == 1 ? "Nord's & <Øst>" : "Area " + std::to_string(i);
    g.cell(r, 2) = std::to_string(i);
    g.cell(r, 3) = "0.5";
  }
  reg_analysis_chart(ui_, 7, 1, 2);
  std::string html = page("regional_chart.htm");
  // 40 × 15 = 600 is above 500 × 0.85 = 425.
  EXPECT_NE(html.find("<div id=\"container\" style=\"width: 930px; height: 600px; margin: 0 "
                      "auto\"></div>"),
            std::string::npos);
  EXPECT_NE(html.find("'Nord s &amp; &lt;Øst&gt;'"), std::string::npos);  // escaped once
  ASSERT_GE(ui_.log.size(), 2u);
  EXPECT_EQ(ui_.log[ui_.log.size() - 2], "window:report");
  EXPECT_EQ(ui_.log.back(), "navigate:report:regional_chart.htm");

  g.resize(4, 4);  // three areas: the browser's share wins
  reg_analysis_chart(ui_, 7, 1, 3);
  EXPECT_NE(page("regional_chart.htm").find("height: 425px"), std::string::npos);
}

}  // namespace
}  // namespace arven

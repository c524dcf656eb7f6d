#include "reports/charts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "base/numbers.h"
#include "core/session.h"
#include "tests/support/golden.h"
#include "tests/support/guards.h"
#include "tests/support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using testing::expect_golden;

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::stringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The first line starting with `prefix`, or "" with a test failure.
std::string line_starting(const std::string& text, const std::string& prefix) {
  for (const std::string& line : lines_of(text))
    if (line.rfind(prefix, 0) == 0) return line;
  ADD_FAILURE() << "no line starting with " << prefix;
  return "";
}

// A cost-curve table: columns 0..3 as the curve builder leaves them, then
// `curve` point columns; data row r holds "r.5" in its points.
GridTable mac_grid(int curve, const std::vector<std::string>& names) {
  GridTable g(4 + curve);
  g.add_row();
  g.cell(0, 1) = "Operation name";
  for (int c = 0; c < curve; ++c) g.cell(0, 4 + c) = std::to_string(c + 1);
  for (size_t i = 0; i < names.size(); ++i) {
    int r = g.add_row();
    g.cell(r, 0) = std::to_string(r);
    g.cell(r, 1) = names[i];
    for (int c = 4; c < g.cols(); ++c) g.cell(r, c) = std::to_string(r) + ".5";
  }
  return g;
}

// The category entries of a cost-curve script: their count and where the
// nulls are.
struct Categories {
  int count = 0;
  std::vector<int> nulls;
};
Categories categories_of(const std::string& script) {
  std::string line = line_starting(script, "categories: [");
  std::string inner = line.substr(13, line.size() - 13 - 2);
  Categories result;
  if (inner.empty()) return result;
  std::stringstream in(inner);
  for (std::string entry; std::getline(in, entry, ',');) {
    if (entry.front() == ' ' && entry != " ' '") entry.erase(0, 1);
    if (entry == "null") result.nulls.push_back(result.count);
    ++result.count;
  }
  return result;
}

class ChartsTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = tmp_.path();
  }

  template <class Write>
  std::string script(Write write) {
    PageFile out("chart.htm");
    write(out);
    out.close();
    return read_file(tmp_ / "chart.htm");
  }

  arven::testing::TempDir tmp_;
};

TEST_F(ChartsTest, CostCurveScripts) {
  session().ranking_TH = 20;
  GridTable g = mac_grid(5, {"A & B's <x>", "C:\\d"});
  g.cell(1, 6) = "null";
  g.cell(2, 4) = "null";
  expect_golden("chart_mac_ghg_operations.htm",
                script([&](PageFile& out) { chart_mac_ghg_operations(out, g, 1000); }));
  expect_golden("chart_mac_ghg_measures.htm",
                script([&](PageFile& out) { chart_mac_ghg_measures(out, g, 1); }));
  expect_golden("chart_mac_adapt_operations.htm",
                script([&](PageFile& out) { chart_mac_adapt_operations(out, g); }));
  expect_golden("chart_mac_adapt_measures.htm",
                script([&](PageFile& out) { chart_mac_adapt_measures(out, g); }));
  expect_golden("chart_mac_example.htm", script([](PageFile& out) { chart_mac_example(out); }));
}

TEST_F(ChartsTest, CostCurveWithoutCurveColumns) {
  GridTable g = mac_grid(0, {"A", "B"});
  std::string text = script([&](PageFile& out) { chart_mac_ghg_operations(out, g, 1); });
  EXPECT_EQ(line_starting(text, "categories"), "categories: [],");
  EXPECT_EQ(text.find("name:"), std::string::npos);
  EXPECT_NE(text.find("series: [{\n}]\n});\n});\n</script>\n"), std::string::npos) << text;
}

TEST_F(ChartsTest, ScaleLabels) {
  GridTable g = mac_grid(2, {"A"});
  auto axis = [&](int64_t scale) {
    std::string text = script([&](PageFile& out) { chart_mac_ghg_measures(out, g, scale); });
    return line_starting(text, "text: 'tCO2e");
  };
  EXPECT_EQ(axis(1), "text: 'tCO2e'");
  EXPECT_EQ(axis(10), "text: 'tCO2e (x ten)'");
  EXPECT_EQ(axis(100000), "text: 'tCO2e (x100 thousand)'");
  EXPECT_EQ(axis(100000000), "text: 'tCO2e (x100 million)'");
  EXPECT_THROW(axis(50), std::invalid_argument);
}

TEST_F(ChartsTest, LabelStepsByColumnCount) {
  // Steps as seen in the categories: a null first, then one every step.
  auto step_of = [&](int cols, bool adapt) {
    GridTable g = mac_grid(cols - 4, {"A"});
    std::string text = script([&](PageFile& out) {
      if (adapt)
        chart_mac_adapt_operations(out, g);
      else
        chart_mac_ghg_operations(out, g, 1);
    });
    Categories cat = categories_of(text);
    EXPECT_EQ(cat.count, cols - 4);
    EXPECT_GE(cat.nulls.size(), 2u);
    int step = cat.nulls[1] - cat.nulls[0];
    EXPECT_EQ(cat.nulls[0], 0);
    for (size_t i = 0; i < cat.nulls.size(); ++i)
      EXPECT_EQ(cat.nulls[i], static_cast<int>(i) * step) << "cols " << cols;
    return step;
  };
  // A short curve: about ten labels, at least one per column.
  EXPECT_EQ(step_of(24, false), 2);
  EXPECT_EQ(step_of(12, true), 1);
  // GHG: the table's columns less one, at most 300 / 600 / above.
  EXPECT_EQ(step_of(301, false), 10);
  EXPECT_EQ(step_of(302, false), 50);
  EXPECT_EQ(step_of(601, false), 50);
  EXPECT_EQ(step_of(602, false), 100);
  // Adaptation: at most 100 / 300 / above.
  EXPECT_EQ(step_of(101, true), 10);
  EXPECT_EQ(step_of(102, true), 50);
  EXPECT_EQ(step_of(301, true), 50);
  EXPECT_EQ(step_of(302, true), 100);
  EXPECT_EQ(step_of(800, true), 100);
}

GridTable regional_grid() {
  GridTable g(4);
  g.add_row();
  g.cell(0, 1) = "Region";
  const char* names[] = {"Côte d'Or", "A & B <i>"};
  for (int i = 0; i < 2; ++i) {
    int r = g.add_row();
    g.cell(r, 1) = names[i];
    g.cell(r, 2) = std::to_string(-100 * r);
    g.cell(r, 3) = "-" + std::to_string(r) + ".25";
  }
  return g;
}

TEST_F(ChartsTest, RegionalBar) {
  session().cseq_years = 20;
  GridTable g = regional_grid();
  std::string text =
      script([&](PageFile& out) { chart_regional_bar(out, g, "Hedges 'n' ditches", 1, 2); });
  expect_golden("chart_regional_bar.htm", text);
  // The apostrophe of a region name becomes a blank.
  EXPECT_NE(text.find("categories: ['Côte d Or', 'A &amp; B &lt;i&gt;'],"), std::string::npos);

  text = script([&](PageFile& out) { chart_regional_bar(out, g, "", 2, 3); });
  EXPECT_EQ(line_starting(text, "text: 'Regional"), "text: 'Regional breakdown for Unknown farm'");
  EXPECT_EQ(line_starting(text, "data: ["), "data: [-1.25, -2.25]");
  EXPECT_EQ(text.find("Time horizon"), std::string::npos);
}

TEST_F(ChartsTest, RegionalBarTextsByKind) {
  struct Case {
    int impact, chart;
    std::string subtitle, unit, tooltip;
  };
  session().cseq_years = 1;
  const Case cases[] = {
      {1, 2, "text: 'Emissions for 1 year'", "tCO2e", "tCO2e"},
      {1, 3, "text: 'Emissions per hectare for 1 year'", "tCO2e/ha", "tCO2e/ha"},
      {2, 2, "text: 'Risk Reduction'", "Risk Reduction", "risk reduction"},
      {2, 3, "text: 'Risk Reduction per hectare'", "Risk Reduction/ha", "risk reduction/ha"},
      {4, 2, "text: 'Production (€)'", "€", "€"},
      {4, 3, "text: 'Production (€) per hectare'", "€/ha", "€/ha"},
  };
  GridTable g = regional_grid();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.subtitle);
    std::string text =
        script([&](PageFile& out) { chart_regional_bar(out, g, "Op", c.impact, c.chart); });
    auto all = lines_of(text);
    auto at = std::find(all.begin(), all.end(), "subtitle: {");
    ASSERT_NE(at, all.end());
    EXPECT_EQ(*(at + 1), c.subtitle);
    EXPECT_NE(text.find("title: {\ntext: '" + c.unit + "',\nalign: 'high'"), std::string::npos);
    EXPECT_NE(text.find("this.y +' " + c.tooltip + "';"), std::string::npos);
    EXPECT_EQ(line_starting(text, "name: "), "name: '" + c.unit + "',");
  }
  EXPECT_THROW(script([&](PageFile& out) { chart_regional_bar(out, g, "Op", 3, 2); }),
               std::invalid_argument);
  EXPECT_THROW(script([&](PageFile& out) { chart_regional_bar(out, g, "Op", 1, 1); }),
               std::invalid_argument);
}

TEST_F(ChartsTest, ImpactColumns) {
  GridTable g(5);
  g.add_row();
  g.add_row();
  g.add_row();
  const char* horizons[] = {"", "1", "20", "50", "100"};
  for (int c = 0; c < 5; ++c) {
    g.cell(0, c) = horizons[c];
    g.cell(1, c) = c == 0 ? "Total" : std::to_string(-10 * c);
    g.cell(2, c) = c == 0 ? "Per ha" : "0." + std::to_string(c);
  }
  expect_golden("chart_impact_columns.htm",
                script([&](PageFile& out) { chart_impact_columns(out, g, 1, true); }));
  std::string text = script([&](PageFile& out) { chart_impact_columns(out, g, 2, false); });
  EXPECT_EQ(line_starting(text, "data: ["), "data: [0.1, 0.2, 0.3, 0.4]");
  EXPECT_NE(text.find("title: {\ntext: 'Impact',"), std::string::npos);
  EXPECT_NE(text.find("this.y +' impact';"), std::string::npos);
}

TEST_F(ChartsTest, NumbersAreWrittenWithAPointUnderACommaLocale) {
  set_decimal_separator(",");
  GridTable g = regional_grid();
  g.cell(1, 2) = "-12,5";
  g.cell(2, 2) = "3,5";
  std::string text = script([&](PageFile& out) { chart_regional_bar(out, g, "Op", 1, 2); });
  EXPECT_EQ(line_starting(text, "data: ["), "data: [-12.5, 3.5]");
  g.cell(2, 2) = "";  // a missing figure leaves a gap, never ", ]"
  text = script([&](PageFile& out) { chart_regional_bar(out, g, "Op", 1, 2); });
  EXPECT_EQ(line_starting(text, "data: ["), "data: [-12.5, null]");
  text = script([&](PageFile& out) { chart_rvc_pie(out, 1, "P", {{"Low", "12,5", "00FF00"}}); });
  EXPECT_NE(text.find("{name: 'Low', y: 12.5, color: '#00FF00'}"), std::string::npos);
  set_decimal_separator(".");
}

TEST_F(ChartsTest, RvcPie) {
  std::vector<PieBand> bands = {{"Low", "12.5", "00FF00"}, {"High & <b>'s", "87.5", "FF0000"}};
  expect_golden("chart_rvc_pie.htm", script([&](PageFile& out) {
                  chart_rvc_pie(out, 42, "Soil's \\ <script>", bands);
                }));
}

}  // namespace
}  // namespace arven

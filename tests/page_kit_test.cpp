#include "reports/page_kit.h"
#include "windows/main_pages.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "core/version.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "tests/support/golden.h"
#include "tests/support/guards.h"
#include "tests/support/scripted_ui.h"
#include "tests/support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

using testing::expect_golden;

// A grid whose cells name their place: "h<c>" in the head, "r<r>c<c>" below.
GridTable named_grid(int rows, int cols) {
  GridTable g(cols);
  for (int r = 0; r < rows; ++r) {
    g.add_row();
    for (int c = 0; c < cols; ++c)
      g.cell(r, c) =
          r == 0 ? "h" + std::to_string(c) : "r" + std::to_string(r) + "c" + std::to_string(c);
  }
  return g;
}

class PageKitTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = tmp_.path();
    set_page_date_source([] { return 2024y / std::chrono::March / 5d; });
  }
  void TearDown() override { set_page_date_source(nullptr); }

  // The text of a page written by `write`; the page is closed if still open.
  template <class Write>
  std::string page(Write write) {
    PageFile out("test.htm");
    write(out);
    out.close();
    return read_file(tmp_ / "test.htm");
  }
  std::string read(const std::string& name) { return read_file(tmp_ / name); }

  arven::testing::TempDir tmp_;
  arven::testing::ScriptedUi ui_;
};

TEST_F(PageKitTest, HeadFootAndPageFiles) {
  std::string open_head = page([](PageFile& out) { page_header(out, 1); });
  EXPECT_EQ(open_head.substr(open_head.size() - 9), "</style>\n");
  EXPECT_EQ(page([](PageFile& out) { page_header(out, 0); }), open_head + "</head>\n<body>\n");
  expect_golden("header_showhide.htm", page([](PageFile& out) {
                  page_header_showhide(out);
                  page_footer(out);
                  EXPECT_FALSE(out.is_open());
                  EXPECT_THROW(out.line("late"), std::logic_error);
                }));
  // A page is replaced, not appended to.
  EXPECT_EQ(page([](PageFile& out) { out.line("short"); }), "short\n");
  EXPECT_EQ(html_escape("a<b>&'\""), "a&lt;b&gt;&amp;&#39;&quot;");
  session().app_folder = tmp_ / "missing";
  EXPECT_THROW(PageFile("x.htm"), FileWriteError);
}

TEST_F(PageKitTest, DataQualityBars) {
  const std::vector<std::pair<std::string, int>> small = {
      {"", 1}, {"&nbsp;", 1}, {"1", 1}, {"1.01", 2}, {"2", 2}, {"3", 3}, {"4", 4}, {"4.1", 5}};
  for (const auto& [score, bar] : small)
    EXPECT_EQ(data_quality_bar(score), "<img src=graphics/bar" + std::to_string(bar) +
                                           ".gif title=\"Data quality: " + std::to_string(bar) +
                                           " of 5\">")
        << score;
  EXPECT_THROW(data_quality_bar("n/a"), NumberError);
  EXPECT_EQ(
      data_quality_bar_large("3.25"),
      R"(<img src=graphics/48bar4.gif alt="Data Quality Score: 3.2/5" title="Data Quality Score: 3.2/5">)");
  EXPECT_EQ(
      data_quality_bar_large("4.96"),
      R"(<img src=graphics/48bar5.gif alt="Data Quality Score: 5/5" title="Data Quality Score: 5/5">)");
  EXPECT_EQ(
      data_quality_bar_large(""),
      R"(<img src=graphics/48bar1.gif alt="Data Quality Score: 0/5" title="Data Quality Score: 0/5">)");
  EXPECT_THROW(data_quality_bar_large("&nbsp;"), NumberError);  // only the small bar reads it
}

TEST_F(PageKitTest, PlainHorizonAndDetailTables) {
  GridTable g = named_grid(3, 5);
  g.cell(1, 2) = "";
  expect_golden("grid_plain.htm", page([&](PageFile& out) {
                  grid_table_plain(g, out, 0);
                  grid_table_plain_less3(g, out, 2);
                  grid_table_plain(named_grid(1, 3), out, 1);  // head row only
                }));
  GridTable h = named_grid(2, 8);
  expect_golden("grid_horizons.htm", page([&](PageFile& out) {
                  grid_table_horizons(h, out, 1, 42, 1, 1);  // note row, no links
                  grid_table_horizons(h, out, 1, 42, 1, 2);  // links through the mode
                  session().cseq_included = 0;
                  grid_table_horizons(h, out, 1, 42, 2, 1);  // links and note
                }));
  // Columns: 1 name, 2..15 per hectare / total by horizon, 16 carbon,
  // 17 score (the last printed), 18 never printed.
  GridTable d = named_grid(4, 19);
  d.cell(1, 16) = "2.5";
  d.cell(2, 16) = "";
  d.cell(3, 16) = "0";
  for (int r = 1; r < 4; ++r) d.cell(r, 17) = std::to_string(r + 1);
  expect_golden("grid_detail.htm", page([&](PageFile& out) {
                  grid_table_detail(d, out, 1, 1);  // excluded note
                  session().cseq_included = 1;
                  grid_table_detail(d, out, 2, 2);  // included note
                  grid_table_detail_plain(d, out, 1, 1);
                }));
  d.cell(1, 16) = "-1";
  EXPECT_EQ(page([&](PageFile& out) { grid_table_detail(d, out, 1, 1); }).find("Notes"),
            std::string::npos);
}

TEST_F(PageKitTest, AdaptationTableReadsRiskStatements) {
  Db store = create_country_store_base(tmp_ / "country.mdb");
  store.insert("RVC_List", {"RVC ID", "Risk statement"}, {7, "Flood <risk> & soil"});
  session().rvc_db_path = (tmp_ / "country.mdb").string();
  GridTable summary = named_grid(2, 7);
  summary.cell(1, 2) = "7";
  summary.cell(1, 6) = "2.5";
  GridTable detail = named_grid(2, 6);
  detail.cell(1, 4) = "4.5";
  expect_golden("grid_adaptation.htm", page([&](PageFile& out) {
                  grid_table_adaptation(summary, out, 1, 1);
                  grid_table_adaptation(detail, out, 1, 2);
                }));
}

TEST_F(PageKitTest, SortableTables) {
  GridTable wide = named_grid(3, 8);  // column 6 has no head cell, 7 shows bars
  for (int r = 1; r < 3; ++r) wide.cell(r, 0) = std::to_string(100 + r), wide.cell(r, 7) = "3";
  GridTable regional = named_grid(2, 4);
  GridTable measures = named_grid(2, 3);
  measures.cell(1, 0) = "12", measures.cell(1, 2) = "1";
  expect_golden("grid_sortable.htm", page([&](PageFile& out) {
                  grid_table_sortable(wide, out, 1, 7, 3);
                  grid_table_sortable(regional, out, 0, 1, 6);
                  grid_table_sortable(measures, out, 2, 9, 7);
                  grid_table_sortable(named_grid(1, 4), out, 1, 2, 4);
                }));
  // The whole link table: target state and arrow for columns 1..5.
  const char* expected[10] = {
      "2u 3d 5d 7d 9d", "1d 3d 5d 7d 9d",  "1d 4u 5d 7d 9d", "1d 3d 5d 7d 9d",  "1d 3d 6u 7d 9d",
      "1d 3d 5d 7d 9d", "1d 3d 5d 8u 10u", "1d 3d 5d 7d 9d", "1d 3d 5d 8u 10u", "1d 3d 5d 7d 9d"};
  const std::regex link(
      R"re(sort\.(\d+)s12><img src=graphics/sorted_(up|down)\.gif alt="([^"]+)")re");
  GridTable head = named_grid(1, 7);
  for (int state = 1; state <= 10; ++state) {
    std::string html = page([&](PageFile& out) { grid_table_sortable(head, out, 1, state, 12); });
    std::string got;
    int column = 1;
    for (std::sregex_iterator it(html.begin(), html.end(), link), end; it != end; ++it, ++column) {
      bool up = (*it)[2] == "up";
      got += (got.empty() ? "" : " ") + (*it)[1].str() + (up ? "u" : "d");
      const char* text = column == 1 ? (up ? "Sort Z to A" : "Sort A to Z")
                                     : (up ? "Sort High to Low" : "Sort Low to High");
      EXPECT_EQ((*it)[3], text) << "state " << state << " column " << column;
    }
    EXPECT_EQ(got, expected[state - 1]) << "state " << state;
  }
}

TEST_F(PageKitTest, ListFiguresShowTheDecimalsOfTheirColumn) {
  GridTable list(5);
  list.add_row();
  list.add_row();
  const char* heads[] = {"Operation ID", "Operation name", "Regional impact (tCO2e) / ha",
                         "Regional impact (tCO2e) (total)", "Data Quality"};
  const char* cells[] = {"4", "Hedges 1999", "32.268022495309246", "-488578391.4", "3"};
  for (int c = 0; c < 5; ++c) list.cell(0, c) = heads[c], list.cell(1, c) = cells[c];
  const std::string html = page([&](PageFile& out) { grid_table_sortable(list, out, 1, 1, 3); });
  EXPECT_NE(html.find(">32.268<"), std::string::npos) << html;
  EXPECT_NE(html.find(">-488,578,391<"), std::string::npos) << html;
  EXPECT_NE(html.find("Hedges 1999"), std::string::npos);  // names are not figures
  EXPECT_EQ(list.cell(1, 2), "32.268022495309246");        // the cell keeps its precision

  EXPECT_EQ(display_places("Cost (€) / tCO2e"), 2);
  EXPECT_EQ(display_places("Risk reduction/ha"), 3);
  EXPECT_EQ(display_places("Regional risk reduction total"), 1);
  EXPECT_EQ(display_places("tCO2e"), 0);
  EXPECT_EQ(display_figure("-0.0562", -1), "-0.056");
  EXPECT_EQ(display_figure("1234.5", -1), "1,234.5");
  EXPECT_EQ(display_figure("&nbsp;", 2), "&nbsp;");
}

TEST_F(PageKitTest, WelcomeAndNoOperationsPages) {
  session().recent_files[1] = "/home/ann/Documents/My ARVEN Files/Hedges & buffers 2024.arv";
  session().recent_files[3] = "/tmp/<b>.arv";
  welcome_page(ui_);
  EXPECT_EQ(session().update_state, 2);  // the check found nothing
  EXPECT_EQ(session().update_check_silent, 0);
  EXPECT_EQ(ui_.log, std::vector<std::string>{"navigate:main:welcome.htm"});
  expect_golden("welcome.htm", read("welcome.htm"));

  session().update_state = 1;
  session().recent_files = {};
  welcome_page(ui_);
  std::string again = read("welcome.htm");
  EXPECT_EQ(session().update_state, 1);
  EXPECT_NE(again.find("<a href=update.uuu>Updates are available. Click here to find out details "
                       "and download.</a>"),
            std::string::npos);
  EXPECT_EQ(again.find("Recent files"), std::string::npos);

  ui_.log.clear();
  no_ops_selected_html(ui_);
  EXPECT_EQ(ui_.log, std::vector<std::string>{"navigate:explorer:summary.htm"});
  std::string html = read("summary.htm");
  EXPECT_NE(html.find("No Operations Selected"), std::string::npos);
  EXPECT_NE(html.find("Please select some operations from the 'All' tab."), std::string::npos);
}

class PageKitSummaryTest : public PageKitTest {
 protected:
  // A country store at index `country` holding one area of `level`.
  void add_country(int country, int level, int64_t area_id, double sqkm) {
    std::string path = (tmp_ / ("country" + std::to_string(country) + ".mdb")).string();
    Db db = create_country_store_base(path);
    std::string id = "NUTS" + std::to_string(level) + "_ID";
    db.insert("NUTS" + std::to_string(level), {id, "SQKM"}, {area_id, sqkm});
    session().country_db_path[country] = path;
  }
  Db assessment() {
    session().current_file = (tmp_ / "Upland & <hill> farms.arv").string();
    return create_assessment_store(session().current_file);
  }
};

TEST_F(PageKitSummaryTest, RegionsAndOperations) {
  add_country(8, 2, 11, 1234.5);  // a tie: rounds to the even 1234
  add_country(9, 3, 5, 11.5);     // rounds to 12
  Db file = assessment();
  const std::vector<std::string> cols = {"NUTS0_ID", "NUTS Type ID", "NUTS Code", "NUTS Name",
                                         "NUTS ID"};
  file.insert("Regions", cols, {8, 2, "DK01", "Hovedstaden & <Øst>", 11});
  file.insert("Regions", cols, {9, 3, "SE110", "Stockholms län", 5});
  file.insert("Operations", {"Operation ID", "Operation Name"}, {4, "Hedges <&'> buffers"});
  file.insert("Operations", {"Operation ID", "Operation Name"}, {2, "Cover crops"});
  summary_page(ui_);
  EXPECT_EQ(ui_.log,
            (std::vector<std::string>{"navigate:main:summary.htm", "navigate:main:working.htm",
                                      "navigate:main:summary_display.htm"}));
  EXPECT_EQ(session().rvc_db_path, session().country_db_path[9]);
  EXPECT_EQ(read("working.htm"), read("summary.htm"));
  EXPECT_TRUE(fs::exists(tmp_ / "welcome.htm"));
  expect_golden("summary_display.htm", read("summary_display.htm"));
}

TEST_F(PageKitSummaryTest, NoFileEmptyFileAndDamagedFiles) {
  summary_page(ui_);
  EXPECT_EQ(ui_.log,
            (std::vector<std::string>{"navigate:main:summary.htm", "navigate:main:welcome.htm"}));
  EXPECT_NE(read("summary.htm").find("Opening file..."), std::string::npos);
  EXPECT_FALSE(fs::exists(tmp_ / "summary_display.htm"));

  assessment();
  summary_page(ui_);
  std::string html = read("summary_display.htm");
  EXPECT_NE(html.find("<a href=edit.xx1>"), std::string::npos);
  EXPECT_EQ(html.find("hot.hot"), std::string::npos);
  EXPECT_EQ(html.find("<table"), std::string::npos);
  EXPECT_EQ(html.find("Operations: "), std::string::npos);

  Db::create(tmp_ / "bare.arv");  // a store without the assessment tables
  session().current_file = (tmp_ / "bare.arv").string();
  EXPECT_THROW(summary_page(ui_), StoreError);
  std::ofstream(tmp_ / "text.arv") << "not a store";
  session().current_file = (tmp_ / "text.arv").string();
  EXPECT_THROW(summary_page(ui_), StoreError);
}

}  // namespace
}  // namespace arven

// The RVC browser and the hotspot report on a small Danish store: golden
// pages, the hotspot decision at its edges, the class-zero correction, the
// dispatch of the window's links, and a cancelled run.
#include <gtest/gtest.h>

#include "base/numbers.h"
#include "core/lookups.h"
#include "reports/hotspot.h"
#include "reports/rvc_browser.h"
#include "reports/rvc_stores.h"
#include "tests/support/golden.h"
#include "tests/support/store_fixture.h"

namespace arven {
namespace {

using testing::expect_golden;

class RvcTest : public testing::StoreFixture {
 protected:
  void SetUp() override {
    StoreFixture::SetUp();
    fix_page_date();
    reset_rvc_browser();
    Session& s = session();
    s.hotspot_sens = 1;
    s.hotspot_regional = 0;
    s.hotspot_exclude_C0 = 1;
    insert("NUTS0", {"NUTS0_ID", "NUTS", "NAME"}, {kDK, "DK", "Danmark"});
    insert("NUTS1", {"NUTS1_ID", "NUTS0_ID", "NUTS", "NAME"}, {1, kDK, "DK0", "Danmark"});
    insert("NUTS2", {"NUTS2_ID", "NUTS0_ID", "NUTS1_ID", "NUTS", "NAME"},
           {1, kDK, 1, "DK01", "Hovedstaden"});
    insert("NUTS2", {"NUTS2_ID", "NUTS0_ID", "NUTS1_ID", "NUTS", "NAME"},
           {2, kDK, 1, "DK02", "Sjælland"});
    const char* nuts3[][3] = {{"1", "DK011", "Byen København"},
                              {"2", "DK021", "Østsjælland"},
                              {"3", "DK022", "Vest- & Sydsjælland"}};
    for (auto& a : nuts3)
      insert("NUTS3", {"NUTS3_ID", "NUTS0_ID", "NUTS1_ID", "NUTS2_ID", "NUTS", "NAME"},
             {int64_t(std::stoi(a[0])), kDK, 1, a[0][0] == '1' ? 1 : 2, a[1], a[2]});
    // ER: 0..5, class 0 excluded; FL: 0..6; TX is of another type.
    rvc(1, 1, "ER", "Soil erosion risk", 5, 1, "Adaptive Capacity");
    rvc(2, 1, "FL", "Flood <risk>", 6, 0, "GHG Emissions (incl C seq)");
    rvc(9, 2, "TX", "Soil texture", 4, 0, "Not applicable");
    data(0, kDK, 1, 2.5, 0, 5);
    data(0, kDK, 2, 3.25, 1, 6);
    data(1, 1, 1, 2.5, 0, 5);
    data(2, 1, 1, 1.75, 0, 4);
    data(2, 1, 2, 4, 2, 6);
    data(3, 2, 1, 3.5, 0, 4);   // Max 4: below Euro max
    data(3, 2, 2, 2.25, 1, 5);  // FL of DK021: Max 5
    data(3, 3, 1, 0, 0, 0);     // DK022 has no FL row at all
    dist(2, 1, 1, {{0, 20}, {1, 50}, {4, 30}});
    dist(3, 2, 1, {{0, 50}, {2, 10}, {5, 40}});  // moderate 2, high 5
    dist(3, 2, 2, {{1, 60}, {4, 30}, {5, 10}});  // third 2, two thirds 4
    dist(3, 3, 1, {{0, 100}});                   // all of it class 0
  }

  void insert(const std::string& table, const std::vector<std::string>& cols,
              const std::vector<Value>& values) {
    store_->insert(table, cols, values);
  }
  void rvc(int64_t id, int type, const char* letter, const char* name, double euro_max, int exclude,
           const char* impact) {
    insert("RVC_List",
           {"RVC ID", "RVC Type", "RVC Short Letter ID", "RVC Short Name", "RVC Long Name",
            "Risk statement", "Euro min", "Euro max", "Hotspots Exclude Class Zero", "Impact Type"},
           {id, type, letter, name, std::string(name) + " (long)", "Reduces " + std::string(name),
            0.0, euro_max, exclude, impact});
  }
  void data(int level, int64_t area, int64_t rvc_id, double average, int min, int max) {
    const std::string k = std::to_string(level);
    insert("NUTS" + k + "_RVC_Data", {"NUTS" + k + "_ID", "RVC ID", "Average", "Min", "Max"},
           {area, rvc_id, average, min, max});
  }
  void dist(int level, int64_t area, int64_t rvc_id,
            std::initializer_list<std::pair<double, int>> rows) {
    const std::string k = std::to_string(level);
    for (auto [cls, percent] : rows)
      insert("NUTS" + k + "_RVC_Data_Dist", {"NUTS" + k + "_ID", "RVC ID", "RVC Class", "Percent"},
             {area, rvc_id, cls, percent});
  }
  // The percent table's cells of a row after a run, from column 1.
  std::vector<std::string> percents(int row) {
    std::vector<std::string> out;
    const GridTable& g = rvc_browser().MSFlexGrid4;
    for (int c = 1; c < g.cols(); ++c) out.push_back(g.cell(row, c));
    EXPECT_EQ(out, [&] {
      std::vector<std::string> same;
      for (int c = 1; c < g.cols(); ++c) same.push_back(rvc_browser().MSFlexGrid5.cell(row, c));
      return same;
    }());
    return out;
  }
};

TEST_F(RvcTest, BrowserPages) {
  top_index(ui_);
  expect_golden("rvc_index.htm", page("index.htm"));
  nuts_index(ui_, "DK0");
  expect_golden("rvc_level.htm", page("DK0.htm"));
  details(ui_, "DK01");
  expect_golden("rvc_details.htm", page("DK01_details.htm"));
  EXPECT_EQ(ui_.log.back(), "navigate:rvc:DK01_details.htm");

  // A NUTS3 page lists the area itself; the country page's breadcrumb is
  // "Index " alone.
  nuts_index(ui_, "DK022");
  EXPECT_NE(page("DK022.htm").find("<a href=DK022.htm>Vest- &amp; Sydsjælland</a>"),
            std::string::npos);
  nuts_index(ui_, "DK");
  EXPECT_NE(page("DK.htm").find("<small>Index </small>"), std::string::npos);
  EXPECT_NE(page("DK.htm").find("<a href=DK0.htm>Danmark</a>"), std::string::npos);
}

TEST_F(RvcTest, UnknownAndMalformedCodesStillGetTheirBreadcrumb) {
  nuts_index(ui_, "DK099");
  const std::string known = page("DK099.htm");
  EXPECT_NE(known.find("<a href=index.htm>Index</a> &gt; <a href=DK0.htm>NUTS1: Danmark</a> &gt; "
                       "<a href=DK09.htm>NUTS2: DK09</a> &gt; <a href=DK099.htm>NUTS3: DK099</a>"),
            std::string::npos);
  nuts_index(ui_, "Q<1");
  EXPECT_NE(page("Q<1.htm").find("<a href=Q%3C1.htm>NUTS1: Q&lt;1</a>"), std::string::npos);
  // Bytes that are no UTF-8 would break the window's state: they are replaced.
  EXPECT_TRUE(dispatch_rvc_navigation(ui_, "DK\xff.htm"));
  EXPECT_EQ(ui_.log.back(), "navigate:rvc:DK\xEF\xBF\xBD.htm");
  EXPECT_TRUE(dispatch_rvc_navigation(ui_, "\xed\xa0\x80\xc3\xa6.htm"));  // a surrogate, then æ
  EXPECT_EQ(ui_.log.back(), "navigate:rvc:\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xc3\xa6.htm");
  details(ui_, "X");
  EXPECT_NE(page("X_details.htm").find("<small>Index </small>"), std::string::npos);
}

TEST_F(RvcTest, TablesTakeBareCountryKeysAndPrintMissingAsEmpty) {
  EXPECT_EQ(parse_rvc_key("13").country, 13);
  EXPECT_EQ(parse_rvc_key("13").area, 13);
  EXPECT_EQ(parse_rvc_key("13:7").area, 7);
  EXPECT_EQ(parse_rvc_key("x:7").country, 0);
  nuts_overview(3, "DK02");
  const GridTable& g = rvc_browser().MSFlexGrid1;
  ASSERT_EQ(g.rows(), 3);
  EXPECT_EQ(g.cell(2, 2), "");  // DK022 has no FL row
  EXPECT_EQ(rvc_browser().MSFlexGrid2.cell(2, 0), "13:3");
  nuts0_overview();
  EXPECT_EQ(rvc_browser().MSFlexGrid2.cell(1, 0), "13");
}

TEST_F(RvcTest, PreloadedReadsAreThoseOfTheKeyedReads) {
  RvcStores keyed, loaded;
  loaded.preload(kDK, 3, {1, 2, 3}, {1, 2, 9});
  for (int64_t area : {1, 2, 3})
    for (int64_t rvc_id : {1, 2, 9}) {
      auto a = keyed.data(kDK, 3, area, rvc_id), b = loaded.data(kDK, 3, area, rvc_id);
      ASSERT_EQ(a.has_value(), b.has_value());
      if (a) {
        EXPECT_EQ(a->average.as_text(), b->average.as_text());
        EXPECT_EQ(a->max.as_text(), b->max.as_text());
      }
      auto da = keyed.dist(kDK, 3, area, rvc_id), db = loaded.dist(kDK, 3, area, rvc_id);
      ASSERT_EQ(da.size(), db.size());
      for (size_t i = 0; i < da.size(); ++i) {
        EXPECT_EQ(da[i].rvc_class, db[i].rvc_class);
        EXPECT_EQ(da[i].percent, db[i].percent);
      }
    }
}

TEST_F(RvcTest, KeyHasFiftyColourCells) {
  PageFile out("key.htm");
  rvc_key(out, 1, 1);
  out.close();
  const std::string text = page("key.htm");
  size_t cells = 0;
  for (size_t p = text.find("bgcolor=\"#"); p != std::string::npos;
       p = text.find("bgcolor=\"#", p + 1))
    ++cells;
  EXPECT_EQ(cells, 50u);
  // From "Low" through the low entries (green) to the high ones (magenta)
  // and "High": the key reads as the cells are painted.
  EXPECT_LT(text.find("Low"), text.find("00ff13"));
  EXPECT_LT(text.find("00ff13"), text.find("ff00fe"));
  EXPECT_LT(text.find("ff00fe"), text.find("High"));
  EXPECT_EQ(text.find("TX"), std::string::npos);  // another RVC Type
}

TEST_F(RvcTest, LinksAreDispatchedInOrder) {
  struct Case {
    const char* target;
    bool page;
  };
  for (Case c : {Case{"http://x/DK0.htm", true},
                 {"hot.hcn", false},
                 {"working.htm", true},
                 {"hotspot_rep1.htm", true},
                 {"HOTSPOT_REP2.HTM", true},
                 {"index.htm", true},
                 {"back.htm", false},
                 {"DK01_details.htm", false},
                 {"DK01.htm", false},
                 {"graphics/loading.gif", true}})
    EXPECT_EQ(rvc_link_is_page(c.target), c.page) << c.target;

  EXPECT_TRUE(dispatch_rvc_navigation(ui_, "hot.hcn"));
  EXPECT_TRUE(hotspot_cancel());
  rvc_browser().tab = 2;
  EXPECT_TRUE(dispatch_rvc_navigation(ui_, "back.htm"));
  EXPECT_EQ(ui_.log.back(), "navigate:rvc:hotspot_rep2.htm");
  EXPECT_TRUE(dispatch_rvc_navigation(ui_, "DK01_details.htm"));
  EXPECT_EQ(rvc_browser().current_area, "DK01");
  EXPECT_EQ(ui_.log.back(), "navigate:rvc:DK01_details.htm");  // the timer ran at once
  EXPECT_TRUE(dispatch_rvc_navigation(ui_, "DK02.htm"));
  EXPECT_EQ(ui_.log.back(), "navigate:rvc:DK02.htm");
  EXPECT_FALSE(dispatch_rvc_navigation(ui_, "hotspot_rep1.htm"));
}

TEST_F(RvcTest, HotspotBandAtItsEdges) {
  Session& s = session();
  // Euro max 6: a third is 2, two thirds 4.
  EXPECT_FALSE(hotspot_band(6, 2, 0));
  EXPECT_FALSE(hotspot_band(6, 4, 0));  // moderate, sensitivity 1
  EXPECT_TRUE(hotspot_band(6, 4.001, 0));
  s.hotspot_sens = 2;
  EXPECT_FALSE(hotspot_band(6, 2, 0));
  EXPECT_TRUE(hotspot_band(6, 2.001, 0));
  EXPECT_TRUE(hotspot_band(6, 4, 0));
  EXPECT_FALSE(hotspot_band(0, 5, 99));  // a top of 0
  s.hotspot_regional = 1;                // the region's own maximum
  EXPECT_FALSE(hotspot_band(6, 5, 0));
  EXPECT_TRUE(hotspot_band(0, 5, 6));
}

TEST_F(RvcTest, HotspotReport) {
  region("DK02", 2, 2);
  hotspot_load(ui_, 1);
  EXPECT_NE(page("working.htm").find("<a href=hot.hcn>-CANCEL-</a>"), std::string::npos);
  EXPECT_EQ(ui_.log.back(), "navigate:rvc:hotspot_rep1.htm");
  expect_golden("hotspot_rep1.htm", page("hotspot_rep1.htm"));
  expect_golden("hotspot_rep2.htm", page("hotspot_rep2.htm"));
  // ER of DK021: 40 of the 50 applicable percent is high, so 80. FL: only
  // class 5 is above two thirds of 6. DK022: all class 0 gives 0, and no FL row 0.
  EXPECT_EQ(percents(1), (std::vector<std::string>{"80", "10"}));
  EXPECT_EQ(percents(2), (std::vector<std::string>{"0", "0"}));
  EXPECT_EQ(rvc_browser().MSFlexGrid1.cell(2, 2), "");
  EXPECT_EQ(ui_.last_progress.second, 0);  // the bar is hidden again

  // Moderate classes count with sensitivity 2: ER 50 of 50, FL 40.
  session().hotspot_sens = 2;
  ASSERT_TRUE(hotspot_hub(ui_, 1));
  EXPECT_EQ(percents(1), (std::vector<std::string>{"100", "40"}));
  EXPECT_NE(page("hotspot_rep1.htm").find("moderate and high risk bands"), std::string::npos);

  // Relative to the region: FL's largest Max is 5, so a third is 5/3 and two
  // thirds 10/3; ER's is 4. With class 0 included ER is not corrected.
  session().hotspot_sens = 1;
  session().hotspot_regional = 1;
  session().hotspot_exclude_C0 = 0;
  ASSERT_TRUE(hotspot_hub(ui_, 1));
  EXPECT_EQ(percents(1), (std::vector<std::string>{"40", "40"}));
  EXPECT_NE(page("hotspot_rep2.htm").find("the region(s) selected."), std::string::npos);
}

TEST_F(RvcTest, ClassZeroCorrectionIsClampedAndRounded) {
  region("DK021", 2, 3);
  // Shares that add up to more than 100: 100 × 70 / 30 is held to 100.
  store_->exec("DELETE FROM \"NUTS3_RVC_Data_Dist\" WHERE \"NUTS3_ID\" = 2 AND \"RVC ID\" = 1");
  dist(3, 2, 1, {{0, 70}, {5, 70}});
  ASSERT_TRUE(hotspot_hub(ui_, 1));
  EXPECT_EQ(percents(1)[0], "100");
  // 100 × 40 / 60 = 66.67 rounds to 67.
  store_->exec("DELETE FROM \"NUTS3_RVC_Data_Dist\" WHERE \"NUTS3_ID\" = 2 AND \"RVC ID\" = 1");
  dist(3, 2, 1, {{0, 40}, {5, 40}, {1, 20}});
  ASSERT_TRUE(hotspot_hub(ui_, 1));
  EXPECT_EQ(percents(1)[0], "67");
}

// A Ui that cancels the run when the progress reaches a row.
class CancellingUi : public testing::ScriptedUi {
 public:
  int cancel_at = 0;
  void progress(int value, int max, const std::string& label) override {
    ScriptedUi::progress(value, max, label);
    if (value == cancel_at) hotspot_cancel() = true;
  }
};

TEST_F(RvcTest, CancelledRunLeavesThePreviousPages) {
  region("DK02", 2, 2);
  hotspot_load(ui_, 1);
  const std::string rep1 = page("hotspot_rep1.htm"), rep2 = page("hotspot_rep2.htm");
  store_->exec("UPDATE \"NUTS3_RVC_Data\" SET \"Average\" = 1");
  for (int at : {1, 3, 4}) {  // first pass, second pass, the last row
    SCOPED_TRACE(at);
    CancellingUi ui;
    ui.cancel_at = at;
    hotspot_load(ui, 1);
    EXPECT_EQ(ui.log.back(), "navigate:rvc:hotspot_rep1.htm");
    EXPECT_EQ(page("hotspot_rep1.htm"), rep1);
    EXPECT_EQ(page("hotspot_rep2.htm"), rep2);
    EXPECT_FALSE(rvc_browser().hotspot_running);
  }
  // With no report before it, a cancelled run closes the window.
  reset_rvc_browser();
  CancellingUi ui;
  ui.cancel_at = 1;
  hotspot_load(ui, 1);
  EXPECT_EQ(ui.log.back(), "close:rvc");
}

}  // namespace
}  // namespace arven

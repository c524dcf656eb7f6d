#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/numbers.h"
#include "base/utf8.h"
#include "core/session.h"
#include "engine/catalogue.h"
#include "engine/explorer_state.h"
#include "reports/explorer_window.h"
#include "reports/operation_reports.h"
#include "stores/db.h"
#include "support/store_fixture.h"
#include "windows/explorer.h"

namespace arven {
namespace {

// ---- sorting -------------------------------------------------------------------------

GridTable list_of(std::initializer_list<std::pair<std::string, std::string>> rows) {
  GridTable g(3);
  g.add_row();
  g.cell(0, 1) = "Name";
  g.cell(0, 2) = "Value";
  int id = 1;
  for (const auto& [name, value] : rows) {
    int r = g.add_row();
    g.cell(r, 0) = std::to_string(id++);
    g.cell(r, 1) = name;
    g.cell(r, 2) = value;
  }
  return g;
}

std::string ids(const GridTable& g) {
  std::string out;
  for (int r = 1; r < g.rows(); ++r) out += g.cell(r, 0);
  return out;
}

TEST(GridSort, NumericInsertionSortReversesTies) {
  GridTable g = list_of({{"a", "5"}, {"b", "-2"}, {"c", "5"}, {"d", "10"}, {"e", "-2"}});
  grid_sort_hub(g, 2, 2);  // ascending
  EXPECT_EQ(ids(g), "52314");
  grid_sort_hub(g, 2, 1);  // descending: ties reverse again
  EXPECT_EQ(ids(g), "41325");

  // All equal: two sorts in the same direction give the first order back.
  GridTable same = list_of({{"a", "1"}, {"b", "1"}, {"c", "1"}});
  grid_sort_hub(same, 2, 2);
  EXPECT_EQ(ids(same), "321");
  grid_sort_hub(same, 2, 2);
  EXPECT_EQ(ids(same), "123");

  // An empty cell is no number: the sort stops and the grid stays.
  GridTable bad = list_of({{"a", "3"}, {"b", ""}, {"c", "1"}});
  EXPECT_THROW(grid_sort_hub(bad, 2, 2), NumberError);
  EXPECT_EQ(ids(bad), "123");
}

TEST(GridSort, StatesPickColumnAndDirectionAndNamesSortWithoutCase) {
  GridTable g = list_of({{"beta", "2"}, {"Alpha", "3"}, {"gamma", "1"}});
  grid_state_sort(g, 1, 6);
  EXPECT_EQ(ids(g), "213");
  grid_state_sort(g, 2, 6);
  EXPECT_EQ(ids(g), "312");
  grid_state_sort(g, 4, 6);  // column 2, high to low
  EXPECT_EQ(ids(g), "213");
  grid_state_sort(g, 3, 6);
  EXPECT_EQ(ids(g), "312");
  grid_state_sort(g, 7, 6);  // beyond the grid's last state: nothing
  EXPECT_EQ(ids(g), "312");
}

TEST(GridSort, SortTargetsReadTheirStates) {
  int grid = 0, state = 0;
  ASSERT_TRUE(parse_sort_target("sort.10s5", grid, state));
  EXPECT_EQ(grid, 5);
  EXPECT_EQ(state, 10);
  ASSERT_TRUE(parse_sort_target("sort.7s5", grid, state));
  EXPECT_EQ(state, 7);
  ASSERT_TRUE(parse_sort_target("sort.3s12", grid, state));
  EXPECT_EQ(grid, 12);
  EXPECT_EQ(state, 3);
  ASSERT_TRUE(parse_sort_target("SORT.8S8", grid, state));
  EXPECT_EQ(grid, 8);
  EXPECT_EQ(state, 8);
  // Grids other than 5 and 8 read one digit.
  ASSERT_TRUE(parse_sort_target("sort.10s3", grid, state));
  EXPECT_EQ(state, 0);
  for (const char* t : {".s5", "s5", "sort.xs5", "abc.xxx", "sort.5s9", "sort.3s1"})
    EXPECT_FALSE(parse_sort_target(t, grid, state)) << t;
}

// ---- the catalogue and the explorer's commands ---------------------------------------------

// Without an assessment file until a test opens one.
class ExplorerTest : public testing::StoreFixture {
 protected:
  ExplorerTest() : StoreFixture(false) {}

  void SetUp() override {
    StoreFixture::SetUp();
    store_->insert("Operations_Types", {"Operation Type ID", "Operation Type Name"}, {1, "Soils"});
    store_->insert("Operations_Types", {"Operation Type ID", "Operation Type Name"},
                   {2, "Animals"});
    operation(10, 1, "cover crops", true);
    operation(11, 1, "Buffer strips & <hedges>", true);
    operation(12, 2, "Farmer's feed plan", false);
    operation(13, 1, "zSpareOp_1", true);
  }

  void operation(int64_t id, int type, const std::string& name, bool data) {
    store_->insert("Operations",
                   {"Operation ID", "Operation Type ID", "Operation Name", "Scaling up technique",
                    "ST Value", "Uptake", "TEA_Inc", "TEA_Factor", "TEA_Cost"},
                   {id, type, name, 1, 100.0, 90.0, 1, 0.0, 0.0});
    if (data) store_->insert("Operation_Activity_Delta", {"Operation ID", "Activity ID"}, {id, 1});
  }

  std::vector<std::string> texts(const Tree& t) {
    std::vector<std::string> out;
    for (const auto& n : t.nodes) out.push_back(n.text);
    return out;
  }
};

TEST_F(ExplorerTest, TreesSortWithoutCaseHideSparesAndFilterOnData) {
  op_search(ui_, "Search...");
  Catalogue& c = catalogue();
  EXPECT_EQ(texts(c.catalogue), (std::vector<std::string>{"A to Z", "Buffer strips & <hedges>",
                                                          "cover crops", "Farmer's feed plan"}));
  EXPECT_EQ(c.catalogue.selected, 1);
  EXPECT_EQ(c.catalogue.operation_id(1), 11);

  // An apostrophe in the search text is just a letter.
  op_search(ui_, "'s feed");
  EXPECT_EQ(texts(c.catalogue),
            (std::vector<std::string>{"Search results for... 's feed", "Farmer's feed plan"}));
  // Only spares match: a group without children and nothing selected.
  op_search(ui_, "zSpare");
  EXPECT_EQ(texts(c.catalogue).size(), 1u);
  EXPECT_EQ(c.catalogue.selected, -1);

  c.data_available = true;
  category_tree(c.catalogue, 1);
  EXPECT_EQ(
      texts(c.catalogue),
      (std::vector<std::string>{"Animals", "Soils", "Buffer strips & <hedges>", "cover crops"}));
  EXPECT_EQ(c.catalogue.nodes[2].key, "P1O11");
  EXPECT_EQ(c.catalogue.group_id(2), 1);
  EXPECT_EQ(c.catalogue.parent(3), 1);
  // The group of the last selected node opens again after a rebuild.
  c.catalogue.select(3);
  category_tree(c.catalogue, 1);
  EXPECT_EQ(c.catalogue.selected, 1);
  EXPECT_TRUE(c.catalogue.nodes[1].expanded);
}

TEST_F(ExplorerTest, ChoosingRemovingAndTheTabCaption) {
  open_file();
  session().def_uptake = 35;
  addto_oplist(ui_, 10);
  EXPECT_EQ(catalogue().tab_caption, "My RDP Operations (1)");
  EXPECT_DOUBLE_EQ(file_value("SELECT Uptake FROM Operations").as_double(), 35);
  EXPECT_TRUE(file_value("SELECT Cost FROM Operations").is_null());
  EXPECT_EQ(file_value("SELECT COUNT(*) FROM \"Operation-Impact data\" WHERE \"Impact type\" = 1")
                .as_int(),
            7);
  // Chosen once: a second add changes nothing.
  addto_oplist(ui_, 10);
  EXPECT_EQ(file_value("SELECT COUNT(*) FROM Operations").as_int(), 1);

  addto_oplist(ui_, 12);
  show_myops(ui_);
  EXPECT_EQ(texts(catalogue().chosen),
            (std::vector<std::string>{"My Operations...", "cover crops", "Farmer's feed plan"}));

  // "REMOVE ALL" answered No or Cancel leaves everything.
  catalogue().tab = 2;
  for (Answer a : {Answer::No, Answer::Cancel}) {
    ui_.answers.push_back(a);
    EXPECT_TRUE(dispatch_navigation(ui_, "remove.rem"));
    EXPECT_EQ(file_value("SELECT COUNT(*) FROM Operations").as_int(), 2);
  }
  EXPECT_EQ(ui_.messages.back().title, "REMOVE ALL");

  EXPECT_TRUE(dispatch_navigation(ui_, "10.yyy"));
  EXPECT_EQ(file_value("SELECT COUNT(*) FROM \"Operation-Impact data\"").as_int(), 7);
  remove_oplist(ui_, 12);
  EXPECT_EQ(catalogue().tab_caption, "My RDP Operations (0)");
  EXPECT_EQ(file_value("SELECT COUNT(*) FROM \"Operation-Impact data\"").as_int(), 0);
}

TEST_F(ExplorerTest, TamperedTargetsChangeNothing) {
  open_file();
  addto_oplist(ui_, 10);
  const size_t messages = ui_.messages.size();
  const ExplorerWindow& w = explorer_window();
  const int sorts[] = {w.sort_grid3,  w.sort_grid4,   w.sort_grid5,
                       w.sort_grid12, w.sort_aggrid1, w.sort_aggrid1_ranked};
  const auto view = catalogue().chosen_view;
  const int years = session().cseq_years;
  for (const char* t : {"abc.xxx",   "99999999999.det", ".s5",      "99999999999999999999999.yyy",
                        "-1.xxx",    "x.zzz",           ".mmm",     "sort.99s5",
                        "sort.99s8", "sort.0s3",        "sort.7s3", "sort.9s7",
                        "sort.0s12", "junk.1s3",        "12x.xxx",  "10abc.xxx",
                        " 10.xxx",   "10.rg9",          "10.rg0",   "999.mmm",
                        "x.rem"})
    dispatch_navigation(ui_, t);
  EXPECT_EQ(file_value("SELECT COUNT(*) FROM Operations").as_int(), 1);
  EXPECT_EQ(ui_.messages.size(), messages);
  const int after[] = {w.sort_grid3,  w.sort_grid4,   w.sort_grid5,
                       w.sort_grid12, w.sort_aggrid1, w.sort_aggrid1_ranked};
  EXPECT_TRUE(std::equal(std::begin(sorts), std::end(sorts), std::begin(after)));
  EXPECT_EQ(catalogue().chosen_view, view);
  EXPECT_EQ(session().cseq_years, years);
  // Every list tab still opens without a failure.
  for (int tab = 1; tab <= 4; ++tab) tab2_click(ui_, tab);
  EXPECT_EQ(ui_.messages.size(), messages);
  // Real pages and outside addresses are not commands.
  EXPECT_FALSE(dispatch_navigation(ui_, "working.htm"));
  EXPECT_FALSE(dispatch_navigation(ui_, "http://example.org/a.yyy"));
  EXPECT_FALSE(dispatch_navigation(ui_, "ranked.htm"));
}

// Every sort link a list page can offer reaches its list: one- and
// two-digit states, and the production list's three-character ending.
TEST_F(ExplorerTest, EverySortLinkOfTheListsStoresItsState) {
  open_file();
  addto_oplist(ui_, 10);
  addto_oplist(ui_, 11);
  tab2_click(ui_, 1);
  ui_.messages.clear();  // no region: the two operations are chosen without figures
  const ExplorerWindow& w = explorer_window();
  const std::pair<int, const int*> lists[] = {{3, &w.sort_grid3},   {4, &w.sort_grid4},
                                              {5, &w.sort_grid5},   {12, &w.sort_grid12},
                                              {7, &w.sort_aggrid1}, {8, &w.sort_aggrid1_ranked}};
  for (const auto& [grid, stored] : lists) {
    const int last = grid == 5 || grid == 8 ? 10 : grid == 7 ? 8 : 6;
    for (int state = last; state >= 1; --state) {
      const std::string t = "sort." + std::to_string(state) + "s" + std::to_string(grid);
      EXPECT_TRUE(dispatch_navigation(ui_, t)) << t;
      EXPECT_EQ(*stored, state) << t;
    }
  }
  // Upper case reads the same; the ranked list goes best combined first.
  dispatch_navigation(ui_, "SORT.10S5");
  EXPECT_EQ(w.sort_grid5, 10);
  for (const auto& m : ui_.messages) ADD_FAILURE() << m.text;
}

TEST_F(ExplorerTest, SelectAllNeedsAGroupAndSkipsSpares) {
  open_file();
  Catalogue& c = catalogue();
  c.catalogue_view = TreeViewKind::categories;
  category_tree(c.catalogue, 1);
  c.catalogue.select(1);  // an operation node, under "Animals"
  select_all(ui_);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text,
            "Please select a category for which you would like to select all operations");
  c.catalogue.select(2);  // the group "Soils"
  select_all(ui_);
  EXPECT_EQ(file_value("SELECT COUNT(*) FROM Operations").as_int(), 2);
  EXPECT_EQ(file_value("SELECT COUNT(*) FROM Operations WHERE \"Operation ID\" = 13").as_int(), 0);
  EXPECT_FALSE(c.select_all_running);
}

TEST_F(ExplorerTest, NoFileAsksBeforeChoosingAndTheExplorerRefusesToCloseWhileWorking) {
  ui_.answers.push_back(Answer::No);
  EXPECT_TRUE(dispatch_navigation(ui_, "10.xxx"));
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "No ARVEN file open");
  open_file();
  explorer_state().update_running = true;
  EXPECT_FALSE(explorer_query_close(ui_));
  EXPECT_EQ(ui_.messages.back().title, "ARVEN Software Working");
  explorer_state().update_running = false;
  EXPECT_TRUE(explorer_query_close(ui_));
}

}  // namespace
}  // namespace arven

namespace arven {
namespace {

// A name stored in another encoding (Latin-1 "é") reaches the pages as
// valid UTF-8, with the replacement character where the byte stood.
TEST_F(ExplorerTest, NamesInAnotherEncodingGiveValidPages) {
  operation(14, 1, "Haie \xe9paisse", true);
  open_file();
  addto_oplist(ui_, 14);
  Db(Db::open(session().current_file))
      .exec("UPDATE Operations SET \"Operation Name\" = ? WHERE \"Operation ID\" = 14",
            {Value(std::string("Haie \xe9paisse"))});
  show_myops(ui_);
  catalogue().chosen.select(0);
  myops_list_html(ui_);
  std::ifstream in(std::filesystem::path(session().app_folder) / "oplist.htm");
  const std::string page((std::istreambuf_iterator<char>(in)), {});
  EXPECT_TRUE(is_valid_utf8(page));
  EXPECT_NE(page.find("Haie \xEF\xBF\xBDpaisse"), std::string::npos);
}

}  // namespace
}  // namespace arven

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <regex>

#include "base/numbers.h"
#include "core/grid_table.h"
#include "core/lookups.h"
#include "core/session.h"
#include "stores/schema.h"
#include "tests/support/guards.h"
#include "tests/support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> texts(const std::vector<ListItem>& list) {
  std::vector<std::string> out;
  for (const auto& item : list) out.push_back(item.text);
  return out;
}

class LookupStoreTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    dir_ = tmp_.path();
    ops_.emplace(create_operations_master(dir_ / "ops.mdb"));
    rvc_.emplace(create_rvcs_master(dir_ / "rvc.mdb"));
    session().ops_db_path = (dir_ / "ops.mdb").string();
    session().rvc_db_path = (dir_ / "rvc.mdb").string();
  }
  void add_rvc(int64_t id, double euro_min, double euro_max, int type = 1, int corine = 0,
               int parent = 0) {
    rvc_->insert("RVC_List",
                 {"RVC ID", "Euro min", "Euro max", "RVC Type", "CORINE Class", "RVC Parent"},
                 {id, euro_min, euro_max, type, corine, parent});
  }

  arven::testing::TempDir tmp_;
  fs::path dir_;
  std::optional<Db> ops_;  // the test's own handles, for inserting rows
  std::optional<Db> rvc_;
};

TEST_F(LookupStoreTest, BandColoursCutThirdsCountedFromZero) {
  add_rvc(1, 3, 12);  // range 9: t1 = 3, t2 = 6, although Euro min is 3
  EXPECT_EQ(rvc_band_colour(1, -5), 0x0080FF);
  EXPECT_EQ(rvc_band_colour(1, 3), 0x0080FF);  // exactly t1: orange
  EXPECT_EQ(rvc_band_colour(1, 3.001), 0xC0FFFF);
  EXPECT_EQ(rvc_band_colour(1, 6), 0xC0FFFF);  // exactly t2: pale yellow
  EXPECT_EQ(rvc_band_colour(1, 6.001), 0x0000C0);
  try {
    rvc_band_colour(77, 1);
    FAIL() << "a missing RVC must throw";
  } catch (const StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("RVC_List"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("77"), std::string::npos) << e.what();
  }
}

TEST_F(LookupStoreTest, GradientColoursClampRoundHalfEvenAndFallBack) {
  add_rvc(2, 0, 49);  // steps 1
  add_rvc(3, 0, 99);  // steps 0.5
  EXPECT_EQ(rvc_gradient_colour(2, 0), "00ff13");
  EXPECT_EQ(rvc_gradient_colour(2, -3), "00ff13");
  EXPECT_EQ(rvc_gradient_colour(2, 1e12), "ff00fe");
  EXPECT_EQ(rvc_gradient_colour(2, 25), "ff9100");  // entry 25
  EXPECT_EQ(rvc_gradient_colour(3, 5), "00ff03");   // 2.5 -> entry 2
  EXPECT_EQ(rvc_gradient_colour(3, 7), "1dff00");   // 3.5 -> entry 4
  EXPECT_EQ(rvc_gradient_colour(99, 40), "00ff13");
  EXPECT_EQ(percent_gradient_colour(101), "ff00fe");
  EXPECT_EQ(percent_gradient_colour(50), "ff9100");  // 24.75 -> entry 25
  EXPECT_EQ(percent_gradient_colour(0), "00ff13");
}

TEST_F(LookupStoreTest, HotspotsByThirdsOfEuropeanOrRegionalMaximum) {
  add_rvc(4, 0, 9);
  add_rvc(5, 0, 0);
  session().hotspot_sens = 1;
  EXPECT_FALSE(is_hotspot(4, 3, 90));
  EXPECT_FALSE(is_hotspot(4, 3.5, 90));
  EXPECT_FALSE(is_hotspot(4, 6, 90));
  EXPECT_TRUE(is_hotspot(4, 6.5, 90));
  EXPECT_FALSE(is_hotspot(5, 100, 90));
  session().hotspot_sens = 2;
  EXPECT_FALSE(is_hotspot(4, 3, 90));
  EXPECT_TRUE(is_hotspot(4, 3.5, 90));
  EXPECT_TRUE(is_hotspot(4, 6, 90));
  session().hotspot_regional = 1;  // the regional maximum, no RVC row needed
  EXPECT_FALSE(is_hotspot(999, 6.5, 90));
  EXPECT_TRUE(is_hotspot(999, 31, 90));
  EXPECT_FALSE(is_hotspot(4, 100, 0));
}

TEST_F(LookupStoreTest, CorineChildrenSharesComboKeysAndMaxFactor) {
  add_rvc(50, 0, 1, 5, 2);     // CORINE RVC of class 2
  add_rvc(60, 0, 1, 6, 2, 7);  // child of RVC 7 for class 2
  EXPECT_EQ(corine_rvc_id(2), Value(50));
  EXPECT_THROW(corine_rvc_id(4), StoreError);
  EXPECT_EQ(corine_child_rvc_id(7, 2), Value(60));
  EXPECT_EQ(corine_child_rvc_id(7, 3), Value(7));
  EXPECT_EQ(corine_child_rvc_id(60, 2), Value(60));
  session().rvc_db_path = (dir_ / "missing.mdb").string();  // class 0 needs no store
  EXPECT_EQ(corine_child_rvc_id(7, 0), Value(7));
  session().rvc_db_path = (dir_ / "rvc.mdb").string();

  std::vector<std::string> cols = {"NUTS3_ID", "RVC ID", "RVC Class", "Percent"};
  rvc_->insert("NUTS3_RVC_Data_Dist", cols, {11, 50, 0.0, 58});
  rvc_->insert("NUTS3_RVC_Data_Dist", cols, {11, 50, 1.0, 42});
  rvc_->insert("NUTS3_RVC_Data_Dist", cols, {12, 60, 1.0, 99});
  EXPECT_EQ(corine_area_percent(2, 3, 11), Value(42));
  EXPECT_EQ(corine_area_percent(2, 3, 12), Value(0));
  EXPECT_THROW(corine_area_percent(2, 4, 11), std::out_of_range);

  rvc_->insert("Baseline_Impact_Look_Up",
               {"Combo RVC", "Combo Class", "Baseline RVC", "Baseline RVC Class", "Impact RVC",
                "Impact RVC Class"},
               {30, 2, 10, 1, 20, 3});
  EXPECT_EQ(combo_key(10, 1, 20, 3), "30:2");
  EXPECT_EQ(combo_key(20, 3, 10, 1), "Null");

  rvc_->exec("UPDATE RVC_List SET Max_factor = 2, \"Euro max\" = 5 WHERE \"RVC ID\" = 60");
  session().rvc_n_factor[60] = 1.5;
  EXPECT_DOUBLE_EQ(max_factor(60, 3), 45);
  EXPECT_THROW(max_factor(401, 1), std::out_of_range);
  EXPECT_THROW(max_factor(-1, 1), std::out_of_range);
}

TEST_F(LookupStoreTest, OperationFieldsReadNullAsZeroAndNameTheLandType) {
  ops_->insert("Operations", {"Operation ID", "Operation Name"}, {1, "Farmers' hedges"});
  ops_->insert("Operations",
               {"Operation ID", "Operation Name", "Uptake", "TEA_Cost", "CORINE Class"},
               {2, "Woodland planting", 55.5, "", 4});
  EXPECT_EQ(operation_field(1, 1), Value("Farmers' hedges"));
  for (int selector = 2; selector <= 7; ++selector)
    EXPECT_EQ(operation_field(1, selector), Value(0)) << selector;
  EXPECT_EQ(operation_field(1, 8), Value("Not applicable"));
  EXPECT_EQ(operation_field(2, 4), Value(55.5));
  EXPECT_EQ(operation_field(2, 7), Value(0));  // empty text
  EXPECT_EQ(operation_field(2, 8), Value("Woodland"));
  EXPECT_THROW(operation_field(2, 9), std::invalid_argument);
  try {
    operation_name(404);
    FAIL() << "a missing operation must throw";
  } catch (const StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("\"Operations\""), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("404"), std::string::npos) << e.what();
  }
  touch_operation(2);
  {
    auto rows = ops_->query("SELECT Last_Updated FROM Operations WHERE \"Operation ID\" = 2");
    ASSERT_TRUE(rows.next());
    EXPECT_TRUE(
        std::regex_match(rows.get(0).as_text(), std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)")));
  }
  EXPECT_TRUE(operation_field(1, 5).is_int());
  try {
    touch_operation(404);
    FAIL() << "touching a missing operation must throw";
  } catch (const StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("\"Operations\" has no row"), std::string::npos)
        << e.what();
  }
}

TEST_F(LookupStoreTest, SearchesAndCodesWithQuotesWildcardsAndNonAscii) {
  int id = 1;
  for (const char* name : {"Farmers' hedges", "Buffer strips 100%", "Buffer strips 1000",
                           "Grass_margins", "Grassymargins", "Økologisk græs"})
    ops_->insert("Operations", {"Operation ID", "Operation Name"}, {id++, name});
  std::vector<ListItem> list = {{"stale", 0}};
  fill_operations_like(list, "rs' h");
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].text, "Farmers' hedges");
  EXPECT_EQ(list[0].data, 1);
  fill_operations_like(list, "100%");
  EXPECT_EQ(texts(list), std::vector<std::string>{"Buffer strips 100%"});
  fill_operations_like(list, "s_m");
  EXPECT_EQ(texts(list), std::vector<std::string>{"Grass_margins"});
  fill_operations_like(list, "græs");
  EXPECT_EQ(texts(list), std::vector<std::string>{"Økologisk græs"});
  fill_operations_like(list, "STRIPS");
  EXPECT_EQ(list.size(), 2u);

  std::vector<std::string> cols = {"NUTS3_ID", "NUTS0_ID", "NUTS", "NAME", "GIS_AREA", "EU-27"};
  rvc_->insert("NUTS3", cols, {11, 13, "DK011", "Københavns Omegn", 512.5, "Y"});
  rvc_->insert("NUTS3", cols, {12, 17, "FR'X", "Côte d'Or", 8763.0, "N"});
  rvc_->insert("NUTS0", {"NUTS0_ID", "NUTS", "EU-27"}, {13, "DK", "Y"});
  EXPECT_EQ(nuts_id_by_code(3, "DK011"), Value(11));
  EXPECT_EQ(nuts3_field(11, 1), Value("Københavns Omegn"));
  EXPECT_EQ(nuts_id_by_code(3, "FR'X"), Value(12));
  EXPECT_EQ(nuts3_field(12, 1), Value("Côte d'Or"));
  EXPECT_EQ(nuts0_id_by_code(3, "FR'X"), Value(17));
  EXPECT_EQ(nuts_gis_area(3, "DK011"), Value(512.5));
  EXPECT_EQ(nuts_eu27(3, "FR'X"), Value("N"));
  EXPECT_EQ(nuts0_eu27(13), Value("Y"));
  EXPECT_EQ(nuts0_field(13, 2), Value("DK"));
  try {
    nuts_id_by_code(3, "DK999");
    FAIL() << "a missing code must throw";
  } catch (const StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("\"NUTS3\""), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("DK999"), std::string::npos) << e.what();
  }
  EXPECT_THROW(nuts_field(4, 11, 1), std::out_of_range);
}

TEST_F(LookupStoreTest, ReferencesImpactsAndRegions) {
  EXPECT_EQ(first_free_ref_id(), 1);
  for (int ref : {2, 1, 5, 4})
    ops_->insert("References", {"Ref ID", "Ref Short", "URL"},
                 {ref, "Ref " + std::to_string(ref), ref == 4 ? Value("http://x") : Value()});
  EXPECT_EQ(first_free_ref_id(), 3);
  ops_->insert("References", {"Ref ID"}, {3});
  EXPECT_EQ(first_free_ref_id(), 6);
  EXPECT_EQ(reference_field(4, 3), Value("http://x"));
  EXPECT_TRUE(reference_field(2, 2).is_null());

  GridTable table(2);
  table.add_row();
  fill_reference_table(table);
  ASSERT_EQ(table.rows(), 6);
  ASSERT_EQ(table.cols(), 4);
  EXPECT_EQ(table.cell(0, 2), "Long ref");
  EXPECT_EQ(table.cell(4, 0), "4");
  EXPECT_EQ(table.cell(4, 1), "Ref 4");
  EXPECT_EQ(table.cell(4, 3), "http://x");
  EXPECT_EQ(table.cell(1, 3), "");

  ops_->insert("Impact areas", {"Impact ID", "Impact name"}, {1, "Soil"});
  ops_->insert("Impact areas", {"Impact ID", "Impact name"}, {2, "Water"});
  ops_->insert("Operations_Impacts", {"Operation ID", "Impact ID"}, {8, 2});
  ops_->insert("Operations_Impacts", {"Operation ID", "Impact ID"}, {8, 1});
  ops_->insert("Operations_Impacts", {"Operation ID", "Impact ID"}, {9, 3});
  std::vector<ListItem> list = {{"stale", 0}};
  fill_operation_impacts(8, list);
  EXPECT_EQ(texts(list), (std::vector<std::string>{"Water", "Soil"}));
  EXPECT_EQ(list[0].data, 2);
  EXPECT_THROW(fill_operation_impacts(9, list), StoreError);
  fill_impact_areas(list);
  EXPECT_EQ(texts(list), (std::vector<std::string>{"Soil", "Water"}));

  session().current_file = (dir_ / "a.arv").string();
  Db arv = create_assessment_store(session().current_file);
  EXPECT_FALSE(has_region());
  arv.insert("Regions", {"NUTS0_ID", "NUTS ID"}, {13, 11});
  EXPECT_TRUE(has_region());
}

TEST(LookupText, AddRefsKeepsEachKeyOnceInOrderOfFirstAppearance) {
  std::vector<ListItem> list = {{"3", 3}};
  add_refs_to_list("5, 3, 05,  7, 5", list, false);
  EXPECT_EQ(texts(list), (std::vector<std::string>{"3", "5", "7"}));
  EXPECT_EQ(list[2].data, 7);
  add_refs_to_list("2, 2", list, true);
  EXPECT_EQ(texts(list), std::vector<std::string>{"2"});
  add_refs_to_list("", list, false);
  EXPECT_EQ(list.size(), 1u);
  add_refs_to_list("", list, true);
  EXPECT_TRUE(list.empty());
}

TEST(LookupText, FileNamesAndShortenedPaths) {
  EXPECT_EQ(file_name_of("C:\\My ARVEN Files\\farm.arv", 1), "farm");
  EXPECT_EQ(file_name_of("C:\\My ARVEN Files\\farm.arv", 0), "farm.arv");
  EXPECT_EQ(file_name_of("/home/ana/Documents/Ærø.arv", 1), "Ærø");
  EXPECT_EQ(file_name_of("plain.arv", 2), "plain.arv");

  std::string forty = "/home/ana/Documents/My ARVEN Files/a.arv";
  ASSERT_EQ(forty.size(), 40u);
  EXPECT_EQ(shorten_path(forty), forty);
  std::string forty_one = "/" + forty;
  EXPECT_EQ(shorten_path(forty_one), "//h..." + forty_one.substr(7));
  EXPECT_EQ(shorten_path(forty_one).size(), 40u);
}

TEST(LookupText, CapitaliseReplaceAndDecimalSeparator) {
  EXPECT_EQ(capitalise_first("apple"), "Apple");
  EXPECT_EQ(capitalise_first("Apple"), "Apple");
  EXPECT_EQ(capitalise_first("{x"), "[x");
  EXPECT_EQ(capitalise_first(""), "");
  std::string accented = capitalise_first("\xC3\xA9lan");  // UTF-8 "élan"
  EXPECT_EQ(static_cast<unsigned char>(accented[0]), 0xC3 - 32);
  EXPECT_EQ(accented.substr(1), "\xA9lan");

  EXPECT_EQ(replace_all("a.b.c", ".", ", "), "a, b, c");
  EXPECT_EQ(replace_all("aa", "a", "aa"), "aaaa");
  EXPECT_EQ(replace_all("abc", "", "x"), "abc");

  EXPECT_TRUE(has_decimal_separator("1.5"));
  set_decimal_separator(",");
  EXPECT_FALSE(has_decimal_separator("1.5"));
  EXPECT_TRUE(has_decimal_separator("1,5"));
  set_decimal_separator(".");
}

TEST(GridTable, GrowsKeepsCellsAndChecksBounds) {
  GridTable t(2);
  EXPECT_EQ(t.rows(), 0);
  EXPECT_EQ(t.add_row(), 0);
  t.cell(0, 1) = "title";
  EXPECT_EQ(t.add_row(), 1);
  t.resize(3, 3);
  EXPECT_EQ(t.cell(0, 1), "title");
  EXPECT_EQ(t.cell(2, 2), "");
  EXPECT_THROW(t.cell(3, 0), std::out_of_range);
  EXPECT_THROW(t.cell(0, -1), std::out_of_range);
  t.resize(1, 1);
  EXPECT_THROW(t.cell(0, 1), std::out_of_range);
  t.clear();
  EXPECT_EQ(t.rows(), 0);
  EXPECT_EQ(t.cols(), 1);
}

}  // namespace
}  // namespace arven

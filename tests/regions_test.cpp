#include "windows/regional_profile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <sstream>

#include "assessment/assessment_file.h"
#include "core/lookups.h"
#include "core/preferences.h"
#include "core/session.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

using Strings = std::vector<std::string>;

constexpr int kDK = 13;
constexpr int kIE = 23;

// Records the documents handed to the desktop as well.
struct RegionsUi : testing::ScriptedUi {
  void open_document(const std::string& target) override { log.push_back("open:" + target); }
};

// Adds one NUTS<level> row: its id, the parent keys of levels 0..level-1,
// code, name, EU-27 flag and area.
void add_area(Db& db, int level, int64_t id, std::vector<int64_t> parents, const std::string& code,
              const std::string& name, double sqkm, const char* eu27 = "Y") {
  std::vector<std::string> cols = {"NUTS" + std::to_string(level) + "_ID"};
  std::vector<Value> values = {Value(id)};
  for (size_t p = 0; p < parents.size(); ++p) {
    cols.push_back("NUTS" + std::to_string(p) + "_ID");
    values.emplace_back(parents[p]);
  }
  for (auto& [c, v] : std::vector<std::pair<std::string, Value>>{
           {"NUTS", code}, {"NAME", name}, {"EU-27", eu27}, {"SQKM", sqkm}}) {
    cols.push_back(c);
    values.push_back(v);
  }
  db.insert("NUTS" + std::to_string(level), cols, values);
}

Strings texts(int level) {
  Strings out;
  for (const auto& it : regions().lists[static_cast<size_t>(level)].items) out.push_back(it.text);
  return out;
}

int index_of(int level, const std::string& text) {
  const auto& items = regions().lists[static_cast<size_t>(level)].items;
  for (size_t i = 0; i < items.size(); ++i)
    if (items[i].text == text) return static_cast<int>(i);
  ADD_FAILURE() << text << " is not in list " << level;
  return -1;
}

class RegionsTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    Session& s = session();
    s.app_folder = dir_.path();
    prefs_.emplace(dir_ / "ARVEN.ini");
    {
      Db dk = create_country_store_base(dk_);
      add_area(dk, 0, kDK, {}, "DK", "Danmark", 43172);
      add_area(dk, 1, 1, {kDK}, "DK0", "Danmark", 43172);
      add_area(dk, 2, 1, {kDK, 1}, "DK01", "Hovedstaden", 2738);
      add_area(dk, 2, 2, {kDK, 1}, "DK02", "Sjælland", 7273);
      add_area(dk, 2, 9, {kDK, 1}, "DKZZ", "Extra-Regio", 0, "N");
      add_area(dk, 3, 1, {kDK, 1, 1}, "DK011", "Byen København", 180);
      add_area(dk, 3, 5, {kDK, 1, 2}, "DK021", "Østsjælland", 1440);
      add_area(dk, 3, 6, {kDK, 1, 2}, "DK022", "Vest- og Sydsjælland", 5833);
      Db ie = create_country_store_base(ie_);
      add_area(ie, 0, kIE, {}, "IE", "Éire/Ireland", 70290);
      add_area(ie, 1, 2, {kIE}, "IE0", "Éire/Ireland", 70290);
      add_area(ie, 2, 6, {kIE, 2}, "IE04", "Northern and Western", 23830);
    }
    for (auto [cc, path] : {std::pair{kDK, dk_}, std::pair{kIE, ie_}}) {
      s.country_installed[cc] = 1;
      s.country_db_path[cc] = path;
    }
    s.current_file = file_;
    create_assessment_file(file_);
    regions_load();
  }
  // Country > its NUTS1 > the NUTS2 area, as a person clicks through them.
  void pick(const std::string& country, const std::string& nuts1 = "",
            const std::string& nuts2 = "") {
    list_click(0, index_of(0, country));
    if (!nuts1.empty()) list_click(1, index_of(1, nuts1));
    if (!nuts2.empty()) list_click(2, index_of(2, nuts2));
  }

  Strings stored_codes() {
    Strings out;
    auto rows = Db::open(file_).query("SELECT \"NUTS Code\" FROM Regions ORDER BY rowid");
    while (rows.next()) out.push_back(rows.get(0).as_text());
    return out;
  }
  std::string region_changed() {
    auto rows = Db::open(file_).query("SELECT \"Regional data changed\" FROM Version");
    return rows.next() ? rows.get(0).as_text() : "";
  }

  testing::TempDir dir_;
  std::string dk_ = (dir_ / "new_arven_operations_DK.mdb").string();
  std::string ie_ = (dir_ / "new_arven_operations_IE.mdb").string();
  std::string file_ = (dir_ / "profile.arv").string();
  RegionsUi ui_;
  std::optional<testing::PreferencesGuard> prefs_;
};

TEST_F(RegionsTest, ListsCascadeFromTheChosenCountry) {
  EXPECT_EQ(texts(0), (Strings{"DK - Danmark", "IE - Éire/Ireland"}));
  EXPECT_EQ(regions().caption, "NUTS regions");
  pick("IE - Éire/Ireland");
  EXPECT_EQ(session().rvc_db_path, ie_);
  pick("DK - Danmark");
  EXPECT_EQ(session().rvc_db_path, dk_);
  EXPECT_EQ(regions().caption, "NUTS regions: DK - Danmark currently selected");
  EXPECT_EQ(texts(1), (Strings{"000 - ALL", "DK0 - Danmark"}));
  // Rows outside the EU-27 are left out; "ALL" above lists the whole country.
  EXPECT_EQ(texts(2), (Strings{"000 - ALL", "DK01 - Hovedstaden", "DK02 - Sjælland"}));
  EXPECT_EQ(texts(3).size(), 4u);
  list_click(2, index_of(2, "DK02 - Sjælland"));
  EXPECT_EQ(texts(3),
            (Strings{"000 - ALL", "DK021 - Østsjælland", "DK022 - Vest- og Sydsjælland"}));
  EXPECT_EQ(regions().chosen_code, "DK02");
  list_click(3, 0);  // "ALL" leaves the chosen area as it was
  EXPECT_EQ(regions().caption, "NUTS regions: DK02 - Sjælland currently selected");
}

TEST_F(RegionsTest, OverlapIsRefusedInBothDirectionsNamingTheSelectedArea) {
  pick("DK - Danmark", "DK0 - Danmark");
  list_double_click(ui_, 2, index_of(2, "DK02 - Sjælland"));
  ASSERT_TRUE(ui_.messages.empty());
  const GridTable& t = regions().table;
  ASSERT_EQ(t.rows(), 2);
  for (int c = 0; c < 6; ++c)
    EXPECT_EQ(t.cell(1, c), (Strings{"13", "2", "DK02", "Sjælland", "2", "7273"})[c]);

  auto refused = [&](int level, const std::string& entry) {
    ui_.messages.clear();
    list_double_click(ui_, level, index_of(level, entry));
    ASSERT_EQ(ui_.messages.size(), 1u) << entry;
    EXPECT_EQ(ui_.messages[0].text, "This area is already included within your selection (DK02)");
    EXPECT_EQ(ui_.messages[0].title, "Area accounted");
    EXPECT_EQ(ui_.messages[0].icon, MsgIcon::Stop);
  };
  refused(3, "DK022 - Vest- og Sydsjælland");  // a child
  refused(2, "DK02 - Sjælland");               // the same area again
  refused(0, "DK - Danmark");                  // the parent country
  refused(1, "DK0 - Danmark");
  EXPECT_EQ(regions().table.rows(), 2);
  EXPECT_EQ(stored_codes(), Strings{"DK02"});

  // A sibling is no overlap.
  list_double_click(ui_, 2, index_of(2, "DK01 - Hovedstaden"));
  EXPECT_EQ(stored_codes(), (Strings{"DK02", "DK01"}));
}

TEST_F(RegionsTest, AreasOfAnotherCountryAreRefused) {
  pick("DK - Danmark");
  list_double_click(ui_, 3, index_of(3, "DK011 - Byen København"));
  pick("IE - Éire/Ireland", "IE0 - Éire/Ireland");
  list_double_click(ui_, 2, index_of(2, "IE04 - Northern and Western"));
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "Invalid selection");
  EXPECT_EQ(ui_.messages[0].text,
            "This area is not part of the same country (NUTS0) for those regions already "
            "selected. You can only select regions in one country.");
  EXPECT_EQ(stored_codes(), Strings{"DK011"});
}

TEST_F(RegionsTest, AllAsksForTheAreaAboveLevelByLevel) {
  pick("DK - Danmark");
  ui_.answers = {Answer::Yes, Answer::Yes, Answer::Yes};
  list_double_click(ui_, 3, 0);
  ASSERT_EQ(ui_.messages.size(), 3u);
  EXPECT_EQ(ui_.messages[0].text, "You cannot select ALL. Do you want to add 000 - ALL?");
  EXPECT_EQ(ui_.messages[1].text, "You cannot select ALL. Do you want to add 000 - ALL?");
  EXPECT_EQ(ui_.messages[2].text, "You cannot select ALL. Do you want to add DK - Danmark?");
  EXPECT_EQ(ui_.messages[2].title, "Selection");
  EXPECT_TRUE(ui_.messages[2].buttons == MsgButtons::YesNoCancel);
  EXPECT_EQ(stored_codes(), Strings{"DK"});

  // No or Cancel stops the climb.
  for (Answer a : {Answer::No, Answer::Cancel}) {
    ui_.messages.clear();
    ui_.answers = {Answer::Yes, a};
    list_double_click(ui_, 2, 0);
    EXPECT_EQ(ui_.messages.size(), 2u);
  }
  EXPECT_EQ(stored_codes(), Strings{"DK"});

  regions_load();  // no country chosen
  ui_.messages.clear();
  add_command(ui_, 0);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text, "You cannot select ALL of Europe");
  EXPECT_EQ(ui_.messages[0].icon, MsgIcon::Stop);
}

TEST_F(RegionsTest, NothingIsAddedWithoutAFile) {
  session().current_file.clear();
  regions_load();
  pick("DK - Danmark", "DK0 - Danmark");
  list_double_click(ui_, 2, index_of(2, "DK02 - Sjælland"));
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text,
            "Please create or open an ARVEN file before trying to select a region.");
  EXPECT_EQ(ui_.messages[0].title, "Cannot select region");
  EXPECT_EQ(ui_.messages[0].icon, MsgIcon::Information);
  EXPECT_EQ(regions().table.rows(), 1);
}

TEST_F(RegionsTest, RemovingAreasRewritesRegionsAndMarksOnlyFilesWithOperations) {
  pick("DK - Danmark", "DK0 - Danmark");
  list_double_click(ui_, 2, index_of(2, "DK01 - Hovedstaden"));
  EXPECT_EQ(region_changed(), "No");  // no operations yet
  Db::open(file_).insert("Operations", {"Operation ID"}, {7});
  list_double_click(ui_, 2, index_of(2, "DK02 - Sjælland"));
  EXPECT_EQ(region_changed(), "Yes");

  select_region_row(1);
  remove_region();
  EXPECT_EQ(stored_codes(), Strings{"DK02"});
  EXPECT_TRUE(has_region());
  remove_region();
  EXPECT_EQ(regions().table.rows(), 1);
  EXPECT_EQ(regions().current_row, 0);
  EXPECT_FALSE(has_region());
  remove_region();  // nothing left: nothing happens
  EXPECT_EQ(regions().table.rows(), 1);
}

TEST_F(RegionsTest, SaveAndLoadKeepNamesAndPassIdsThroughSinglePrecision) {
  GridTable& t = regions().table;
  int r = t.add_row();
  Strings cells = {"13", "3", "FR'X", "Côte d'Or <Nord>", "16777217", "8763.25"};
  for (int c = 0; c < 6; ++c) t.cell(r, c) = cells[static_cast<size_t>(c)];
  save_data();
  t.resize(1, 6);
  load_data();
  ASSERT_EQ(regions().table.rows(), 2);
  cells[4] = "16777216";  // the integer columns go through a float, intended
  for (int c = 0; c < 6; ++c) EXPECT_EQ(regions().table.cell(1, c), cells[static_cast<size_t>(c)]);
}

TEST_F(RegionsTest, TheLevelZeroCountryCheckFailsAndAddsNothing) {
  // A store with two NUTS0 rows gets past the overlap pass; the country
  // lookup of level 0 then fails and the addition is refused.
  {
    Db dk = Db::open(dk_);
    add_area(dk, 0, 99, {}, "XX", "Elsewhere", 10);
  }
  pick("DK - Danmark");
  ASSERT_TRUE(add_nuts0(ui_, 99));
  EXPECT_FALSE(add_nuts0(ui_, kDK));
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "Invalid selection");
  EXPECT_NE(ui_.messages[0].text.find("could not be checked"), std::string::npos);
  EXPECT_EQ(stored_codes(), Strings{"XX"});
}

TEST_F(RegionsTest, ToolbarOpensTheOtherWindowsAndTheMapPage) {
  pick("DK - Danmark", "DK0 - Danmark");
  list_double_click(ui_, 2, index_of(2, "DK02 - Sjælland"));
  pick("IE - Éire/Ireland");
  regions_toolbar_command(ui_, "Info");
  EXPECT_EQ(session().rvc_db_path, dk_);
  EXPECT_EQ(regions().chosen_code, "DK02");
  regions_toolbar_command(ui_, "Hotspot");
  regions_toolbar_command(ui_, "AddCountry");
  EXPECT_EQ(ui_.log, (Strings{"modal:rvc:0", "modal:rvc:1", "message:Cannot proceed",
                              "message:Cannot proceed", "modal:settings:5"}));
  EXPECT_EQ(texts(0)[static_cast<size_t>(regions().lists[0].selected)], "IE - Éire/Ireland");

  // Without a map server of the user's, the layers are named but not linked.
  regions_toolbar_command(ui_, "GE");
  {
    std::stringstream unset;
    unset << std::ifstream(dir_ / "google_earth.htm").rdbuf();
    EXPECT_NE(unset.str().find("No map server is configured"), std::string::npos);
    EXPECT_EQ(unset.str().find(".kmz"), std::string::npos);
    EXPECT_NE(unset.str().find("Risk to pollinators"), std::string::npos);
  }
  regions_toolbar_command(ui_, "GE");  // back to the lists

  save_setting("Settings", kMapServerKey, "https://maps.example.org/");
  ui_.log.clear();
  regions_toolbar_command(ui_, "GE");
  EXPECT_TRUE(regions().show_map);
  EXPECT_EQ(ui_.log, Strings{"navigate:regions:google_earth.htm"});
  std::stringstream page;
  page << std::ifstream(dir_ / "google_earth.htm").rdbuf();
  std::string html = page.str();
  EXPECT_NE(html.find("RVC Data Available in Google Earth"), std::string::npos);
  size_t links = 0;
  for (size_t p = html.find("<a href=\"https://maps.example.org/maps/arven_");
       p != std::string::npos;
       p = html.find("<a href=\"https://maps.example.org/maps/arven_", p + 1))
    ++links;
  EXPECT_EQ(links, 19u);
  EXPECT_NE(html.find("arven_lan.kmz\">Landscape impact from soil erosion and forest fires<"),
            std::string::npos);

  ui_.log.clear();
  EXPECT_FALSE(regions_navigation(ui_, "https://maps.example.org/maps/arven_rvc.kmz"));
  EXPECT_TRUE(regions_navigation(ui_, "layers/arven_rvc.KMZ"));
  EXPECT_FALSE(regions_navigation(ui_, "google_earth.htm"));
  EXPECT_EQ(ui_.log, Strings{"open:layers/arven_rvc.KMZ"});
}

TEST_F(RegionsTest, NewFileCancelledKeepsTheOpenFilesAreas) {
  pick("DK - Danmark", "DK0 - Danmark");
  list_double_click(ui_, 2, index_of(2, "DK02 - Sjælland"));
  ui_.files = {""};
  regions_toolbar_command(ui_, "New");
  EXPECT_EQ(regions().table.rows(), 2);
  list_double_click(ui_, 2, index_of(2, "DK01 - Hovedstaden"));
  EXPECT_EQ(stored_codes(), (Strings{"DK02", "DK01"}));
}

}  // namespace
}  // namespace arven

#include "windows/settings_dialog.h"

#include <gtest/gtest.h>

#include "core/preferences.h"
#include "core/session.h"
#include "engine/impact_cache.h"
#include "support/guards.h"
#include "support/store_fixture.h"

namespace arven {
namespace {

class SettingsDialogTest : public testing::StoreFixture {
 protected:
  SettingsDialogTest() : StoreFixture(false) {}
  void SetUp() override {
    StoreFixture::SetUp();
    prefs_.emplace(dir_ / "ARVEN.ini");
    session().documents_folder = (dir_ / "docs").string();
    std::filesystem::create_directories(dir_ / "docs/My ARVEN Files");
    session().decimal_separator = ".";
    // Two normalisation factors (impact type 4) and an activity of another type.
    for (auto [id, type, norm] : {std::tuple{5, 4, 1.5}, {6, 1, 9.0}, {7, 4, 2.0}})
      store_->insert("Activities", {"Activity ID", "Activity Name", "Impact type", "Norm_factor"},
                     {id, "Output " + std::to_string(id), type, norm});
    settings_load();
  }
  double store_factor(int id) {
    auto rows =
        store_->query("SELECT \"Norm_factor\" FROM \"Activities\" WHERE \"Activity ID\" = ?", {id});
    return rows.next() ? rows.get(0).as_double() : -1;
  }

  testing::ScriptedUi ui;
  std::optional<testing::PreferencesGuard> prefs_;
};

TEST_F(SettingsDialogTest, ApplyRefusesBothWeightsAtZeroAndOtherwiseSavesEverything) {
  SettingsDialog& d = settings_dialog();
  d.tab = kTabGeneral;
  d.miti_weight = 0;
  d.adapt_weight = 0;
  d.prod_weight = 40;
  d.ranking_TH = 100;
  d.cseq_included = false;
  EXPECT_FALSE(apply(ui));
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].title, "Ranking weightings");
  EXPECT_EQ(ui.messages[0].icon, MsgIcon::Stop);
  EXPECT_EQ(d.tab, kTabRanking);
  // Nothing taken, not even the values that were valid.
  EXPECT_EQ(session().miti_weight, 100);
  EXPECT_EQ(session().prod_weight, 100);
  EXPECT_EQ(session().ranking_TH, 50);
  EXPECT_EQ(session().cseq_included, 1);
  EXPECT_EQ(get_setting("Settings", "ranking_TH", "unset"), "unset");
  // OK keeps the dialog open after a refusal.
  settings_ok(ui);
  EXPECT_TRUE(ui.log.back() == "message:Ranking weightings");

  d.adapt_weight = 1;
  d.def_uptake = 75;
  d.hotspot_sens = 2;
  settings_ok(ui);
  EXPECT_EQ(ui.log.back(), "close:settings");
  EXPECT_EQ(session().miti_weight, 0);
  EXPECT_EQ(session().adapt_weight, 1);
  EXPECT_EQ(session().prod_weight, 40);
  EXPECT_EQ(session().ranking_TH, 100);
  EXPECT_EQ(session().cseq_included, 0);
  EXPECT_EQ(session().def_uptake, 75.0f);
  EXPECT_EQ(get_setting("Settings", "adapt_weight", ""), "1");
  EXPECT_EQ(get_setting("Settings", "hotspot_sens", ""), "2");
  EXPECT_EQ(get_setting("Settings", "cseq_included", ""), "0");

  weight_defaults();
  EXPECT_EQ(d.miti_weight + d.adapt_weight + d.prod_weight, 300);

  // The uncertainty of each data-quality score goes to the session with the rest.
  d.dq_uncertainty[2] = 150;
  ASSERT_TRUE(apply(ui));
  EXPECT_EQ(session().dq_uncertainty[2], 150);
  EXPECT_EQ(get_setting("Settings", "dq_uncertainty_2", ""), "150");
  EXPECT_EQ(get_setting("Settings", "dq_uncertainty_5", ""), "10");
  uncertainty_defaults();
  EXPECT_EQ(d.dq_uncertainty, kDefaultDqUncertainty);
}

TEST_F(SettingsDialogTest, FactorCellsTakeDigitsAndOneDecimalSeparator) {
  EXPECT_EQ(filter_factor_key("1.2", '.'), "1.2");
  EXPECT_EQ(filter_factor_key("12", '.'), "12.");
  EXPECT_EQ(filter_factor_key("12", 'e'), "12");
  EXPECT_EQ(filter_factor_key("12", '\b'), "1");
  session().decimal_separator = ",";
  EXPECT_EQ(filter_factor_key("1", '.'), "1");
  EXPECT_EQ(filter_factor_key("1", ','), "1,");
  session().decimal_separator = ".";

  SettingsDialog& d = settings_dialog();
  ASSERT_EQ(d.factors.rows(), 3);  // the titles and the two type-4 activities
  EXPECT_EQ(d.factors.cell(0, 2), "Normalisation factor / value");
  EXPECT_EQ(d.factors.cell(1, 1), "Output 5");
  factor_cell_edit(1, "2.5.1x");
  EXPECT_EQ(d.factors.cell(1, 2), "2.51");
  factor_cell_edit(0, "9");  // the titles stay
  EXPECT_EQ(d.factors.cell(0, 2), "Normalisation factor / value");
}

TEST_F(SettingsDialogTest, FactorsAreSavedTwiceAndLoadedBackAfterAStoreUpdate) {
  // No settings store: loading changes nothing, and says nothing more.
  load_country_factors(ui);
  EXPECT_EQ(ui.log, (std::vector<std::string>{"message:Load previously saved data"}));
  EXPECT_EQ(store_factor(5), 1.5);
  EXPECT_FALSE(std::filesystem::exists(settings_store_path()));

  SettingsDialog& d = settings_dialog();
  factor_cell_edit(1, "3.25");
  save_country_factors(ui);
  EXPECT_EQ(store_factor(5), 3.25);
  EXPECT_EQ(store_factor(7), 2.0);
  {
    Db settings = Db::open(settings_store_path());
    auto rows =
        settings.query("SELECT * FROM \"Country Output Norm Factors\" ORDER BY \"Output ID\"");
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(rows.get("Country ID").as_int(), kDK);
    EXPECT_EQ(rows.get("Output ID").as_int(), 5);
    EXPECT_EQ(rows.get("Norm_factor").as_double(), 3.25);
  }
  // An updated store comes with its own factors; the table shows them
  // until the saved ones are loaded.
  store_->exec("UPDATE \"Activities\" SET \"Norm_factor\" = 1");
  choose_country(d.country);
  EXPECT_EQ(d.factors.cell(1, 2), "1");
  ui.answers.push_back(Answer::No);
  load_country_factors(ui);
  EXPECT_EQ(store_factor(5), 1.0);
  load_country_factors(ui);
  EXPECT_EQ(store_factor(5), 3.25);
  EXPECT_EQ(d.factors.cell(1, 2), "3.25");
  EXPECT_EQ(store_factor(6), 1.0);  // not a normalisation factor
}

TEST_F(SettingsDialogTest, CountryListUpdateTableAndClosingRules) {
  SettingsDialog& d = settings_dialog();
  ASSERT_EQ(d.countries.size(), 27u);
  EXPECT_EQ(d.countries.front(), 3);                            // AT
  EXPECT_EQ(d.countries.back(), 49);                            // UK
  EXPECT_EQ(d.countries[static_cast<size_t>(d.country)], kDK);  // the first installed
  EXPECT_EQ(d.updates.table.rows(), 29);
  EXPECT_EQ(d.updates.table.cell(1, 0), "Software Core");
  EXPECT_EQ(d.updates.table.cell(2, 1), "Not installed");

  // With a store in use the dialog closes at once.
  EXPECT_TRUE(settings_query_close(ui));
  // With none anywhere: Yes keeps it open, No ends the program.
  std::filesystem::remove_all(dir_ / "dbases");
  session().ops_db_path.clear();
  session().rvc_db_path.clear();
  ui.answers.push_back(Answer::Yes);
  EXPECT_FALSE(settings_query_close(ui));
  EXPECT_EQ(ui.messages.back().title, "No databases installled");
  EXPECT_FALSE(ui.ended);
  ui.answers.push_back(Answer::No);
  EXPECT_TRUE(settings_query_close(ui));
  EXPECT_TRUE(ui.ended);
}

TEST_F(SettingsDialogTest, ACarbonSettingAppliedMakesTheStoredFiguresStale) {
  open_file();
  file_db_->insert("Operations", {"Operation ID", "Operation Name"}, {1, "Hedges"});
  file_db_->exec("UPDATE \"Version\" SET \"Carbon seq included\" = 1");
  ASSERT_EQ(cache_state(), CacheState::current);
  settings_dialog().cseq_included = false;
  ASSERT_TRUE(apply(ui));
  EXPECT_EQ(cache_state(), CacheState::stale_carbon);
}

}  // namespace
}  // namespace arven

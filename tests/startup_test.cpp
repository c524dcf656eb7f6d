#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "core/preferences.h"
#include "core/registry.h"
#include "core/session.h"
#include "core/startup.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"
#include "windows/program_start.h"
#include "windows/settings_dialog.h"

namespace arven {
namespace {

using testing::ScriptedUi;
using testing::TempDir;

class StartupTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = dir.path() / "app";
    std::filesystem::create_directories(session().app_folder / "dbases");
    prefs_.emplace(dir / "ARVEN.ini");
    setenv("XDG_DOCUMENTS_DIR", (dir / "docs").c_str(), 1);
  }
  void TearDown() override { unsetenv("XDG_DOCUMENTS_DIR"); }

  // A country store with one Version row and one RVC.
  void install(const std::string& code, const std::string& date, int db_version = 5) {
    Db db = create_country_store_base(country_store_path(session().app_folder, code));
    db.insert("Version", {"Version", "DB Version"}, {date, db_version});
    db.insert("RVC_List", {"RVC ID", "N factor"}, {7, 2.5});
  }

  TempDir dir;
  ScriptedUi ui;
  std::optional<testing::PreferencesGuard> prefs_;
};

TEST_F(StartupTest, NoStoreShowsTheMessageAndTheUpdateTabLeavingRestartFlag) {
  save_setting("Settings", "Restart_Flag", "1");
  Main(ui, {});
  ASSERT_EQ(ui.messages.size(), 3u);
  EXPECT_EQ(ui.messages[0].title, "No Databases Installed");
  EXPECT_EQ(ui.messages[0].text, kNoDatabasesText);
  EXPECT_EQ(ui.messages[0].icon, MsgIcon::Stop);
  // The update check ran: no server is configured.
  EXPECT_EQ(ui.messages[1].title, "Cannot proceed");
  EXPECT_EQ(ui.log.back(), "modal:settings:5");
  EXPECT_EQ(get_setting("Settings", "Restart_Flag", ""), "1");
  // The first-run pieces are put in place.
  EXPECT_TRUE(std::filesystem::is_directory(dir / "docs/My ARVEN Files"));
  EXPECT_TRUE(std::filesystem::exists(session().files_db_path));
}

TEST_F(StartupTest, DefaultStoreIsTheNewestAndTheLowestIndexOnATie) {
  install("IE", "2024-05-01 00:00:00");
  install("DK", "2024-05-01 00:00:00");
  install("LU", "2023-01-01 00:00:00");
  Main(ui, {});
  EXPECT_EQ(session().ops_db_path, country_store_path(session().app_folder, "DK").string());
  EXPECT_EQ(session().rvc_db_path, session().ops_db_path);
  EXPECT_EQ(session().country_installed[23], 1);
  EXPECT_EQ(session().country_name[31], "Monacco (MC)");
  EXPECT_EQ(session().rvc_n_factor[7], 2.5);

  reset_session();
  session().app_folder = dir.path() / "app";
  install("SE", "2025-02-01");  // a bare date is still later than the others
  Main(ui, {});
  EXPECT_EQ(session().ops_db_path, country_store_path(session().app_folder, "SE").string());
}

TEST_F(StartupTest, StoreOfAnotherDbVersionIsInvisible) {
  install("DK", "2024-05-01 00:00:00", 4);
  Main(ui, {});
  EXPECT_EQ(session().country_installed[13], 0);
  EXPECT_TRUE(session().ops_db_path.empty());
  // The no-databases message, then the update check's; nothing about DK.
  ASSERT_EQ(ui.messages.size(), 3u);
  EXPECT_EQ(ui.messages[0].title, "No Databases Installed");
  for (size_t i = 1; i < ui.messages.size(); ++i) EXPECT_EQ(ui.messages[i].title, "Cannot proceed");
}

TEST_F(StartupTest, SplashMainPageAndRestartFlagInOrder) {
  install("DK", "2024-05-01 00:00:00");
  save_setting("Settings", "Restart_Flag", "1");
  save_setting("Settings", "Outlook_Frame", "2");
  std::vector<std::string> order;
  StartupHooks hooks;
  hooks.main_window_init = [&](Ui&) {
    // Runs before the remaining keys are read: ShowSplash is still the default.
    order.push_back("init:" + std::to_string(session().Outlook_Frame));
  };
  hooks.build_main_page = [&](Ui&) {
    order.push_back("page");
    session().update_state = 1;
  };
  Main(ui, hooks);
  EXPECT_EQ(order, (std::vector<std::string>{"init:2", "page"}));
  // The update tab, its check first (no server configured).
  EXPECT_EQ(ui.log,
            (std::vector<std::string>{"modal:about:0", "window:main", "message:Cannot proceed",
                                      "message:Cannot proceed", "modal:settings:5"}));
  EXPECT_EQ(get_setting("Settings", "Restart_Flag", ""), "0");

  // Consumed: the next start goes straight to the main page, and without
  // the splash once the About box's check box was cleared.
  about_box_closed(ui, false);
  ui.log.clear();
  order.clear();
  Main(ui, hooks);
  EXPECT_EQ(ui.log, (std::vector<std::string>{"window:main"}));
  EXPECT_EQ(order, (std::vector<std::string>{"init:2", "page"}));
}

TEST_F(StartupTest, AfterAnUpdateTheInstallIsToldAndTheOpenFileOpenedAgain) {
  install("LU", "2030-01-15 00:00:00");
  save_setting("Settings", "ShowSplash", "0");
  save_setting("Settings", "Restart_Flag", "1");
  save_setting("Download", "Installed", "29");
  save_setting("Download", "File to reopen", "/home/a/My ARVEN Files/farm.arv");
  std::vector<std::string> order;
  StartupHooks hooks;
  hooks.build_main_page = [&](Ui&) {
    order.push_back("page");
    session().update_state = 2;
  };
  hooks.reopen_file = [&](Ui&, const std::string& path) { order.push_back("open:" + path); };
  Main(ui, hooks);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].title, "Update software");
  EXPECT_EQ(ui.messages[0].text,
            "The database for Luxembourg (LU) has been installed. Installed version: 15/01/2030.");
  EXPECT_EQ(ui.messages[0].icon, MsgIcon::Information);
  // The welcome page (and its update check) first, then the file.
  EXPECT_EQ(order, (std::vector<std::string>{"page", "open:/home/a/My ARVEN Files/farm.arv"}));

  // Both are said and done once; a failure's reason is said as it came.
  save_setting("Download", "Result", "The database for Austria (AT) could not be installed.");
  ui.messages.clear();
  order.clear();
  Main(ui, hooks);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].text, "The database for Austria (AT) could not be installed.");
  EXPECT_EQ(order, (std::vector<std::string>{"page"}));
}

TEST_F(StartupTest, AdminBuildReadsTheMasterStores) {
  session().admin_mode = 1;
  Db rvcs = create_rvcs_master(session().app_folder / "dbases/arven_rvcs.mdb");
  rvcs.insert("RVC_List", {"RVC ID", "N factor"}, {400, 0.5});
  Main(ui, {});
  EXPECT_EQ(session().rvc_db_path, (session().app_folder / "dbases/arven_rvcs.mdb").string());
  EXPECT_EQ(session().rvc_n_factor[400], 0.5);
  EXPECT_EQ(ui.log.back(), "window:admin");
}

TEST_F(StartupTest, UnreadableStoreIsReportedByNameAndSkipped) {
  std::ofstream(country_store_path(session().app_folder, "DK")) << "this is not a store";
  Db ie = create_country_store_base(country_store_path(session().app_folder, "IE"));
  ie.exec("DROP TABLE \"Version\"");
  install("LU", "2024-01-01 00:00:00");
  Main(ui, {});
  ASSERT_EQ(ui.messages.size(), 2u);
  EXPECT_NE(ui.messages[0].text.find("new_arven_operations_DK.mdb"), std::string::npos);
  EXPECT_NE(ui.messages[1].text.find("new_arven_operations_IE.mdb"), std::string::npos);
  EXPECT_NE(ui.messages[1].text.find("Version"), std::string::npos);
  EXPECT_EQ(session().country_installed[13], 0);
  EXPECT_EQ(session().ops_db_path, country_store_path(session().app_folder, "LU").string());
}

TEST_F(StartupTest, PreferencesKeepDefaultsTypesAndOtherSections) {
  {
    std::ofstream ini(dir / "ARVEN.ini");
    ini << "; kept\n[Settings]\nmiti_weight = 40\ndef_uptake=12.5\nranking_TH=abc\n"
           "cseq_years=70000\n\n[Download]\nItem to download=13\n";
  }
  install("DK", "2024-05-01 00:00:00");
  Main(ui, {});
  EXPECT_EQ(session().miti_weight, 40);
  EXPECT_EQ(session().def_uptake, 12.5f);
  EXPECT_EQ(session().ranking_TH, 50);  // not a number: default
  EXPECT_EQ(session().cseq_years, 10);  // not a 16-bit integer: default
  EXPECT_EQ(session().hotspot_exclude_C0, 1);
  save_setting("Settings", "ShowSplash", "0");
  save_setting("Download", "Item to download", "23");
  save_setting("Settings", "hotspot_sens", "2");
  EXPECT_EQ(get_setting("Download", "Item to download", ""), "23");
  EXPECT_EQ(get_setting("settings", "SHOWSPLASH", ""), "0");
  EXPECT_EQ(get_setting_int("Settings", "hotspot_sens", 1), 2);
  EXPECT_EQ(get_setting_int("Settings", "miti_weight", 0), 40);
  std::ifstream in(dir / "ARVEN.ini");
  std::string all((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(all.find("; kept"), 0u);
  EXPECT_LT(all.find("hotspot_sens=2"), all.find("[Download]"));
}

// A value its control cannot show falls back to its default, so that the
// settings dialog shows and writes back the default, never a value brought
// half into range.
TEST_F(StartupTest, PreferencesOutOfTheirControlsRangeFallBackToDefaults) {
  std::ofstream(dir / "ARVEN.ini")
      << "[Settings]\ndef_uptake=-5\nprod_weight=250\nadapt_weight=-1\nhotspot_sens=7\n"
         "ranking_TH=7\ncseq_included=2\nShowSplash=0\nmiti_weight=0\n";
  install("DK", "2024-05-01 00:00:00");
  Main(ui, {});
  const Session& s = session();
  EXPECT_EQ(s.def_uptake, 50.0f);
  EXPECT_EQ(s.prod_weight, 100);
  EXPECT_EQ(s.adapt_weight, 100);
  EXPECT_EQ(s.hotspot_sens, 1);
  EXPECT_EQ(s.ranking_TH, 50);
  EXPECT_EQ(s.cseq_included, 1);
  EXPECT_EQ(s.ShowSplash, 0);   // in range: kept
  EXPECT_EQ(s.miti_weight, 0);  // the bounds themselves are in range
  settings_load();
  EXPECT_EQ(settings_dialog().def_uptake, 50);
  ASSERT_TRUE(apply(ui));
  EXPECT_EQ(get_setting("Settings", "def_uptake", ""), "50");
  EXPECT_EQ(get_setting("Settings", "prod_weight", ""), "100");
}

}  // namespace
}  // namespace arven

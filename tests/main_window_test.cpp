#include <gtest/gtest.h>

#include "windows/main_window.h"

#include <functional>
#include <optional>

#include "assessment/assessment_file.h"
#include "core/preferences.h"
#include "core/session.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

using testing::ScriptedUi;
using testing::TempDir;

class MainWindowTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = dir.path();
    prefs_.emplace(dir / "ARVEN.ini");
    lvsetup();
  }
  TempDir dir;
  std::optional<testing::PreferencesGuard> prefs_;
  ScriptedUi ui;
};

TEST_F(MainWindowTest, PageLinksDispatchBySuffixButNeverHttp) {
  // "http" addresses are left alone whatever their suffix.
  EXPECT_FALSE(dispatch_navigation_main(ui, "http://example.org/update.uuu"));
  EXPECT_FALSE(dispatch_navigation_main(ui, "https_page.XX1"));
  EXPECT_FALSE(dispatch_navigation_main(ui, "summary_display.htm"));
  EXPECT_FALSE(dispatch_navigation_main(ui, "ff"));
  EXPECT_TRUE(dispatch_navigation_main(ui, "edit.XX1"));  // case is ignored
  EXPECT_EQ(ui.log, (std::vector<std::string>{"modal:explorer:0", "navigate:main:welcome.htm"}));
  ui.log.clear();
  EXPECT_TRUE(dispatch_navigation_main(ui, "update.uuu"));
  // The update tab, after its check (no server configured here).
  EXPECT_EQ(ui.log, (std::vector<std::string>{"message:Cannot proceed", "message:Cannot proceed",
                                              "modal:settings:5"}));
}

TEST_F(MainWindowTest, DisabledRegionItemsDoNothing) {
  fireexe(ui, 3, 4);
  fireexe(ui, 3, 5);
  EXPECT_TRUE(ui.log.empty());
  EXPECT_TRUE(dispatch_navigation_main(ui, "hot.hot"));
  EXPECT_TRUE(ui.log.empty());
  panel_item(3, 5)->enabled = true;
  fireexe(ui, 3, 5);
  EXPECT_EQ(ui.log, std::vector<std::string>{"modal:rvc:1"});
}

// A scripted Ui whose modal windows run a step of the test while "open".
class ModalUi : public ScriptedUi {
 public:
  std::function<void()> while_modal;
  void show_modal(const std::string& window, int tab) override {
    ScriptedUi::show_modal(window, tab);
    if (while_modal) while_modal();
  }
};

TEST_F(MainWindowTest, AFileOpenedInTheExplorerEnablesTheRegionItems) {
  ModalUi modal;
  const std::string file = (dir / "made in the explorer.arv").string();
  modal.while_modal = [&] {
    create_assessment_file(file);
    session().current_file = file;
  };
  fireexe(modal, 2, 3);
  EXPECT_TRUE(panel_item(3, 4)->enabled);
  EXPECT_FALSE(panel_item(3, 5)->enabled);  // no region yet
  modal.while_modal = [&] { session().current_file.clear(); };
  fireexe(modal, 2, 3);
  EXPECT_FALSE(panel_item(3, 4)->enabled);
}

TEST_F(MainWindowTest, ToolsAndMenusReachTheirPairs) {
  fireexe(ui, 1, 2);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_EQ(ui.messages[0].text, "Not available yet.");
  EXPECT_EQ(ui.messages[0].title, "ARVEN");
  // The menu's measure entry stands one step off: it creates a new file.
  ui.log.clear();
  menu_command(ui, "mnuDatabaseOpen");
  EXPECT_EQ(ui.log, std::vector<std::string>{"file_dialog:Save ARVEN File As..."});
  ui.log.clear();
  menu_command(ui, "mnuAllOQ");
  menu_command(ui, "mnuToolsAdmin");  // the user build has no admin console
  EXPECT_EQ(ui.log.front(), "modal:explorer:0");
  EXPECT_EQ(ui.log.size(), 2u);  // the explorer, then the welcome page shown on return
  EXPECT_EQ(tooldesc(4, 3), "Use this facility to edit a regional profile this currently open.");
  EXPECT_EQ(panel_item(1, 3), nullptr);
}

TEST_F(MainWindowTest, PanelsRememberTheOneThatOpened) {
  panel_click(ui, 2);
  EXPECT_EQ(session().Outlook_Frame, 2);
  EXPECT_EQ(get_setting("Settings", "Outlook_Frame", ""), "2");
  panel_click(ui, 3);
  EXPECT_EQ(session().Outlook_Frame, 3);
  panel_click(ui, 3);
  EXPECT_EQ(session().Outlook_Frame, 0);
  menu_command(ui, "mnuFileExit");  // exit saves the panel that stands open: none
  EXPECT_EQ(get_setting("Settings", "Outlook_Frame", ""), "0");
  EXPECT_TRUE(ui.messages.empty());  // no question on exit
}

}  // namespace
}  // namespace arven

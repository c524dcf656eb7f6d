#include "windows/main_window.h"

#include <map>

#include "assessment/assessment_file.h"
#include "core/lookups.h"
#include "core/preferences.h"
#include "core/session.h"
#include "core/startup.h"
#include "core/version.h"
#include "reports/page_kit.h"
#include "windows/main_pages.h"
#include "windows/settings_dialog.h"

namespace arven {

namespace {

MainWindowState& state_storage() {
  static MainWindowState s;
  return s;
}

AboutBoxState& about_storage() {
  static AboutBoxState s;
  return s;
}

// Applies what a file command reports to the Regional Profile items.
void apply_open_result(const OpenResult& r) {
  if (!r.changed || !r.file_open) return;
  if (auto* edit = panel_item(3, 4)) edit->enabled = r.edit_region_enabled;
  if (auto* hot = panel_item(3, 5)) hot->enabled = r.hotspot_enabled;
}

void recent_file_command(Ui& ui, int i) {
  apply_open_result(offer_store_download(ui, recent_file_open(ui, i)));
  build_main_page(ui);
}

// "Edit regional profile" with any file open, "Hotspot report" with one
// that has a region.
void sync_region_items() {
  if (auto* edit = panel_item(3, 4)) edit->enabled = !session().current_file.empty();
  if (session().current_file.empty()) {
    if (auto* hot = panel_item(3, 5)) hot->enabled = false;
  }
  region_check();
}

void regional_profile(Ui& ui) {
  if (auto* item = panel_item(3, 3)) item->enabled = true;
  ui.show_modal("regions");
  sync_region_items();
  build_main_page(ui);
}

void run_pair(Ui& ui, int group, int tool) {
  switch (group * 10 + tool) {
    case 11:
      show_settings(ui);
      break;
    case 12:
      ui.message_box("Not available yet.", "ARVEN", MsgButtons::Ok, MsgIcon::None);
      break;
    case 13:
      if (session().admin_mode == 1) ui.show_window("admin");
      break;
    case 21:
    case 31: {
      OpenResult r = offer_store_download(ui, file_new(ui));
      apply_open_result(r);
      if (r.changed) build_main_page(ui);
      break;
    }
    case 22:
    case 32:
      apply_open_result(offer_store_download(ui, file_open(ui)));
      build_main_page(ui);
      break;
    case 23:
      ui.show_modal("explorer");
      // The explorer may have opened or created a file: the Regional
      // Profile items follow the file now open.
      sync_region_items();
      if (session().current_file.empty()) {
        welcome_page(ui);  // writes and shows the welcome page
      } else {
        build_main_page(ui);
      }
      break;
    case 33:
      regional_profile(ui);
      break;
    case 34:
      if (panel_item(3, 4)->enabled) regional_profile(ui);
      break;
    case 35:
      // The hotspot report is the RVC browser's hotspot entry, shown modally.
      if (panel_item(3, 5)->enabled) ui.show_modal("rvc", 1);
      break;
    default:
      break;
  }
}

}  // namespace

MainWindowState& main_window() {
  return state_storage();
}
AboutBoxState& about_box() {
  return about_storage();
}

void lvsetup() {
  MainWindowState& w = main_window();
  w.panel_titles = {"", "Toolbox", "Measures && Operations", "Regional Profile"};
  auto item = [](int group, int tool, const char* text, bool enabled = true) {
    return PanelItem{group, tool, text, tooldesc(tool, group), enabled};
  };
  w.panels[1] = {item(1, 1, "Settings"), item(1, 2, "Database Search")};
  if (session().admin_mode == 1) w.panels[1].push_back(item(1, 3, "Administration"));
  w.panels[2] = {item(2, 1, "Create New ARVEN file"), item(2, 2, "Open ARVEN file"),
                 item(2, 3, "Explore and select Rural Development Operations")};
  w.panels[3] = {item(3, 1, "Create New ARVEN file"), item(3, 2, "Open ARVEN file"),
                 item(3, 3, "Explore and select regions"),
                 item(3, 4, "Edit regional profile", false), item(3, 5, "Hotspot report", false)};
}

void main_window_init(Ui&) {
  MainWindowState& w = main_window();
  w.title = "ARVEN: Beta Version " + version_text();
  lvsetup();
  refresh_recent_files();
  // Outlook_Frame names the open panel: 1, 2 or 3; anything else opens none.
  int f = session().Outlook_Frame;
  if (f < 1 || f > 3) session().Outlook_Frame = 0;
}

PanelItem* panel_item(int group, int tool) {
  if (group < 1 || group > 3) return nullptr;
  for (auto& item : main_window().panels[static_cast<size_t>(group)])
    if (item.tool == tool) return &item;
  return nullptr;
}

std::string tooldesc(int tool, int group) {
  static const std::map<int, std::string> tips = {
      {11, "Use this facility to customise the software settings."},
      {12, "Use this tool to search/explore data within the core ARVEN database."},
      {21, "Use this facility to create a new ARVEN file."},
      {31, "Use this facility to create a new ARVEN file."},
      {22, "Use this facility to open/view previously saved ARVEN files."},
      {32, "Use this facility to open/view previously saved ARVEN files."},
      {23, "Use this facility to explore and select RDP measures and operations for assessment."},
      {33, "Use this facility to create a new regional profiles."},
      {34, "Use this facility to edit a regional profile this currently open."},
      {35,
       "This will create a hotspot report for the regions selected, identifying the climate "
       "change issues in the region."},
  };
  auto it = tips.find(group * 10 + tool);
  return it == tips.end() ? "" : it->second;
}

std::vector<Menu> main_menus() {
  bool admin = session().admin_mode == 1;
  Menu file{"File",
            {{"mnuFileNew", "New ARVEN file"},
             {"mnuFileOpen", "Open ARVEN file"},
             {"mnuFileSaveAs", "Save As..."},
             {"mnuFilePrint", "Print"}}};
  bool any_recent = false;
  std::vector<MenuEntry> recent;
  for (int i = 1; i <= 4; ++i) {
    const std::string& path = session().recent_files[static_cast<size_t>(i)];
    recent.push_back(
        {"mnuFileTemp" + std::to_string(i), shorten_path(path), !path.empty(), false, path});
    any_recent = any_recent || !path.empty();
  }
  file.entries.push_back({"sep1", "", any_recent, true});
  file.entries.insert(file.entries.end(), recent.begin(), recent.end());
  file.entries.push_back({"sep2", "", true, true});
  file.entries.push_back({"mnuFileExit", "Exit"});
  return {
      file,
      {"Regional Profile",
       {{"mnuFarmNew", "Explore and select regions"},
        {"mnuFarmEdit", "Edit Regional Profile"},
        {"mnuFarmHot", "Hotspot report"}}},
      {"Database", {{"mnuDatabaseOpen", "RDP Explorer"}, {"mnuDatabaseCreate", "Database Search"}}},
      {"Tools", {{"mnuToolsSettings", "Settings"}, {"mnuToolsAdmin", "Administration", admin}}},
      {"Help",
       {{"mnuHelpStart", "ARVEN Manual"},
        {"mnuHelpShowMe", "Show Me"},
        {"mnuHelpAbout", "About"},
        {"mnuHelpWeb", "ARVEN website"},
        {"mnuHelpUpdates", "Check for updates"}}}};
}

Menu panel_context_menu() {
  bool admin = session().admin_mode == 1;
  return {"",
          {{"mnuAllNFA", "New ARVEN File"},
           {"mnuAllOFA", "Open ARVEN File"},
           {"mnuAllSaveAs", "Save As..."},
           {"mnuAllPrint", "Print"},
           {"mnuAllsExReg", "Explore regions"},
           {"mnuAllEFA", "Edit Regional Profile"},
           {"mnuAllHot", "Hotspot report"},
           {"mnuAllOQ", "RDP Explorer"},
           {"mnuAllSet", "Settings"},
           {"mnuAllCNQ", "Database Search"},
           {"mnuAllAdmin", "Administration", admin}}};
}

void fireexe(Ui& ui, int group, int tool) {
  MainWindowState& w = main_window();
  w.pending_group = group;
  w.pending_tool = tool;
  w.timer_enabled = true;
  ui.set_timer([&ui] { dispatch_tick(ui); });
}

void dispatch_tick(Ui& ui) {
  MainWindowState& w = main_window();
  if (!w.timer_enabled) return;
  w.timer_enabled = false;
  int group = w.pending_group, tool = w.pending_tool;
  w.busy_pointer = group == 2 || group == 3;
  run_pair(ui, group, tool);
  w.busy_pointer = false;
}

void menu_command(Ui& ui, const std::string& name) {
  // The window menu's region and measure entries stand one step off the
  // panel's numbering; the wiring is intended and kept.
  static const std::map<std::string, std::pair<int, int>> pairs = {
      {"mnuFarmNew", {3, 2}},      {"mnuFarmEdit", {3, 3}},      {"mnuFarmHot", {3, 4}},
      {"mnuDatabaseOpen", {2, 1}}, {"mnuToolsSettings", {1, 1}}, {"mnuDatabaseCreate", {1, 2}},
      {"mnuToolsAdmin", {1, 3}},   {"mnuAllsExReg", {3, 3}},     {"mnuAllEFA", {3, 4}},
      {"mnuAllHot", {3, 5}},       {"mnuAllOQ", {2, 3}},         {"mnuAllSet", {1, 1}},
      {"mnuAllCNQ", {1, 2}},       {"mnuAllAdmin", {1, 3}}};
  if (auto it = pairs.find(name); it != pairs.end()) {
    fireexe(ui, it->second.first, it->second.second);
    return;
  }
  if (name == "mnuFileNew" || name == "mnuAllNFA") {
    OpenResult r = offer_store_download(ui, file_new(ui));
    apply_open_result(r);
    if (r.changed) build_main_page(ui);
  } else if (name == "mnuFileOpen" || name == "mnuAllOFA") {
    apply_open_result(offer_store_download(ui, file_open(ui)));
    build_main_page(ui);
  } else if (name == "mnuFileSaveAs" || name == "mnuAllSaveAs") {
    OpenResult r = offer_store_download(ui, file_save_as(ui));
    apply_open_result(r);
    if (r.changed) build_main_page(ui);
  } else if (name == "mnuFilePrint" || name == "mnuAllPrint") {
    ui.print_page("main");
  } else if (name.rfind("mnuFileTemp", 0) == 0 && name.size() == 12 && name[11] >= '1' &&
             name[11] <= '4') {
    recent_file_command(ui, name[11] - '0');
  } else if (name == "mnuFileExit") {
    exit_program(ui, 0);
  } else if (name == "mnuHelpStart") {
    ui.open_document("help/ARVEN_Manual.htm");
  } else if (name == "mnuHelpShowMe") {
    ui.open_document("help/SM_contents1.htm");
  } else if (name == "mnuHelpAbout") {
    about_box_load();
    ui.show_modal("about");
  } else if (name == "mnuHelpWeb") {
    ui.open_document(get_setting("Settings", "Website", "help/ARVEN_Manual.htm"));
  } else if (name == "mnuHelpUpdates") {
    show_settings(ui, kSettingsUpdateTab, true);
  }
}

bool dispatch_navigation_main(Ui& ui, const std::string& target) {
  if (target.rfind("http", 0) == 0 || target.size() < 3) return false;
  std::string suffix = target.substr(target.size() - 3);
  for (auto& c : suffix) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (suffix.size() == 3 && suffix[0] == 'f' && suffix[1] == 'f' && suffix[2] >= '1' &&
      suffix[2] <= '4') {
    menu_command(ui, std::string("mnuFileTemp") + suffix[2]);
  } else if (suffix == "hot") {
    fireexe(ui, 3, 5);
  } else if (suffix == "xx2") {
    fireexe(ui, 3, 4);
  } else if (suffix == "xx1") {
    fireexe(ui, 2, 3);
  } else if (suffix == "xxx") {
    menu_command(ui, "mnuHelpShowMe");
  } else if (suffix == "uuu") {
    menu_command(ui, "mnuHelpUpdates");
  } else {
    return false;
  }
  return true;
}

void panel_click(Ui& ui, int panel) {
  if (panel < 1 || panel > 3) return;
  Session& s = session();
  if (s.Outlook_Frame == panel) {
    s.Outlook_Frame = 0;
    return;
  }
  // Opening one panel closes the other; once open, it is remembered.
  s.Outlook_Frame = panel;
  save_settings(ui, "Settings", {{"Outlook_Frame", std::to_string(panel)}});
}

void open_file_and_show(Ui& ui, const std::string& path) {
  apply_open_result(offer_store_download(ui, open_assessment_file(ui, path)));
  build_main_page(ui);
}

void build_main_page(Ui& ui) {
  summary_page(ui);
}

void region_check() {
  if (session().current_file.empty()) return;
  bool region = false;
  try {
    region = has_region();
  } catch (const std::exception&) {
    region = false;
  }
  if (auto* hot = panel_item(3, 5)) hot->enabled = region;
}

void exit_program(Ui& ui, int mode) {
  if (mode == 1 && ui.message_box("Are you sure you want to exit?", "Exit", MsgButtons::YesNo,
                                  MsgIcon::Question) == Answer::No)
    return;
  save_outlook_frame(ui);
  ui.quit();
}

void about_box_load() {
  about_box().show_splash = session().ShowSplash == 1;
}

void about_box_close(Ui& ui) {
  about_box_closed(ui, about_box().show_splash);
  ui.close_window("about");
}

}  // namespace arven

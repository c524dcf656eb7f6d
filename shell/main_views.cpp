#include "shell/main_views.h"

#include "core/session.h"
#include "core/startup.h"
#include "core/version.h"
#include "reports/scenario_compare.h"
#include "windows/main_window.h"
#include "windows/report_pack.h"

namespace arven::shell {

using nlohmann::json;

namespace {

json menu_json(const Menu& m) {
  json items = json::array();
  for (const auto& e : m.entries)
    items.push_back({{"id", e.name},
                     {"text", e.text},
                     {"visible", e.visible},
                     {"separator", e.separator},
                     {"tip", e.tip}});
  return {{"text", m.text}, {"items", items}};
}

// Panel captions use "&&" for a literal ampersand, as menu texts do.
std::string caption_text(std::string t) {
  for (size_t p = t.find("&&"); p != std::string::npos; p = t.find("&&", p + 1)) t.erase(p, 1);
  return t;
}

json main_controls() {
  const MainWindowState& w = main_window();
  json menus = json::array();
  for (const auto& m : main_menus()) menus.push_back(menu_json(m));
  // The analyst's entries of the File menu, after "Print", shown with a file open.
  const std::pair<const char*, const char*> analyst[] = {
      {"mnuFileCompare", "Compare with another file..."},
      {"mnuFileReportPack", "Export report pack"}};
  for (size_t i = 0; i < std::size(analyst); ++i) {
    if (menus.empty() || menus[0]["items"].size() < 4 + i) break;
    menus[0]["items"].insert(menus[0]["items"].begin() + static_cast<std::ptrdiff_t>(4 + i),
                             json{{"id", analyst[i].first},
                                  {"text", analyst[i].second},
                                  {"visible", !session().current_file.empty()},
                                  {"separator", false},
                                  {"tip", ""}});
  }
  json panels = json::array();
  for (int p = 1; p <= 3; ++p) {
    json items = json::array();
    for (const auto& it : w.panels[static_cast<size_t>(p)])
      items.push_back({{"group", it.group},
                       {"tool", it.tool},
                       {"text", it.text},
                       {"tip", it.tip},
                       {"enabled", it.enabled}});
    panels.push_back({{"title", caption_text(w.panel_titles[static_cast<size_t>(p)])},
                      {"open", session().Outlook_Frame == p},
                      {"items", items}});
  }
  std::string file = session().current_file;
  return {{"title", w.title},
          {"menus", menus},
          {"context_menu", menu_json(panel_context_menu())},
          {"panels", panels},
          {"caption", file.empty() ? "No file open" : "File: " + file},
          {"busy_pointer", w.busy_pointer}};
}

}  // namespace

void register_main_windows(WebUi& ui) {
  WindowHandlers main;
  main.controls = main_controls;
  main.command = [&ui](const Params& p) {
    if (p.count("menu") && p.at("menu") == "mnuFileCompare") {
      compare_command(ui);
    } else if (p.count("menu") && p.at("menu") == "mnuFileReportPack") {
      report_pack_command(ui);
    } else if (p.count("menu")) {
      menu_command(ui, p.at("menu"));
    } else if (p.count("panel")) {
      panel_click(ui, param_int(p, "panel", 0));
    } else if (p.count("group")) {
      int group = param_int(p, "group", 0), tool = param_int(p, "tool", 0);
      // A disabled item produces nothing, not even a message.
      if (PanelItem* item = panel_item(group, tool); item && item->enabled)
        fireexe(ui, group, tool);
    }
  };
  // "-CANCEL-" on the report pack's wait page reaches the running pack at once.
  main.immediate = [](const Params& p) {
    if (param_text(p, "navigate") != kPackCancelLink) return false;
    cancel_report_pack();
    return true;
  };
  main.navigate = [&ui](const std::string& target) { dispatch_navigation_main(ui, target); };
  // Closing the main window is the File menu's Exit: it asks, keeps the open
  // panel for the next start and ends the program.
  main.query_close = [&ui] {
    exit_program(ui, 1);
    return false;
  };
  ui.register_window("main", main);

  WindowHandlers about;
  about.load = about_box_load;
  about.controls = [] {
    std::string html =
        "<div class=\"about\"><img src=\"graphics/arven_logo.png\" alt=\"ARVEN\"><p><b>ARVEN: Beta "
        "Version " +
        version_text() +
        "</b></p><p>A decision-support tool for rural climate policy: greenhouse-gas "
        "mitigation, adaptation and production impacts of Rural Development Programme "
        "operations, scaled to the regions you choose.</p></div>";
    return json{{"title", "About ARVEN"},
                {"html", html},
                {"no_page", true},
                {"checkboxes",
                 {{{"id", "ShowSplash"},
                   {"text", "Show this window when ARVEN starts"},
                   {"checked", about_box().show_splash}}}},
                {"buttons", {{{"id", "ok"}, {"text", "OK"}}}}};
  };
  about.command = [&ui](const Params& p) {
    if (p.count("check") && p.at("check") == "ShowSplash")
      about_box().show_splash = param_int(p, "value", 0) == 1;
    else if (p.count("button") && p.at("button") == "ok")
      about_box_close(ui);
  };
  about.query_close = [&ui] {
    about_box_closed(ui, about_box().show_splash);
    return true;
  };
  ui.register_window("about", about);
}

}  // namespace arven::shell

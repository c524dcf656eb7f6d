#include "shell/explorer_view.h"

#include <filesystem>

#include "core/session.h"
#include "engine/catalogue.h"
#include "engine/explorer_state.h"
#include "reports/explorer_window.h"
#include "reports/page_commands.h"

namespace arven::shell {

using nlohmann::json;

namespace {

const char* const kViews[] = {"By Categories", "By Measures (pre-2014)", "By Measures (post-2013)",
                              "A to Z"};
const char* const kTab2[] = {"Ranked", "Mitigation", "Adaptation", "Production",
                             "Operation report"};

json tree_json(const Tree& tree, const std::string& id) {
  json nodes = json::array();
  for (int i = 0; i < static_cast<int>(tree.nodes.size()); ++i) {
    const TreeNode& n = tree.nodes[static_cast<size_t>(i)];
    nodes.push_back({{"text", n.text},
                     {"group", !tree.is_operation(i)},
                     {"expanded", n.expanded},
                     {"selected", i == tree.selected}});
  }
  return {{"id", id}, {"nodes", nodes}, {"label", id == "chosen" ? "My RDP Operations" : "All"}};
}

json explorer_controls() {
  const Catalogue& c = catalogue();
  const ExplorerWindow& w = explorer_window();
  const bool file = !session().current_file.empty();
  const bool chosen = c.tab == 2;
  const ExplorerState& ex = explorer_state();
  const bool working = ex.adding_operation || ex.update_running;

  json toolbar = json::array({
      {{"id", "New"}, {"text", "New"}, {"tip", "Create a new ARVEN file"}},
      {{"id", "Open"}, {"text", "Open"}, {"tip", "Open an ARVEN file"}},
      {{"id", "Print"}, {"text", "Print"}, {"tip", "Print the page on show"}},
      {{"separator", true}},
      {{"id", "ReCalc"},
       {"text", "Recalculate"},
       {"tip", "Recalculate the impact data of the selected operations"},
       {"enabled", file && !working}},
      {{"id", "Home"}, {"text", "Home"}, {"tip", "Back to the first entry of the tree"}},
  });

  json views = json::array();
  for (int v = 1; v <= 4; ++v) views.push_back({{"id", v}, {"text", kViews[v - 1]}});
  const TreeViewKind view = chosen ? c.chosen_view : c.catalogue_view;

  json side = {
      {"tabs",
       {{"id", "tab1"},
        {"items",
         json::array({{{"id", 1}, {"text", "All"}}, {{"id", 2}, {"text", c.tab_caption}}})},
        {"selected", c.tab}}},
      {"radios", {{"id", "view"}, {"items", views}, {"selected", static_cast<int>(view)}}},
      {"inputs", json::array({{{"id", chosen ? "chosen_search" : "search"},
                               {"label", ""},
                               {"placeholder", "Search..."},
                               {"value", chosen ? c.chosen_search : c.catalogue_search}}})},
      {"tree", tree_json(chosen ? c.chosen : c.catalogue, chosen ? "chosen" : "catalogue")},
  };
  if (!chosen) {
    side["checkboxes"] = json::array(
        {{{"id", "DataAvailable"}, {"text", "Data available"}, {"checked", c.data_available}}});
    side["buttons"] =
        json::array({{{"id", "selectall"}, {"text", "Select All"}, {"enabled", file}}});
  }

  std::string name =
      file ? std::filesystem::path(session().current_file).filename().string() : std::string();
  json controls = {{"title", "RDP Explorer"},
                   {"caption", file ? "File: " + name : "No ARVEN file open"},
                   {"toolbar", toolbar},
                   {"side", side}};
  if (chosen && file) {
    json items = json::array();
    for (int t = 1; t <= 5; ++t) items.push_back({{"id", t}, {"text", kTab2[t - 1]}});
    controls["tabs"] = {{"id", "tab2"}, {"items", items}, {"selected", w.tab2}};
  }
  return controls;
}

}  // namespace

void register_explorer_window(WebUi& ui) {
  WindowHandlers h;
  h.load = [&ui] { explorer_load(ui); };
  h.controls = explorer_controls;
  h.query_close = [&ui] { return explorer_query_close(ui); };
  h.navigate = [&ui](const std::string& target) { dispatch_navigation(ui, target); };
  h.command = [&ui](const Params& p) {
    Catalogue& c = catalogue();
    if (p.count("toolbar")) {
      toolbar_click(ui, p.at("toolbar"));
    } else if (p.count("tabs")) {
      const int tab = param_int(p, "tab", 0);
      if (p.at("tabs") == "tab1")
        tab1_click(ui, tab);
      else if (p.at("tabs") == "tab2")
        tab2_click(ui, tab);
    } else if (p.count("radio")) {
      tree_view_click(ui, c.tab == 2, param_int(p, "value", 0));
    } else if (p.count("tree")) {
      const bool chosen = p.at("tree") == "chosen";
      Tree& tree = chosen ? c.chosen : c.catalogue;
      const int index = param_int(p, "index", -1);
      const std::string event = param_text(p, "event");
      if (index < 0 || index >= static_cast<int>(tree.nodes.size())) return;
      if (event == "toggle") {
        tree.nodes[static_cast<size_t>(index)].expanded =
            !tree.nodes[static_cast<size_t>(index)].expanded;
      } else if (event == "dblclick" && !chosen) {
        tree_node_double_click(ui, index);
      } else {
        tree_node_click(ui, chosen, index);
      }
    } else if (p.count("input")) {
      const std::string text = param_text(p, "value");
      try {
        if (p.at("input") == "chosen_search")
          chosen_search(ui, text);
        else
          op_search(ui, text);
      } catch (const std::exception& e) {
        ui.show_failure(e.what());
      }
    } else if (p.count("check") && p.at("check") == "DataAvailable") {
      c.data_available = param_int(p, "value", 0) == 1;
      tree_view_click(ui, false, static_cast<int>(c.catalogue_view));
    } else if (p.count("button") && p.at("button") == "selectall") {
      select_all(ui);
    }
  };
  ui.register_window("explorer", h);

  // The second window: a page opened beside the explorer (detailed report,
  // charts). Its links are the explorer's.
  WindowHandlers report;
  report.controls = [] { return json{{"title", "ARVEN Report"}, {"fill", true}}; };
  report.navigate = [&ui](const std::string& target) { dispatch_navigation(ui, target); };
  ui.register_window("report", report);
}

}  // namespace arven::shell

#include "shell/explorer_view.h"

#include <algorithm>
#include <filesystem>

#include "core/session.h"
#include "engine/catalogue.h"
#include "engine/explorer_state.h"
#include "reports/explorer_window.h"
#include "reports/uncertainty.h"
#include "windows/explorer.h"

namespace arven::shell {

using nlohmann::json;

namespace {

const char* const kViews[] = {"By Categories", "By Measures (pre-2014)", "By Measures (post-2013)",
                              "A to Z"};
const char* const kTab2[] = {"Ranked",     "Mitigation",       "Adaptation",
                             "Production", "Operation report", "Aggregation"};

json radio_group(const std::string& id, const std::string& label,
                 std::initializer_list<const char*> texts, int selected) {
  json items = json::array();
  int n = 1;
  for (const char* t : texts) items.push_back({{"id", n++}, {"text", t}});
  return {{"id", id}, {"label", label}, {"items", items}, {"selected", selected}};
}

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
      {{"separator", true}},
      {{"id", "maccghg"},
       {"text", w.mac_panel ? "MAC curve (GHG) \u25b4" : "MAC curve (GHG) \u25be"},
       {"tip", "Options of the marginal abatement cost curve for greenhouse gases"},
       {"enabled", mac_curves_enabled() && !working}},
      {{"id", "maccadapt"},
       {"text", "MAC curve (adaptation)"},
       {"tip", "Marginal abatement cost curve for adaptation"},
       {"enabled", mac_curves_enabled() && !working}},
      {{"separator", true}},
      {{"id", "Totals"},
       {"text", "Totals"},
       {"tip", "Totals of the chosen operations at every time horizon"},
       {"enabled", mac_curves_enabled() && !working}},
      {{"id", "Working"},
       {"text", "Working"},
       {"tip", "The deltas, factors, class shares and references behind the operation's figures"},
       {"enabled", file && !working && w.current_operation != 0 && chosen}},
      {{"id", "Uncertainty"},
       {"text", "Uncertainty"},
       {"tip", "How sure each GHG figure and rank is, from the data quality"},
       {"enabled", mac_curves_enabled() && !working}},
      {{"id", "Compare"},
       {"text", "Compare"},
       {"tip", "Compare this file with a second ARVEN file"},
       {"enabled", file && !working}},
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
                   {"side", side},
                   {"wants_size", true}};
  if (chosen && file) {
    json items = json::array();
    for (int t = 1; t <= 6; ++t) items.push_back({{"id", t}, {"text", kTab2[t - 1]}});
    controls["tabs"] = {{"id", "tab2"}, {"items", items}, {"selected", w.tab2}};
  }
  if (w.mac_panel && mac_curves_enabled()) {
    controls["radios"] = json::array(
        {radio_group("mac_costs", "Costs",
                     {"Use both", "Use single investment costs only", "Use annual area costs only"},
                     w.mac_costs),
         radio_group("mac_target", "Target",
                     {"Create MAC curve for RDP operations",
                      "Create MAC curve for aggregated RDP measures"},
                     w.mac_target),
         radio_group("mac_source", "Cost source",
                     {"Use production impact data (for costs)", "Use data entered for costs"},
                     w.mac_source)});
    controls["buttons"] = json::array({{{"id", "CreateGHG"}, {"text", "Create"}},
                                       {{"id", "CreateAdapt"}, {"text", "Create (adaptation)"}}});
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
      const std::string& group = p.at("radio");
      const int value = param_int(p, "value", 0);
      ExplorerWindow& w = explorer_window();
      if (group == "view")
        tree_view_click(ui, c.tab == 2, value);
      else if (group == "mac_costs" && value >= 1 && value <= 3)
        w.mac_costs = value;
      else if (group == "mac_target" && value >= 1 && value <= 2)
        w.mac_target = value;
      else if (group == "mac_source" && value >= 1 && value <= 2)
        w.mac_source = value;
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
    } else if (p.count("button")) {
      const std::string& b = p.at("button");
      if (b == "selectall")
        select_all(ui);
      else if (b == "CreateGHG" || b == "CreateAdapt")
        toolbar_click(ui, b);
    } else if (p.count("size")) {
      // The page area's size, for chart pages.
      ExplorerWindow& w = explorer_window();
      w.browser_width = std::clamp(param_int(p, "width", w.browser_width), 200, 4000);
      w.browser_height = std::clamp(param_int(p, "height", w.browser_height), 200, 4000);
    }
  };
  ui.register_window("explorer", h);

  // The second window: a page opened beside the explorer (detailed report,
  // charts), one window reused. Its links are the explorer's. Page Setup and
  // Print Preview are the browser's print dialog, which has both.
  WindowHandlers report;
  report.controls = [] {
    json items = json::array();
    for (const auto& [id, text] : {std::pair{"mnuClose", "Close"},
                                   {"mnuPageSetup", "Page Setup"},
                                   {"mnuPrint", "Print"},
                                   {"mnuPrintPreview", "Print Preview"}})
      items.push_back({{"id", id}, {"text", text}});
    // The uncertainty of the figures beside a cost curve or report.
    json analysis = json::array({{{"id", "mnuUncertainty"}, {"text", "Uncertainty"}}});
    const ExplorerWindow& w = explorer_window();
    const bool outdated = w.report_made_at != w.recalculations;
    return json{{"title", "ARVEN Report"},
                {"fill", true},
                {"caption", outdated ? "This page was made before the last recalculation: make it "
                                       "again from the explorer to see the new figures."
                                     : ""},
                {"menus", json::array({{{"text", "File"}, {"items", items}},
                                       {{"text", "Analysis"}, {"items", analysis}}})}};
  };
  report.command = [&ui](const Params& p) {
    const std::string menu = param_text(p, "menu");
    if (menu == "mnuClose")
      ui.close_window("report");
    else if (menu == "mnuPageSetup" || menu == "mnuPrint" || menu == "mnuPrintPreview")
      ui.print_page("report");
    else if (menu == "mnuUncertainty" && mac_curves_enabled())
      uncertainty_html(ui, explorer_window().uncertainty_top_k, "report");
  };
  report.navigate = [&ui](const std::string& target) { dispatch_navigation(ui, target); };
  ui.register_window("report", report);
}

}  // namespace arven::shell

#include "shell/regions_view.h"

#include "reports/page_kit.h"
#include "windows/regional_profile.h"

namespace arven::shell {

using nlohmann::json;

namespace {

const char* const kListLabels[] = {"Country (NUTS 0)", "NUTS 1", "NUTS 2", "NUTS 3"};

json regions_controls() {
  const RegionsState& st = regions();
  json toolbar = json::array();
  for (const auto& b : regions_toolbar())
    toolbar.push_back({{"id", b.key}, {"text", b.text}, {"tip", b.tip}, {"enabled", b.enabled}});
  json menu = json::array();
  for (const auto& e : regions_context_menu().entries)
    menu.push_back(
        {{"id", e.name}, {"text", e.text}, {"visible", e.visible}, {"separator", e.separator}});
  json c = {{"title", st.caption},     {"caption", st.caption},
            {"toolbar", toolbar},      {"context_menu", {{"text", ""}, {"items", menu}}},
            {"no_page", !st.show_map}, {"fill", true}};
  if (st.show_map) return c;

  json lists = json::array();
  for (int k = 0; k < 4; ++k) {
    const AreaList& l = st.lists[static_cast<size_t>(k)];
    json items = json::array();
    for (size_t i = 0; i < l.items.size(); ++i)
      items.push_back({{"text", l.items[i].text},
                       {"data", l.items[i].data},
                       {"selected", static_cast<int>(i) == l.selected}});
    lists.push_back({{"id", std::to_string(k)},
                     {"label", kListLabels[k]},
                     {"items", items},
                     {"context", true}});
  }
  json header = json::array();
  json rows = json::array();
  // The table shows what the user reads: level, code, name and area in
  // km²; the country and area keys stay in the state.
  for (int r = 0; r < st.table.rows(); ++r) {
    json row = json::array();
    for (int col = 0; col < st.table.cols(); ++col) {
      if (col == kRegionCountry || col == kRegionId) continue;
      const std::string& text = st.table.cell(r, col);
      if (col == kRegionArea)
        row.push_back(r == 0 ? std::string("Area (km²)") : display_figure(text, 0));
      else
        row.push_back(text);
    }
    if (r == 0)
      header = row;
    else
      rows.push_back(row);
  }
  c["html"] = "<p class=\"hint\">" +
              html_escape(
                  "Click an area to see the areas within it; double-click to add it to the "
                  "regional profile. Right-click for more.") +
              "</p>";
  c["lists"] = lists;
  c["table"] = {
      {"id", "regions"}, {"label", "Regional profile"},    {"header", header},
      {"rows", rows},    {"selected", st.current_row - 1}, {"empty", "No areas selected yet."}};
  return c;
}

}  // namespace

void register_regions_window(WebUi& ui) {
  WindowHandlers h;
  h.load = regions_load;
  h.controls = regions_controls;
  h.command = [&ui](const Params& p) {
    if (p.count("toolbar")) {
      regions_toolbar_command(ui, p.at("toolbar"));
    } else if (p.count("menu")) {
      regions_menu_command(ui, p.at("menu"));
    } else if (p.count("list")) {
      int level = param_int(p, "list", -1), index = param_int(p, "index", -1);
      std::string event = p.count("event") ? p.at("event") : "click";
      if (event == "dblclick")
        list_double_click(ui, level, index);
      else if (event == "context")
        list_right_click(level, index);
      else
        list_click(level, index);
    } else if (p.count("table")) {
      select_region_row(param_int(p, "row", -1) + 1);
    }
  };
  h.navigate = [&ui](const std::string& target) { regions_navigation(ui, target); };
  ui.register_window("regions", h);
}

}  // namespace arven::shell

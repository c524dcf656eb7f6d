#include <algorithm>

#include "base/html_text.h"
#include "shell/admin_controls.h"
#include "windows/drill_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

std::string table_html(const std::string& id, const GridTable& t) {
  std::string html = "<table class=\"drill\" id=\"drill-" + id + "\"><tr>";
  for (int c = 0; c < t.cols(); ++c) html += "<th>" + html_escape(t.cell(0, c)) + "</th>";
  html += "</tr>";
  for (int r = 1; r < t.rows(); ++r) {
    html += "<tr>";
    for (int c = 0; c < t.cols(); ++c) html += "<td>" + html_escape(t.cell(r, c)) + "</td>";
    html += "</tr>";
  }
  if (t.rows() <= 1)
    html += "<tr><td colspan=\"" + std::to_string(std::max(1, t.cols())) + "\">No rows.</td></tr>";
  return html + "</table>";
}

std::string drill_html(const DrillDown& dd) {
  std::string html = "<h3 id=\"drill-heading\">" + html_escape(dd.heading) + "</h3>";
  for (size_t i = 0; i < dd.sections.size(); ++i) {
    const auto& [title, table] = dd.sections[i];
    html += "<h4>" + html_escape(title) + " (" + std::to_string(table.rows() - 1) + ")</h4>" +
            table_html(std::to_string(i), table);
  }
  return html;
}

json controls() {
  auto& d = drill_dialog();
  std::vector<std::string> levels, ops;
  std::vector<bool> level_sel, op_sel, store_sel;
  for (int k = 0; k <= 3; ++k) {
    levels.push_back("NUTS" + std::to_string(k));
    level_sel.push_back(k == d.level);
  }
  for (size_t i = 0; i < d.stores.size(); ++i) store_sel.push_back(static_cast<int>(i) == d.store);
  for (size_t i = 0; i < d.operations.size(); ++i) {
    ops.push_back(std::to_string(d.operations[i].data) + " - " + d.operations[i].text);
    op_sel.push_back(static_cast<int>(i) == d.operation);
  }
  return {{"title", kDrillTitle},
          {"no_page", true},
          {"fill", true},
          {"caption", d.status},
          {"inputs",
           {{{"id", "area"},
             {"label", "NUTS code of the area:"},
             {"value", d.area},
             {"placeholder", "DK011"}},
            {{"id", "search"},
             {"label", "Search operations:"},
             {"value", d.search},
             {"placeholder", "Operation name"}}}},
          {"lists",
           {list_control("stores", "Country store", d.stores, store_sel),
            list_control("level", "NUTS level", levels, level_sel),
            list_control("operations", "Operation", ops, op_sel)}},
          {"buttons", {{{"id", "show"}, {"text", "Show the rows"}}}},
          {"html", d.shown ? drill_html(*d.shown)
                           : "<p>Choose a country store, an operation and an area: the rows that "
                             "make the operation's stored figures there are listed below.</p>"}};
}

}  // namespace

void register_drill_window(WebUi& ui) {
  WindowHandlers h;
  h.load = drill_load;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    drill_dialog().status.clear();
    guarded(ui, kDrillTitle, [&] {
      const std::string list = param_text(p, "list"), input = param_text(p, "input");
      if (input == "area")
        drill_dialog().area = param_text(p, "value");
      else if (input == "search")
        drill_search(param_text(p, "value"));
      else if (!list.empty())
        drill_select(list, param_int(p, "index", -1));
      else if (param_text(p, "button") == "show")
        drill_show(ui);
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/drill", h);
}

}  // namespace arven::shell

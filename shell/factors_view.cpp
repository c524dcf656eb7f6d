#include "base/html_text.h"
#include "shell/admin_controls.h"
#include "windows/activity_factors_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

json controls() {
  auto& d = factors_dialog();
  std::vector<std::string> kinds = factor_kind_texts(), acts, rvcs;
  std::vector<bool> kind_sel, act_sel, rvc_sel;
  for (size_t i = 0; i < kinds.size(); ++i)
    kind_sel.push_back(static_cast<int>(i) == static_cast<int>(d.kind));
  for (size_t i = 0; i < d.activities.size(); ++i) {
    acts.push_back(d.activities[i].item.text + (d.activities[i].has_data ? " *" : ""));
    act_sel.push_back(static_cast<int>(i) == d.activity);
  }
  for (const auto& r : d.rvcs) {
    rvcs.push_back(r.text);
    rvc_sel.push_back(r.data == d.rvc);
  }
  json lists = {list_control("kind", "Factor kind", kinds, kind_sel),
                list_control("activities", "Activities (* has data)", acts, act_sel)};
  std::vector<std::string> cols;
  if (d.kind == FactorKind::ecosystem_services) {
    cols = {"number", "readonly", "number"};
  } else {
    lists.push_back(list_control("rvc", "RVC", rvcs, rvc_sel));
    cols.assign(static_cast<size_t>(d.table.cols()), "number");
    if (!cols.empty()) cols[0] = "readonly";
  }
  json buttons = {{{"id", "save"}, {"text", "Save"}}};
  if (factor_kind_by_class(d.kind))
    buttons.push_back({{"id", "classes"}, {"text", "Classes of the RVC"}});
  else
    buttons.push_back({{"id", "addrow"}, {"text", "Add row"}});
  // The copies take the cell the administrator last clicked in the grid.
  buttons.push_back({{"id", "rowcopy"}, {"text", "Row Copy"}, {"cell", "factors"}});
  buttons.push_back({{"id", "colcopy"}, {"text", "Column Copy"}, {"cell", "factors"}});
  buttons.push_back({{"id", "excel"}, {"text", "Excel Import"}});
  json inputs = {{{"id", "search"},
                  {"label", "Search activities:"},
                  {"value", d.search},
                  {"placeholder", "Activity name"}}};
  if (factor_kind_by_class(d.kind)) {
    buttons.push_back({{"id", "manure"}, {"text", "Manure storage import"}});
    inputs.push_back({{"id", "ipcc"},
                      {"label", "IPCC_RC2 class (manure storage import):"},
                      {"value", d.ipcc_rc2},
                      {"placeholder", "1"}});
  }
  json grid = grid_control("factors", d.table, cols, "No factors.");
  // A new kind or activity is a new table: the page forgets its current cell.
  grid["key"] = factors_kind_text() + ":" + std::to_string(factors_activity());
  return {{"title", kFactorsTitle},
          {"no_page", true},
          {"fill", true},
          {"caption", d.status},
          {"inputs", inputs},
          {"lists", lists},
          {"html", "<p class=\"notes\">Notes: " + html_escape(d.notes) + "</p>"},
          {"grid", grid},
          {"buttons", buttons}};
}

}  // namespace

void register_factors_window(WebUi& ui) {
  WindowHandlers h;
  h.load = factors_load;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    factors_dialog().status.clear();
    guarded(ui, kFactorsTitle, [&] {
      const int index = param_int(p, "index", -1);
      const std::string list = param_text(p, "list"), button = param_text(p, "button");
      if (param_text(p, "input") == "ipcc")
        factors_dialog().ipcc_rc2 = param_text(p, "value");
      else if (p.count("input"))
        factors_search(param_text(p, "value"));
      else if (list == "kind")
        factors_select_kind(index);
      else if (list == "activities")
        factors_select_activity(index);
      else if (list == "rvc")
        factors_select_rvc(index);
      else if (p.count("grid") && param_text(p, "event") == "edit")
        factors_edit_cell(param_int(p, "row", -1) + 1, param_int(p, "col", -1),
                          param_text(p, "value"));
      else if (!button.empty())
        // The copies take the page's current cell (row 0-based there).
        factors_button(ui, button, param_int(p, "row", -2) + 1, param_int(p, "col", -1));
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/factors", h);
}

}  // namespace arven::shell

#include "shell/admin_controls.h"
#include "windows/lists_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

json controls() {
  auto& d = lists_dialog();
  std::vector<bool> selected;
  for (size_t i = 0; i < lists_tables().size(); ++i)
    selected.push_back(static_cast<int>(i) == d.table);
  std::vector<std::string> kinds;
  for (int c = 0; c < d.rows.cols(); ++c) kinds.push_back("text");
  json grid = grid_control("rows", d.rows, kinds, "No rows.");
  grid["key"] = lists_table_name();
  return {{"title", kListsTitle},
          {"no_page", true},
          {"fill", true},
          {"caption", d.status},
          {"html",
           "<p>Practicality items and their operations, operation types, the scoped-out "
           "operations with their measures, and the xPPL_List. Then the rationalised operations, "
           "kept in a store of their own: each category's table lists its rationalised "
           "operations, and Operations_Rationalised assigns an operation of the catalogue to "
           "one of them by its category and Rationalised ID. Save checks every row against "
           "the table's types and keys, and writes the table in one step.</p>"},
          {"lists", {list_control("tables", "List", lists_tables(), selected)}},
          {"grid", grid},
          {"buttons",
           {{{"id", "save"}, {"text", "Save"}},
            {{"id", "addrow"}, {"text", "Add row"}},
            {{"id", "delrow"}, {"text", "Delete row"}, {"cell", "rows"}},
            {{"id", "reload"}, {"text", "Undo changes"}}}}};
}

}  // namespace

void register_lists_window(WebUi& ui) {
  WindowHandlers h;
  h.load = lists_load;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    lists_dialog().status.clear();
    guarded(ui, kListsTitle, [&] {
      const std::string button = param_text(p, "button");
      if (param_text(p, "list") == "tables")
        lists_select(param_int(p, "index", -1));
      else if (p.count("grid") && param_text(p, "event") == "edit")
        lists_edit_cell(param_int(p, "row", -1) + 1, param_int(p, "col", -1),
                        param_text(p, "value"));
      else if (!button.empty())
        // "Delete row" takes the page's current cell (row 0-based there).
        lists_button(button, param_int(p, "row", -2) + 1);
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/lists", h);
}

}  // namespace arven::shell

#include "prep/activity_delta.h"
#include "prep/table_sheets.h"
#include "shell/admin_controls.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kTitle = "Operation Lists and Practicality";

// The hand-kept lists of the operations master that this window edits, then
// the tables of the rationalised operations store.
const std::vector<std::string>& list_tables() {
  static const std::vector<std::string> t = [] {
    std::vector<std::string> out = {
        "Practicality_Items",    "Operations_Practicality",        "Operations_Types",
        "Scoped_Out_Operations", "Scoped_Out_Operations_Measures", "xPPL_List"};
    for (const auto& table : rationalised_tables()) out.push_back(table.name);
    return out;
  }();
  return t;
}

struct ListsDialog {
  int table = 0;
  GridTable rows;
  std::string status;
};

ListsDialog& dialog() {
  static ListsDialog d;
  return d;
}

const std::string& table_name() {
  return list_tables()[static_cast<size_t>(dialog().table)];
}

void load_rows() {
  dialog().rows = master_table_rows(table_name());
}

std::string rows_text(int n) {
  return std::to_string(n) + (n == 1 ? " row" : " rows");
}

void delete_row(int row) {
  auto& d = dialog();
  if (row < 1 || row >= d.rows.rows()) {
    d.status = "Click a cell of the row to delete first.";
    return;
  }
  GridTable kept(d.rows.cols());
  for (int r = 0; r < d.rows.rows(); ++r) {
    if (r == row) continue;
    int k = kept.add_row();
    for (int c = 0; c < d.rows.cols(); ++c) kept.cell(k, c) = d.rows.cell(r, c);
  }
  d.rows = std::move(kept);
  d.status = "Row " + std::to_string(row) + " taken out. Not saved yet.";
}

void save() {
  auto& d = dialog();
  SheetImport done = replace_table_rows(table_name(), d.rows);
  load_rows();
  d.status = "Saved " + rows_text(done.rows) + " of \"" + table_name() +
             "\": " + std::to_string(done.changed) + " added, removed or altered; " +
             std::to_string(done.stamped) + (done.stamped == 1 ? " operation" : " operations") +
             " due for the next run by date.";
}

json controls() {
  auto& d = dialog();
  std::vector<bool> selected;
  for (size_t i = 0; i < list_tables().size(); ++i)
    selected.push_back(static_cast<int>(i) == d.table);
  std::vector<std::string> kinds;
  for (int c = 0; c < d.rows.cols(); ++c) kinds.push_back("text");
  json grid = grid_control("rows", d.rows, kinds, "No rows.");
  grid["key"] = table_name();
  return {{"title", kTitle},
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
          {"lists", {list_control("tables", "List", list_tables(), selected)}},
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
  h.load = load_rows;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    auto& d = dialog();
    d.status.clear();
    guarded(ui, kTitle, [&] {
      int index = param_int(p, "index", -1);
      std::string button = param_text(p, "button");
      if (param_text(p, "list") == "tables" && index >= 0 &&
          index < static_cast<int>(list_tables().size())) {
        d.table = index;
        load_rows();
      } else if (p.count("grid") && param_text(p, "event") == "edit") {
        int row = param_int(p, "row", -1) + 1, col = param_int(p, "col", -1);
        if (row >= 1 && row < d.rows.rows() && col >= 0 && col < d.rows.cols())
          d.rows.cell(row, col) = param_text(p, "value");
      } else if (button == "save") {
        save();
      } else if (button == "addrow") {
        d.rows.add_row();
        d.status = "A new row at the end. Not saved yet.";
      } else if (button == "delrow") {
        delete_row(param_int(p, "row", -2) + 1);
      } else if (button == "reload") {
        load_rows();
        d.status = "The stored rows of \"" + table_name() + "\" again.";
      }
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/lists", h);
}

}  // namespace arven::shell

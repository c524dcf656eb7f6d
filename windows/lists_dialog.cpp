#include "windows/lists_dialog.h"

#include "prep/table_sheets.h"
#include "stores/schema.h"

namespace arven {

ListsDialog& lists_dialog() {
  static ListsDialog d;
  return d;
}

// The hand-kept lists of the operations master that this window edits, then
// the tables of the rationalised operations store.
const std::vector<std::string>& lists_tables() {
  static const std::vector<std::string> t = [] {
    std::vector<std::string> out = {
        "Practicality_Items",    "Operations_Practicality",        "Operations_Types",
        "Scoped_Out_Operations", "Scoped_Out_Operations_Measures", "xPPL_List"};
    for (const auto& table : rationalised_tables()) out.push_back(table.name);
    return out;
  }();
  return t;
}

const std::string& lists_table_name() {
  return lists_tables()[static_cast<size_t>(lists_dialog().table)];
}

void lists_load() {
  lists_dialog().rows = master_table_rows(lists_table_name());
}

namespace {

std::string rows_text(int n) {
  return std::to_string(n) + (n == 1 ? " row" : " rows");
}

void delete_row(int row) {
  auto& d = lists_dialog();
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
  auto& d = lists_dialog();
  SheetImport done = replace_table_rows(lists_table_name(), d.rows);
  lists_load();
  d.status = "Saved " + rows_text(done.rows) + " of \"" + lists_table_name() +
             "\": " + std::to_string(done.changed) + " added, removed or altered; " +
             std::to_string(done.stamped) + (done.stamped == 1 ? " operation" : " operations") +
             " due for the next run by date.";
}

}  // namespace

void lists_select(int index) {
  if (index < 0 || index >= static_cast<int>(lists_tables().size())) return;
  lists_dialog().table = index;
  lists_load();
}

void lists_edit_cell(int row, int col, const std::string& value) {
  auto& d = lists_dialog();
  if (row >= 1 && row < d.rows.rows() && col >= 0 && col < d.rows.cols())
    d.rows.cell(row, col) = value;
}

void lists_button(const std::string& button, int row) {
  auto& d = lists_dialog();
  if (button == "save") {
    save();
  } else if (button == "addrow") {
    d.rows.add_row();
    d.status = "A new row at the end. Not saved yet.";
  } else if (button == "delrow") {
    delete_row(row);
  } else if (button == "reload") {
    lists_load();
    d.status = "The stored rows of \"" + lists_table_name() + "\" again.";
  }
}

}  // namespace arven

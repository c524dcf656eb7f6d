#include "windows/activity_factors_dialog.h"

#include <filesystem>

#include "base/numbers.h"
#include "prep/factor_tools.h"

namespace arven {

FactorsDialog& factors_dialog() {
  static FactorsDialog d;
  return d;
}

int64_t factors_activity() {
  auto& d = factors_dialog();
  return d.activity >= 0 && d.activity < static_cast<int>(d.activities.size())
             ? d.activities[d.activity].item.data
             : -1;
}

std::string factors_kind_text() {
  return factor_kind_texts()[static_cast<size_t>(factors_dialog().kind)];
}

namespace {

void load_factor_table() {
  auto& d = factors_dialog();
  int64_t id = factors_activity();
  d.notes = id >= 0 ? display_act_info(id) : "";
  if (id < 0)
    d.table = factor_table(d.kind);
  else if (d.kind == FactorKind::ecosystem_services)
    d.table = get_es_details(id);
  else if (d.kind == FactorKind::yield)
    d.table = get_yield_details(id, d.rvc);
  else
    d.table = get_ghg_details(id, d.kind, d.rvc);
}

void list_activities() {
  auto& d = factors_dialog();
  d.activities = get_activities(d.search, d.kind);
  if (d.activity >= static_cast<int>(d.activities.size())) d.activity = -1;
  load_factor_table();
}

std::string activity_name() {
  auto& d = factors_dialog();
  return factors_activity() >= 0 ? d.activities[d.activity].item.text : "";
}

std::string rows_text(int n) {
  return std::to_string(n) + (n == 1 ? " row" : " rows");
}

void save(Ui& ui) {
  auto& d = factors_dialog();
  int64_t id = factors_activity();
  if (id < 0) {
    d.status = "Choose an activity first: there is nothing to save.";
    return;
  }
  if (factor_kind_by_class(d.kind) && d.rvc == 0 && d.table.rows() > 1) {
    ui.message_box("Choose the RVC of the classes first.", kFactorsTitle, MsgButtons::Ok,
                   MsgIcon::Exclamation);
    return;
  }
  int stamped = 0;
  switch (d.kind) {
    case FactorKind::ghg:
      stamped = save_ghg_details(id, 1, d.rvc, d.table);
      break;
    case FactorKind::carbon_sequestration:
      stamped = save_ghg_details(id, 2, d.rvc, d.table);
      break;
    case FactorKind::ecosystem_services:
      stamped = save_es_details(id, d.table);
      break;
    case FactorKind::yield:
      stamped = save_yield_details(id, d.rvc, d.table);
      break;
  }
  std::string saved = "Saved " + rows_text(d.table.rows() - 1) + " of " + factors_kind_text() +
                      " factors of \"" + activity_name() + "\"; ";
  list_activities();
  d.status = saved + std::to_string(stamped) + (stamped == 1 ? " operation" : " operations") +
             " due for the next run by date.";
}

// The conveniences fill the table; the administrator still saves.
constexpr const char* kNotSaved = " Not saved yet.";

void copy_button(const std::string& b, int row, int col) {
  auto& d = factors_dialog();
  if (b == "rowcopy") {
    int n = row_copy(d.table, d.kind, row);
    d.status = n == 0 ? "Row Copy: row " + std::to_string(row) + " has no rows below it."
                      : "Row Copy: row " + std::to_string(row) + " copied into the " +
                            rows_text(n) + " below it." + kNotSaved;
  } else {
    int n = column_copy(d.table, d.kind, row, col);
    d.status = "Column Copy: \"" + d.table.cell(row, col) + "\" copied into the other " +
               rows_text(n) + " of \"" + d.table.cell(0, col) + "\"." + kNotSaved;
  }
  if (d.kind == FactorKind::ecosystem_services) name_es_rows(d.table);
}

void require_activity() {
  if (factors_activity() < 0) throw EditError("Choose an activity first.");
}

void excel_button(Ui& ui) {
  auto& d = factors_dialog();
  require_activity();
  FileDialogRequest request;
  request.title = "Excel Import";
  request.filter = "*.xlsx";
  request.initial_dir = manure_storage_map_path().parent_path().string();
  std::error_code ec;
  std::filesystem::create_directories(request.initial_dir, ec);
  std::string path = ui.file_dialog(request);
  if (path.empty()) {
    d.status = "Excel Import: no workbook chosen, nothing imported.";
    return;
  }
  FactorFill fill = excel_import(d.table, d.kind, path);
  if (d.kind == FactorKind::ecosystem_services) name_es_rows(d.table);
  d.status = "Excel Import from " + fill.source + ": " + rows_text(fill.filled) + " filled, " +
             std::to_string(fill.added) + " added." + kNotSaved;
}

void manure_button() {
  auto& d = factors_dialog();
  require_activity();
  auto ipcc = parse_number(d.ipcc_rc2);
  if (!ipcc || *ipcc != static_cast<double>(static_cast<int64_t>(*ipcc)))
    throw EditError("Type the IPCC_RC2 class of the manure storage map (a whole number) first.");
  FactorFill fill = manure_storage_import(d.table, d.kind, static_cast<int64_t>(*ipcc));
  d.status =
      "Manure storage import (IPCC_RC2 " + d.ipcc_rc2 + "): " + rows_text(fill.filled) + " filled";
  if (!fill.unmatched.empty()) {
    d.status += "; the map has no value for class";
    d.status += fill.unmatched.size() == 1 ? " " : "es ";
    for (size_t i = 0; i < fill.unmatched.size(); ++i)
      d.status += (i ? ", " : "") + fill.unmatched[i];
  }
  d.status += std::string(".") + kNotSaved;
}

}  // namespace

void factors_load() {
  auto& d = factors_dialog();
  d.rvcs = get_rvcs();
  d.activity = -1;
  list_activities();
}

void factors_search(const std::string& text) {
  auto& d = factors_dialog();
  d.search = text;
  d.activity = -1;
  list_activities();
}

void factors_select_kind(int index) {
  if (index < 0 || index >= 4) return;
  factors_dialog().kind = static_cast<FactorKind>(index);
  list_activities();
}

void factors_select_activity(int index) {
  auto& d = factors_dialog();
  if (index < 0 || index >= static_cast<int>(d.activities.size())) return;
  d.activity = index;
  load_factor_table();
}

void factors_select_rvc(int index) {
  auto& d = factors_dialog();
  if (index >= 0 && index < static_cast<int>(d.rvcs.size())) d.rvc = d.rvcs[index].data;
}

void factors_edit_cell(int row, int col, const std::string& value) {
  auto& d = factors_dialog();
  if (row >= 1 && row < d.table.rows() && col >= 0 && col < d.table.cols())
    d.table.cell(row, col) = value;
  if (d.kind == FactorKind::ecosystem_services && col == 0) name_es_rows(d.table);
}

void factors_button(Ui& ui, const std::string& button, int row, int col) {
  auto& d = factors_dialog();
  if (button == "save") {
    save(ui);
  } else if (button == "classes" && d.rvc == 0) {
    d.status = "Choose the RVC of the classes first.";
  } else if (button == "classes") {
    d.table = factor_class_rows(d.kind, d.rvc);
    d.status = rows_text(d.table.rows() - 1) + " for the classes of the RVC." + kNotSaved;
  } else if (button == "addrow") {
    d.table.add_row();
  } else if (button == "rowcopy" || button == "colcopy") {
    copy_button(button, row, col);
  } else if (button == "excel") {
    excel_button(ui);
  } else if (button == "manure") {
    manure_button();
  }
}

}  // namespace arven

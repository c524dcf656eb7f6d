#include "windows/sheets_dialog.h"

#include <filesystem>

#include "core/session.h"
#include "prep/activity_delta.h"
#include "prep/table_sheets.h"
#include "prep/xlsx_reader.h"
#include "stores/db.h"

namespace arven {

SheetsDialog& sheets_dialog() {
  static SheetsDialog d;
  return d;
}

namespace {

void count_rows() {
  auto& d = sheets_dialog();
  d.counts.clear();
  for (const auto& t : d.tables) d.counts.push_back(master_table_row_count(t));
}

std::string chosen_table() {
  auto& d = sheets_dialog();
  if (d.table < 0 || d.table >= static_cast<int>(d.tables.size()))
    throw EditError("Choose a table first.");
  return d.tables[static_cast<size_t>(d.table)];
}

// Workbooks go to and come from the program folder's exports/.
FileDialogRequest workbook_dialog(bool save, const std::string& table) {
  FileDialogRequest request;
  request.save = save;
  request.title = save ? "Export to .xlsx" : "Import from .xlsx";
  request.filter = "*.xlsx";
  request.initial_dir = (session().app_folder / "exports").string();
  request.default_name = table + ".xlsx";
  std::error_code ec;
  std::filesystem::create_directories(request.initial_dir, ec);
  return request;
}

void export_button(Ui& ui) {
  auto& d = sheets_dialog();
  std::string table = chosen_table();
  std::string path = ui.file_dialog(workbook_dialog(true, table));
  if (path.empty()) return;
  try {
    export_table_xlsx(table, path);
  } catch (const StoreError&) {
    throw;
  } catch (const std::exception& e) {  // the workbook could not be written
    throw EditError(e.what());
  }
  d.status = "Exported the " + std::to_string(d.counts[static_cast<size_t>(d.table)]) +
             " rows of \"" + table + "\" to " + std::filesystem::path(path).filename().string() +
             ".";
}

void import_button(Ui& ui) {
  auto& d = sheets_dialog();
  std::string table = chosen_table();
  std::string path = ui.file_dialog(workbook_dialog(false, table));
  if (path.empty()) return;
  SheetImport done;
  try {
    done = import_table_xlsx(table, path);
  } catch (const XlsxError& e) {
    throw EditError(std::filesystem::path(path).filename().string() +
                    " is not a workbook that can be read: " + e.what() +
                    ". Nothing was imported; the table stays as it was.");
  }
  count_rows();
  d.status = "Imported " + std::to_string(done.rows) + " rows into \"" + table + "\" from " +
             std::filesystem::path(path).filename().string() + ": " + std::to_string(done.changed) +
             " rows added, removed or altered; " + std::to_string(done.stamped) +
             (done.stamped == 1 ? " operation" : " operations") + " due for the next run by date.";
}

}  // namespace

void sheets_load() {
  auto& d = sheets_dialog();
  d.tables = master_table_names();
  count_rows();
}

void sheets_select(int index) {
  auto& d = sheets_dialog();
  if (index >= 0 && index < static_cast<int>(d.tables.size())) d.table = index;
}

void sheets_button(Ui& ui, const std::string& button) {
  if (button == "export") export_button(ui);
  if (button == "import") import_button(ui);
}

}  // namespace arven

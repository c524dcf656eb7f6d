#include <filesystem>

#include "core/session.h"
#include "prep/activity_delta.h"
#include "prep/table_sheets.h"
#include "prep/xlsx_reader.h"
#include "shell/admin_controls.h"
#include "stores/db.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kTitle = "Spreadsheet Import and Export";

struct SheetsDialog {
  std::vector<std::string> tables;
  std::vector<int> counts;  // rows of each table, as last read
  int table = -1;
  std::string status;
};

SheetsDialog& dialog() {
  static SheetsDialog d;
  return d;
}

void count_rows() {
  auto& d = dialog();
  d.counts.clear();
  for (const auto& t : d.tables) d.counts.push_back(master_table_row_count(t));
}

std::string chosen_table() {
  auto& d = dialog();
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
  auto& d = dialog();
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
  auto& d = dialog();
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

json controls() {
  auto& d = dialog();
  std::vector<std::string> texts;
  std::vector<bool> selected;
  for (size_t i = 0; i < d.tables.size(); ++i) {
    texts.push_back(d.tables[i] + " (" + std::to_string(d.counts[i]) +
                    (d.counts[i] == 1 ? " row)" : " rows)"));
    selected.push_back(static_cast<int>(i) == d.table);
  }
  return {{"title", kTitle},
          {"no_page", true},
          {"fill", true},
          {"caption", d.status},
          {"html",
           "<p>Export a master table to an .xlsx workbook, correct it in a spreadsheet, and "
           "import it back: the import checks every cell against the table's column types and "
           "keys first, and replaces the table's rows in one step or not at all.</p>"},
          {"lists", {list_control("tables", "Master tables", texts, selected)}},
          {"buttons",
           {{{"id", "export"}, {"text", "Export to .xlsx..."}},
            {{"id", "import"}, {"text", "Import from .xlsx..."}}}}};
}

}  // namespace

void register_sheets_window(WebUi& ui) {
  WindowHandlers h;
  h.load = [] {
    auto& d = dialog();
    d.tables = master_table_names();
    count_rows();
  };
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    auto& d = dialog();
    d.status.clear();
    guarded(ui, kTitle, [&] {
      std::string button = param_text(p, "button");
      int index = param_int(p, "index", -1);
      if (param_text(p, "list") == "tables" && index >= 0 &&
          index < static_cast<int>(d.tables.size())) {
        d.table = index;
      } else if (button == "export") {
        export_button(ui);
      } else if (button == "import") {
        import_button(ui);
      }
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/sheets", h);
}

}  // namespace arven::shell

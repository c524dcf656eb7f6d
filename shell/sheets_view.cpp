#include "shell/admin_controls.h"
#include "windows/sheets_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

json controls() {
  auto& d = sheets_dialog();
  std::vector<std::string> texts;
  std::vector<bool> selected;
  for (size_t i = 0; i < d.tables.size(); ++i) {
    texts.push_back(d.tables[i] + " (" + std::to_string(d.counts[i]) +
                    (d.counts[i] == 1 ? " row)" : " rows)"));
    selected.push_back(static_cast<int>(i) == d.table);
  }
  return {{"title", kSheetsTitle},
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
  h.load = sheets_load;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    sheets_dialog().status.clear();
    guarded(ui, kSheetsTitle, [&] {
      if (param_text(p, "list") == "tables")
        sheets_select(param_int(p, "index", -1));
      else if (p.count("button"))
        sheets_button(ui, param_text(p, "button"));
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/sheets", h);
}

}  // namespace arven::shell

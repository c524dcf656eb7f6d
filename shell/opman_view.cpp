#include "shell/opman_view.h"

#include "core/session.h"
#include "reports/page_kit.h"
#include "windows/operation_manager.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kGridId = "operations";

const char* kind_name(OperationCellKind kind) {
  switch (kind) {
    case OperationCellKind::text:
      return "text";
    case OperationCellKind::number:
      return "number";
    case OperationCellKind::cycle:
      return "cycle";
    case OperationCellKind::toggle:
      return "toggle";
    case OperationCellKind::readonly:
      break;
  }
  return "readonly";
}

json opman_controls() {
  const OperationManagerState& st = operation_manager();
  json header = json::array(), rows = json::array(), changed = json::array();
  json editable = json::array(), kinds = json::array();
  for (int c = 0; c < st.table.cols(); ++c) {
    header.push_back(st.table.rows() > 0 ? st.table.cell(0, c) : "");
    OperationCellKind kind = operation_column_kind(c);
    editable.push_back(kind != OperationCellKind::readonly);
    kinds.push_back(kind_name(kind));
  }
  for (int r = 1; r < st.table.rows(); ++r) {
    json row = json::array();
    for (int c = 0; c < st.table.cols(); ++c) row.push_back(st.table.cell(r, c));
    rows.push_back(row);
    changed.push_back(r < static_cast<int>(st.changed.size()) &&
                      st.changed[static_cast<size_t>(r)]);
  }
  std::string path = st.import_path.empty() ? "(no file selected)" : st.import_path;
  json c = {{"title", "Operation Manager"},
            {"caption", st.status.empty() ? "Operation Manager" : st.status},
            {"no_page", true},
            {"fill", true},
            {"html", "<p class=\"import-path\">Import from: <span id=\"import-path\">" +
                         html_escape(path) + "</span></p>"},
            {"inputs",
             {{{"id", "search"},
               {"label", "Search:"},
               {"value", st.search_text},
               {"placeholder", "Operation name"}}}},
            {"grid",
             {{"id", kGridId},
              {"header", header},
              {"rows", rows},
              {"changed", changed},
              {"editable", editable},
              {"kinds", kinds},
              {"decimal", session().decimal_separator},
              {"empty", "No operations."}}},
            {"buttons",
             {{{"id", "save"}, {"text", "Save changes"}},
              {{"id", "browse"}, {"text", "Choose file to import..."}},
              {{"id", "import"}, {"text", "Import"}},
              {{"id", "close"}, {"text", "Close"}}}}};
  // The catalogue filter has no meaning for the rows of an assessment file.
  if (!session().edit_from_assessment)
    c["checkboxes"] = {
        {{"id", "data_available"}, {"text", "Data available"}, {"checked", st.data_available}}};
  return c;
}

}  // namespace

void register_opman_window(WebUi& ui) {
  WindowHandlers h;
  h.controls = opman_controls;
  h.command = [&ui](const Params& p) {
    operation_manager().status.clear();
    if (p.count("grid")) {
      // Rows count from 0 in the page, from 1 (below the titles) in the table.
      int row = param_int(p, "row", -1) + 1, col = param_int(p, "col", -1);
      if (param_text(p, "event") == "edit")
        operation_cell_edit(ui, row, col, param_text(p, "value"));
      else
        operation_cell_click(row, col);
    } else if (p.count("input") && p.at("input") == "search") {
      operation_manager().search_text = param_text(p, "value");
      refresh_operations(ui);
    } else if (p.count("check") && p.at("check") == "data_available") {
      operation_manager().data_available = param_int(p, "value", 0) == 1;
      refresh_operations(ui);
    } else if (p.count("button")) {
      const std::string& b = p.at("button");
      if (b == "save")
        save_changes(ui);
      else if (b == "browse")
        choose_import_file(ui);
      else if (b == "import")
        import_data(ui);
      else if (b == "close" && operation_manager_query_close(ui))
        ui.close_window("opman");
    }
  };
  // Closing with unsaved edits asks whether to save them.
  h.query_close = [&ui] { return operation_manager_query_close(ui); };
  ui.register_window("opman", h);
}

}  // namespace arven::shell

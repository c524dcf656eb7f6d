#include <filesystem>

#include "base/numbers.h"
#include "prep/activity_factors.h"
#include "prep/factor_tools.h"
#include "reports/page_kit.h"
#include "shell/admin_controls.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kTitle = "Activity Factors";

struct FactorsDialog {
  FactorKind kind = FactorKind::ghg;  // Combo1
  std::string search;
  std::vector<ActivityItem> activities;
  int activity = -1;
  std::vector<ListItem> rvcs;  // Combo2
  int64_t rvc = 0;
  GridTable table;
  std::string notes;
  std::string ipcc_rc2;  // the IPCC_RC2 class of the manure storage import
  std::string status;    // the status line: what the last button did
};

FactorsDialog& dialog() {
  static FactorsDialog d;
  return d;
}

int64_t activity_id() {
  auto& d = dialog();
  return d.activity >= 0 && d.activity < static_cast<int>(d.activities.size())
             ? d.activities[d.activity].item.data
             : -1;
}

void load_table() {
  auto& d = dialog();
  int64_t id = activity_id();
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
  auto& d = dialog();
  d.activities = get_activities(d.search, d.kind);
  if (d.activity >= static_cast<int>(d.activities.size())) d.activity = -1;
  load_table();
}

std::string activity_name() {
  auto& d = dialog();
  return activity_id() >= 0 ? d.activities[d.activity].item.text : "";
}

std::string kind_text() {
  return factor_kind_texts()[static_cast<size_t>(dialog().kind)];
}

std::string rows_text(int n) {
  return std::to_string(n) + (n == 1 ? " row" : " rows");
}

void save(Ui& ui) {
  auto& d = dialog();
  int64_t id = activity_id();
  if (id < 0) {
    d.status = "Choose an activity first: there is nothing to save.";
    return;
  }
  if (factor_kind_by_class(d.kind) && d.rvc == 0 && d.table.rows() > 1) {
    ui.message_box("Choose the RVC of the classes first.", kTitle, MsgButtons::Ok,
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
  std::string saved = "Saved " + rows_text(d.table.rows() - 1) + " of " + kind_text() +
                      " factors of \"" + activity_name() + "\"; ";
  list_activities();
  d.status = saved + std::to_string(stamped) + (stamped == 1 ? " operation" : " operations") +
             " due for the next run by date.";
}

// The conveniences fill the table; the administrator still saves.
constexpr const char* kNotSaved = " Not saved yet.";

// The table row (1 = first) of the page's current cell, from `row` (0-based).
int current_row(const Params& p) {
  return param_int(p, "row", -2) + 1;
}

void copy_button(const std::string& b, const Params& p) {
  auto& d = dialog();
  int row = current_row(p), col = param_int(p, "col", -1);
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
  if (activity_id() < 0) throw EditError("Choose an activity first.");
}

void excel_button(Ui& ui) {
  auto& d = dialog();
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
  auto& d = dialog();
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

json controls() {
  auto& d = dialog();
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
  grid["key"] = kind_text() + ":" + std::to_string(activity_id());
  return {{"title", kTitle},
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
  h.load = [] {
    auto& d = dialog();
    d.rvcs = get_rvcs();
    d.activity = -1;
    list_activities();
  };
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    auto& d = dialog();
    d.status.clear();
    guarded(ui, kTitle, [&] {
      int index = param_int(p, "index", -1);
      std::string list = param_text(p, "list"), button = param_text(p, "button");
      if (param_text(p, "input") == "ipcc") {
        d.ipcc_rc2 = param_text(p, "value");
      } else if (p.count("input")) {
        d.search = param_text(p, "value");
        d.activity = -1;
        list_activities();
      } else if (list == "kind" && index >= 0 && index < 4) {
        d.kind = static_cast<FactorKind>(index);
        list_activities();
      } else if (list == "activities" && index >= 0 &&
                 index < static_cast<int>(d.activities.size())) {
        d.activity = index;
        load_table();
      } else if (list == "rvc" && index >= 0 && index < static_cast<int>(d.rvcs.size())) {
        d.rvc = d.rvcs[index].data;
      } else if (p.count("grid") && param_text(p, "event") == "edit") {
        int row = param_int(p, "row", -1) + 1, col = param_int(p, "col", -1);
        if (row >= 1 && row < d.table.rows() && col >= 0 && col < d.table.cols())
          d.table.cell(row, col) = param_text(p, "value");
        if (d.kind == FactorKind::ecosystem_services && col == 0) name_es_rows(d.table);
      } else if (button == "save") {
        save(ui);
      } else if (button == "classes" && d.rvc == 0) {
        d.status = "Choose the RVC of the classes first.";
      } else if (button == "classes") {
        d.table = factor_class_rows(d.kind, d.rvc);
        d.status = rows_text(d.table.rows() - 1) + " for the classes of the RVC." + kNotSaved;
      } else if (button == "addrow") {
        d.table.add_row();
      } else if (button == "rowcopy" || button == "colcopy") {
        copy_button(button, p);
      } else if (button == "excel") {
        excel_button(ui);
      } else if (button == "manure") {
        manure_button();
      }
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/factors", h);
}

}  // namespace arven::shell

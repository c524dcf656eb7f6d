#include "prep/activity_delta.h"
#include "prep/comp_man.h"
#include "reports/page_kit.h"
#include "shell/admin_controls.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kTitle = "Operation Activity Details";

// The dialog's lists and tables while it is open.
struct DetailsDialog {
  std::string search;
  std::vector<ListItem> ops;  // List1
  int op = -1;
  std::vector<BaselineItem> bases;  // List2, for the delta
  int base = -1;
  std::vector<ListItem> editable;  // Combo1: whose details: the operation, then baselines
  int edit = 0;
  GridTable details;
  // A class-by-class entry of one activity.
  int64_t multi_activity = 0;
  std::string multi_name;
  std::vector<ListItem> rvcs;  // Combo2
  int64_t multi_rvc = 0;
  GridTable classes;
  GridTable delta, delta_multi;
  std::string delta_multi_name;
  // "Copy details": the source kept until "Paste details".
  int64_t copy_from = -1;
  bool copy_baseline = false;
  std::string copy_name;
  std::string status;  // the status line: what the last button did
};

DetailsDialog& dialog() {
  static DetailsDialog d;
  return d;
}

int64_t op_id() {
  auto& d = dialog();
  return d.op >= 0 && d.op < static_cast<int>(d.ops.size()) ? d.ops[d.op].data : -1;
}
int64_t base_id() {
  auto& d = dialog();
  return d.base >= 0 && d.base < static_cast<int>(d.bases.size()) ? d.bases[d.base].item.data : -1;
}
// The baseline being edited, or -1 when the operation's details are.
int64_t edit_baseline() {
  auto& d = dialog();
  return d.edit > 0 && d.edit <= static_cast<int>(d.editable.size()) ? d.editable[d.edit - 1].data
                                                                     : -1;
}

void load_delta() {
  auto& d = dialog();
  d.delta = op_id() >= 0 && base_id() >= 0 ? get_delta(op_id(), base_id()) : GridTable(3);
  d.delta_multi = GridTable(2);
  d.delta_multi_name.clear();
}

void load_details() {
  auto& d = dialog();
  d.multi_activity = 0;
  if (edit_baseline() >= 0)
    d.details = get_baseline_details_new(edit_baseline());
  else if (op_id() >= 0)
    d.details = get_details_new(op_id());
  else
    d.details = GridTable(3);
}

void select_operation(int index) {
  auto& d = dialog();
  d.op = index;
  d.bases = op_id() >= 0 ? delta_baseline_list(op_id()) : std::vector<BaselineItem>{};
  d.base = d.bases.empty() ? -1 : 0;
  load_details();
  load_delta();
}

void search(const std::string& text) {
  auto& d = dialog();
  d.search = text;
  d.ops = delta_operation_list(text);
  select_operation(d.ops.empty() ? -1 : 0);
}

void open_classes(int row) {
  auto& d = dialog();
  if (row < 1 || row >= d.details.rows()) return;
  d.multi_activity = std::stoll(d.details.cell(row, 2));
  d.multi_name = d.details.cell(row, 0);
  d.classes = edit_baseline() >= 0
                  ? get_baseline_multi(edit_baseline(), d.multi_activity, d.multi_rvc)
                  : get_details_multi(op_id(), d.multi_activity, d.multi_rvc);
}

void save_classes(Ui& ui) {
  auto& d = dialog();
  if (d.multi_rvc == 0) {
    ui.message_box("Choose the RVC of the classes first.", kTitle, MsgButtons::Ok,
                   MsgIcon::Exclamation);
    return;
  }
  if (edit_baseline() >= 0)
    baseline_multi_save(edit_baseline(), d.multi_activity, d.multi_rvc, d.classes);
  else
    activity_multi_save(op_id(), d.multi_activity, d.multi_rvc, d.classes);
  // The activity becomes class by class: its plain row turns into the marker.
  for (int r = 1; r < d.details.rows(); ++r)
    if (d.details.cell(r, 2) == std::to_string(d.multi_activity)) d.details.cell(r, 1) = "Multi";
  if (edit_baseline() >= 0)
    baseline_save(edit_baseline(), d.details);
  else
    save_operation_details(op_id(), d.details);
  d.multi_activity = 0;
}

json controls() {
  auto& d = dialog();
  std::vector<std::string> ops, bases, edit = {"Operation details"}, rvcs;
  std::vector<bool> ops_sel, bases_sel, edit_sel, rvc_sel;
  for (size_t i = 0; i < d.ops.size(); ++i) {
    ops.push_back(d.ops[i].text);
    ops_sel.push_back(static_cast<int>(i) == d.op);
  }
  for (size_t i = 0; i < d.bases.size(); ++i) {
    bases.push_back(d.bases[i].item.text + (d.bases[i].marked ? " (delta)" : ""));
    bases_sel.push_back(static_cast<int>(i) == d.base);
  }
  for (const auto& b : d.editable) edit.push_back("Baseline: " + b.text);
  for (size_t i = 0; i < edit.size(); ++i) edit_sel.push_back(static_cast<int>(i) == d.edit);
  json c = {{"title", kTitle}, {"no_page", true}, {"fill", true}, {"caption", d.status}};
  c["inputs"] = {{{"id", "search"},
                  {"label", "Search operations:"},
                  {"value", d.search},
                  {"placeholder", "Operation name"}}};
  json lists = {list_control("operations", "Operations", ops, ops_sel),
                list_control("baselines", "Baselines of the operation", bases, bases_sel),
                list_control("edit", "Details of", edit, edit_sel)};
  if (d.multi_activity != 0) {
    for (const auto& r : d.rvcs) {
      rvcs.push_back(r.text);
      rvc_sel.push_back(r.data == d.multi_rvc);
    }
    lists.push_back(list_control("rvc", "RVC of the classes", rvcs, rvc_sel));
    c["html"] = "<p>Class by class: <b>" + html_escape(d.multi_name) + "</b></p>";
    c["grid"] = grid_control("classes", d.classes, {"readonly", "number"}, "No classes.");
    c["buttons"] = {{{"id", "newclasses"}, {"text", "Classes of the RVC"}},
                    {{"id", "saveclasses"}, {"text", "Save classes"}},
                    {{"id", "back"}, {"text", "Back to activities"}}};
  } else {
    std::string html = "<p>Click an activity's name to enter it class by class.</p>";
    if (d.delta_multi.rows() > 1) {
      html += "<p>Classes of " + html_escape(d.delta_multi_name) + ":</p><table class=\"grid\">";
      for (int r = 0; r < d.delta_multi.rows(); ++r)
        html += "<tr><td>" + html_escape(d.delta_multi.cell(r, 0)) + "</td><td>" +
                html_escape(d.delta_multi.cell(r, 1)) + "</td></tr>";
      html += "</table>";
    }
    c["html"] = html;
    c["grid"] =
        grid_control("details", d.details, {"toggle", "number", "readonly"}, "No activities.");
    c["table"] = table_control("delta", "Delta", d.delta, "No delta rows.");
    c["buttons"] = {{{"id", "save"}, {"text", "Save details"}},
                    {{"id", "calc"}, {"text", "Calculate Delta"}},
                    {{"id", "delete"}, {"text", "Delete Delta"}},
                    {{"id", "calcall"}, {"text", "Calculate Delta for all"}},
                    {{"id", "copy"}, {"text", "Copy details"}},
                    {{"id", "paste"}, {"text", "Paste details"}},
                    {{"id", "export"}, {"text", "Export to Excel"}}};
  }
  c["lists"] = lists;
  return c;
}

// Whose details the grid shows, as the status line names them.
std::string target_name() {
  auto& d = dialog();
  if (edit_baseline() >= 0) return "baseline \"" + d.editable[d.edit - 1].text + "\"";
  return op_id() >= 0 ? "\"" + d.ops[d.op].text + "\"" : "";
}

std::string pair_name() {
  auto& d = dialog();
  return "\"" + d.ops[d.op].text + "\" against baseline \"" + d.bases[d.base].item.text + "\"";
}

void button(Ui& ui, const std::string& b) {
  auto& d = dialog();
  bool baseline = edit_baseline() >= 0;
  int64_t target = baseline ? edit_baseline() : op_id();
  bool pair = op_id() >= 0 && base_id() >= 0;
  if ((b == "save" || b == "copy" || b == "paste") && target < 0) {
    d.status = "Choose an operation first.";
  } else if ((b == "calc" || b == "delete") && !pair) {
    d.status = "Choose an operation and one of its baselines first.";
  } else if (b == "save") {
    if (baseline)
      baseline_save(target, d.details);
    else
      save_operation_details(target, d.details);
    int n = d.details.rows() - 1;
    d.status = "Saved the details of " + target_name() + ": " + std::to_string(n) +
               (n == 1 ? " activity." : " activities.");
    load_details();
  } else if (b == "calc") {
    int n = calculate_delta(op_id(), base_id());
    d.status = "Delta calculated for " + pair_name() + ": " + std::to_string(n) +
               (n == 1 ? " row." : " rows.");
    d.bases = delta_baseline_list(op_id());
    load_delta();
  } else if (b == "delete") {
    delete_delta(op_id(), base_id());
    d.status = "Delta deleted for " + pair_name() + ".";
    d.bases = delta_baseline_list(op_id());
    load_delta();
  } else if (b == "calcall") {
    int n = delta_calc_all(ui, d.ops);
    d.status = "Delta calculated for " + std::to_string(n) +
               (n == 1 ? " operation" : " operations") + ", each against its first baseline.";
    if (op_id() >= 0) d.bases = delta_baseline_list(op_id());
    load_delta();
  } else if (b == "copy") {
    d.copy_from = target;
    d.copy_baseline = baseline;
    d.copy_name = baseline ? d.editable[d.edit - 1].text : d.ops[d.op].text;
    d.status = "Copied the details of " + target_name() + ": choose another " +
               (baseline ? "baseline" : "operation") + " and press \"Paste details\".";
  } else if (b == "paste") {
    if (d.copy_from < 0 || d.copy_baseline != baseline) {
      ui.message_box(std::string("Copy the details of another ") +
                         (baseline ? "baseline" : "operation") + " first.",
                     kTitle, MsgButtons::Ok, MsgIcon::Information);
      return;
    }
    bool pasted = copy_details(ui, baseline, d.copy_from, d.copy_name, target);
    d.status = pasted ? "Pasted the details of \"" + d.copy_name + "\" into " + target_name() + "."
                      : "Nothing pasted.";
    if (pasted) load_details();
  } else if (b == "export") {
    std::string path = export_details_xlsx();
    ui.message_box("The details were written to " + path, kTitle, MsgButtons::Ok,
                   MsgIcon::Information);
  } else if (b == "newclasses" && d.multi_rvc == 0) {
    d.status = "Choose the RVC of the classes first.";
  } else if (b == "newclasses") {
    d.classes = class_rows(d.multi_rvc);
  } else if (b == "saveclasses") {
    std::string activity = d.multi_name;
    save_classes(ui);
    if (d.multi_activity == 0)
      d.status = "Saved the classes of \"" + activity + "\" for " + target_name() + ".";
  } else if (b == "back") {
    d.multi_activity = 0;
  }
}

}  // namespace

void register_details_window(WebUi& ui) {
  WindowHandlers h;
  h.load = [] {
    auto& d = dialog();
    d.editable = baseline_list();
    d.rvcs = RVC_list();
    d.edit = 0;
    search(d.search);
  };
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    auto& d = dialog();
    d.status.clear();
    guarded(ui, kTitle, [&] {
      int index = param_int(p, "index", -1);
      std::string list = param_text(p, "list");
      if (p.count("input")) {
        search(param_text(p, "value"));
      } else if (list == "operations" && index >= 0 && index < static_cast<int>(d.ops.size())) {
        select_operation(index);
      } else if (list == "baselines" && index >= 0 && index < static_cast<int>(d.bases.size())) {
        d.base = index;
        load_delta();
      } else if (list == "edit" && index >= 0 && index <= static_cast<int>(d.editable.size())) {
        d.edit = index;
        load_details();
      } else if (list == "rvc" && index >= 0 && index < static_cast<int>(d.rvcs.size())) {
        d.multi_rvc = d.rvcs[index].data;
      } else if (p.count("grid")) {
        int row = param_int(p, "row", -1) + 1, col = param_int(p, "col", -1);
        GridTable& t = param_text(p, "grid") == "classes" ? d.classes : d.details;
        if (row < 1 || row >= t.rows()) return;
        if (param_text(p, "event") == "edit" && col == 1)
          t.cell(row, 1) = param_text(p, "value");
        else if (param_text(p, "grid") == "details" && col == 0)
          open_classes(row);
      } else if (p.count("table")) {
        int row = param_int(p, "row", -1) + 1;
        if (row >= 1 && row < d.delta.rows() && d.delta.cell(row, 1) == "Multi") {
          d.delta_multi = get_delta_multi(op_id(), base_id(), std::stoll(d.delta.cell(row, 2)));
          d.delta_multi_name = d.delta.cell(row, 0);
        }
      } else if (p.count("button")) {
        button(ui, param_text(p, "button"));
      }
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/details", h);
}

}  // namespace arven::shell

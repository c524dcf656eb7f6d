#include "windows/activity_details.h"

#include <string>

#include "prep/activity_delta.h"
#include "prep/comp_man.h"

namespace arven {

DetailsDialog& details_dialog() {
  static DetailsDialog d;
  return d;
}

int64_t details_operation() {
  auto& d = details_dialog();
  return d.op >= 0 && d.op < static_cast<int>(d.ops.size()) ? d.ops[d.op].data : -1;
}
int64_t details_baseline() {
  auto& d = details_dialog();
  return d.base >= 0 && d.base < static_cast<int>(d.bases.size()) ? d.bases[d.base].item.data : -1;
}

namespace {

// The baseline being edited, or -1 when the operation's details are.
int64_t edit_baseline() {
  auto& d = details_dialog();
  return d.edit > 0 && d.edit <= static_cast<int>(d.editable.size()) ? d.editable[d.edit - 1].data
                                                                     : -1;
}

void details_load_delta() {
  auto& d = details_dialog();
  d.delta = details_operation() >= 0 && details_baseline() >= 0
                ? get_delta(details_operation(), details_baseline())
                : GridTable(3);
  d.delta_multi = GridTable(2);
  d.delta_multi_name.clear();
}

void details_load_details() {
  auto& d = details_dialog();
  d.multi_activity = 0;
  if (edit_baseline() >= 0)
    d.details = get_baseline_details_new(edit_baseline());
  else if (details_operation() >= 0)
    d.details = get_details_new(details_operation());
  else
    d.details = GridTable(3);
}

void save_classes(Ui& ui) {
  auto& d = details_dialog();
  if (d.multi_rvc == 0) {
    ui.message_box("Choose the RVC of the classes first.", kDetailsTitle, MsgButtons::Ok,
                   MsgIcon::Exclamation);
    return;
  }
  if (edit_baseline() >= 0)
    baseline_multi_save(edit_baseline(), d.multi_activity, d.multi_rvc, d.classes);
  else
    activity_multi_save(details_operation(), d.multi_activity, d.multi_rvc, d.classes);
  // The activity becomes class by class: its plain row turns into the marker.
  for (int r = 1; r < d.details.rows(); ++r)
    if (d.details.cell(r, 2) == std::to_string(d.multi_activity)) d.details.cell(r, 1) = "Multi";
  if (edit_baseline() >= 0)
    baseline_save(edit_baseline(), d.details);
  else
    save_operation_details(details_operation(), d.details);
  d.multi_activity = 0;
}

// Whose details the grid shows, as the status line names them.
std::string target_name() {
  auto& d = details_dialog();
  if (edit_baseline() >= 0) return "baseline \"" + d.editable[d.edit - 1].text + "\"";
  return details_operation() >= 0 ? "\"" + d.ops[d.op].text + "\"" : "";
}

std::string pair_name() {
  auto& d = details_dialog();
  return "\"" + d.ops[d.op].text + "\" against baseline \"" + d.bases[d.base].item.text + "\"";
}

}  // namespace

void details_load() {
  auto& d = details_dialog();
  d.editable = baseline_list();
  d.rvcs = RVC_list();
  d.edit = 0;
  details_search(d.search);
}

void details_select_operation(int index) {
  auto& d = details_dialog();
  d.op = index;
  d.bases = details_operation() >= 0 ? delta_baseline_list(details_operation())
                                     : std::vector<BaselineItem>{};
  d.base = d.bases.empty() ? -1 : 0;
  details_load_details();
  details_load_delta();
}

void details_search(const std::string& text) {
  auto& d = details_dialog();
  d.search = text;
  d.ops = delta_operation_list(text);
  details_select_operation(d.ops.empty() ? -1 : 0);
}

void details_select_baseline(int index) {
  auto& d = details_dialog();
  if (index < 0 || index >= static_cast<int>(d.bases.size())) return;
  d.base = index;
  details_load_delta();
}

void details_select_edit(int index) {
  auto& d = details_dialog();
  if (index < 0 || index > static_cast<int>(d.editable.size())) return;
  d.edit = index;
  details_load_details();
}

void details_select_rvc(int index) {
  auto& d = details_dialog();
  if (index >= 0 && index < static_cast<int>(d.rvcs.size())) d.multi_rvc = d.rvcs[index].data;
}

void details_grid_click(bool classes, int row, int col, bool edit, const std::string& value) {
  auto& d = details_dialog();
  GridTable& t = classes ? d.classes : d.details;
  if (row < 1 || row >= t.rows()) return;
  if (edit && col == 1)
    t.cell(row, 1) = value;
  else if (!classes && col == 0)
    details_open_classes(row);
}

void details_delta_click(int row) {
  auto& d = details_dialog();
  if (row >= 1 && row < d.delta.rows() && d.delta.cell(row, 1) == "Multi") {
    d.delta_multi =
        get_delta_multi(details_operation(), details_baseline(), std::stoll(d.delta.cell(row, 2)));
    d.delta_multi_name = d.delta.cell(row, 0);
  }
}

void details_open_classes(int row) {
  auto& d = details_dialog();
  if (row < 1 || row >= d.details.rows()) return;
  d.multi_activity = std::stoll(d.details.cell(row, 2));
  d.multi_name = d.details.cell(row, 0);
  d.classes = edit_baseline() >= 0
                  ? get_baseline_multi(edit_baseline(), d.multi_activity, d.multi_rvc)
                  : get_details_multi(details_operation(), d.multi_activity, d.multi_rvc);
}

void details_button(Ui& ui, const std::string& b) {
  auto& d = details_dialog();
  bool baseline = edit_baseline() >= 0;
  int64_t target = baseline ? edit_baseline() : details_operation();
  bool pair = details_operation() >= 0 && details_baseline() >= 0;
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
    details_load_details();
  } else if (b == "calc") {
    int n = calculate_delta(details_operation(), details_baseline());
    d.status = "Delta calculated for " + pair_name() + ": " + std::to_string(n) +
               (n == 1 ? " row." : " rows.");
    d.bases = delta_baseline_list(details_operation());
    details_load_delta();
  } else if (b == "delete") {
    delete_delta(details_operation(), details_baseline());
    d.status = "Delta deleted for " + pair_name() + ".";
    d.bases = delta_baseline_list(details_operation());
    details_load_delta();
  } else if (b == "calcall") {
    int n = delta_calc_all(ui, d.ops);
    d.status = "Delta calculated for " + std::to_string(n) +
               (n == 1 ? " operation" : " operations") + ", each against its first baseline.";
    if (details_operation() >= 0) d.bases = delta_baseline_list(details_operation());
    details_load_delta();
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
                     kDetailsTitle, MsgButtons::Ok, MsgIcon::Information);
      return;
    }
    bool pasted = copy_details(ui, baseline, d.copy_from, d.copy_name, target);
    d.status = pasted ? "Pasted the details of \"" + d.copy_name + "\" into " + target_name() + "."
                      : "Nothing pasted.";
    if (pasted) details_load_details();
  } else if (b == "export") {
    std::string path = export_details_xlsx();
    ui.message_box("The details were written to " + path, kDetailsTitle, MsgButtons::Ok,
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

}  // namespace arven

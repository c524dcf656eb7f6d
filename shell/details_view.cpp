#include "base/html_text.h"
#include "shell/admin_controls.h"
#include "windows/activity_details.h"

namespace arven::shell {

using nlohmann::json;

namespace {

json controls() {
  auto& d = details_dialog();
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
  json c = {{"title", kDetailsTitle}, {"no_page", true}, {"fill", true}, {"caption", d.status}};
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

}  // namespace

void register_details_window(WebUi& ui) {
  WindowHandlers h;
  h.load = details_load;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    details_dialog().status.clear();
    guarded(ui, kDetailsTitle, [&] {
      const int index = param_int(p, "index", -1);
      const std::string list = param_text(p, "list");
      if (p.count("input"))
        details_search(param_text(p, "value"));
      else if (list == "operations" && index >= 0 &&
               index < static_cast<int>(details_dialog().ops.size()))
        details_select_operation(index);
      else if (list == "baselines")
        details_select_baseline(index);
      else if (list == "edit")
        details_select_edit(index);
      else if (list == "rvc")
        details_select_rvc(index);
      else if (p.count("grid"))
        details_grid_click(param_text(p, "grid") == "classes", param_int(p, "row", -1) + 1,
                           param_int(p, "col", -1), param_text(p, "event") == "edit",
                           param_text(p, "value"));
      else if (p.count("table"))
        details_delta_click(param_int(p, "row", -1) + 1);
      else if (p.count("button"))
        details_button(ui, param_text(p, "button"));
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/details", h);
}

}  // namespace arven::shell

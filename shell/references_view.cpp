#include <algorithm>

#include "base/html_text.h"
#include "shell/admin_controls.h"
#include "windows/references_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

json controls() {
  auto& d = references_dialog();
  std::vector<std::string> refs, acts, rows, all;
  std::vector<bool> ref_sel, act_sel, row_sel, all_sel;
  for (size_t i = 0; i < d.refs.size(); ++i) {
    const auto& r = d.refs[i];
    refs.push_back(std::to_string(r.id) + " - " + r.short_ref + " (used by " +
                   std::to_string(r.uses) + (r.uses == 1 ? " row)" : " rows)"));
    ref_sel.push_back(static_cast<int>(i) == d.ref);
  }
  for (size_t i = 0; i < d.activities.size(); ++i) {
    acts.push_back(d.activities[i].item.text);
    act_sel.push_back(static_cast<int>(i) == d.activity);
  }
  for (size_t i = 0; i < d.rows.size(); ++i) {
    rows.push_back(d.rows[i].label + " - Refs: " + references_text(d.rows[i].refs));
    row_sel.push_back(static_cast<int>(i) == d.row);
  }
  for (const auto& r : d.all) {
    all.push_back(std::to_string(r.id) + " - " + r.short_ref);
    all_sel.push_back(std::find(d.chosen.begin(), d.chosen.end(), r.id) != d.chosen.end());
  }
  json lists = {list_control("refs", "References", refs, ref_sel),
                list_control("activities", "Activity of the factor row", acts, act_sel),
                list_control("factorrows", "Factor rows", rows, row_sel)};
  if (d.row >= 0) lists.push_back(list_control("rowrefs", "Refs of the factor row", all, all_sel));
  std::string heading = d.adding ? "New reference"
                        : references_has_ref(d)
                            ? "Reference " + std::to_string(d.refs[static_cast<size_t>(d.ref)].id)
                            : "No reference chosen";
  return {{"title", kReferencesTitle},
          {"no_page", true},
          {"fill", true},
          {"caption", d.status},
          {"html", "<p class=\"record\" id=\"ref-title\">" + html_escape(heading) + "</p>"},
          {"inputs",
           {{{"id", "search"},
             {"label", "Search references:"},
             {"value", d.search},
             {"placeholder", "Author, title or URL"}},
            {{"id", "f:Ref Short"}, {"label", "Ref Short:"}, {"value", d.short_ref}},
            {{"id", "f:Ref Long"}, {"label", "Ref Long:"}, {"value", d.long_ref}},
            {{"id", "f:URL"}, {"label", "URL:"}, {"value", d.url}}}},
          {"lists", lists},
          {"table", table_control("uses", "Where used", d.uses, "No factor row names it.")},
          {"buttons",
           {{{"id", "save"}, {"text", "Save"}},
            {{"id", "add"}, {"text", "Add New"}},
            {{"id", "delete"}, {"text", "Delete"}},
            {{"id", "saverefs"}, {"text", "Save Refs of the factor row"}}}}};
}

}  // namespace

void register_references_window(WebUi& ui) {
  WindowHandlers h;
  h.load = references_load;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    references_dialog().status.clear();
    guarded(ui, kReferencesTitle, [&] {
      const int index = param_int(p, "index", -1);
      const std::string list = param_text(p, "list"), button = param_text(p, "button"),
                        input = param_text(p, "input"), value = param_text(p, "value");
      if (input == "search")
        references_search(value);
      else if (input.rfind("f:", 0) == 0)
        references_set_field(input.substr(2), value);
      else if (list == "refs")
        references_show(index);
      else if (list == "activities")
        references_select_activity(index);
      else if (list == "factorrows")
        references_select_row(index);
      else if (list == "rowrefs")
        references_toggle(index);
      else if (!button.empty())
        references_button(ui, button);
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/references", h);
}

}  // namespace arven::shell

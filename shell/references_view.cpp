#include "prep/activity_delta.h"
#include "prep/activity_factors.h"
#include "prep/references.h"
#include "reports/page_kit.h"
#include "shell/admin_controls.h"
#include "stores/db.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kTitle = "References";

struct ReferencesDialog {
  std::string search;
  std::vector<ReferenceRow> refs;
  int ref = -1;  // index into refs; -1 with `adding` is a new reference
  bool adding = false;
  std::string short_ref, long_ref, url;  // the fields being edited
  GridTable uses{6};
  // Choosing the references of a factor row.
  std::vector<ActivityItem> activities;
  int activity = -1;
  std::vector<FactorRefRow> rows;
  int row = -1;
  std::vector<ReferenceRow> all;  // every reference, for the factor row's choice
  std::vector<int64_t> chosen;    // the factor row's Refs, in their order
  std::string status;
};

ReferencesDialog& dialog() {
  static ReferencesDialog d;
  return d;
}

bool has_ref(const ReferencesDialog& d) {
  return d.ref >= 0 && d.ref < static_cast<int>(d.refs.size());
}

void show_ref(int index) {
  auto& d = dialog();
  d.ref = index;
  d.adding = false;
  if (!has_ref(d)) {
    d.short_ref = d.long_ref = d.url = "";
    d.uses = GridTable(6);
    return;
  }
  const ReferenceRow& r = d.refs[static_cast<size_t>(index)];
  d.short_ref = r.short_ref;
  d.long_ref = r.long_ref;
  d.url = r.url;
  d.uses = reference_uses(r.id);
}

// Lists the references again, keeping the one on show when it is listed.
void list_refs(int64_t keep_id) {
  auto& d = dialog();
  d.refs = list_references(d.search);
  d.all = list_references("");
  int index = -1;
  for (size_t i = 0; i < d.refs.size(); ++i)
    if (d.refs[i].id == keep_id) index = static_cast<int>(i);
  show_ref(index);
}

void list_rows() {
  auto& d = dialog();
  d.rows = d.activity >= 0 && d.activity < static_cast<int>(d.activities.size())
               ? factor_ref_rows(d.activities[static_cast<size_t>(d.activity)].item.data)
               : std::vector<FactorRefRow>{};
  if (d.row >= static_cast<int>(d.rows.size())) d.row = -1;
  d.chosen = d.row >= 0 ? d.rows[static_cast<size_t>(d.row)].refs : std::vector<int64_t>{};
}

std::string refs_text(const std::vector<int64_t>& ids) {
  std::string text;
  for (int64_t id : ids) text += (text.empty() ? "" : ", ") + std::to_string(id);
  return text.empty() ? "none" : text;
}

void save(Ui& ui) {
  auto& d = dialog();
  if (!has_ref(d) && !d.adding) {
    ui.message_box("Choose a reference, or Add New, first.", kTitle, MsgButtons::Ok,
                   MsgIcon::Exclamation);
    return;
  }
  int64_t id = save_reference(d.adding ? 0 : d.refs[static_cast<size_t>(d.ref)].id, d.short_ref,
                              d.long_ref, d.url);
  d.search.clear();
  list_refs(id);
  d.status = "Saved reference " + std::to_string(id) + " \"" + d.short_ref + "\".";
}

void remove(Ui& ui) {
  auto& d = dialog();
  if (!has_ref(d)) {
    d.status = "Choose a reference first: there is nothing to delete.";
    return;
  }
  const ReferenceRow r = d.refs[static_cast<size_t>(d.ref)];
  if (ui.message_box("Delete reference " + std::to_string(r.id) + " \"" + r.short_ref + "\"?",
                     kTitle, MsgButtons::YesNo, MsgIcon::Question) != Answer::Yes)
    return;
  delete_reference(r.id);
  list_refs(0);
  list_rows();
  d.status = "Deleted reference " + std::to_string(r.id) + " \"" + r.short_ref + "\".";
}

void save_row_refs() {
  auto& d = dialog();
  if (d.row < 0) {
    d.status = "Choose a factor row first: there is nothing to save.";
    return;
  }
  const FactorRefRow r = d.rows[static_cast<size_t>(d.row)];
  int stamped = save_factor_refs(r.table, r.rowid, d.chosen);
  int64_t keep = has_ref(d) ? d.refs[static_cast<size_t>(d.ref)].id : 0;
  list_refs(keep);
  list_rows();
  d.status = "Saved the Refs " + refs_text(d.chosen) + " of " + r.table + " (" + r.label + "); " +
             std::to_string(stamped) + (stamped == 1 ? " operation" : " operations") +
             " due for the next run by date.";
}

void toggle_chosen(int index) {
  auto& d = dialog();
  if (d.row < 0 || index < 0 || index >= static_cast<int>(d.all.size())) return;
  int64_t id = d.all[static_cast<size_t>(index)].id;
  auto it = std::find(d.chosen.begin(), d.chosen.end(), id);
  if (it == d.chosen.end())
    d.chosen.push_back(id);
  else
    d.chosen.erase(it);
  d.status = "Refs of the factor row: " + refs_text(d.chosen) + ". Not saved yet.";
}

json controls() {
  auto& d = dialog();
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
    rows.push_back(d.rows[i].label + " - Refs: " + refs_text(d.rows[i].refs));
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
                        : has_ref(d)
                            ? "Reference " + std::to_string(d.refs[static_cast<size_t>(d.ref)].id)
                            : "No reference chosen";
  return {{"title", kTitle},
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
  h.load = [] {
    auto& d = dialog();
    d.activities = get_activities("", FactorKind::ghg);
    d.activity = d.row = -1;
    list_refs(0);
    list_rows();
  };
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    auto& d = dialog();
    d.status.clear();
    guarded(ui, kTitle, [&] {
      int index = param_int(p, "index", -1);
      std::string list = param_text(p, "list"), button = param_text(p, "button"),
                  input = param_text(p, "input"), value = param_text(p, "value");
      if (input == "search") {
        d.search = value;
        list_refs(0);
      } else if (input == "f:Ref Short") {
        d.short_ref = value;
      } else if (input == "f:Ref Long") {
        d.long_ref = value;
      } else if (input == "f:URL") {
        d.url = value;
      } else if (list == "refs") {
        show_ref(index);
      } else if (list == "activities" && index >= 0 &&
                 index < static_cast<int>(d.activities.size())) {
        d.activity = index;
        d.row = -1;
        list_rows();
      } else if (list == "factorrows" && index >= 0 && index < static_cast<int>(d.rows.size())) {
        d.row = index;
        list_rows();
      } else if (list == "rowrefs") {
        toggle_chosen(index);
      } else if (button == "save") {
        save(ui);
      } else if (button == "add") {
        show_ref(-1);
        d.adding = true;
      } else if (button == "delete") {
        remove(ui);
      } else if (button == "saverefs") {
        save_row_refs();
      }
    });
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/references", h);
}

}  // namespace arven::shell

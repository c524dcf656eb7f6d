#include "windows/references_dialog.h"

#include <algorithm>
#include <string>

#include "prep/activity_factors.h"

namespace arven {

ReferencesDialog& references_dialog() {
  static ReferencesDialog d;
  return d;
}

bool references_has_ref(const ReferencesDialog& d) {
  return d.ref >= 0 && d.ref < static_cast<int>(d.refs.size());
}

std::string references_text(const std::vector<int64_t>& ids) {
  std::string text;
  for (int64_t id : ids) text += (text.empty() ? "" : ", ") + std::to_string(id);
  return text.empty() ? "none" : text;
}

void references_show(int index) {
  auto& d = references_dialog();
  d.ref = index;
  d.adding = false;
  if (!references_has_ref(d)) {
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

namespace {

// Lists the references again, keeping the one on show when it is listed.
void list_refs(int64_t keep_id) {
  auto& d = references_dialog();
  d.refs = list_references(d.search);
  d.all = list_references("");
  int index = -1;
  for (size_t i = 0; i < d.refs.size(); ++i)
    if (d.refs[i].id == keep_id) index = static_cast<int>(i);
  references_show(index);
}

void list_rows() {
  auto& d = references_dialog();
  d.rows = d.activity >= 0 && d.activity < static_cast<int>(d.activities.size())
               ? factor_ref_rows(d.activities[static_cast<size_t>(d.activity)].item.data)
               : std::vector<FactorRefRow>{};
  if (d.row >= static_cast<int>(d.rows.size())) d.row = -1;
  d.chosen = d.row >= 0 ? d.rows[static_cast<size_t>(d.row)].refs : std::vector<int64_t>{};
}

void save(Ui& ui) {
  auto& d = references_dialog();
  if (!references_has_ref(d) && !d.adding) {
    ui.message_box("Choose a reference, or Add New, first.", kReferencesTitle, MsgButtons::Ok,
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
  auto& d = references_dialog();
  if (!references_has_ref(d)) {
    d.status = "Choose a reference first: there is nothing to delete.";
    return;
  }
  const ReferenceRow r = d.refs[static_cast<size_t>(d.ref)];
  if (ui.message_box("Delete reference " + std::to_string(r.id) + " \"" + r.short_ref + "\"?",
                     kReferencesTitle, MsgButtons::YesNo, MsgIcon::Question) != Answer::Yes)
    return;
  delete_reference(r.id);
  list_refs(0);
  list_rows();
  d.status = "Deleted reference " + std::to_string(r.id) + " \"" + r.short_ref + "\".";
}

void save_row_refs() {
  auto& d = references_dialog();
  if (d.row < 0) {
    d.status = "Choose a factor row first: there is nothing to save.";
    return;
  }
  const FactorRefRow r = d.rows[static_cast<size_t>(d.row)];
  int stamped = save_factor_refs(r.table, r.rowid, d.chosen);
  int64_t keep = references_has_ref(d) ? d.refs[static_cast<size_t>(d.ref)].id : 0;
  list_refs(keep);
  list_rows();
  d.status = "Saved the Refs " + references_text(d.chosen) + " of " + r.table + " (" + r.label +
             "); " + std::to_string(stamped) + (stamped == 1 ? " operation" : " operations") +
             " due for the next run by date.";
}

void toggle_chosen(int index) {
  auto& d = references_dialog();
  if (d.row < 0 || index < 0 || index >= static_cast<int>(d.all.size())) return;
  int64_t id = d.all[static_cast<size_t>(index)].id;
  auto it = std::find(d.chosen.begin(), d.chosen.end(), id);
  if (it == d.chosen.end())
    d.chosen.push_back(id);
  else
    d.chosen.erase(it);
  d.status = "Refs of the factor row: " + references_text(d.chosen) + ". Not saved yet.";
}

}  // namespace

void references_load() {
  auto& d = references_dialog();
  d.activities = get_activities("", FactorKind::ghg);
  d.activity = d.row = -1;
  list_refs(0);
  list_rows();
}

void references_search(const std::string& text) {
  references_dialog().search = text;
  list_refs(0);
}

void references_set_field(const std::string& field, const std::string& value) {
  auto& d = references_dialog();
  if (field == "Ref Short") d.short_ref = value;
  if (field == "Ref Long") d.long_ref = value;
  if (field == "URL") d.url = value;
}

void references_select_activity(int index) {
  auto& d = references_dialog();
  if (index < 0 || index >= static_cast<int>(d.activities.size())) return;
  d.activity = index;
  d.row = -1;
  list_rows();
}

void references_select_row(int index) {
  auto& d = references_dialog();
  if (index < 0 || index >= static_cast<int>(d.rows.size())) return;
  d.row = index;
  list_rows();
}

void references_toggle(int index) {
  toggle_chosen(index);
}

void references_button(Ui& ui, const std::string& button) {
  auto& d = references_dialog();
  if (button == "save") {
    save(ui);
  } else if (button == "add") {
    references_show(-1);
    d.adding = true;
  } else if (button == "delete") {
    remove(ui);
  } else if (button == "saverefs") {
    save_row_refs();
  }
}

}  // namespace arven

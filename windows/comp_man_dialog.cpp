#include "windows/comp_man_dialog.h"

#include <algorithm>

namespace arven {

CompManDialog& comp_dialog() {
  static CompManDialog d;
  return d;
}

RvcDialog& rvc_dialog() {
  static RvcDialog d;
  return d;
}

namespace {

void select_comp_item(int index) {
  auto& d = comp_dialog();
  d.selected = index;
  d.record = index >= 0 && index < static_cast<int>(d.items.size())
                 ? get_comp_details(d.kind, d.items[index].item.data)
                 : CompRecord{};
}

// The records of the list: by the search, or those of xPPL_List.
std::vector<CompItem> records() {
  auto& d = comp_dialog();
  auto items = get_comp_list(d.kind, d.search, impact_type_choices()[d.impact_filter].second);
  if (!d.xppl || d.kind != CompKind::operations) return items;
  std::vector<CompItem> listed;
  for (int64_t id : xppl_list())
    for (const auto& item : items)
      if (item.item.data == id) listed.push_back(item);
  return listed;
}

void list_items() {
  auto& d = comp_dialog();
  d.items = records();
  select_comp_item(d.items.empty() ? -1 : 0);
}

const char* kind_word(CompKind kind) {
  return kind == CompKind::operations   ? "operation"
         : kind == CompKind::activities ? "activity"
                                        : "baseline";
}

void toggle(std::vector<int64_t>& chosen, int64_t id) {
  auto it = std::find(chosen.begin(), chosen.end(), id);
  if (it == chosen.end())
    chosen.push_back(id);
  else
    chosen.erase(it);
}

// After a save, the list shows the saved record selected.
void reselect(int64_t key) {
  auto& d = comp_dialog();
  d.items = records();
  int index = -1;
  for (size_t i = 0; i < d.items.size(); ++i)
    if (d.items[i].item.data == key) index = static_cast<int>(i);
  select_comp_item(index);
  if (index < 0) d.record = get_comp_details(d.kind, key);
}

}  // namespace

void comp_load() {
  auto& d = comp_dialog();
  d.measures = measure_list(false);
  d.new_measures = measure_list(true);
  list_items();
}

void comp_search(const std::string& text) {
  auto& d = comp_dialog();
  d.status.clear();
  d.search = text;
  d.xppl = false;
  list_items();
}

void comp_set_field(const std::string& field, const std::string& value) {
  comp_dialog().record.fields[field] = value;
}

void comp_select_kind(int index) {
  auto& d = comp_dialog();
  if (index < 0 || index >= 3) return;
  d.kind = static_cast<CompKind>(index + 1);
  d.xppl = false;
  list_items();
}

void comp_select_impact(int index) {
  if (index < 0 || index >= static_cast<int>(impact_type_choices().size())) return;
  comp_dialog().impact_filter = index;
  list_items();
}

void comp_select_item(int index) {
  if (index >= 0 && index < static_cast<int>(comp_dialog().items.size())) select_comp_item(index);
}

void comp_toggle_measure(bool fresh, int index) {
  auto& d = comp_dialog();
  const auto& all = fresh ? d.new_measures : d.measures;
  if (index < 0 || index >= static_cast<int>(all.size())) return;
  toggle(fresh ? d.record.new_measures : d.record.measures, all[index].data);
}

void comp_button(Ui& ui, const std::string& b) {
  auto& d = comp_dialog();
  d.status.clear();
  auto named = d.record.fields.find(comp_fields(d.kind).front());
  std::string name = named == d.record.fields.end() ? "" : named->second;
  if ((b == "save" || b == "scopeout" || b == "report") && d.record.key <= 0) {
    d.status = std::string(d.kind == CompKind::baselines ? "Choose a " : "Choose an ") +
               kind_word(d.kind) + " first.";
  } else if (b == "save") {
    if (int64_t key = save_comp_details(ui, d.kind, d.record, false)) {
      reselect(key);
      d.status = std::string("Saved ") + kind_word(d.kind) + " \"" + name + "\".";
    }
  } else if (b == "add") {
    if (int64_t key = add_new_comp(ui, d.kind, d.record)) {
      reselect(key);
      d.status = std::string("Added ") + kind_word(d.kind) + " \"" + name + "\" with ID " +
                 std::to_string(key) + ".";
    }
  } else if (b == "scopeout" && d.kind == CompKind::operations) {
    if (scope_out(ui, d.record.key)) {
      list_items();
      d.status = "Scoped out \"" + name + "\": its key waits as a spare.";
    }
  } else if (b == "report") {
    ui.open_document(write_comp_report(d.kind, d.record.key));
  } else if (b == "xppl" && d.kind == CompKind::operations) {
    d.search.clear();
    d.xppl = true;
    list_items();
    ui.message_box("Done", "xPPL_List", MsgButtons::Ok, MsgIcon::Information);
    d.status = "xPPL_List: " + std::to_string(d.items.size()) +
               (d.items.size() == 1 ? " operation" : " operations") +
               " listed. Search to list all operations again.";
  }
}

void rvcman_show(int64_t id) {
  auto& d = rvc_dialog();
  d.rvcs = RVC_list();
  d.selected = -1;
  for (size_t i = 0; i < d.rvcs.size(); ++i)
    if (d.rvcs[i].data == id) d.selected = static_cast<int>(i);
  d.record = d.selected >= 0 ? get_RVC_details(id) : RvcRecord{};
}

void rvcman_load() {
  auto& d = rvc_dialog();
  rvcman_show(d.record.id > 0 ? d.record.id : (RVC_list().empty() ? 0 : RVC_list()[0].data));
}

void rvcman_select(int index) {
  auto& d = rvc_dialog();
  if (index >= 0 && index < static_cast<int>(d.rvcs.size())) rvcman_show(d.rvcs[index].data);
}

void rvcman_button(Ui& ui, const std::string& button) {
  auto& d = rvc_dialog();
  d.status.clear();
  auto named = d.record.fields.find("RVC Short Name");
  std::string name = named == d.record.fields.end() ? "" : named->second;
  if ((button == "save" || button == "getmf") && d.record.id <= 0) {
    d.status = "Choose an RVC first.";
  } else if (button == "save") {
    if (int64_t id = save_RVC_details(ui, d.record.id, d.record.fields)) {
      rvcman_show(id);
      d.status = "Saved RVC \"" + name + "\".";
    }
  } else if (button == "add") {
    if (int64_t id = add_rvc(ui, d.record.fields)) {
      rvcman_show(id);
      d.status = "Added RVC \"" + name + "\" with ID " + std::to_string(id) + ".";
    }
  } else if (button == "getmf") {
    d.record.fields["Max_factor"] = get_mf(d.record.id);
    d.status = "Get MF: Max_factor " + d.record.fields["Max_factor"] +
               ", the sum of the RVC's adaptation factors. Not saved yet.";
  }
}

}  // namespace arven

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/lookups.h"
#include "core/ui.h"
#include "prep/comp_man.h"

namespace arven {

// "Comp Man" (operations, activities and baselines of the operations master)
// and the "RVC Manager": the records listed, chosen, edited and saved. A
// refused edit or a store failure throws, and the view tells it.

inline constexpr const char* kCompTitle = "Comp Man";
inline constexpr const char* kRvcTitle = "RVC Manager";

struct CompManDialog {
  CompKind kind = CompKind::operations;
  std::string search;
  int impact_filter = 4;  // "All"
  std::vector<CompItem> items;
  int selected = -1;
  CompRecord record;
  std::vector<ListItem> measures, new_measures;
  bool xppl = false;   // the list shows the operations of xPPL_List only
  std::string status;  // the status line: what the last button did
};

CompManDialog& comp_dialog();

// The dialog opens: the measures are read and the records listed.
void comp_load();
// The records whose names hold the text (all operations, not xPPL_List's).
void comp_search(const std::string& text);
// A field of the record on show, as typed.
void comp_set_field(const std::string& field, const std::string& value);
// The component by index: 0 operations, 1 activities, 2 baselines.
void comp_select_kind(int index);
// The impact-type filter of the activities, by its index in
// impact_type_choices().
void comp_select_impact(int index);
// Shows the record of the list by its index.
void comp_select_item(int index);
// Adds or takes away a measure (or, with `fresh`, a new measure) of the
// operation on show.
void comp_toggle_measure(bool fresh, int index);
// A button: "save", "add", "scopeout", "report" or "xppl"; what it did is
// left in the status line.
void comp_button(Ui& ui, const std::string& button);

struct RvcDialog {
  std::vector<ListItem> rvcs;
  int selected = -1;
  RvcRecord record;
  std::string status;  // the status line: what the last button did
};

RvcDialog& rvc_dialog();

// The manager opens on the RVC it showed last, or the first.
void rvcman_load();
// Shows an RVC (with its children) by its ID, the list read again.
void rvcman_show(int64_t id);
// Shows the RVC of the list by its index.
void rvcman_select(int index);
// A field of the RVC on show, as typed.
inline void rvcman_set_field(const std::string& field, const std::string& value) {
  rvc_dialog().record.fields[field] = value;
}
// A button: "save", "add" or "getmf"; what it did is left in the status line.
void rvcman_button(Ui& ui, const std::string& button);

}  // namespace arven

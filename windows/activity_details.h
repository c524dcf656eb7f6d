#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/lookups.h"
#include "core/ui.h"
#include "prep/activity_delta.h"

namespace arven {

// "Operation Activity Details": the details of an operation or a baseline,
// activity by activity or class by class, and the delta of an operation
// against one of its baselines. Every command works on the dialog's state
// and the operations master; a refused edit or a store failure throws, and
// the view tells it.

inline constexpr const char* kDetailsTitle = "Operation Activity Details";

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

DetailsDialog& details_dialog();

// The operation chosen in the list, and the baseline of its delta; -1 for none.
int64_t details_operation();
int64_t details_baseline();

// The dialog opens: the baselines and RVCs are read, and the search shown
// again.
void details_load();
// The operations whose names hold the text; the first is chosen.
void details_search(const std::string& text);
// Chooses an operation by its index in the list: its baselines, details and
// delta are read.
void details_select_operation(int index);
// Chooses the baseline of the delta.
void details_select_baseline(int index);
// Whose details the grid shows: 0 the operation's, n the n-th baseline's.
void details_select_edit(int index);
// The RVC of a class-by-class entry.
void details_select_rvc(int index);
// A click in the details grid (or, with `classes`, the classes grid): an
// edit of the value column, or a click on an activity's name, which opens
// its classes.
void details_grid_click(bool classes, int row, int col, bool edit, const std::string& value);
// A click on a delta row: the classes of a class-by-class activity.
void details_delta_click(int row);
// Opens the class-by-class entry of the details row.
void details_open_classes(int row);
// A button: "save", "calc", "delete", "calcall", "copy", "paste",
// "export", "newclasses", "saveclasses" or "back"; what it did is left in
// the status line.
void details_button(Ui& ui, const std::string& button);

}  // namespace arven

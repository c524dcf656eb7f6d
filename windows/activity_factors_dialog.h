#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/lookups.h"
#include "core/ui.h"
#include "prep/activity_factors.h"

namespace arven {

// "Activity Factors": the factors of an activity by kind (GHG, carbon
// sequestration, ecosystem services, yield), class by class of an RVC or
// row by row, with the conveniences that fill the table before a save.
// A refused edit or a store failure throws, and the view tells it.

inline constexpr const char* kFactorsTitle = "Activity Factors";

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

FactorsDialog& factors_dialog();

// The activity chosen in the list; -1 for none.
int64_t factors_activity();
// The name of the kind on show.
std::string factors_kind_text();

// The dialog opens: the RVCs are read and the activities of the kind listed.
void factors_load();
// The activities whose names hold the text; none is chosen.
void factors_search(const std::string& text);
// The factor kind by its index in factor_kind_texts().
void factors_select_kind(int index);
// Chooses an activity by its index in the list and reads its factors.
void factors_select_activity(int index);
// The RVC of class-by-class factors.
void factors_select_rvc(int index);
// An edit of a cell of the table (row 1 the first row of figures).
void factors_edit_cell(int row, int col, const std::string& value);
// A button: "save", "classes", "addrow", "rowcopy" and "colcopy" (on the
// cell at row, col), "excel" or "manure"; what it did is left in the
// status line.
void factors_button(Ui& ui, const std::string& button, int row = -1, int col = -1);

}  // namespace arven

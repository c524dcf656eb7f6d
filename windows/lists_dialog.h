#pragma once

#include <string>
#include <vector>

#include "core/grid_table.h"

namespace arven {

// "Operation Lists and Practicality": the hand-kept lists of the operations
// master and the tables of the rationalised operations store, each edited
// as a grid and saved in one step after every row is checked. A refused
// save or a store failure throws, and the view tells it.

inline constexpr const char* kListsTitle = "Operation Lists and Practicality";

struct ListsDialog {
  int table = 0;
  GridTable rows;
  std::string status;
};

ListsDialog& lists_dialog();

// The tables the window edits, and the one on show.
const std::vector<std::string>& lists_tables();
const std::string& lists_table_name();

// Reads the stored rows of the table on show.
void lists_load();
// Shows a table by its index in lists_tables().
void lists_select(int index);
// An edit of a cell (row 1 the first row).
void lists_edit_cell(int row, int col, const std::string& value);
// "save", "addrow", "delrow" (the row, 1 the first) or "reload"; what it
// did is left in the status line.
void lists_button(const std::string& button, int row = -1);

}  // namespace arven

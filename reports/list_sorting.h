#pragma once

#include <string>

#include "core/grid_table.h"

namespace arven {

// The sorting of the explorer's list tables.

// Sorts the data rows of a grid on a numeric column through an insertion
// into a scratch table: direction 1 descending, 2 ascending. Rows that tie
// come out in reverse of their order before the sort. A cell that is no
// number stops the sort with NumberError and leaves the grid as it was.
void grid_sort_hub(GridTable& grid, int column, int direction);
// Applies a sort state 1..10 to a grid: 1 and 2 sort the names (column 1)
// A to Z and Z to A, 3..10 the numeric columns 2..5 up and down. States
// above `last_state` do nothing.
void grid_state_sort(GridTable& grid, int state, int last_state);
void grid3_sort(int state);
void grid4_sort(int state);
void grid5_sort(int state);
void grid12_sort(int state);
void reggrid1_sort(int state);

// Fills the four lists of chosen operations and sorts each by its stored
// state.
void load_sorted_lists();

// Reads the sort state of a sort target ("sort.7s5"): its grid number and
// state; false when the target is no sort command.
bool parse_sort_target(const std::string& target, int& grid, int& state);

}  // namespace arven

#pragma once

#include <cstdint>
#include <string>

#include "core/grid_table.h"
#include "core/ui.h"
#include "engine/impact_cache.h"

namespace arven {

// The explorer window's logic: its page commands, tab strips, toolbar and
// tree clicks, and the sorting of its list tables.

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

// Everything a page in the explorer links to. True when the target was a
// command (the navigation is cancelled), false when it is a page to show.
bool dispatch_navigation(Ui& ui, const std::string& target);

// The tab strip above the trees (1 the catalogue, 2 the chosen operations)
// and the one below the chosen tree (1 ranked ... 5 operation report).
void tab1_click(Ui& ui, int tab);
void tab2_click(Ui& ui, int tab);
// The cost-curve buttons work on the chosen tab when operations are chosen.
bool mac_curves_enabled();
// The toolbar: "New", "Open", "Print", "ReCalc", "Home", the cost-curve
// buttons "maccghg" (the options panel) and "maccadapt", and the panel's
// "CreateGHG" and "CreateAdapt".
void toolbar_click(Ui& ui, const std::string& key);
// A click on a node of a tree (chosen = the chosen tree); ignored while an
// operation is being added.
void tree_node_click(Ui& ui, bool chosen, int index);
// A double click: chooses the operation of a catalogue node.
void tree_node_double_click(Ui& ui, int index);
// The grouping of a tree changed.
void tree_view_click(Ui& ui, bool chosen, int view);
// Opens the explorer's state on the catalogue (and the chosen tab when a
// file is open).
void explorer_load(Ui& ui);
// The explorer may close: false, with the message, while work is running.
bool explorer_query_close(Ui& ui);
// The hooks through which recalculation refreshes the explorer's lists.
ImpactCacheHooks explorer_cache_hooks();

}  // namespace arven

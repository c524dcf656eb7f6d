#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/grid_table.h"
#include "core/ui.h"
#include "engine/impact_cache.h"
#include "reports/list_sorting.h"

namespace arven {

// The explorer window's logic: its page commands, tab strips, toolbar and
// tree clicks (the sorting of its list tables is reports/list_sorting.h).

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
// The stale-cache check of the list of chosen operations: when the region
// changed, or the carbon setting differs from the recorded one, writes
// "summary.htm" asking to recalculate (links data_update.yes and
// data_update.xno), shows it in the explorer and returns true; the caller
// then stops. False when the cache is current (or cannot be read: shown).
bool show_stale_cache_page(Ui& ui);

// The wait page in the explorer while operations are calculated.
void explorer_wait_page(Ui& ui, std::string_view heading);
// The hooks through which recalculation refreshes the explorer's lists.
ImpactCacheHooks explorer_cache_hooks();

}  // namespace arven

#pragma once

#include <cstdint>
#include <exception>

#include "core/ui.h"

namespace arven::explorer_detail {

// What the explorer's page commands (windows/explorer.cpp) and its tabs,
// toolbar and trees (windows/explorer_tabs.cpp) share.

// True when an assessment file is open.
bool file_open();
// Shows a failure that the command could not get past.
void report_failure(Ui& ui, const std::exception& e);
// The report of one operation: a general page without a region, the stored
// figures of a chosen operation, or a live calculation of another.
void show_operation_report(Ui& ui, int64_t id);
// Rebuilds the lists of chosen operations.
void rebuild_lists(Ui& ui);
// Selects the first operation of the chosen tree and shows it.
void select_first_chosen(Ui& ui);
// Shows the page of the list tab on show (ranked ... production).
void refresh_lists_page(Ui& ui);
// Selects the operation with this ID in the tree on show (its group
// opened) and shows its report.
void go_to_operation(Ui& ui, int64_t id);

}  // namespace arven::explorer_detail

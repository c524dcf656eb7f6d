#pragma once

#include <string>
#include <string_view>

#include "core/ui.h"

namespace arven {

// The chosen operations rolled up to the RDP measures (post-2013) they
// belong to: AgGrid1, its ranked form AgGrid1_Ranked, and the measure tables
// of the cost curves (MACCGrid2_M, MACCGrid2_A) of the explorer window;
// pages aggregate1.htm and aggregate_ranked1.htm.
//
// The tables hold measure names as plain text; the pages escape them.

// Fills the four tables from the open assessment file and the country
// store, writes both pages and shows aggregate1.htm in the explorer. A
// failure is shown to the user and leaves the tables with their heads only.
void aggregate_new_measure(Ui& ui);
void aggregate_new_measure_ranked();
void aglist_html();
void aglist_ranked_html();

// The running data quality of a measure while it is aggregated, the text
// "sum/count" (an empty cell counts as "0/0"; both parts read as single
// precision): the text with `value` added to the sum and 1 to the count.
std::string quality_accumulate(std::string_view cell, double value);
// sum ÷ count of such a text when count is above 1; otherwise 0, so a
// single entry yields 0.
double quality_mean(std::string_view cell);

}  // namespace arven

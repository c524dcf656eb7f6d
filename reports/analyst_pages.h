#pragma once

#include <cstdint>

#include "core/grid_table.h"
#include "core/ui.h"
#include "reports/mac_curves.h"
#include "stores/db.h"

namespace arven {

// Pages an analyst opens beside the explorer's lists, each a page and an
// export of its own, so that the list pages stay as they are: the totals of
// the chosen operations, and the working behind one operation's figures.

// The totals of the chosen operations of `file`, one row per time horizon
// (1 ... 250 years) under the heads "Time horizon (years)",
// "GHG (tCO2e) (total)", "Production (€) (total)" and "Cost (€) (total)".
// GHG and production add up the stored operation totals (impact types 1 and
// 4) at that horizon; the cost adds up operation_cost over that horizon's
// years, with the basis and source of `options`. Throws CostAreaFailed,
// StoreError or NumberError.
GridTable portfolio_totals(Ui& ui, const Db& file, CostOptions options);

// Writes "totals.htm" (the totals, the line on land shared by operations,
// and a link to each operation's working) and shows it in the explorer. A
// failure is shown to the user.
void portfolio_totals_html(Ui& ui);

// Everything that goes into an operation's figures, read from the country
// store `store` and the assessment file `file`, under the heads "Section",
// "Activity ID", "Activity", "RVC ID", "RVC class", "Quantity", "Value",
// "Data Quality", "References". Sections in this order: "Delta" (the
// operation's activity deltas by baseline), "Factor" (the emission, impact
// and yield factors of those activities), "Class share" (each RVC class's
// share of the file's regions, by area, for the RVCs of the deltas and
// factors) and "Result" (the figures the file keeps for each activity).
// References are their ids with the short text of each. Names are plain
// text. Throws StoreError.
GridTable figure_working(const Db& file, const Db& store, int64_t operation_id);

// Writes "working_figures.htm" for an operation of the file and shows it in
// the explorer; an operation that is not in the file shows nothing.
void figure_working_html(Ui& ui, int64_t operation_id);

}  // namespace arven

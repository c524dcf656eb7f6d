#pragma once

#include <cstdint>

#include "core/ui.h"
#include "engine/explorer_state.h"
#include "engine/regional_impact.h"

namespace arven {

// One figure per time horizon for an operation: the sums over its activities,
// in total and per hectare of op_total_area, in its figures'
// ghg_summary_table and production_summary_table (row 0 the horizons 1 to
// 250 in columns 1 to 7, row 1 the totals, row 2 the per-hectare figures).

// Sets both summary tables to their heads ("tCO2e (total)" and "tCO2e/ha";
// "Total" and "per ha") with empty figures.
void reset_summary_tables(OperationFigures& figures);

// The whole step for one operation: the regional calculation, then both
// sums. On a failure (shown to the user) nothing changes and the status is
// failed.
ImpactStatus operation_impact(Ui& ui, int64_t operation_id, OperationFigures& figures);

// ghg_activity_table to ghg_summary_table: the sum of each horizon's totals
// (carbon sequestration rows left out when session().cseq_included is 0),
// rounded to whole tCO2e, and that unrounded sum over op_total_area to three
// decimals ("0" for a zero area or sum). Then sorts the activity table on its
// name. Sets the summary table up first if it has no heads.
void operation_impact_sum_data(OperationFigures& figures);

// production_activity_table to production_summary_table, as
// operation_impact_sum_data but with no row left out and the per-hectare
// figure rounded to whole units; both differences are intended.
void operation_impact_sum_data_yield(OperationFigures& figures);

}  // namespace arven

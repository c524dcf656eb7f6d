#include "engine/impact_summaries.h"

#include "base/numbers.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_context.h"

namespace arven {

namespace {

// Sums column 2h+1 of the activity table into the summary for h = 1..7.
// `per_ha_places` rounds the per-hectare row; `skip_cseq` leaves out rows
// whose CSeq column is above 0.
void sum_horizons(GridTable& activities, GridTable& summary, double total_area, int per_ha_places,
                  bool skip_cseq) {
  for (int h = 1; h <= 7; ++h) {
    double sum = 0;
    for (int r = 1; r < activities.rows(); ++r) {
      if (skip_cseq && cell_to_number(activities.cell(r, 16)) > 0) continue;
      sum += cell_to_number(activities.cell(r, 2 * h + 1));
    }
    summary.cell(1, h) = number_to_cell(round_half_even(sum, 0));
    summary.cell(2, h) = total_area == 0 || sum == 0
                             ? "0"
                             : number_to_cell(round_half_even(sum / total_area, per_ha_places));
  }
  engine_detail::sort_rows_on(activities, 1);
}

bool has_heads(const GridTable& summary) {
  return summary.rows() >= 3 && summary.cols() >= 8;
}

}  // namespace

void reset_summary_tables(OperationFigures& ex) {
  engine_detail::reset_summary_table(ex.ghg_summary_table, "tCO2e (total)", "tCO2e/ha");
  engine_detail::reset_summary_table(ex.production_summary_table, "Total", "per ha");
}

ImpactStatus operation_impact(Ui& ui, int64_t operation_id, OperationFigures& figures) {
  // The calculation reads no summary, so it runs first: a failure then
  // leaves the summaries of the last operation in place.
  ImpactStatus status = get_impact_data_direct_MT(ui, operation_id, figures);
  if (status == ImpactStatus::failed) return status;
  reset_summary_tables(figures);
  operation_impact_sum_data(figures);
  operation_impact_sum_data_yield(figures);
  return status;
}

void operation_impact_sum_data(OperationFigures& ex) {
  if (!has_heads(ex.ghg_summary_table))
    engine_detail::reset_summary_table(ex.ghg_summary_table, "tCO2e (total)", "tCO2e/ha");
  sum_horizons(ex.ghg_activity_table, ex.ghg_summary_table, ex.op_total_area, 3,
               session().cseq_included == 0);
}

void operation_impact_sum_data_yield(OperationFigures& ex) {
  if (!has_heads(ex.production_summary_table))
    engine_detail::reset_summary_table(ex.production_summary_table, "Total", "per ha");
  sum_horizons(ex.production_activity_table, ex.production_summary_table, ex.op_total_area, 0,
               false);
}

}  // namespace arven

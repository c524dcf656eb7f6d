#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "core/grid_table.h"
#include "core/ui.h"
#include "stores/db.h"

namespace arven {

// Marginal abatement cost curves of the chosen operations or of the
// aggregated measures, for greenhouse gas or adaptation, drawn on rep1.htm
// in the report window. The cost basis and source come from the explorer
// window's options (mac_costs, mac_source).
//
// The curve tables hold names as plain text (the chart scripts escape them).
// The measure hubs draw from a copy of MACCGrid2_M / MACCGrid2_A, so the
// measure tables keep the aggregation's figures and a second curve from the
// same aggregation works. A failure is shown to the user; nothing throws out
// of a hub.

void mac_curve_ghg_hub(Ui& ui);
void mac_curve_ghg_measures_hub(Ui& ui);
void mac_curve_adapt_hub(Ui& ui);
void mac_curve_adapt_measures_hub(Ui& ui);

// ---- the cost of one operation, shared with the aggregation by measure ----

// How costs are taken: `basis` 1 both, 2 single investment only, 3 annual
// area only; `source` 1 the production impact figure, 2 the entered costs;
// `years` the time horizon of the costs (the ranking horizon).
struct CostOptions {
  int basis = 1;
  int source = 2;
  int years = 50;
};
// The options of the explorer window and the session.
CostOptions current_cost_options();

struct OperationCost {
  double total = 0;  // the cost the curve and the measure tables take
  double tea = 0;    // the TEA cost inside `total`; 0 with the production source
};

// The regional area of an operation could not be worked out; the failure has
// already been shown to the user.
class CostAreaFailed : public std::runtime_error {
 public:
  CostAreaFailed() : std::runtime_error("regional area of an operation failed") {}
};

// The cost of an operation of the assessment file `file`. Production source:
// "Regional impact total" of its type-4 row at the options' horizon (0 with
// none). Entered source: from its Operations row (no row, or empty fields,
// count as 0), TEA cost + single cost + years × regional area × annual cost,
// by the basis; the area from get_operation_tot_reg_area, asked only when the
// basis uses it. For adaptation (`adaptation` true) the production figure,
// or each of the three entered costs, is taken with the sign reversed.
// Throws CostAreaFailed, StoreError or NumberError.
OperationCost operation_cost(Ui& ui, const Db& file, int64_t operation_id, bool adaptation,
                             const CostOptions& options);

// ---- the steps of a curve ----

// The divisor of a GHG curve's horizontal axis for a total abatement (a
// negative number): 1 from -1000 up, 10 below -1000, ... 100000000 below
// -10000000000.
int64_t mac_scale(double total);

// Where a curve table keeps its figures: the operations' curve has the unit
// cost in column 3 and its running numbers from column 4; the measure tables
// the unit cost in column 4 and running numbers from column 5. Series points
// begin at column 4 in both.
struct CurveLayout {
  bool adaptation = false;
  int cost_column = 3;
  int first_number_column = 4;
};

// A curve the table could not hold: more than kMaxCurveColumns steps, or
// more than kMaxCurveCells cells in all.
inline constexpr int kMaxCurveColumns = 100000;
inline constexpr int64_t kMaxCurveCells = 4000000;
class CurveTooLarge : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Widens a sorted curve table (value in column 2) for a total abatement and
// fills its steps: row 0 the running numbers, each data row its unit cost
// over the columns of its step and "null" elsewhere; neighbouring steps share
// their border column. `scale` is 1 for adaptation. Throws CurveTooLarge
// (the table unchanged) and NumberError.
void build_curve_steps(GridTable& grid, double total, int64_t scale, const CurveLayout& layout);

}  // namespace arven

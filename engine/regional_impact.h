#pragma once

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "core/grid_table.h"
#include "core/ui.h"
#include "engine/explorer_state.h"

namespace arven {

// The regional calculation: the stored NUTS<k>_OPS rows of each area of the
// region, extended over the seven time horizons, scaled by the operation's
// settings, summed into the explorer's activity tables (engine/explorer_state.h)
// with their per-hectare figures.

// What a command of the impact engine did.
enum class ImpactStatus {
  done,      // finished (an empty region included, which was reported)
  declined,  // the user chose not to go on; nothing changed
  failed,    // a failure was reported to the user; nothing was written
};

// A failure of the calculation caused by its input (a region or operation
// it cannot work with). `title` and what() are the message shown to the user.
class ImpactError : public std::runtime_error {
 public:
  ImpactError(std::string title, const std::string& text)
      : std::runtime_error(text), title_(std::move(title)) {}
  const std::string& title() const { return title_; }

 private:
  std::string title_;
};

// The time horizons in years, h = 1..7.
inline constexpr std::array<int, 7> kHorizonYears = {1, 5, 10, 25, 50, 100, 250};

// The settings of an operation that drive the scaling.
struct ScalingSettings {
  int64_t technique = 0;  // 1 hectare, 2 boundary feature; any other scales nothing
  double st_value = 0;    // technique 1: percent of a 1 ha field; 2: strip width, metres
  double uptake = 0;      // percent of the land that takes the operation up
  int64_t tea_inc = 0;    // 0: without Training, Education and Advice
  double tea_factor = 0;  // percent by which the lack of TEA reduces every value
};

// One NUTS area's land for an operation, as its NUTS<k>_OPS rows give it.
struct AreaGeometry {
  double impact_area = 0;  // hectares to which the stored values apply
  double field_size = 0;   // average field size, hectares
};

// Hectares of the strips of `strip_width` metres along the edge of every field
// of the area, each field a square: (area / field) × ((side − width) × 4) ×
// width / 10000. A strip wider than the side gives a negative area, intended.
// Throws ImpactError when the field size is 0.
double boundary_area(const AreaGeometry& area, double strip_width);

// Hectares of the area that the operation occupies before uptake:
// impact_area × st_value / 100 for technique 1, boundary_area for 2, 0 for any
// other technique. TEA never reduces an area.
double treated_area(const AreaGeometry& area, const ScalingSettings& settings);

// Scales one stored area value to the operation's settings and returns it:
// technique 1 takes st_value percent of it, technique 2 the boundary share
// (boundary_area / impact_area, 0 when impact_area is 0); then uptake percent,
// and without TEA a reduction by tea_factor percent.
//
// `carry` is the working value of the calculation: it receives each result,
// and with any other technique the result is the carried value times uptake
// and TEA, so repeated calls compound. A calculation starts it at 0. The
// carry-over is intended behaviour. Throws ImpactError under technique 2 when
// the field size is 0. Nothing is rounded.
double scale_area_value(double value, const AreaGeometry& area, const ScalingSettings& settings,
                        double& carry);

// The settings of an operation: its row of the assessment file's Operations
// or, when it has none, the CountryStore's Operations row at
// session().ops_db_path with uptake set to session().def_uptake. Nulls read
// as 0. Throws StoreError when neither has a row.
ScalingSettings read_operation_settings(int64_t operation_id);

// The column titles of the result tables, as a calculation leaves them.
void reset_ghg_activity_table(GridTable& table);
void reset_adaptation_activity_table(GridTable& table);
void reset_production_activity_table(GridTable& table);

// Calculates one operation for the region of the open assessment file into
// the explorer state: the three activity tables, op_total_area,
// risk_reduction_sum and the data-quality means, and writes TArea of the
// operation's Operations row when the file has one. Each area's rows come
// from the CountryStore of the country named by the first two letters of its
// NUTS code; session().ops_db_path is left at the store of the last area.
//
// Operation 0 changes nothing. A region without areas shows "No region
// defined" and leaves the tables empty (status done). A region whose country
// store is not installed, a NUTS code of fewer than two letters, a boundary
// feature over an average field size of 0 or a damaged store: the failure is
// shown, the file and the explorer state stay as they were, status failed.
ImpactStatus get_impact_data_direct_MT(Ui& ui, int64_t operation_id, OperationFigures& figures);

// Forgets the country-store rows that calculations keep between commands
// (they stay valid while the store is unchanged); the next calculation
// reads them again, as a first one does.
void forget_kept_store_rows();

// The hectares of the region that an operation would occupy, worked from
// each area's whole land (NUTS AREA of Regions) rather than its impact area:
// uptake first, then st_value percent (technique 1) or the boundary share of
// the area's AV_FS (technique 2, from the area's country store). Reads
// Regions; changes nothing. On a failure (shown to the user) returns failed
// and leaves `total` at 0.
ImpactStatus get_operation_tot_reg_area(Ui& ui, double uptake, int64_t technique, double st_value,
                                        double& total);

}  // namespace arven

#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/grid_table.h"

namespace arven {

// A fault in the master data that ends an impact generation run: a delta
// that is not a number, an RVC without an N factor, an adaptation factor with
// no distribution to visit. The message names the operation and activity.
class ImpactDataError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The `impact_type` values of reg_data.
inline constexpr int kImpactMitigation = 1;
inline constexpr int kImpactAdaptation = 2;
inline constexpr int kImpactYield = 4;

// Everything impact generation reads from the two master stores, loaded once
// per run and never changed afterwards: deltas, activity names and the three
// factor tables from the operations store; RVC_List (with its N factors),
// Baseline_Impact_Look_Up and the class distributions of every NUTS level
// from the RVC store. Rows keep the stores' order. Being read-only, one
// source may be shared by generators on several threads.
class ImpactSource {
 public:
  // Reads both stores; throws StoreError when a store or a table that the
  // calculation needs is missing. A NUTS<k>_RVC_Data_Dist that is missing
  // fails only when a calculation at level k needs it.
  static ImpactSource load(const std::filesystem::path& ops_db,
                           const std::filesystem::path& rvc_db);

  ImpactSource(ImpactSource&&) noexcept;
  ImpactSource& operator=(ImpactSource&&) noexcept;
  ~ImpactSource();

  struct Data;  // the indexed tables, private to the generator
  const Data& data() const { return *data_; }

 private:
  explicit ImpactSource(std::unique_ptr<Data> data);
  std::unique_ptr<Data> data_;
};

// One row of a result table in numbers: the cells as they read back, with
// the texts the table would show. Texts point into the source or into the
// generator and stay valid until its next gen_impact_data.
struct ImpactResult {
  const std::string* activity_text = nullptr;  // the Activity ID cell
  int64_t activity_id = 0;                     // for the activity's name
  float id = 0;                                // the Activity ID cell as a 32-bit float
  double total = 0;                            // the total cell
  double per_ha = 0;                           // the per-hectare cell
  double per_ha_raw = 0;                       // before rounding, when per_ha_text is fixed
  enum class PerHaText { zero, fixed, shortest } per_ha_text = PerHaText::zero;
  int horizon = 0;                            // mitigation: the carbon sequestration cell
  int64_t category = 0;                       // adaptation: the factor's RVC ID
  const std::string* data_quality = nullptr;  // null: an empty cell
  const std::string* refs = nullptr;
};

// The impact calculation of one operation in one NUTS area: fills three
// result tables from the source. One generator per thread; its only state
// between calls is the time horizon, as the run expects.
class ImpactGenerator {
 public:
  // The source must outlive the generator.
  explicit ImpactGenerator(const ImpactSource& source);

  // Clears the three result tables and fills them for the operation in the
  // area of `nuts_level` (0..3; ids finer than the level are unused), whose
  // size is `area_sqkm` km². `corine_class` is the operation's CORINE Class.
  // Mitigation and yield rows come out consolidated by G1_Act_sum and
  // G3_Act_sum; adaptation rows one per delta row and factor row.
  void gen_impact_data(int64_t operation_id, int64_t corine_class, int64_t nuts3_id,
                       int64_t nuts2_id, int64_t nuts1_id, int64_t nuts0_id, double area_sqkm,
                       int nuts_level);

  // Writes the per-hectare, total (and for mitigation the horizon) cells of
  // the last row of the table that `impact_type` selects (1 mitigation,
  // 2 adaptation, 4 yield) for one delta row. `factor_rvc_id` narrows the
  // adaptation factors and is unused otherwise. Cells stay "0" when nothing
  // applies. Throws std::logic_error when that table has no data row.
  void reg_data(int64_t operation_id, int64_t activity_id, int impact_type, double delta,
                int64_t rvc_id, int64_t rvc_class, int64_t corine_class, int64_t factor_rvc_id,
                int64_t nuts3_id, int64_t nuts2_id, int64_t nuts1_id, int64_t nuts0_id,
                double area_sqkm, int nuts_level);

  // Folds the mitigation rows of one activity into its first row, totals
  // summed and the per-hectare figure replaced by the area-weighted mean;
  // rows with a carbon sequestration horizon stay apart. An activity whose
  // rows have a total but all show 0 per hectare cannot be averaged and
  // throws ImpactDataError (the division is not guarded).
  void G1_Act_sum();
  // The same for the yield rows, without rows kept apart.
  void G3_Act_sum();

  // The tables are made from the numeric results by gen_impact_data, or,
  // with set_results_only, on first access after it; edits to them are seen
  // by G1_Act_sum and G3_Act_sum.
  // "Activity ID", "Activity/feature", "Regional impact (tCO2e) / ha",
  // "Regional impact (tCO2e) (total)", "Carbon sequestration", "Data Quality", "Refs".
  GridTable& mitigation_rows();
  // "Activity ID", "Activity/feature", "Impact", "Regional impact / ha",
  // "Regional impact (total)", "Data Quality", "Refs".
  GridTable& adaptation_rows();
  // "Activity ID", "Activity/feature", "Yield impact / ha", "Yield impact (total)",
  // "Data quality", "Refs".
  GridTable& yield_rows();

  // The rows of the last gen_impact_data in numbers, consolidated as the
  // tables are: the fast way to the stored rows. Cells that do not read
  // back as numbers throw NumberError here, as reading the tables would.
  const std::vector<ImpactResult>& mitigation_results() const { return results_[0]; }
  const std::vector<ImpactResult>& adaptation_results() const { return results_[1]; }
  const std::vector<ImpactResult>& yield_results() const { return results_[2]; }

  // Works through text cells, as reg_data and the table steps do, instead
  // of numbers: the slow path that the numeric one must agree with.
  void set_text_cells(bool on) { text_cells_ = on; }
  // Leaves the tables to be made when asked for: for callers that read the
  // results alone.
  void set_results_only(bool on) { results_only_ = on; }
  // True when the last results were read from text cells, whose texts
  // change on the next call.
  bool results_are_text() const { return results_text_; }

  // True when gen_impact_data of the operation leaves the time horizon at
  // the last of the seven horizons: it has a carbon sequestration activity.
  // Otherwise the call leaves the horizon as it found it.
  bool sets_time_horizon(int64_t operation_id) const;

  // Years over which an equilibrium factor accumulates; gen_impact_data steps
  // it through the seven horizons and leaves it at the last one it used.
  int time_horizon() const { return time_horizon_; }
  void set_time_horizon(int years) { time_horizon_ = years; }

 private:
  std::string operation_text() const;
  struct Sums {
    double weighted_total = 0, area_total = 0;
    bool equilibrium = false;
  };
  Sums compute(int64_t operation_id, int64_t activity_id, int impact_type, double delta,
               int64_t rvc_id, int64_t rvc_class, int64_t corine_class, int64_t factor_rvc_id,
               int64_t nuts3_id, int64_t nuts2_id, int64_t nuts1_id, int64_t nuts0_id,
               double area_sqkm, int nuts_level) const;
  bool gen_numeric(int64_t operation_id, int64_t corine_class, int64_t nuts3_id, int64_t nuts2_id,
                   int64_t nuts1_id, int64_t nuts0_id, double area_sqkm, int nuts_level);
  void gen_text(int64_t operation_id, int64_t corine_class, int64_t nuts3_id, int64_t nuts2_id,
                int64_t nuts1_id, int64_t nuts0_id, double area_sqkm, int nuts_level);
  void results_from_tables();
  bool fold_results(std::vector<ImpactResult>& rows, bool keep_horizons);
  void make_tables();

  const ImpactSource::Data& src_;
  std::optional<int64_t> operation_id_;  // of the last gen_impact_data, for messages
  int time_horizon_ = 0;
  GridTable mitigation_rows_;
  GridTable adaptation_rows_;
  GridTable yield_rows_;
  bool tables_stale_ = false;  // the results are newer than the tables
  bool text_cells_ = false;
  bool results_only_ = false;
  bool results_text_ = false;
  std::vector<ImpactResult> results_[3];  // mitigation, adaptation, yield
  std::vector<ImpactResult> fold_work_;
};

}  // namespace arven

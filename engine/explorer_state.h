#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/lookups.h"

namespace arven {

// One row of a per-area working table. The text columns are kept as they
// will show; the figures as numbers, which is what their cells would read
// back as (a cell holds the shortest text of its number).
struct AreaRow {
  std::string activity_id;  // "Activity ID" as stored
  double activity_key = 0;  // its number, for matching
  std::string name;         // activity name, HTML-escaped
  std::string category;     // adaptation: "Impact category" as stored
  double category_key = 0;
  std::array<double, 7> totals{};  // horizon totals; adaptation: [0] the index
  double max = 0;                  // adaptation: "Maximum impact"
  std::string cseq;                // GHG: "CSeq"
  std::string quality;             // "Data Quality"
  std::string refs;                // "Refs"
};
using AreaTable = std::vector<AreaRow>;

// The two shapes of adaptation_activity_table: eight columns after a
// calculation ("Impact category" holds the RVC key, column 4 the regional
// total), six after a load from the assessment file ("Impact category" holds
// the risk statement, column 3 the stored risk reduction). Readers must check.
enum class AdaptationShape { calculated, loaded };

// What a calculation or a load gives for one operation: its result tables,
// the per-area working tables of its last area, and the figures derived
// with them. The engine's procedures fill the figures they are given.
struct OperationFigures {
  // Hectares on which the operation is taken up in the region; the divisor
  // of every per-hectare figure.
  double op_total_area = 0;
  // Reference keys of the last save, each once.
  std::vector<ListItem> ref_list;

  // Result tables (row 0 the titles).
  GridTable ghg_activity_table{19};
  GridTable adaptation_activity_table{8};
  AdaptationShape adaptation_shape = AdaptationShape::calculated;
  GridTable production_activity_table{18};
  // Per-horizon sums: row 0 the horizons, row 1 totals, row 2 per hectare.
  GridTable ghg_summary_table{8};
  GridTable production_summary_table{8};

  // Working tables of one NUTS area, rebuilt for each area.
  AreaTable ghg_area_table;
  AreaTable adaptation_area_table;
  AreaTable production_area_table;

  // Sum of the per-hectare risk reductions of the last calculation or load,
  // or of the risk reduction scores of the last save.
  double risk_reduction_sum = 0;
  // Sum of the adaptation totals (column 4) of the last save.
  double adaptation_total = 0;
  // Average data-quality scores of the rows read, by kind and overall.
  double dq_ghg = 0;
  double dq_adaptation = 0;
  double dq_production = 0;
  double dq_overall = 0;
};

// The explorer's in-memory state: the figures of the operation on show, and
// the flags and lists that guard and steer recalculation.
struct ExplorerState : OperationFigures {
  // Operation of the selected node, 0 for none.
  int64_t current_operation_id = 0;
  // Set while data_update runs; the explorer refuses to close meanwhile.
  bool update_running = false;
  // Set while an operation is being added to the chosen list.
  bool adding_operation = false;
  // Operation IDs awaiting recalculation, each once, in the order added.
  std::vector<int64_t> recalc_list;
};

// The explorer state of the open assessment file. When session().current_file
// differs from the file the state was last used with, the state is first put
// back to its initial values, so nothing carries over from one assessment to
// the next.
ExplorerState& explorer_state();

// Puts the state back to its initial values (a new or reopened assessment).
void reset_explorer_state();

}  // namespace arven

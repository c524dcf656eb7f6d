#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "core/grid_table.h"

namespace arven {

// The data drill-down: every row of a country store that makes the stored
// figures of one operation in one NUTS area. The store holds the copies of
// the master tables that its pre-processing run read, so the rows shown are
// those the figures were made from.

// The country stores to drill into: dbases/prepro/new_arven_operations_<CC>.mdb
// (the pre-processor's) and dbases/new_arven_operations_<CC>.mdb (installed),
// as paths relative to the program folder.
std::vector<std::string> drill_down_stores();

struct DrillDown {
  std::string heading;  // "Operation 3 "NAME" in DK011 "Bornholm" (NUTS3), new_arven..."
  // Titled tables in this order: "NUTS<k>_OPS rows", "Deltas", "Mitigation
  // factors", "Adaptation factors", "Yield factors", "Class distribution of
  // the area", "References".
  std::vector<std::pair<std::string, GridTable>> sections;
};

// The rows of the operation in the area of `level` (0..3) whose NUTS code is
// `nuts_code`, from the store at `store` (relative to the program folder, as
// drill_down_stores gives it). The factor rows are those of the activities
// the operation has deltas on; the class distribution covers the RVCs of the
// deltas and of those factors; the references are those the NUTS rows name.
// Throws EditError for an unknown store, area or operation.
DrillDown drill_down(const std::string& store, int level, const std::string& nuts_code,
                     int64_t operation_id);

}  // namespace arven

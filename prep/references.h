#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "stores/db.h"

namespace arven {

// The References of the operations master and the factor rows that name
// them in their Refs field. Every write checks its values first and runs
// in one transaction that also stamps the operations concerned.

struct ReferenceRow {
  int64_t id = 0;
  std::string short_ref, long_ref, url;
  int uses = 0;  // factor rows naming it
};
// The references whose short or long text or URL holds the text, by ID.
std::vector<ReferenceRow> list_references(const std::string& search);

// The factor rows whose Refs name the reference: "Table", "Row", "Activity",
// "RVC ID", "RVC Class", "Refs" (Row counts a table's rows from 1 in stored
// order).
GridTable reference_uses(int64_t ref_id);

// Saves a reference; `ref_id` 0 adds one under the lowest free ID. The short
// text is required; texts longer than their columns, or not UTF-8, are
// refused with an EditError naming table, row and column. Returns the ID.
int64_t save_reference(int64_t ref_id, const std::string& short_ref, const std::string& long_ref,
                       const std::string& url);
// Deletes a reference that no factor row names; one still named is refused
// with an EditError saying where it is used.
void delete_reference(int64_t ref_id);

// The factor tables' rows of an activity, with their Refs.
struct FactorRefRow {
  std::string table;
  int64_t rowid = 0;
  std::string label;  // "RVC 4, class 2, tCO2e 0.0006"
  std::vector<int64_t> refs;
};
std::vector<FactorRefRow> factor_ref_rows(int64_t activity_id);
// Sets the Refs of one factor row to the references chosen (in the order
// given) and stamps the operations that use the activity; returns how many
// it stamped. A Ref ID without a References row is refused.
int save_factor_refs(const std::string& table, int64_t rowid, const std::vector<int64_t>& refs);

// The operations that use factor rows naming any of the references, through
// the activities' deltas.
std::set<int64_t> operations_naming_refs(const Db& db, const std::set<int64_t>& ref_ids);

}  // namespace arven

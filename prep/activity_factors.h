#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/lookups.h"
#include "prep/activity_delta.h"

namespace arven {

// The factors of an activity, by kind. The kind fixes the table and the
// columns of the editing table. Stores: the operations master
// (session().ops_db_path) for the factors, the RVC master for RVC_List.
enum class FactorKind { ghg, carbon_sequestration, ecosystem_services, yield };

// "GHG Emissions", "Carbon Sequestration", "Ecosystem Services", "Yield".
const std::vector<std::string>& factor_kind_texts();
// The kinds entered class by class (all but ecosystem services).
inline bool factor_kind_by_class(FactorKind k) {
  return k != FactorKind::ecosystem_services;
}

// The RVCs of types 1, 3 and 4, by short name (Combo2).
std::vector<ListItem> get_rvcs();

// Activities whose name holds the text; `has_data` marks those with rows in
// the factor table of the kind.
struct ActivityItem {
  ListItem item;
  bool has_data = false;
};
std::vector<ActivityItem> get_activities(const std::string& search, FactorKind kind);

// The editing table of an activity, from its stored rows; `rvc_id` is set
// to the RVC of the rows (0 without rows).
GridTable get_ghg_details(int64_t activity_id, FactorKind kind, int64_t& rvc_id);
GridTable get_es_details(int64_t activity_id);
GridTable get_yield_details(int64_t activity_id, int64_t& rvc_id);
// An empty editing table of the kind (titles only).
GridTable factor_table(FactorKind kind);
// Command2: one row per class from `RVC min` to `RVC max`, values empty.
GridTable factor_class_rows(FactorKind kind, int64_t rvc_id);

// Replace the activity's rows by the editing table, then mark the operations
// that use it; return how many were marked. Every value is checked first: a
// value that is not a number throws EditError naming its row and column, and
// the old rows stay.
int save_ghg_details(int64_t activity_id, int mitigation_type, int64_t rvc_id,
                     const GridTable& table);
int save_es_details(int64_t activity_id, const GridTable& table);
int save_yield_details(int64_t activity_id, int64_t rvc_id, const GridTable& table);
// Stamps every operation with a delta on the activity; returns how many.
int update_op_update_date(int64_t activity_id);
// The activity's Notes.
std::string display_act_info(int64_t activity_id);

}  // namespace arven

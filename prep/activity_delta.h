#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/lookups.h"
#include "core/ui.h"

namespace arven {

// A save or a calculation that was refused before anything was written: the
// message names the row and the column (or the activity) at fault.
class EditError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The activity details of operations and baselines, and the deltas that
// impact generation reads. Every procedure opens the operations master
// (session().ops_db_path); every write replaces its rows in one transaction.

// The operations whose name holds the text (List1), by name.
std::vector<ListItem> delta_operation_list(const std::string& search);
// The baselines of an operation (List2, from Delta_List); `marked` is set for
// those that have delta rows for the operation.
struct BaselineItem {
  ListItem item;
  bool marked = false;
};
std::vector<BaselineItem> delta_baseline_list(int64_t operation_id);
// Every baseline, for the baseline being edited (Combo1).
std::vector<ListItem> baseline_list();

// The activity table "Activity/feature", "Details", "ID" of an operation or
// a baseline: "0" without rows, "Multi" for a class-by-class activity, else
// the stored Details.
GridTable get_details_new(int64_t operation_id);
GridTable get_baseline_details_new(int64_t baseline_id);

// The class table "RVC Class", "Value" of a class-by-class activity; `rvc_id`
// is set to the RVC of its rows (0 without class rows).
GridTable get_details_multi(int64_t operation_id, int64_t activity_id, int64_t& rvc_id);
GridTable get_baseline_multi(int64_t baseline_id, int64_t activity_id, int64_t& rvc_id);
// A fresh class table: one row per class from `RVC min` to `RVC max`.
GridTable class_rows(int64_t rvc_id);

// Replace the plain rows (RVC ID 0) by the activity table; an empty cell is
// saved as "0". Class rows stay. Every cell must be a number or "Multi".
void save_operation_details(int64_t operation_id, const GridTable& table);
void baseline_save(int64_t baseline_id, const GridTable& table);
// Replace the class rows of one activity by the class table.
void activity_multi_save(int64_t operation_id, int64_t activity_id, int64_t rvc_id,
                         const GridTable& classes);
void baseline_multi_save(int64_t baseline_id, int64_t activity_id, int64_t rvc_id,
                         const GridTable& classes);

// The delta rows of a pair: "Activity/feature", "Change", "ID" (RVC ID 0
// only), and "RVC Class", "Value" of one activity's class rows.
GridTable get_delta(int64_t operation_id, int64_t baseline_id);
GridTable get_delta_multi(int64_t operation_id, int64_t baseline_id, int64_t activity_id);

// Recalculates the delta rows of a pair from the details and stamps the
// operation; returns the number of rows written. Throws EditError, leaving
// the old rows, when an operation row has no baseline counterpart or a value
// is not a number.
int calculate_delta(int64_t operation_id, int64_t baseline_id);
// Command22: deletes the delta rows of a pair.
void delete_delta(int64_t operation_id, int64_t baseline_id);
// Command23: after "Calculate Delta for all operations listed?", the delta
// of every listed operation against its first baseline. Returns the number
// of pairs calculated; a failing pair is reported and the run goes on.
int delta_calc_all(Ui& ui, const std::vector<ListItem>& operations);

// The copy of details from one operation (or baseline) to another, after
// its questions; true when copied.
bool copy_details(Ui& ui, bool baselines, int64_t from_id, const std::string& from_name,
                  int64_t to_id);

// Writes the details of all operations and baselines to
// dbases/baseline_and_operations_details.xlsx; returns its path.
std::string export_details_xlsx();

}  // namespace arven

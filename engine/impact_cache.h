#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "core/ui.h"
#include "engine/regional_impact.h"

namespace arven {

// The impact cache of an assessment file: the explorer's result tables kept
// in `Activity-Impact data` and `Operation-Impact data`, read back instead of
// recalculated, and recalculated when the Version row says they are stale.
// Every command works on session().current_file and never throws: a failure
// is shown to the user and the file keeps its rows.

// Hooks into the explorer's lists and trees. An empty hook does nothing.
struct ImpactCacheHooks {
  // Rebuilds the lists of chosen operations and their page
  // (load_my_operations_data, the four list sorts, my_operation_list_html).
  std::function<void(Ui&)> rebuild_lists;
  // After a recalculation: selects the first chosen operation when that tab
  // is up, else re-selects the catalogue node.
  std::function<void(Ui&)> after_update;
  // The "No" of a stale-data page: selects the first chosen operation and
  // shows its stored figures.
  std::function<void(Ui&)> show_first_operation;
  // Shows a wait page with this heading while the figures are recalculated.
  std::function<void(Ui&, std::string_view heading)> wait;
};

// Where the cache of the open file stands.
enum class CacheState {
  empty,         // no chosen operation
  current,       // figures agree with the region and the settings
  stale_region,  // the region was edited since the last recalculation
  stale_carbon,  // saved under another carbon sequestration setting
};

// Reads the state from Operations and the Version row. A file whose carbon
// setting was never recorded counts as current. Throws StoreError.
CacheState cache_state();

// Replaces the operation's cached rows by its figures' result tables, and
// records session().cseq_included in Version for the whole file. Needs the
// tables of a calculation (get_impact_data_direct_MT) and the GHG summary
// (operation_impact_sum_data) of this operation; sets the figures' ref_list,
// risk_reduction_sum and adaptation_total. One transaction: the operation
// keeps its old rows or gets all the new ones.
ImpactStatus save_impact_data(Ui& ui, int64_t operation_id, OperationFigures& figures);

// Reads the operation's cached rows into the figures' result tables,
// summaries and op_total_area (from TArea when set). The adaptation table
// then has its loaded shape (AdaptationShape::loaded). An operation without
// rows leaves the tables with their titles only and op_total_area as it was.
ImpactStatus load_impact_data(Ui& ui, int64_t operation_id, OperationFigures& figures);

// Recalculates and saves the operations of recalc_list, in list order, or,
// when the list is empty and the user confirms, every chosen operation; then
// clears recalc_list and the file's "Regional data changed". The whole
// recalculation is one transaction: a failure, shown to the user, leaves the
// file as it was and recalc_list as it was. declined when the user said No.
// `confirmed`: the user has already answered yes (the stale-data page), so
// an empty list recalculates everything without asking again.
ImpactStatus data_update(Ui& ui, const ImpactCacheHooks& hooks = {}, bool confirmed = false);

// The links of the stale-data page: "data_update.yes" runs data_update,
// "data_update.xno" shows the first operation with its stale figures (the
// flag stays, so the question returns). False for any other target.
bool data_update_link(Ui& ui, std::string_view target, const ImpactCacheHooks& hooks = {});

}  // namespace arven

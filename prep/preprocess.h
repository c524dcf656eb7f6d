#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/lookups.h"
#include "core/ui.h"
#include "stores/db.h"

namespace arven {

// Which operations a run regenerates in an area.
enum class RunMode {
  by_date,                  // "Update by last updated date"
  add_new,                  // "Add new only"
  add_new_update_selected,  // "Add new and update selected"
  update_existing,          // "Update existing only"
  update_selected,          // "Update selected only"
  all,                      // "Add new and update existing (ALL)"
};

// The texts of the modes, in the order of the dialog's list.
const std::array<std::string, 6>& run_mode_texts();
// The batch name of a mode: by-date, new, new-and-selected, existing,
// selected, all.
std::optional<RunMode> run_mode_by_name(std::string_view name);

// One operation of the run's list (List3), and whether it is selected.
struct RunOperation {
  int64_t id = 0;
  std::string name;
  bool selected = false;
};

// The parameters of the "Data Pre-processor" dialog.
struct RunParams {
  std::vector<int64_t> countries;  // NUTS0_IDs chosen in List0, in list order
  int level = 3;                   // the finest NUTS level generated
  RunMode mode = RunMode::by_date;
  std::vector<RunOperation> operations;  // List3, in order
  bool existing_db = false;              // "Existing DB"
  bool dq_refs = false;                  // "DQ and Refs"
  unsigned threads = 0;                  // generating threads; 0: one per core
};

// What the dialog shows while a run goes on; read from any thread.
struct RunProgress {
  std::string country;  // e.g. "DK - Danmark"
  int country_index = 0, country_count = 0;
  std::string area;  // "3/12. NUTS2: DK01: Hovedstaden"
  int area_index = 0, area_count = 0;
  std::string operation;
  int operation_index = 0, operation_count = 0;
  std::string processed;  // "Number of operations being processed = n"
  int64_t pairs = 0;      // area-operation pairs generated so far
  int64_t rows = 0;       // NUTS<k>_OPS rows written so far
  // Seconds spent generating and writing the areas, and stamping and
  // zipping the stores, over the countries done so far.
  double generate_seconds = 0, publish_seconds = 0;
  bool running = false;
};

// The run's shared state: the halt flag (set from any thread) and the
// progress the dialog reads.
class RunControl {
 public:
  std::atomic<bool> halted{false};
  RunProgress snapshot() const;
  void update(const std::function<void(RunProgress&)>& change);

 private:
  mutable std::mutex mutex_;
  RunProgress progress_;
};

// List0: the NUTS0 rows of the RVC master whose EU-27 is not "N", shown as
// NUTS + " - " + NAME, NUTS0_ID as data.
std::vector<ListItem> prepro_country_list();
// The search of List3: operations whose name holds the text and that have
// at least one delta row, Operation ID as data.
std::vector<ListItem> prepro_operation_search(std::string_view text);
// The counts of NUTS1, NUTS2 and NUTS3 areas of a country.
std::array<int, 3> num_nuts(int64_t nuts0_id);

// True when the master's Last_Updated is later than the store's by
// calendar date, or the store has none; the time of day never counts.
bool needs_update(const std::string& master_last_updated, const std::string& store_last_updated);

// The Last_Updated text of each operation of a store's Operations table.
std::unordered_map<int64_t, std::string> last_updated_by_operation(const Db& db);

// "How many need updating?": selects the operations of `operations` whose
// country store is behind the master; reports the count and the latest
// master date. Returns the count.
int how_many_need_updating(Ui& ui, int64_t nuts0_id, std::vector<RunOperation>& operations);

// The run: for each chosen country, fill its store from the master working
// copies, generate the impact rows of the operations for every area of
// levels 0 to `level`, stamp the version and publish the zip; "Done" or
// "Processing halted" at the end. Uses the working copies in dbases/prepro/
// and restores the session's store paths afterwards, also on failure.
// Returns true when the run went through to its end (halted or not);
// failures are reported through the Ui and give false.
bool process_start2(Ui& ui, const RunParams& params, RunControl& control);

}  // namespace arven

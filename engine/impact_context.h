#pragma once

// Internal to engine/: the connections and lookups that one command of the
// impact engine keeps open while it runs, and the steps that the public
// commands share. Everything here throws; the public commands catch and
// report.

#include <array>
#include <cmath>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/grid_table.h"
#include "core/ui.h"
#include "engine/explorer_state.h"
#include "engine/regional_impact.h"
#include "stores/db.h"

namespace arven::engine_detail {

// One row of NUTS<k>_OPS, the columns the calculation reads.
struct OpsRow {
  int64_t impact_type = 0;
  double cseq_years = 0;
  Value activity_id;
  double impact_value = 0;
  Value impact_category;
  Value impact_max;
  Value data_quality;
  Value refs;
  double field_size = 0;
  double impact_area = 0;
};

// What the committed content of a store file is known by: its file (device
// and inode, so a store renamed into place is told apart), size and
// modification time, and the change counter in its header, which every
// commit moves. None for a file that cannot be read, in WAL mode (whose
// commits leave the counter alone) or with a journal beside it (a write
// under way or interrupted).
struct FileStamp {
  uint64_t device = 0, inode = 0;
  int64_t size = 0;
  int64_t modified_ns = 0;
  uint32_t change_counter = 0;
  bool operator==(const FileStamp&) const = default;
};
std::optional<FileStamp> stamp_of(const std::string& path);

// A CountryStore (or RVC store) opened for the length of a command, with the
// activity and RVC lookups it answered so far. The store is not written
// during a command, so an answer once read stays right.
//
// The area rows it reads are also kept between commands, for the same
// store as long as its stamp is unchanged, up to kKeptAreaRows rows in all
// (areas read after that are read again each time). The stamp is taken
// while the command's read transaction holds the store, so no commit can
// come between it and the rows.
class StoreCache {
 public:
  explicit StoreCache(const std::string& path);
  ~StoreCache();
  StoreCache(const StoreCache&) = delete;
  StoreCache& operator=(const StoreCache&) = delete;
  Db& db() { return db_; }
  // The rows of one area and operation at NUTS level k, in table order.
  std::vector<OpsRow> ops_rows(int level, int64_t area_id, int64_t operation_id);
  // The same rows into `out` (cleared first), reusing its storage.
  void read_ops_rows(int level, int64_t area_id, int64_t operation_id, std::vector<OpsRow>& out);
  // Reads one area's rows of all these operations (sorted, each once) in
  // one query and keeps them for read_ops_rows. Nothing when the store's rows
  // cannot be kept.
  void prefetch_area(int level, int64_t area_id, const std::vector<int64_t>& operations);
  // Whether the rows of the area for all these operations are kept.
  bool all_kept(int level, int64_t area_id, const std::vector<int64_t>& operations);
  // `Activity Name`, HTML-escaped for the grids; throws when there is no row.
  const std::string& activity_name(int64_t activity_id);
  // `Norm_factor` (null is 0); throws when there is no row.
  double norm_factor(int64_t activity_id);
  // `Risk statement` of RVC_List, HTML-escaped; throws when there is no row.
  const std::string& risk_statement(int64_t rvc_id);

 private:
  // Taken before the store is opened; none: nothing is kept for later commands.
  std::optional<FileStamp> stamp_;
  Db db_;
  // The area query of each level, prepared once and rebound per area.
  std::array<std::unique_ptr<Statement>, 4> ops_queries_{};
  std::array<std::unique_ptr<Statement>, 4> area_queries_{};  // prefetch_area's, per level
  std::unordered_map<int64_t, std::string> names_;
  std::unordered_map<int64_t, double> norm_factors_;
  std::unordered_map<int64_t, std::string> statements_;
};

// round_half_even(x, 0) without going through decimal digits: the nearest
// whole number to the binary value, an exact tie to the even one (the
// default rounding mode), and +0 for a zero of either sign.
inline double round_whole(double x) {
  return x == 0 ? 0.0 : std::nearbyint(x);
}

// The most area rows kept between commands, over all stores (some 150 bytes
// each).
inline constexpr size_t kKeptAreaRows = 400000;
// Forgets every kept area row.
void forget_kept_area_rows();

// Running data-quality sums and counts: GHG, adaptation, production, overall.
struct QualityTally {
  enum Kind { ghg = 0, adaptation = 1, production = 2, overall = 3 };
  double sum[4] = {0, 0, 0, 0};
  int count[4] = {0, 0, 0, 0};

  // Takes a row's quality and references into the area row and counts the
  // quality; empty values leave the row's own alone.
  void take(const OpsRow& row, Kind kind, AreaRow& out);
  double mean(Kind kind) const { return count[kind] > 0 ? sum[kind] / count[kind] : sum[kind]; }
};

// The working tables of one NUTS area.
struct AreaTables {
  AreaTable& ghg;
  AreaTable& adaptation;
  AreaTable& production;
};

// The scaling of one area, shared by the regional calculation and the
// breakdown by NUTS3 area: the area's stored rows of an operation become its
// three working tables (cleared first), figures already scaled to the
// operation's settings.
//
// GHG rows without sequestration give one row each with the value over every
// horizon, rounded to whole units; a sequestration row puts its stored total
// into the horizon of its Cseq Years on the activity's first row (CSeq "1").
// Adaptation rows keep their index, production rows their value times the
// activity's Norm_factor over every horizon. The geometry is that of the last
// row. Every total is then scaled with scale_area_value (`carry` is its
// working value, kept by the caller for the whole command). Returns the
// hectares on which the operation is taken up in the area: the treated area
// times uptake. Throws ImpactError for a boundary feature over an average
// field size of 0, naming `area_code`.
double scale_area_rows(const std::vector<OpsRow>& rows, StoreCache& store,
                       const ScalingSettings& settings, int64_t operation_id,
                       const std::string& area_code, double& carry, AreaTables out,
                       QualityTally& quality);

// A row of the assessment file's Regions, in table order.
struct RegionArea {
  int64_t level = 0;
  std::string code;
  int64_t nuts_id = 0;
  double sqkm = 0;
};
std::vector<RegionArea> read_regions(Db& file);
// Throws ImpactError for a region row whose NUTS level is not 0 to 3.
void check_level(const RegionArea& area);

// The stores of one command.
class ImpactContext {
 public:
  // The open assessment file (session().current_file).
  Db& assessment();
  // The store at a path, opened on first use.
  StoreCache& store(const std::string& path);
  // The rowids of an operation's rows in a table of the file, found by one
  // scan of the table on first use; the caller keeps the list up to date
  // with its own writes. Only for a command that holds the file in one
  // transaction, so that no other writer comes between.
  std::vector<int64_t>& operation_rowids(const std::string& table, int64_t operation_id);
  // The file's Regions, read on first use: a command does not change them.
  const std::vector<RegionArea>& regions();
  // A statement on the assessment file, prepared on first use and kept for
  // the command.
  Statement& file_statement(const std::string& sql);

  // Set while a recalculation holds the assessment file in one transaction:
  // the steps then write inside it and open none of their own.
  bool in_transaction = false;
  // The empty-region message is shown once per command.
  bool no_region_reported = false;

 private:
  std::optional<Db> assessment_;
  std::optional<std::vector<RegionArea>> regions_;
  std::map<std::string, std::unordered_map<int64_t, std::vector<int64_t>>> rowids_;
  std::map<std::string, std::unique_ptr<StoreCache>> stores_;
  // Declared after the file: its statements are finalized before it closes.
  std::map<std::string, Statement> file_statements_;
};

// The path of the CountryStore for a NUTS code; throws ImpactError for a code
// of fewer than two letters or a country whose store is not installed.
std::string country_store_for(const std::string& nuts_code);

// read_operation_settings on the command's stores.
ScalingSettings read_settings(ImpactContext& ctx, int64_t operation_id, bool* in_file);

// Reads the rows of every area of the region for all these operations, an
// area at a time, so that calculating them one by one finds them read; on
// more than one core, half of the areas are read by a second thread. Rows
// are kept only as far as there is room for them. Failures are left to the
// calculation, which meets them again.
void prefetch_region_rows(ImpactContext& ctx, std::vector<int64_t> operations);

// get_impact_data_direct_MT's work; throws on any failure, before it has
// changed the figures or the file.
void calculate_impact(ImpactContext& ctx, Ui& ui, int64_t operation_id, OperationFigures& figures);

// save_impact_data's work, in one transaction of its own unless the context
// holds one.
void save_impact(ImpactContext& ctx, int64_t operation_id, OperationFigures& figures);

// Shows a failure of a command to the user. A file that could not be written
// (a full disk, a read-only folder, a file in use) is told in those words,
// and only once while a OneWriteFailureMessage stands.
void report_failure(Ui& ui, const std::exception& e);

// Marks a command that writes many times (a recalculation, Select All): a
// disk that cannot take one write fails the next ones too, so while one of
// these stands report_failure tells only the first such failure, and the
// command asks told() to stop there.
class OneWriteFailureMessage {
 public:
  OneWriteFailureMessage();
  ~OneWriteFailureMessage();
  OneWriteFailureMessage(const OneWriteFailureMessage&) = delete;
  OneWriteFailureMessage& operator=(const OneWriteFailureMessage&) = delete;
  // Whether a write failure has been told during the command.
  bool told() const;
};

// Stable sort of the data rows on a column: numbers as numbers, other text
// without regard to case, numbers before text.
void sort_rows_on(GridTable& table, int column);

// Sets a summary table to its three rows: the horizons in row 0, the two
// row heads in column 0, the figures empty.
void reset_summary_table(GridTable& table, const char* total_head, const char* per_ha_head);

}  // namespace arven::engine_detail

#include "engine/impact_context.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <mutex>
#include <string_view>
#include <variant>

#include "base/html_text.h"
#include "base/numbers.h"
#include "core/registry.h"
#include "core/session.h"
#include "engine/stored_figures.h"

namespace arven::engine_detail {

namespace {

std::string nuts_id_column(int level) {
  return "NUTS" + std::to_string(level) + "_ID";
}

// The first value of the row of `table` whose `key` column is `id`.
Value lookup(Db& db, std::string_view table, std::string_view field, std::string_view key,
             int64_t id) {
  auto rows = db.query("SELECT " + quote_name(field) + " FROM " + quote_name(table) + " WHERE " +
                           quote_name(key) + " = ? LIMIT 1",
                       {Value(id)});
  if (!rows.next())
    db.fail("table " + quote_name(table) + " has no row where " + quote_name(key) + " = " +
            std::to_string(id));
  return rows.get(0);
}

// A field of an area row as kept: a number or nothing. Rows with text in
// these fields are not kept.
using Small = std::variant<std::monostate, int64_t, double>;

bool small_of(const Value& v, Small& out) {
  if (v.is_null())
    out = std::monostate{};
  else if (v.is_int())
    out = std::get<int64_t>(v.raw());
  else if (v.is_real())
    out = std::get<double>(v.raw());
  else
    return false;
  return true;
}

Value value_of(const Small& s) {
  if (std::holds_alternative<int64_t>(s)) return Value(std::get<int64_t>(s));
  if (std::holds_alternative<double>(s)) return Value(std::get<double>(s));
  return Value();
}

struct KeptRow {
  int64_t impact_type = 0;
  double cseq_years = 0, impact_value = 0, field_size = 0, impact_area = 0;
  Small activity_id, impact_category, impact_max, data_quality;
  Value refs;
};

struct AreaKey {
  int level;
  int64_t area_id, operation_id;
  bool operator==(const AreaKey&) const = default;
};
struct AreaKeyHash {
  size_t operator()(const AreaKey& k) const {
    return std::hash<int64_t>()(k.area_id * 1000003 + k.operation_id * 4 + k.level);
  }
};

// The rows kept from one store, read at `stamp`.
struct KeptStore {
  FileStamp stamp;
  std::unordered_map<AreaKey, std::vector<KeptRow>, AreaKeyHash> areas;
};

struct KeptRows {
  std::mutex mutex;
  std::map<std::string, KeptStore> stores;
  size_t rows = 0;  // in all stores
};

KeptRows& kept_rows() {
  static KeptRows kept;
  return kept;
}

// The whole number a stored key equals, as "key = ?" with an integer would
// match it; none for text, null and fractions.
std::optional<int64_t> whole_key(const Rows& rows, int c) {
  return whole_number(rows.get(c));
}

}  // namespace

std::optional<FileStamp> stamp_of(const std::string& path) {
  struct stat st {};
  if (::stat((path + "-journal").c_str(), &st) == 0 || ::stat((path + "-wal").c_str(), &st) == 0)
    return std::nullopt;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  unsigned char head[28];
  const bool ok = ::fstat(fd, &st) == 0 && ::pread(fd, head, sizeof head, 0) == sizeof head;
  ::close(fd);
  if (!ok || head[18] != 1 || head[19] != 1) return std::nullopt;  // not a rollback-journal file
  FileStamp s;
  s.device = static_cast<uint64_t>(st.st_dev);
  s.inode = static_cast<uint64_t>(st.st_ino);
  s.size = static_cast<int64_t>(st.st_size);
  s.modified_ns = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
  s.change_counter = static_cast<uint32_t>(head[24]) << 24 | static_cast<uint32_t>(head[25]) << 16 |
                     static_cast<uint32_t>(head[26]) << 8 | head[27];
  return s;
}

void forget_kept_area_rows() {
  KeptRows& kept = kept_rows();
  std::lock_guard lock(kept.mutex);
  kept.stores.clear();
  kept.rows = 0;
}

StoreCache::StoreCache(const std::string& path)
    : stamp_(stamp_of(path)), db_(Db::open(path, true)) {
  // The store is only read during a command: one read transaction keeps its
  // pages valid from query to query, and mapping it saves copying them.
  db_.exec_script("PRAGMA mmap_size = 1073741824");
  db_.exec_script("BEGIN");
  // The first read takes the store's read lock; from then on no commit can
  // change it until the command ends.
  db_.exec_script("SELECT 1 FROM sqlite_master LIMIT 1");
  // The stamp from before the store was opened: a store renamed into place
  // meanwhile gives another.
  const std::optional<FileStamp> after = stamp_of(path);
  if (!stamp_ || !after || *stamp_ != *after) {
    stamp_.reset();
    return;
  }
  KeptRows& kept = kept_rows();
  std::lock_guard lock(kept.mutex);
  auto it = kept.stores.find(path);
  if (it != kept.stores.end() && it->second.stamp != *stamp_) {
    for (const auto& [key, rows] : it->second.areas) kept.rows -= std::max<size_t>(rows.size(), 1);
    kept.stores.erase(it);
  }
}

StoreCache::~StoreCache() {
  ops_queries_ = {};  // statements go before the read transaction ends
  area_queries_ = {};
  try {
    db_.exec_script("ROLLBACK");
  } catch (const StoreError&) {
  }
}

namespace {

// Keeps the rows of these areas read from the store at `path` at `stamp`,
// as far as there is room.
void store_kept(const std::string& path, const FileStamp& stamp,
                std::vector<std::pair<AreaKey, std::vector<KeptRow>>>& areas) {
  KeptRows& kept = kept_rows();
  std::lock_guard lock(kept.mutex);
  KeptStore& store = kept.stores[path];
  if (store.areas.empty()) store.stamp = stamp;
  // Another command may have kept the store at another stamp meanwhile.
  if (store.stamp != stamp) return;
  for (auto& [key, rows] : areas) {
    // An area without rows counts as one, so that the entries stay bounded too.
    const size_t n = std::max<size_t>(rows.size(), 1);
    if (kept.rows + n > kKeptAreaRows) return;
    if (store.areas.emplace(key, std::move(rows)).second) kept.rows += n;
  }
}

// A row as kept; false when it holds text where a number is kept.
bool kept_row_of(const OpsRow& r, KeptRow& k) {
  if (!small_of(r.activity_id, k.activity_id) || !small_of(r.impact_category, k.impact_category) ||
      !small_of(r.impact_max, k.impact_max) || !small_of(r.data_quality, k.data_quality))
    return false;
  k.impact_type = r.impact_type;
  k.cseq_years = r.cseq_years;
  k.impact_value = r.impact_value;
  k.field_size = r.field_size;
  k.impact_area = r.impact_area;
  k.refs = r.refs;
  return true;
}

// The row a kept row was made from: kept_row_of undone.
void row_of(const KeptRow& k, OpsRow& r) {
  r.impact_type = k.impact_type;
  r.cseq_years = k.cseq_years;
  r.activity_id = value_of(k.activity_id);
  r.impact_value = k.impact_value;
  r.impact_category = value_of(k.impact_category);
  r.impact_max = value_of(k.impact_max);
  r.data_quality = value_of(k.data_quality);
  r.refs = k.refs;
  r.field_size = k.field_size;
  r.impact_area = k.impact_area;
}

// Keeps the rows of one area, unless one of them cannot be kept.
void keep_rows(const std::string& path, const FileStamp& stamp, const AreaKey& key,
               const std::vector<OpsRow>& rows) {
  std::vector<std::pair<AreaKey, std::vector<KeptRow>>> area(1);
  area[0].first = key;
  area[0].second.resize(rows.size());
  for (size_t i = 0; i < rows.size(); ++i)
    if (!kept_row_of(rows[i], area[0].second[i])) return;
  store_kept(path, stamp, area);
}

// The rows kept from the store at `path` read at `stamp`; null when none are.
const KeptStore* kept_store(const KeptRows& kept, const std::string& path, const FileStamp& stamp) {
  auto store = kept.stores.find(path);
  return store != kept.stores.end() && store->second.stamp == stamp ? &store->second : nullptr;
}

// Whether the rows of `area` (its operation aside) are kept for every one of
// these operations, from the store at `path` at `stamp`.
bool kept_all_of(const KeptRows& kept, const std::string& path, const FileStamp& stamp,
                 AreaKey area, const std::vector<int64_t>& operations) {
  const KeptStore* store = kept_store(kept, path, stamp);
  return store && std::all_of(operations.begin(), operations.end(), [&](int64_t op) {
           area.operation_id = op;
           return store->areas.count(area) > 0;
         });
}

// The ten columns of an area row, from column `c` of the query on.
const char* const kAreaColumns =
    "\"Impact Type\", \"Cseq Years\", \"Activity ID\", \"Impact value\", \"Impact Category\", "
    "\"Impact max\", \"Data_Quality\", \"Refs\", \"Average field size\", \"Impact area\"";

void decode_area_row(const Rows& rows, int c, OpsRow& r) {
  r.impact_type = rows.get_int(c);
  r.cseq_years = rows.get_double(c + 1);
  r.activity_id = rows.get(c + 2);
  r.impact_value = rows.get_double(c + 3);
  r.impact_category = rows.get(c + 4);
  r.impact_max = rows.get(c + 5);
  r.data_quality = rows.get(c + 6);
  r.refs = rows.get(c + 7);
  r.field_size = rows.get_double(c + 8);
  r.impact_area = rows.get_double(c + 9);
}

}  // namespace

void StoreCache::prefetch_area(int level, int64_t area_id, const std::vector<int64_t>& operations) {
  if (!stamp_ || operations.empty() || level < 0 || level > 3) return;
  {
    KeptRows& kept = kept_rows();
    std::lock_guard lock(kept.mutex);
    // Nothing to do when every operation's rows of the area are kept, nor
    // when there is no room left to keep them: the calculation reads them.
    if (kept_all_of(kept, db_.path().string(), *stamp_, {level, area_id, 0}, operations) ||
        kept.rows + operations.size() > kKeptAreaRows)
      return;
  }
  auto& st = area_queries_[static_cast<size_t>(level)];
  if (!st) {
    // The index on (NUTS<k>_ID, Operation ID) gives this order without a sort.
    st = std::make_unique<Statement>(db_.prepare_statement(
        std::string("SELECT \"Operation ID\", ") + kAreaColumns + " FROM " +
        quote_name("NUTS" + std::to_string(level) + "_OPS") + " WHERE " +
        quote_name(nuts_id_column(level)) +
        " = ? AND \"Operation ID\" BETWEEN ? AND ? ORDER BY \"Operation ID\", rowid"));
  }
  Rows& rows = st->query({Value(area_id), Value(operations.front()), Value(operations.back())});
  std::vector<std::vector<KeptRow>> found(operations.size());
  std::vector<char> keepable(operations.size(), 1);
  OpsRow row;
  while (rows.next()) {
    // The operation the row belongs to, as "Operation ID" = ? would match it.
    const std::optional<int64_t> op = whole_key(rows, 0);
    if (!op) continue;
    auto it = std::lower_bound(operations.begin(), operations.end(), *op);
    if (it == operations.end() || *it != *op) continue;
    const auto i = static_cast<size_t>(it - operations.begin());
    decode_area_row(rows, 1, row);
    if (keepable[i] && !kept_row_of(row, found[i].emplace_back())) keepable[i] = 0;
  }
  std::vector<std::pair<AreaKey, std::vector<KeptRow>>> keep;
  keep.reserve(operations.size());
  for (size_t i = 0; i < operations.size(); ++i)
    if (keepable[i]) keep.emplace_back(AreaKey{level, area_id, operations[i]}, std::move(found[i]));
  store_kept(db_.path().string(), *stamp_, keep);
}

bool StoreCache::all_kept(int level, int64_t area_id, const std::vector<int64_t>& operations) {
  if (!stamp_) return false;
  KeptRows& kept = kept_rows();
  std::lock_guard lock(kept.mutex);
  return kept_all_of(kept, db_.path().string(), *stamp_, {level, area_id, 0}, operations);
}

std::vector<OpsRow> StoreCache::ops_rows(int level, int64_t area_id, int64_t operation_id) {
  std::vector<OpsRow> out;
  read_ops_rows(level, area_id, operation_id, out);
  return out;
}

void StoreCache::read_ops_rows(int level, int64_t area_id, int64_t operation_id,
                               std::vector<OpsRow>& out) {
  if (level < 0 || level > 3) db_.fail("there is no NUTS level " + std::to_string(level));
  auto& st = ops_queries_[static_cast<size_t>(level)];
  if (!st) {
    // Served by the index on (NUTS<k>_ID, Operation ID), in table order.
    st = std::make_unique<Statement>(db_.prepare_statement(
        std::string("SELECT ") + kAreaColumns + " FROM " +
        quote_name("NUTS" + std::to_string(level) + "_OPS") + " WHERE " +
        quote_name(nuts_id_column(level)) + " = ? AND \"Operation ID\" = ? ORDER BY rowid"));
  }
  out.clear();
  const AreaKey key{level, area_id, operation_id};
  if (stamp_) {
    KeptRows& kept = kept_rows();
    std::lock_guard lock(kept.mutex);
    if (const KeptStore* store = kept_store(kept, db_.path().string(), *stamp_)) {
      auto area = store->areas.find(key);
      if (area != store->areas.end()) {
        for (const KeptRow& k : area->second) row_of(k, out.emplace_back());
        return;
      }
    }
  }
  Rows& rows = st->query({Value(area_id), Value(operation_id)});
  while (rows.next()) decode_area_row(rows, 0, out.emplace_back());
  if (stamp_) keep_rows(db_.path().string(), *stamp_, key, out);
}

const std::string& StoreCache::activity_name(int64_t activity_id) {
  auto it = names_.find(activity_id);
  if (it != names_.end()) return it->second;
  std::string name =
      html_escape(lookup(db_, "Activities", "Activity Name", "Activity ID", activity_id).as_text());
  return names_.emplace(activity_id, std::move(name)).first->second;
}

double StoreCache::norm_factor(int64_t activity_id) {
  auto it = norm_factors_.find(activity_id);
  if (it != norm_factors_.end()) return it->second;
  double f = lookup(db_, "Activities", "Norm_factor", "Activity ID", activity_id).as_double();
  norm_factors_.emplace(activity_id, f);
  return f;
}

const std::string& StoreCache::risk_statement(int64_t rvc_id) {
  auto it = statements_.find(rvc_id);
  if (it != statements_.end()) return it->second;
  std::string text =
      html_escape(lookup(db_, "RVC_List", "Risk statement", "RVC ID", rvc_id).as_text());
  return statements_.emplace(rvc_id, std::move(text)).first->second;
}

Db& ImpactContext::assessment() {
  if (!assessment_) assessment_.emplace(Db::open(session().current_file, true));
  return *assessment_;
}

StoreCache& ImpactContext::store(const std::string& path) {
  auto it = stores_.find(path);
  if (it == stores_.end()) it = stores_.emplace(path, std::make_unique<StoreCache>(path)).first;
  return *it->second;
}

std::vector<int64_t>& ImpactContext::operation_rowids(const std::string& table,
                                                      int64_t operation_id) {
  auto it = rowids_.find(table);
  if (it == rowids_.end()) {
    it = rowids_.emplace(table, std::unordered_map<int64_t, std::vector<int64_t>>()).first;
    auto rows = assessment().query("SELECT rowid, \"Operation ID\" FROM " + quote_name(table) +
                                   " ORDER BY rowid");
    // The rows "Operation ID" = ? finds for a whole number.
    while (rows.next())
      if (const std::optional<int64_t> id = whole_key(rows, 1))
        it->second[*id].push_back(rows.get_int(0));
  }
  return it->second[operation_id];
}

const std::vector<RegionArea>& ImpactContext::regions() {
  if (!regions_) regions_ = read_regions(assessment());
  return *regions_;
}

Statement& ImpactContext::file_statement(const std::string& sql) {
  auto it = file_statements_.find(sql);
  if (it == file_statements_.end())
    it = file_statements_.emplace(sql, assessment().prepare_statement(sql)).first;
  return it->second;
}

std::string country_store_for(const std::string& nuts_code) {
  if (nuts_code.size() < 2)
    throw ImpactError("Invalid region",
                      "The region holds an area with the NUTS code \"" + nuts_code +
                          "\", which names no country, so cannot calculate regional impact. "
                          "Please edit the regional profile.");
  const std::string code = nuts_code.substr(0, 2);
  const Session& s = session();
  int index = country_index_by_code(code);
  if (index < 1 || index > kCountryCount || !s.country_installed[static_cast<size_t>(index)])
    throw ImpactError("Country data not installed",
                      "The data for the country " + code + " of the area " + nuts_code +
                          " are not installed, so cannot calculate regional impact. "
                          "Please install them from the update tab of the settings.");
  const std::string& path = s.country_db_path[static_cast<size_t>(index)];
  return path.empty() ? country_store_path(s.app_folder, code).string() : path;
}

namespace {

struct WriteFailureMessages {
  int commands = 0;  // OneWriteFailureMessage objects standing
  bool told = false;
};

WriteFailureMessages& write_failure_messages() {
  static WriteFailureMessages m;
  return m;
}

}  // namespace

OneWriteFailureMessage::OneWriteFailureMessage() {
  if (write_failure_messages().commands++ == 0) write_failure_messages().told = false;
}

OneWriteFailureMessage::~OneWriteFailureMessage() {
  if (--write_failure_messages().commands == 0) write_failure_messages().told = false;
}

bool OneWriteFailureMessage::told() const {
  return write_failure_messages().told;
}

void report_failure(Ui& ui, const std::exception& e) {
  WriteFailureMessages& messages = write_failure_messages();
  if (write_fault_of(e)) {
    if (messages.commands > 0 && messages.told) return;
    messages.told = messages.commands > 0;
    ui.message_box(e.what(), kFileWriteTitle, MsgButtons::Ok, MsgIcon::Stop);
    return;
  }
  std::string title = "ARVEN Software Error";
  if (auto* impact = dynamic_cast<const ImpactError*>(&e))
    title = impact->title();
  else if (dynamic_cast<const StoreError*>(&e))
    title = "Data store error";
  else if (dynamic_cast<const NumberError*>(&e))
    title = "Invalid data";
  ui.message_box(e.what(), title, MsgButtons::Ok, MsgIcon::Stop);
}

void sort_rows_on(GridTable& table, int column) {
  if (table.rows() < 3) return;
  struct Key {
    std::optional<double> number;
    std::string text;
    int row;
  };
  std::vector<Key> keys;
  for (int r = 1; r < table.rows(); ++r) {
    const std::string& cell = table.cell(r, column);
    std::string lower(cell);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    keys.push_back({parse_number(cell), std::move(lower), r});
  }
  std::stable_sort(keys.begin(), keys.end(), [](const Key& a, const Key& b) {
    if (a.number && b.number) return *a.number < *b.number;
    if (a.number || b.number) return a.number.has_value();
    return a.text < b.text;
  });
  GridTable sorted(table.cols());
  sorted.resize(table.rows(), table.cols());
  for (int c = 0; c < table.cols(); ++c) sorted.cell(0, c) = std::move(table.cell(0, c));
  for (int i = 0; i < static_cast<int>(keys.size()); ++i)
    for (int c = 0; c < table.cols(); ++c)
      sorted.cell(i + 1, c) = std::move(table.cell(keys[static_cast<size_t>(i)].row, c));
  table = std::move(sorted);
}

void reset_summary_table(GridTable& table, const char* total_head, const char* per_ha_head) {
  table.clear();
  table.resize(3, 8);
  for (size_t h = 0; h < kHorizonYears.size(); ++h)
    table.cell(0, static_cast<int>(h) + 1) = std::to_string(kHorizonYears[h]);
  table.cell(1, 0) = total_head;
  table.cell(2, 0) = per_ha_head;
}

}  // namespace arven::engine_detail

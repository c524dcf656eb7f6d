#include "engine/impact_context.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "core/numbers.h"
#include "core/registry.h"
#include "core/session.h"
#include "reports/page_kit.h"

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

}  // namespace

StoreCache::StoreCache(const std::string& path) : db_(Db::open(path, true)) {
  // The store is only read during a command: one read transaction keeps its
  // pages valid from query to query, and mapping it saves copying them.
  // Mapped pages are read in place instead of copied for every query.
  db_.exec_script("PRAGMA mmap_size = 1073741824");
  db_.exec_script("BEGIN");
}

StoreCache::~StoreCache() {
  ops_queries_ = {};  // statements go before the read transaction ends
  try {
    db_.exec_script("ROLLBACK");
  } catch (const StoreError&) {
  }
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
        "SELECT \"Impact Type\", \"Cseq Years\", \"Activity ID\", \"Impact value\", "
        "\"Impact Category\", \"Impact max\", \"Data_Quality\", \"Refs\", "
        "\"Average field size\", \"Impact area\" FROM " +
        quote_name("NUTS" + std::to_string(level) + "_OPS") + " WHERE " +
        quote_name(nuts_id_column(level)) + " = ? AND \"Operation ID\" = ? ORDER BY rowid"));
  }
  Rows& rows = st->query({Value(area_id), Value(operation_id)});
  out.clear();
  while (rows.next()) {
    OpsRow& r = out.emplace_back();
    r.impact_type = rows.get_int(0);
    r.cseq_years = rows.get_double(1);
    r.activity_id = rows.get(2);
    r.impact_value = rows.get_double(3);
    r.impact_category = rows.get(4);
    r.impact_max = rows.get(5);
    r.data_quality = rows.get(6);
    r.refs = rows.get(7);
    r.field_size = rows.get_double(8);
    r.impact_area = rows.get_double(9);
  }
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

void report_failure(Ui& ui, const std::exception& e) {
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

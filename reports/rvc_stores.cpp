#include "reports/rvc_stores.h"

#include <algorithm>
#include <charconv>

#include "core/lookups.h"
#include "core/registry.h"
#include "core/session.h"

namespace arven {

namespace {

int64_t whole_number(std::string_view text) {
  int64_t v = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  return ec == std::errc() && end == text.data() + text.size() ? v : 0;
}

std::string text_of(const Rows& rows, std::string_view column) {
  return rows.has_column(column) ? rows.get(column).as_text() : std::string();
}

RvcInfo rvc_of_row(const Rows& rows) {
  RvcInfo r;
  r.id = rows.get("RVC ID").as_int();
  r.letter = text_of(rows, "RVC Short Letter ID");
  r.short_name = text_of(rows, "RVC Short Name");
  r.long_name = text_of(rows, "RVC Long Name");
  r.risk = text_of(rows, "Risk statement");
  r.impact = text_of(rows, "Impact Type");
  r.euro_min = rows.get("Euro min").as_double();
  r.euro_max = rows.get("Euro max").as_double();
  r.exclude_class_zero = rows.get("Hotspots Exclude Class Zero").as_double() == 1;
  return r;
}

}  // namespace

RvcKey parse_rvc_key(std::string_view key) {
  auto colon = key.find(':');
  if (colon == std::string_view::npos) {
    int64_t country = whole_number(key);
    return {country, country};
  }
  return {whole_number(key.substr(0, colon)), whole_number(key.substr(colon + 1))};
}

std::string rvc_key_text(int64_t country, int64_t area) {
  return std::to_string(country) + ":" + std::to_string(area);
}

std::vector<RvcInfo> rvcs_of_type(const Db& store, int64_t rvc_type) {
  std::vector<RvcInfo> out;
  auto rows = store.query("SELECT * FROM \"RVC_List\" WHERE \"RVC Type\" = ? ORDER BY rowid",
                          {Value(rvc_type)});
  while (rows.next()) out.push_back(rvc_of_row(rows));
  return out;
}

int64_t country_of_code(std::string_view code) {
  return code.size() < 2 ? 0 : country_index_by_code(code.substr(0, 2));
}

int nuts_level_of_code(std::string_view code) {
  if (code.size() <= 2) return 0;
  return static_cast<int>(std::min<size_t>(code.size() - 2, 3));
}

RvcStores::Open* RvcStores::open(int64_t country) {
  if (auto it = open_.find(country); it != open_.end()) return it->second.get();
  const Session& s = session();
  std::unique_ptr<Open> o;
  if (country >= 1 && country <= kCountryCount &&
      s.country_installed[static_cast<size_t>(country)] != 0 &&
      !s.country_db_path[static_cast<size_t>(country)].empty())
    o.reset(new Open{Db::open(s.country_db_path[static_cast<size_t>(country)]), {}, {}, {}});
  return (open_[country] = std::move(o)).get();
}

Db* RvcStores::store(int64_t country) {
  Open* o = open(country);
  return o ? &o->db : nullptr;
}

std::string RvcStores::path(int64_t country) {
  Db* db = store(country);
  return db ? db->path().string() : std::string();
}

Rows& RvcStores::read(Open& o, const std::string& sql, const std::vector<Value>& params) {
  auto it = o.reads.find(sql);
  if (it == o.reads.end()) it = o.reads.emplace(sql, o.db.prepare_statement(sql)).first;
  return it->second.query(params);
}

NutsArea RvcStores::find_area(int64_t country, int level, bool by_code, const Value& key) {
  NutsArea a;
  if (by_code)
    a.code = key.as_text();
  else
    a.id = key.as_int();
  Open* o = open(country);
  if (!o || level < 0 || level > 3) return a;
  const std::string k = std::to_string(level);
  Rows& rows =
      read(*o,
           "SELECT \"NUTS" + k + "_ID\", \"NAME\", \"NUTS\" FROM \"NUTS" + k + "\" WHERE " +
               quote_name(by_code ? "NUTS" : "NUTS" + k + "_ID") + " = ? ORDER BY rowid LIMIT 1",
           {key});
  if (rows.next()) {
    a.found = true;
    a.id = rows.get(0).as_int();
    a.name = rows.get(1).as_text();
    a.code = rows.get(2).as_text();
  }
  return a;
}

NutsArea RvcStores::area(int64_t country, int level, int64_t id) {
  return find_area(country, level, false, Value(id));
}

NutsArea RvcStores::area_by_code(int64_t country, int level, const std::string& code) {
  return find_area(country, level, true, Value(code));
}

std::vector<int64_t> RvcStores::areas_within(int64_t country, int level, int parent_level,
                                             int64_t parent) {
  std::vector<int64_t> out;
  Open* o = open(country);
  if (!o || level < 1 || level > 3 || parent_level < 0 || parent_level > level) return out;
  const std::string k = std::to_string(level);
  Rows& rows = read(*o,
                    "SELECT \"NUTS" + k + "_ID\" FROM \"NUTS" + k + "\" WHERE \"NUTS" +
                        std::to_string(parent_level) + "_ID\" = ? ORDER BY rowid",
                    {Value(parent)});
  while (rows.next()) out.push_back(rows.get(0).as_int());
  return out;
}

std::optional<RvcInfo> RvcStores::rvc(int64_t country, int64_t rvc_id) {
  Open* o = open(country);
  if (!o) return std::nullopt;
  if (auto it = o->rvcs.find(rvc_id); it != o->rvcs.end()) return it->second;
  std::optional<RvcInfo> info;
  Rows& rows = read(*o, "SELECT * FROM \"RVC_List\" WHERE \"RVC ID\" = ? ORDER BY rowid LIMIT 1",
                    {Value(rvc_id)});
  if (rows.next()) info = rvc_of_row(rows);
  return o->rvcs[rvc_id] = info;
}

std::string RvcStores::colour(int64_t country, int64_t rvc_id, double value) {
  auto info = rvc(country, rvc_id);
  if (!info) return gradient_scale().back();
  try {
    return range_gradient_colour(info->euro_min, info->euro_max, value);
  } catch (const std::domain_error&) {
    store(country)->fail("RVC " + std::to_string(rvc_id) +
                         " has Euro max - Euro min + 1 = 0, so it has no colour scale");
  }
}

std::optional<RvcStores::Data> RvcStores::data(int64_t country, int level, int64_t area,
                                               int64_t rvc_id) {
  Open* o = open(country);
  if (!o || level < 0 || level > 3) return std::nullopt;
  if (const Loaded* l = loaded(*o, level, area, rvc_id)) {
    auto it = l->data.find({area, rvc_id});
    if (it == l->data.end()) return std::nullopt;
    return it->second;
  }
  const std::string k = std::to_string(level);
  Rows& rows =
      read(*o,
           "SELECT \"Average\", \"Min\", \"Max\" FROM \"NUTS" + k + "_RVC_Data\" WHERE \"NUTS" + k +
               "_ID\" = ? AND \"RVC ID\" = ? ORDER BY rowid LIMIT 1",
           {Value(area), Value(rvc_id)});
  if (!rows.next()) return std::nullopt;
  return Data{rows.get(0), rows.get(1), rows.get(2)};
}

std::vector<RvcStores::DistRow> RvcStores::dist(int64_t country, int level, int64_t area,
                                                int64_t rvc_id) {
  std::vector<DistRow> out;
  Open* o = open(country);
  if (!o || level < 0 || level > 3) return out;
  if (const Loaded* l = loaded(*o, level, area, rvc_id)) {
    auto it = l->dist.find({area, rvc_id});
    return it == l->dist.end() ? out : it->second;
  }
  const std::string k = std::to_string(level);
  Rows& rows =
      read(*o,
           "SELECT \"RVC Class\", \"Percent\" FROM \"NUTS" + k + "_RVC_Data_Dist\" WHERE \"NUTS" +
               k + "_ID\" = ? AND \"RVC ID\" = ? ORDER BY rowid",
           {Value(area), Value(rvc_id)});
  while (rows.next()) out.push_back({rows.get(0).as_double(), rows.get(1).as_double()});
  return out;
}

const RvcStores::Loaded* RvcStores::loaded(Open& o, int level, int64_t area, int64_t rvc_id) const {
  auto it = o.loaded.find(level);
  if (it == o.loaded.end() || !it->second.wanted.count({area, rvc_id})) return nullptr;
  return &it->second;
}

void RvcStores::preload(int64_t country, int level, const std::vector<int64_t>& areas,
                        const std::vector<int64_t>& rvc_ids) {
  Open* o = open(country);
  if (!o || level < 0 || level > 3) return;
  Loaded& l = o->loaded[level];
  for (int64_t area : areas)
    for (int64_t rvc_id : rvc_ids) l.wanted.insert({area, rvc_id});
  const std::string k = std::to_string(level);
  // Table order, as the keyed reads give: the first data row of a pair
  // counts, and distribution rows keep their stored order.
  auto data = o->db.query("SELECT \"NUTS" + k +
                          "_ID\", \"RVC ID\", \"Average\", \"Min\", \"Max\" FROM \"NUTS" + k +
                          "_RVC_Data\" ORDER BY rowid");
  while (data.next()) {
    AreaRvc key{data.get(0).as_int(), data.get(1).as_int()};
    if (l.wanted.count(key) && !l.data.count(key))
      l.data.emplace(key, Data{data.get(2), data.get(3), data.get(4)});
  }
  auto dist = o->db.query("SELECT \"NUTS" + k +
                          "_ID\", \"RVC ID\", \"RVC Class\", \"Percent\" FROM \"NUTS" + k +
                          "_RVC_Data_Dist\" ORDER BY rowid");
  while (dist.next()) {
    AreaRvc key{dist.get(0).as_int(), dist.get(1).as_int()};
    if (l.wanted.count(key))
      l.dist[key].push_back({dist.get(2).as_double(), dist.get(3).as_double()});
  }
}

}  // namespace arven

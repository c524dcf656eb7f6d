#include "core/lookups.h"

#include <array>
#include <cmath>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "base/numbers.h"
#include "core/session.h"
#include "stores/db.h"

namespace arven {

namespace {

// One condition `column = value` of a lookup.
struct Key {
  std::string_view column;
  Value value;
};

const std::string& ops_path() {
  return session().ops_db_path;
}
const std::string& rvc_path() {
  return session().rvc_db_path;
}

std::string describe(const Value& v) {
  if (v.is_null()) return "null";
  return v.is_text() ? "\"" + v.as_text() + "\"" : v.as_text();
}

std::string describe(const std::vector<Key>& keys) {
  std::string out;
  for (size_t i = 0; i < keys.size(); ++i)
    out += (i ? " and " : "") + quote_name(keys[i].column) + " = " + describe(keys[i].value);
  return out;
}

// The named fields of the first row of `table` that matches every key.
std::optional<std::vector<Value>> find_row(const Db& db, std::string_view table,
                                           const std::vector<std::string_view>& fields,
                                           const std::vector<Key>& keys) {
  std::string sql = "SELECT ";
  for (size_t i = 0; i < fields.size(); ++i)
    sql += (i ? ", " : "") + quote_name(fields[i]) + " AS " + quote_name(fields[i]);
  sql += " FROM " + quote_name(table) + " WHERE ";
  std::vector<Value> params;
  for (size_t i = 0; i < keys.size(); ++i) {
    sql += (i ? " AND " : "") + quote_name(keys[i].column) + " = ?";
    params.push_back(keys[i].value);
  }
  auto rows = db.query(sql + " LIMIT 1", params);
  if (!rows.next()) return std::nullopt;
  std::vector<Value> out;
  for (auto f : fields) out.push_back(rows.get(f));
  return out;
}

// As find_row, but a missing row fails, naming the table and the key.
std::vector<Value> get_row(const Db& db, std::string_view table,
                           const std::vector<std::string_view>& fields,
                           const std::vector<Key>& keys) {
  auto row = find_row(db, table, fields, keys);
  if (!row) db.fail("table " + quote_name(table) + " has no row where " + describe(keys));
  return *row;
}

// One field of the row of `table` whose `key_column` is `key`, from the store at `path`.
Value get_field(const std::string& path, std::string_view table, std::string_view field,
                std::string_view key_column, Value key) {
  Db db = Db::open(path);
  return get_row(db, table, {field}, {{key_column, std::move(key)}})[0];
}

std::string_view pick(const char* what, int selector,
                      std::initializer_list<std::string_view> names) {
  if (selector < 1 || selector > static_cast<int>(names.size()))
    throw std::invalid_argument(std::string(what) + ": selector " + std::to_string(selector) +
                                " is not 1.." + std::to_string(names.size()));
  return names.begin()[selector - 1];
}

std::string level_text(int level) {
  if (level < 0 || level > 3)
    throw std::out_of_range("NUTS level " + std::to_string(level) + " is not 0..3");
  return std::to_string(level);
}
std::string nuts_name(int level) {
  return "NUTS" + level_text(level);
}
std::string nuts_id_column(int level) {
  return "NUTS" + level_text(level) + "_ID";
}

Value nuts_field_by_code(int level, std::string_view code, std::string_view field) {
  return get_field(rvc_path(), nuts_name(level), field, "NUTS", Value(code));
}

// Byte offsets at which the UTF-8 characters of the text start.
std::vector<size_t> char_starts(std::string_view s) {
  std::vector<size_t> out;
  for (size_t i = 0; i < s.size(); ++i)
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) out.push_back(i);
  return out;
}

std::string trim(std::string_view s) {
  auto b = s.find_first_not_of(" \t");
  if (b == std::string_view::npos) return "";
  auto e = s.find_last_not_of(" \t");
  return std::string(s.substr(b, e - b + 1));
}

// Entry 50 first, down to entry 1.
constexpr std::array<const char*, 50> kGradient = {
    "ff00fe", "ff00ee", "ff00de", "ff00ce", "ff00be", "ff00ae", "ff009e", "ff008e", "ff007e",
    "ff006e", "ff005e", "ff004e", "ff003e", "ff002e", "ff001e", "ff000e", "ff0100", "ff1100",
    "ff2100", "ff3100", "ff4100", "ff5100", "ff6100", "ff7100", "ff8100", "ff9100", "ffa100",
    "ffb100", "ffc100", "ffd100", "ffe100", "fff100", "fdff00", "edff00", "ddff00", "cdff00",
    "bdff00", "adff00", "9dff00", "8dff00", "7dff00", "6dff00", "5dff00", "4dff00", "3dff00",
    "2dff00", "1dff00", "0dff00", "00ff03", "00ff13"};

std::string gradient_entry(double steps, double value) {
  double i = round_half_even(steps * value, 0);
  if (std::isnan(i)) throw std::invalid_argument("gradient colour of a value that is not a number");
  if (i > 50) i = 50;
  if (i < 1) i = 1;
  return kGradient[static_cast<size_t>(50 - static_cast<int>(i))];
}

constexpr std::array<const char*, 10> kCorineClasses = {"Not applicable",
                                                        "Cropland",
                                                        "Lowland Grassland",
                                                        "Upland Grassland",
                                                        "Woodland",
                                                        "Lowland Moorland and Heathland",
                                                        "Upland Moorland and Heathland",
                                                        "Scrubland",
                                                        "Dunes",
                                                        "Marshland"};

}  // namespace

// ---- operation lookups ----

std::string local_time_stamp() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  return stamp;
}

void touch_operation(int64_t operation_id) {
  const std::string stamp = local_time_stamp();
  Db db = Db::open(ops_path());
  int changed =
      db.exec("UPDATE " + quote_name("Operations") + " SET " + quote_name("Last_Updated") +
                  " = ? WHERE " + quote_name("Operation ID") + " = ?",
              {Value(stamp), Value(operation_id)});
  if (changed == 0)
    db.fail("table \"Operations\" has no row where \"Operation ID\" = " +
            std::to_string(operation_id));
}

Value operation_name(int64_t operation_id) {
  return get_field(ops_path(), "Operations", "Operation Name", "Operation ID", operation_id);
}

Value operation_field(int64_t operation_id, int selector) {
  auto field = pick("operation_field", selector,
                    {"Operation Name", "Scaling up technique", "ST Value", "Uptake", "TEA_Inc",
                     "TEA_Factor", "TEA_Cost", "CORINE Class"});
  Value v = get_field(ops_path(), "Operations", field, "Operation ID", operation_id);
  if (selector == 1) return v;
  if (selector <= 7) return v.is_empty() ? Value(0) : v;
  if (v.is_empty()) return Value(kCorineClasses[0]);
  std::string name = corine_class_name(v.as_int());
  return name.empty() ? Value() : Value(name);
}

std::string corine_class_name(int64_t corine_class) {
  if (corine_class < 0 || corine_class > 9) return "";
  return kCorineClasses[static_cast<size_t>(corine_class)];
}

Value activity_name(int64_t activity_id) {
  return get_field(ops_path(), "Activities", "Activity name", "Activity ID", activity_id);
}

Value measure_eu_id(int64_t measure_id) {
  return get_field(ops_path(), "Measures", "Measure EU ID", "Measure ID", measure_id);
}

void fill_operations_like(std::vector<ListItem>& list, std::string_view text) {
  Db db = Db::open(ops_path());
  auto rows =
      db.query("SELECT " + quote_name("Operation ID") + ", " + quote_name("Operation Name") +
                   " FROM " + quote_name("Operations") + " WHERE " + quote_name("Operation Name") +
                   R"( LIKE '%' || ? || '%' ESCAPE '\' ORDER BY rowid)",
               {Value(like_escape(text))});
  std::vector<ListItem> out;
  while (rows.next())
    out.push_back({rows.get("Operation Name").as_text(), rows.get("Operation ID").as_int()});
  list = std::move(out);
}

void fill_operation_impacts(int64_t operation_id, std::vector<ListItem>& list) {
  const std::string areas = quote_name("Impact areas");
  const std::string id = quote_name("Impact ID");
  const std::string match = " FROM " + areas + " a WHERE a." + id + " = o." + id;
  Db db = Db::open(ops_path());
  auto rows =
      db.query("SELECT o." + id + " AS " + id + ", (SELECT a." + quote_name("Impact name") + match +
                   " LIMIT 1) AS " + quote_name("Impact name") + ", EXISTS (SELECT 1" + match +
                   ") AS found FROM " + quote_name("Operations_Impacts") + " o WHERE o." +
                   quote_name("Operation ID") + " = ? ORDER BY o.rowid",
               {Value(operation_id)});
  std::vector<ListItem> out;
  while (rows.next()) {
    Value impact = rows.get("Impact ID");
    if (rows.get("found").as_int() == 0)
      db.fail("table \"Impact areas\" has no row where \"Impact ID\" = " + describe(impact));
    out.push_back({rows.get("Impact name").as_text(), impact.as_int()});
  }
  list = std::move(out);
}

void fill_impact_areas(std::vector<ListItem>& list) {
  Db db = Db::open(ops_path());
  auto rows = db.query("SELECT " + quote_name("Impact ID") + ", " + quote_name("Impact name") +
                       " FROM " + quote_name("Impact areas") + " ORDER BY rowid");
  std::vector<ListItem> out;
  while (rows.next())
    out.push_back({rows.get("Impact name").as_text(), rows.get("Impact ID").as_int()});
  list = std::move(out);
}

int64_t first_free_ref_id() {
  // 1 when free, else one above the lowest id whose successor is missing:
  // the same id that trying 1, 2, 3 ... in turn finds.
  const std::string refs = quote_name("References");
  const std::string id = quote_name("Ref ID");
  Db db = Db::open(ops_path());
  auto rows = db.query("SELECT CASE WHEN NOT EXISTS (SELECT 1 FROM " + refs + " WHERE " + id +
                       " = 1) THEN 1 ELSE (SELECT MIN(r." + id + ") + 1 FROM " + refs +
                       " r WHERE r." + id + " >= 1 AND NOT EXISTS (SELECT 1 FROM " + refs +
                       " s WHERE s." + id + " = r." + id + " + 1)) END AS free");
  rows.next();
  return rows.get("free").as_int();
}

Value reference_field(int64_t ref_id, int selector) {
  auto field = pick("reference_field", selector, {"Ref Short", "Ref Long", "URL"});
  return get_field(ops_path(), "References", field, "Ref ID", ref_id);
}

void fill_reference_table(GridTable& table) {
  GridTable out(4);
  out.add_row();
  out.cell(0, 0) = "ID";
  out.cell(0, 1) = "Short ref";
  out.cell(0, 2) = "Long ref";
  out.cell(0, 3) = "URL";
  Db db = Db::open(ops_path());
  auto rows = db.query("SELECT * FROM " + quote_name("References") + " ORDER BY rowid");
  while (rows.next()) {
    int r = out.add_row();
    out.cell(r, 0) = rows.get("Ref ID").as_text();
    out.cell(r, 1) = rows.get("Ref Short").as_text();
    out.cell(r, 2) = rows.get("Ref Long").as_text();
    Value url = rows.get("URL");
    if (!url.is_empty()) out.cell(r, 3) = url.as_text();
  }
  table = std::move(out);
}

// ---- NUTS lookups ----

Value nuts_field(int level, int64_t area_id, int selector) {
  auto field = pick("nuts_field", selector, {"NAME", "NUTS", "SQKM", "AV_FS"});
  return get_field(rvc_path(), nuts_name(level), field, nuts_id_column(level), area_id);
}

Value nuts0_field(int64_t area_id, int selector) {
  return nuts_field(0, area_id, selector);
}
Value nuts3_field(int64_t area_id, int selector) {
  return nuts_field(3, area_id, selector);
}

Value nuts_id_by_code(int level, std::string_view nuts_code) {
  return nuts_field_by_code(level, nuts_code, nuts_id_column(level));
}

Value nuts0_id_by_code(int level, std::string_view nuts_code) {
  return nuts_field_by_code(level, nuts_code, "NUTS0_ID");
}

Value nuts_gis_area(int level, std::string_view nuts_code) {
  return nuts_field_by_code(level, nuts_code, "GIS_AREA");
}

Value nuts0_eu27(int64_t country_id) {
  return get_field(rvc_path(), "NUTS0", "EU-27", "NUTS0_ID", country_id);
}

Value nuts_eu27(int level, std::string_view nuts_code) {
  return nuts_field_by_code(level, nuts_code, "EU-27");
}

// ---- RVC lookups ----

Value rvc_field(int64_t rvc_id, int selector) {
  auto field = pick("rvc_field", selector,
                    {"RVC Short Letter ID", "RVC Short Name", "RVC Long Name", "RVC Type",
                     "Euro max", "Impact Type", "Risk statement"});
  return get_field(rvc_path(), "RVC_List", field, "RVC ID", rvc_id);
}

Value corine_rvc_id(int64_t corine_class) {
  Db db = Db::open(rvc_path());
  return get_row(db, "RVC_List", {"RVC ID"},
                 {{"CORINE Class", Value(corine_class)}, {"RVC Type", Value(5)}})[0];
}

Value corine_child_rvc_id(int64_t rvc_id, int64_t corine_class) {
  if (corine_class == 0) return Value(rvc_id);
  Db db = Db::open(rvc_path());
  auto row = find_row(db, "RVC_List", {"RVC ID"},
                      {{"CORINE Class", Value(corine_class)}, {"RVC Parent", Value(rvc_id)}});
  return row ? (*row)[0] : Value(rvc_id);
}

Value corine_area_percent(int64_t corine_class, int level, int64_t area_id) {
  const std::string id = quote_name("RVC ID");
  const std::string area = quote_name(nuts_id_column(level));
  Db db = Db::open(rvc_path());
  auto rows =
      db.query("SELECT d." + area + " AS found, d." + quote_name("Percent") + " AS " +
                   quote_name("Percent") + " FROM (SELECT " + id + " FROM " +
                   quote_name("RVC_List") + " WHERE " + quote_name("CORINE Class") + " = ? AND " +
                   quote_name("RVC Type") + " = 5 LIMIT 1) l LEFT JOIN " +
                   quote_name(nuts_name(level) + "_RVC_Data_Dist") + " d ON d." + id + " = l." +
                   id + " AND d." + area + " = ? AND d." + quote_name("RVC Class") + " = 1 LIMIT 1",
               {Value(corine_class), Value(area_id)});
  if (!rows.next())
    db.fail("table \"RVC_List\" has no row where \"CORINE Class\" = " +
            std::to_string(corine_class) + " and \"RVC Type\" = 5");
  if (rows.get("found").is_null()) return Value(0);
  return rows.get("Percent");
}

std::string combo_key(int64_t baseline_rvc, int64_t baseline_class, int64_t impact_rvc,
                      int64_t impact_class) {
  Db db = Db::open(rvc_path());
  auto row = find_row(db, "Baseline_Impact_Look_Up", {"Combo RVC", "Combo Class"},
                      {{"Baseline RVC", Value(baseline_rvc)},
                       {"Baseline RVC Class", Value(baseline_class)},
                       {"Impact RVC", Value(impact_rvc)},
                       {"Impact RVC Class", Value(impact_class)}});
  if (!row) return "Null";
  return (*row)[0].as_text() + ":" + (*row)[1].as_text();
}

double max_factor(int64_t rvc_id, double value) {
  if (rvc_id < 0 || rvc_id >= kRvcFactorCount)
    throw std::out_of_range("max_factor: RVC id " + std::to_string(rvc_id) +
                            " has no N factor (ids are 0.." + std::to_string(kRvcFactorCount - 1) +
                            ")");
  Db db = Db::open(rvc_path());
  auto row = get_row(db, "RVC_List", {"Max_factor", "Euro max"}, {{"RVC ID", Value(rvc_id)}});
  return value * row[0].as_double() * row[1].as_double() *
         session().rvc_n_factor[static_cast<size_t>(rvc_id)];
}

// ---- assessment lookup ----

bool has_region() {
  Db db = Db::open(session().current_file);
  return db.query("SELECT 1 FROM " + quote_name("Regions") + " LIMIT 1").next();
}

// ---- text helpers ----

std::string replace_all(std::string_view text, std::string_view find, std::string_view replace) {
  std::string out(text);
  if (find.empty()) return out;
  size_t pos = 0;
  while ((pos = out.find(find, pos)) != std::string::npos) {
    out.replace(pos, find.size(), replace);
    pos += replace.size();
  }
  return out;
}

std::string capitalise_first(std::string text) {
  if (!text.empty() && static_cast<unsigned char>(text[0]) >= 97)
    text[0] = static_cast<char>(static_cast<unsigned char>(text[0]) - 32);
  return text;
}

bool has_decimal_separator(std::string_view text) {
  return text.find(decimal_separator()) != std::string_view::npos;
}

void add_refs_to_list(std::string_view refs, std::vector<ListItem>& list, bool clear) {
  if (clear) list.clear();
  size_t start = 0;
  while (start <= refs.size()) {
    size_t comma = refs.find(',', start);
    if (comma == std::string_view::npos) comma = refs.size();
    std::string key = trim(refs.substr(start, comma - start));
    start = comma + 1;
    if (key.empty()) continue;
    auto number = parse_number(key);
    bool present = false;
    for (const auto& item : list) {
      auto other = parse_number(item.text);
      if (number && other ? *number == *other : key == item.text) {
        present = true;
        break;
      }
    }
    if (!present)
      list.push_back({key, number ? static_cast<int64_t>(round_half_even(*number, 0)) : 0});
  }
}

std::string file_name_of(std::string_view path, int mode) {
  auto slash = path.find_last_of("/\\");
  std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  if (mode != 1) return std::string(name);
  auto starts = char_starts(name);
  if (starts.size() <= 4) return "";
  return std::string(name.substr(0, starts[starts.size() - 4]));
}

std::string shorten_path(std::string_view path) {
  auto starts = char_starts(path);
  if (starts.size() <= 40) return std::string(path);
  return std::string(path.substr(0, starts[3])) + "..." +
         std::string(path.substr(starts[starts.size() - 34]));
}

// ---- decision lookups ----

int rvc_band_colour(int64_t rvc_id, double value) {
  Db db = Db::open(rvc_path());
  auto row = get_row(db, "RVC_List", {"Euro max", "Euro min"}, {{"RVC ID", Value(rvc_id)}});
  double range = row[0].as_double() - row[1].as_double();
  double t1 = 0 + range / 3;  // from 0, not from Euro min: intended
  double t2 = t1 + range / 3;
  if (value > t1 && value <= t2) return 0xC0FFFF;
  if (value <= t1) return 0x0080FF;
  return 0x0000C0;
}

std::string rvc_gradient_colour(int64_t rvc_id, double value) {
  Db db = Db::open(rvc_path());
  auto row = find_row(db, "RVC_List", {"Euro max", "Euro min"}, {{"RVC ID", Value(rvc_id)}});
  if (!row) return kGradient.back();
  try {
    return range_gradient_colour((*row)[1].as_double(), (*row)[0].as_double(), value);
  } catch (const std::domain_error&) {
    db.fail("RVC " + std::to_string(rvc_id) +
            " has Euro max - Euro min + 1 = 0, so it has no colour scale");
  }
}

std::string range_gradient_colour(double euro_min, double euro_max, double value) {
  double span = euro_max - euro_min + 1;
  if (span == 0) throw std::domain_error("an RVC range of Euro max - Euro min + 1 = 0");
  return gradient_entry(50 / span, value);
}

const std::array<const char*, 50>& gradient_scale() {
  return kGradient;
}

std::string percent_gradient_colour(double percent) {
  return gradient_entry(50.0 / 101, percent);
}

bool is_hotspot(int64_t rvc_id, double value, double regional_max) {
  double maximum = regional_max;
  if (session().hotspot_regional == 0)
    maximum = get_field(rvc_path(), "RVC_List", "Euro max", "RVC ID", rvc_id).as_double();
  return hotspot_at(maximum, value);
}

bool hotspot_at(double maximum, double value) {
  if (maximum == 0) return false;
  double third = maximum / 3;
  double two_thirds = 2 * third;
  if (value <= third) return false;
  if (value <= two_thirds) return session().hotspot_sens != 1;
  return true;
}

}  // namespace arven

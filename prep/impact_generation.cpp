#include "prep/impact_generation.h"

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/numbers.h"
#include "core/session.h"
#include "stores/db.h"
#include "stores/value.h"

namespace arven {

namespace {

constexpr int64_t kSharedRvc = 19;  // a factor RVC that takes its RVC from elsewhere
constexpr std::array<int, 7> kHorizons = {1, 5, 10, 25, 50, 100, 250};

const std::array<const char*, 7> kMitigationHeadings = {"Activity ID",
                                                        "Activity/feature",
                                                        "Regional impact (tCO2e) / ha",
                                                        "Regional impact (tCO2e) (total)",
                                                        "Carbon sequestration",
                                                        "Data Quality",
                                                        "Refs"};
const std::array<const char*, 7> kAdaptationHeadings = {"Activity ID",
                                                        "Activity/feature",
                                                        "Impact",
                                                        "Regional impact / ha",
                                                        "Regional impact (total)",
                                                        "Data Quality",
                                                        "Refs"};
const std::array<const char*, 6> kYieldHeadings = {"Activity ID",       "Activity/feature",
                                                   "Yield impact / ha", "Yield impact (total)",
                                                   "Data quality",      "Refs"};

// Store keys are compared as numbers, the way the queries compared them.
struct Key2 {
  double a, b;
  bool operator==(const Key2&) const = default;
};
struct Key4 {
  double a, b, c, d;
  bool operator==(const Key4&) const = default;
};
size_t mix(size_t h, double v) {
  return h ^ (std::hash<double>{}(v) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2));
}
struct Key2Hash {
  size_t operator()(const Key2& k) const { return mix(mix(0, k.a), k.b); }
};
struct Key4Hash {
  size_t operator()(const Key4& k) const { return mix(mix(mix(mix(0, k.a), k.b), k.c), k.d); }
};

template <typename T>
const T* find_in(const std::unordered_map<double, T>& map, double key) {
  auto it = map.find(key);
  return it == map.end() ? nullptr : &it->second;
}

// A cell that is written only when the store's field holds something.
struct OptionalCell {
  bool set = false;
  std::string text;
  static OptionalCell of(const Value& v) {
    return v.is_empty() ? OptionalCell{} : OptionalCell{true, v.as_text()};
  }
};

}  // namespace

struct ImpactSource::Data {
  struct DeltaRow {
    int64_t activity_id = 0;
    std::string activity_text;  // the Activity ID as the result cell shows it
    int64_t rvc_id = 0;
    int64_t rvc_class = 0;
    Value delta;
    int64_t row = 0;  // in Operation_Activity_Delta, for messages
    float id = 0;     // activity_text as a 32-bit float, when id_ok
    bool id_ok = false;
  };
  // A row of any of the three factor tables; `factor` is tCO2e, Impact
  // factor or Yield, and RVC Value is 0 for adaptation, which has none.
  struct FactorRow {
    int64_t rvc_id = 0;
    double rvc_value = 0;
    double mitigation_type = 0;
    double factor = 0;
    bool equilibrium_set = false;
    std::optional<double> equilibrium;  // nullopt: null, no level to stop at
    OptionalCell data_quality;
    OptionalCell refs;
  };
  struct DistRow {
    double rvc_class = 0;
    double percent = 0;
  };
  struct Combo {
    Value rvc, cls;
    int64_t row = 0;  // in Baseline_Impact_Look_Up, for messages
  };
  struct Level {
    bool present = false;
    std::unordered_map<Key2, std::vector<DistRow>, Key2Hash> rows;  // (area, RVC)
  };

  std::filesystem::path ops_path, rvc_path;
  std::unordered_map<double, std::vector<DeltaRow>> deltas;  // by Operation ID
  std::unordered_map<double, std::string> activity_names;
  std::unordered_map<double, std::vector<FactorRow>> mitigation, adaptation, yield;
  std::unordered_map<Key2, double, Key2Hash> corine_children;  // (parent, CORINE class)
  std::unordered_map<double, double> corine_rvcs;              // CORINE class -> RVC Type 5
  std::unordered_map<Key4, Combo, Key4Hash> combos;
  std::array<double, kRvcFactorCount> n_factor{};
  std::array<Level, 4> levels;

  const std::vector<FactorRow>* factors(int impact_type, int64_t activity_id) const {
    double key = static_cast<double>(activity_id);
    switch (impact_type) {
      case kImpactMitigation:
        return find_in(mitigation, key);
      case kImpactAdaptation:
        return find_in(adaptation, key);
      case kImpactYield:
        return find_in(yield, key);
    }
    throw std::invalid_argument("impact type " + std::to_string(impact_type) + " is not 1, 2 or 4");
  }

  const std::string& activity_name(int64_t activity_id) const {
    auto it = activity_names.find(static_cast<double>(activity_id));
    if (it == activity_names.end())
      throw StoreError(ops_path, "table \"Activities\" has no row where \"Activity ID\" = " +
                                     std::to_string(activity_id));
    return it->second;
  }

  double corine_child_rvc_id(double rvc, int64_t corine_class) const {
    if (corine_class == 0) return rvc;
    auto it = corine_children.find({rvc, static_cast<double>(corine_class)});
    return it == corine_children.end() ? rvc : it->second;
  }

  double corine_rvc_id(int64_t corine_class) const {
    auto it = corine_rvcs.find(static_cast<double>(corine_class));
    if (it == corine_rvcs.end())
      throw StoreError(rvc_path, "table \"RVC_List\" has no row where \"CORINE Class\" = " +
                                     std::to_string(corine_class) + " and \"RVC Type\" = 5");
    return it->second;
  }

  const Combo* combo_key(double b_rvc, double b_class, double i_rvc, double i_class) const {
    auto it = combos.find({b_rvc, b_class, i_rvc, i_class});
    return it == combos.end() ? nullptr : &it->second;
  }

  // The distribution rows of one RVC in one area, in store order.
  const std::vector<DistRow>* distribution(int level, double area_id, double rvc) const {
    const Level& l = levels.at(static_cast<size_t>(level));
    if (!l.present)
      throw StoreError(rvc_path,
                       "table \"NUTS" + std::to_string(level) + "_RVC_Data_Dist\" is missing");
    auto it = l.rows.find({area_id, rvc});
    return it == l.rows.end() ? nullptr : &it->second;
  }
};

namespace {

using Data = ImpactSource::Data;

std::string select_sql(std::string_view table, std::initializer_list<std::string_view> columns) {
  std::string sql = "SELECT ";
  bool first = true;
  for (auto c : columns) {
    sql += (first ? "" : ", ") + quote_name(c);
    first = false;
  }
  return sql + " FROM " + quote_name(table) + " ORDER BY rowid";
}

void load_factors(const Db& db, std::string_view table, std::string_view factor_column,
                  bool has_rvc_value, bool mitigation,
                  std::unordered_map<double, std::vector<Data::FactorRow>>& out) {
  db.require_table(table);
  std::string sql = "SELECT " + quote_name("Activity ID") + ", " + quote_name("RVC ID") + ", " +
                    quote_name(factor_column) + ", " + quote_name("Data_Quality") + ", " +
                    quote_name("Refs");
  if (has_rvc_value) sql += ", " + quote_name("RVC Value");
  if (mitigation) sql += ", " + quote_name("Mitigation Type") + ", " + quote_name("Equilibrium");
  auto rows = db.query(sql + " FROM " + quote_name(table) + " ORDER BY rowid");
  rows.each([&](const Rows& rows) {
    Value activity = rows.get(0);
    if (activity.is_null()) return;  // a null key matches no query
    Data::FactorRow f;
    f.rvc_id = rows.get(1).as_int();
    f.factor = rows.get(2).as_double();
    f.data_quality = OptionalCell::of(rows.get(3));
    f.refs = OptionalCell::of(rows.get(4));
    int next = 5;
    if (has_rvc_value) f.rvc_value = rows.get(next++).as_double();
    if (mitigation) {
      f.mitigation_type = rows.get(next++).as_double();
      Value e = rows.get(next++);
      f.equilibrium_set = !e.is_empty();
      if (f.equilibrium_set) f.equilibrium = e.as_double();
    }
    out[activity.as_double()].push_back(std::move(f));
  });
}

void load_ops(Data& d) {
  Db db = Db::open(d.ops_path);
  db.require_table("Operation_Activity_Delta");
  auto rows = db.query(select_sql("Operation_Activity_Delta",
                                  {"Operation ID", "Activity ID", "RVC ID", "RVC Class", "Delta"}));
  rows.each([&](const Rows& rows) {
    Value op = rows.get(0);
    if (op.is_null()) return;
    Value activity = rows.get(1);
    Data::DeltaRow r;
    r.activity_id = activity.as_int();
    r.activity_text = activity.as_text();
    r.rvc_id = rows.get(2).as_int();
    r.rvc_class = rows.get(3).as_int();
    r.delta = rows.get(4);
    r.row = rows.row();
    if (auto n =
            r.activity_text.empty() ? std::optional<double>(0) : parse_number(r.activity_text)) {
      r.id = static_cast<float>(*n);
      r.id_ok = true;
    }
    d.deltas[op.as_double()].push_back(std::move(r));
  });

  db.require_table("Activities");
  rows = db.query(select_sql("Activities", {"Activity ID", "Activity name"}));
  rows.each([&](const Rows& rows) {
    if (!rows.get(0).is_null())
      d.activity_names.try_emplace(rows.get(0).as_double(), rows.get(1).as_text());
  });

  load_factors(db, "Mitigation_Activity_Emission_Factors", "tCO2e", true, true, d.mitigation);
  load_factors(db, "Adaptation_Activity_Impact_Factors", "Impact factor", false, false,
               d.adaptation);
  load_factors(db, "Yield_Activity_Impact_Factors", "Yield", true, false, d.yield);
}

void load_rvcs(Data& d) {
  Db db = Db::open(d.rvc_path);
  db.require_table("RVC_List");
  auto rows = db.query(
      select_sql("RVC_List", {"RVC ID", "RVC Parent", "RVC Type", "CORINE Class", "N factor"}));
  rows.each([&](const Rows& rows) {
    Value id = rows.get(0), parent = rows.get(1), type = rows.get(2), corine = rows.get(3);
    if (id.is_null()) return;
    int64_t n = id.as_int();
    // The last row of an id wins, as when the session loads its N factors.
    if (n >= 0 && n < kRvcFactorCount) d.n_factor[static_cast<size_t>(n)] = rows.get(4).as_double();
    if (corine.is_null()) return;
    // Lookups take the first row that matches, so later duplicates are ignored.
    if (!parent.is_null())
      d.corine_children.try_emplace(Key2{parent.as_double(), corine.as_double()}, id.as_double());
    if (!type.is_null() && type.as_double() == 5)
      d.corine_rvcs.try_emplace(corine.as_double(), id.as_double());
  });

  db.require_table("Baseline_Impact_Look_Up");
  rows = db.query(
      select_sql("Baseline_Impact_Look_Up", {"Baseline RVC", "Baseline RVC Class", "Impact RVC",
                                             "Impact RVC Class", "Combo RVC", "Combo Class"}));
  rows.each([&](const Rows& rows) {
    Value k[4] = {rows.get(0), rows.get(1), rows.get(2), rows.get(3)};
    if (k[0].is_null() || k[1].is_null() || k[2].is_null() || k[3].is_null()) return;
    d.combos.try_emplace(
        Key4{k[0].as_double(), k[1].as_double(), k[2].as_double(), k[3].as_double()},
        Data::Combo{rows.get(4), rows.get(5), rows.row()});
  });

  for (int k = 0; k <= 3; ++k) {
    const std::string table = "NUTS" + std::to_string(k) + "_RVC_Data_Dist";
    Data::Level& level = d.levels[static_cast<size_t>(k)];
    level.present = db.has_table(table);
    if (!level.present) continue;
    rows = db.query(
        select_sql(table, {"NUTS" + std::to_string(k) + "_ID", "RVC ID", "RVC Class", "Percent"}));
    rows.each([&](const Rows& rows) {
      Value area = rows.get(0), rvc = rows.get(1), cls = rows.get(2);
      if (area.is_null() || rvc.is_null()) return;
      // A null class equals no class asked for (NaN), as null matched no query.
      level.rows[Key2{area.as_double(), rvc.as_double()}].push_back(
          {cls.is_null() ? std::numeric_limits<double>::quiet_NaN() : cls.as_double(),
           rows.get(3).as_double()});
    });
  }
}

std::string op_activity(int64_t operation_id, int64_t activity_id) {
  return "operation " + std::to_string(operation_id) + ", activity " + std::to_string(activity_id);
}

// The place of a cell of the master store in a message.
std::string cell_place(const char* table, int64_t row, const char* column) {
  return std::string("table \"") + table + "\", row " + std::to_string(row) + ", column \"" +
         column + "\"";
}

// The delta row's Delta as a number; "Multi" or any other text fails.
double delta_number(const Data::DeltaRow& d, int64_t operation_id) {
  if (d.delta.is_int() || d.delta.is_real()) return d.delta.as_double();
  auto n = parse_number(d.delta.as_text());
  if (!n)
    throw ImpactDataError("Impact generation, " + op_activity(operation_id, d.activity_id) + ", " +
                          cell_place("Operation_Activity_Delta", d.row, "Delta") +
                          ": the delta \"" + d.delta.as_text() + "\" is not a number");
  return *n;
}

bool is_multi(const Value& delta) {
  return delta.is_text() && delta.as_text() == "Multi";
}

float combo_part(const Data::Combo& combo, bool cls, int64_t operation_id, int64_t activity_id) {
  const Value& v = cls ? combo.cls : combo.rvc;
  auto n = parse_number(v.as_text());
  if (!n)
    throw ImpactDataError(
        "Impact generation, " + op_activity(operation_id, activity_id) + ", " +
        cell_place("Baseline_Impact_Look_Up", combo.row, cls ? "Combo Class" : "Combo RVC") +
        ": the combination \"" + v.as_text() + "\" is not a number");
  return static_cast<float>(*n);
}

template <size_t N>
void reset_table(GridTable& t, const std::array<const char*, N>& headings) {
  t = GridTable(static_cast<int>(N));
  t.add_row();
  for (size_t c = 0; c < N; ++c) t.cell(0, static_cast<int>(c)) = headings[c];
}

float id_of(const std::string& cell) {
  return static_cast<float>(cell_to_number(cell));
}

// The consolidation of G1_Act_sum and G3_Act_sum: per-hectare in column 2,
// total in column 3; with `keep_horizons`, a row whose column 4 is above 0
// is never folded into another.
void fold_activity_rows(GridTable& table, bool keep_horizons, const std::string& what) {
  const int cols = table.cols();
  GridTable sum(cols);
  sum.add_row();
  if (table.rows() > 0)
    for (int c = 0; c < cols; ++c) sum.cell(0, c) = table.cell(0, c);
  std::vector<float> sum_ids = {0};   // column 0 of each SumGrid row, row 0 unused
  std::vector<std::string> av_cells;  // AvGrid column 0
  std::vector<float> av_ids;

  auto append = [&](int r, float id) {
    int s = sum.add_row();
    for (int c = 0; c < cols; ++c) sum.cell(s, c) = table.cell(r, c);
    sum_ids.push_back(id);
  };

  for (int r = 1; r < table.rows(); ++r) {
    const float id = id_of(table.cell(r, 0));
    if (keep_horizons && cell_to_number(table.cell(r, 4)) > 0) {
      append(r, id);
      continue;
    }
    // Column 4 of the row found is not looked at, intended: a horizon row
    // met first takes in the activity's later rows.
    int s = 0;
    for (int i = 1; i < sum.rows(); ++i)
      if (sum_ids[static_cast<size_t>(i)] == id) {
        s = i;
        break;
      }
    if (s == 0) {
      append(r, id);
      continue;
    }
    bool known = false;
    for (float a : av_ids) known = known || a == id;
    if (!known) {
      av_ids.push_back(id);
      av_cells.push_back(table.cell(r, 0));
    }
    for (int c : {2, 3}) {
      std::string& cell = sum.cell(s, c);
      if (cell.empty()) cell = "0";
      cell = number_to_cell(cell_to_number(cell) + cell_to_number(table.cell(r, c)));
    }
  }

  for (size_t a = 0; a < av_ids.size(); ++a) {
    // Over every row of the activity, horizon rows included, intended.
    double sum_total = 0, sum_area = 0;
    for (int r = 1; r < table.rows(); ++r) {
      if (id_of(table.cell(r, 0)) != av_ids[a]) continue;
      double total = cell_to_number(table.cell(r, 3));
      double per_ha = cell_to_number(table.cell(r, 2));
      sum_total += total;
      // A row whose per-hectare shows 0 adds to the total only, intended.
      if (per_ha != 0) sum_area += total / per_ha;
    }
    std::string mean = "0";
    if (sum_total != 0) {
      if (sum_area == 0)
        throw ImpactDataError("Impact generation, " + what + "activity " + av_cells[a] +
                              ": division by zero, the rows' total " + number_to_cell(sum_total) +
                              " has no per-hectare figure other than 0 to average by");
      mean = number_to_cell(round_half_even(sum_total / sum_area, 3));
    }
    for (int s = 1; s < sum.rows(); ++s)
      if (sum_ids[static_cast<size_t>(s)] == av_ids[a]) sum.cell(s, 2) = mean;
  }
  table = std::move(sum);
}

}  // namespace

// ---- ImpactSource ----

ImpactSource::ImpactSource(std::unique_ptr<Data> data) : data_(std::move(data)) {}
ImpactSource::ImpactSource(ImpactSource&&) noexcept = default;
ImpactSource& ImpactSource::operator=(ImpactSource&&) noexcept = default;
ImpactSource::~ImpactSource() = default;

ImpactSource ImpactSource::load(const std::filesystem::path& ops_db,
                                const std::filesystem::path& rvc_db) {
  auto d = std::make_unique<Data>();
  d->ops_path = ops_db;
  d->rvc_path = rvc_db;
  load_ops(*d);
  load_rvcs(*d);
  return ImpactSource(std::move(d));
}

ImpactSource ImpactSource::load_from_session() {
  return load(session().ops_db_path, session().rvc_db_path);
}

// ---- ImpactGenerator ----

ImpactGenerator::ImpactGenerator(const ImpactSource& source) : src_(source.data()) {
  reset_table(mitigation_rows_, kMitigationHeadings);
  reset_table(adaptation_rows_, kAdaptationHeadings);
  reset_table(yield_rows_, kYieldHeadings);
}

void ImpactGenerator::gen_text(int64_t operation_id, int64_t corine_class, int64_t nuts3_id,
                               int64_t nuts2_id, int64_t nuts1_id, int64_t nuts0_id,
                               double area_sqkm, int nuts_level) {
  tables_stale_ = false;
  reset_table(mitigation_rows_, kMitigationHeadings);
  reset_table(adaptation_rows_, kAdaptationHeadings);
  reset_table(yield_rows_, kYieldHeadings);
  operation_id_ = operation_id;
  const auto* deltas = find_in(src_.deltas, static_cast<double>(operation_id));
  if (!deltas || deltas->empty()) return;

  auto start_row = [&](GridTable& t, const Data::DeltaRow& d) {
    int r = t.add_row();
    t.cell(r, 0) = d.activity_text;
    t.cell(r, 1) = src_.activity_name(d.activity_id);
    return r;
  };
  auto call = [&](const Data::DeltaRow& d, int type, double delta, int64_t factor_rvc) {
    reg_data(operation_id, d.activity_id, type, delta, d.rvc_id, d.rvc_class, corine_class,
             factor_rvc, nuts3_id, nuts2_id, nuts1_id, nuts0_id, area_sqkm, nuts_level);
  };

  // Mitigation: carbon sequestration is worked out once per horizon.
  for (const auto& d : *deltas) {
    const auto* factors = src_.factors(kImpactMitigation, d.activity_id);
    if (!factors || factors->empty()) continue;
    // A class-by-class marker adds nothing itself; its class rows do the work.
    if (is_multi(d.delta)) continue;
    const auto& first = factors->front();
    const bool per_horizon = first.mitigation_type == 2;
    for (size_t h = 0; h < (per_horizon ? kHorizons.size() : 1); ++h) {
      if (per_horizon) time_horizon_ = kHorizons[h];
      int r = start_row(mitigation_rows_, d);
      if (first.data_quality.set) mitigation_rows_.cell(r, 5) = first.data_quality.text;
      if (first.refs.set) mitigation_rows_.cell(r, 6) = first.refs.text;
      call(d, kImpactMitigation, delta_number(d, operation_id), 0);
    }
  }
  G1_Act_sum();

  // Adaptation: one row per factor row. There is no "Multi" test here,
  // intended: such a marker on an activity with adaptation factors fails.
  for (const auto& d : *deltas) {
    const auto* factors = src_.factors(kImpactAdaptation, d.activity_id);
    if (!factors) continue;
    for (const auto& f : *factors) {
      double delta = delta_number(d, operation_id);
      int r = start_row(adaptation_rows_, d);
      adaptation_rows_.cell(r, 2) = std::to_string(f.rvc_id);
      if (f.data_quality.set) adaptation_rows_.cell(r, 5) = f.data_quality.text;
      if (f.refs.set) adaptation_rows_.cell(r, 6) = f.refs.text;
      call(d, kImpactAdaptation, delta, f.rvc_id);
    }
  }

  // Yield: one row per factor row, while each reg_data call sums every yield
  // factor of the activity, so n factor rows count n times over, intended.
  for (const auto& d : *deltas) {
    const auto* factors = src_.factors(kImpactYield, d.activity_id);
    if (!factors || factors->empty()) continue;
    if (is_multi(d.delta)) continue;
    for (const auto& f : *factors) {
      int r = start_row(yield_rows_, d);
      if (f.data_quality.set) yield_rows_.cell(r, 4) = f.data_quality.text;
      if (f.refs.set) yield_rows_.cell(r, 5) = f.refs.text;
      call(d, kImpactYield, delta_number(d, operation_id), 0);
    }
  }
  G3_Act_sum();
}

void ImpactGenerator::reg_data(int64_t operation_id, int64_t activity_id, int impact_type,
                               double delta, int64_t rvc_id, int64_t rvc_class,
                               int64_t corine_class, int64_t factor_rvc_id, int64_t nuts3_id,
                               int64_t nuts2_id, int64_t nuts1_id, int64_t nuts0_id,
                               double area_sqkm, int nuts_level) {
  src_.factors(impact_type, activity_id);  // checks the type
  GridTable& table = impact_type == kImpactMitigation   ? mitigation_rows()
                     : impact_type == kImpactAdaptation ? adaptation_rows()
                                                        : yield_rows();
  if (table.rows() < 2) throw std::logic_error("reg_data: the result table has no row to write");
  const int row = table.rows() - 1;
  const int per_ha_col = impact_type == kImpactAdaptation ? 3 : 2;
  table.cell(row, per_ha_col) = "0";
  table.cell(row, per_ha_col + 1) = "0";
  if (impact_type == kImpactMitigation) table.cell(row, 4) = "0";
  Sums sums =
      compute(operation_id, activity_id, impact_type, delta, rvc_id, rvc_class, corine_class,
              factor_rvc_id, nuts3_id, nuts2_id, nuts1_id, nuts0_id, area_sqkm, nuts_level);
  if (sums.area_total != 0) {
    table.cell(row, per_ha_col) = format_fixed_cell(sums.weighted_total / sums.area_total, 3);
    table.cell(row, per_ha_col + 1) = number_to_cell(sums.weighted_total);
    if (impact_type == kImpactMitigation)
      table.cell(row, 4) = sums.equilibrium ? std::to_string(time_horizon_) : "0";
  }
}

ImpactGenerator::Sums ImpactGenerator::compute(int64_t operation_id, int64_t activity_id,
                                               int impact_type, double delta, int64_t rvc_id,
                                               int64_t rvc_class, int64_t corine_class,
                                               int64_t factor_rvc_id, int64_t nuts3_id,
                                               int64_t nuts2_id, int64_t nuts1_id, int64_t nuts0_id,
                                               double area_sqkm, int nuts_level) const {
  const auto* factors = src_.factors(impact_type, activity_id);
  double weighted_total = 0;
  double area_total = 0;
  if (!factors || factors->empty()) return {};

  const bool adaptation = impact_type == kImpactAdaptation;
  // Adaptation factors have no RVC Value, and the delta's class counts as 0
  // for them as well, intended.
  if (adaptation) rvc_class = 0;
  // The first factor row decides for all rows of the activity, intended.
  const bool equilibrium = impact_type == kImpactMitigation && factors->front().equilibrium_set;

  double f = 0;  // carried from one equilibrium row to the next, intended
  for (const auto& row_f : *factors) {
    if (adaptation && row_f.rvc_id != factor_rvc_id) continue;

    if (!equilibrium) {
      f = row_f.factor;
    } else {
      for (int year = 1; year <= time_horizon_; ++year) {
        f += row_f.factor;
        if (!row_f.equilibrium) continue;  // a null level never stops it
        const double e = *row_f.equilibrium;
        if ((e > 0 && f >= e) || (e <= 0 && f <= e)) {
          f = e;
          break;
        }
      }
    }

    // Which RVC and class this factor row applies to.
    const double row_value = adaptation ? 0 : row_f.rvc_value;
    double rvc = 0;
    double cls = 0;
    if (rvc_id == 0) {
      if (row_f.rvc_id == kSharedRvc) {
        if (corine_class != 0) {
          rvc = src_.corine_rvc_id(corine_class);
          cls = 1;
        }
      } else {
        rvc = src_.corine_child_rvc_id(static_cast<double>(row_f.rvc_id), corine_class);
        cls = row_value;
      }
    } else if (row_f.rvc_id == kSharedRvc) {
      rvc = src_.corine_child_rvc_id(static_cast<double>(rvc_id), corine_class);
      cls = static_cast<double>(rvc_class);
    } else {
      const auto* combo =
          src_.combo_key(static_cast<double>(rvc_id), static_cast<double>(rvc_class),
                         static_cast<double>(row_f.rvc_id), row_value);
      if (!combo) continue;  // "Null": no combination, the row is skipped
      const float combo_rvc = combo_part(*combo, false, operation_id, activity_id);
      const float combo_class = combo_part(*combo, true, operation_id, activity_id);
      rvc = src_.corine_child_rvc_id(static_cast<double>(combo_rvc), corine_class);
      cls = static_cast<double>(combo_class);
    }

    const std::vector<Data::DistRow>* dist = nullptr;
    if (rvc != 0) {
      int64_t area_id = 0;
      switch (nuts_level) {
        case 0:
          area_id = nuts0_id;
          break;
        case 1:
          area_id = nuts1_id;
          break;
        case 2:
          area_id = nuts2_id;
          break;
        case 3:
          area_id = nuts3_id;
          break;
        default:
          throw std::out_of_range("NUTS level " + std::to_string(nuts_level) + " is not 0..3");
      }
      dist = src_.distribution(nuts_level, static_cast<double>(area_id), rvc);
      if (!dist) continue;
    }

    if (!adaptation) {
      double w = area_sqkm;
      if (rvc != 0) {
        const Data::DistRow* hit = nullptr;
        for (const auto& d : *dist)
          if (d.rvc_class == cls) {
            hit = &d;
            break;
          }
        if (!hit) continue;  // the class is absent from the area
        w = (hit->percent / 100) * area_sqkm;
      }
      w = w * 100;
      weighted_total += w * f;
      area_total += w;
    } else {
      if (!dist)
        throw ImpactDataError("Impact generation, " + op_activity(operation_id, activity_id) +
                              ": the adaptation factor of RVC " + std::to_string(row_f.rvc_id) +
                              " resolves to no RVC, so there is no distribution to visit");
      // Every class is visited: the class value scales the factor, and the
      // N factor is the factor row's own RVC, not the resolved one, intended.
      for (const auto& d : *dist) {
        if (row_f.rvc_id < 0 || row_f.rvc_id >= kRvcFactorCount)
          throw ImpactDataError("Impact generation, " + op_activity(operation_id, activity_id) +
                                ": RVC " + std::to_string(row_f.rvc_id) +
                                " has no N factor (RVC ids are 0.." +
                                std::to_string(kRvcFactorCount - 1) + ")");
        const double w = (d.percent / 100) * area_sqkm * 100;
        weighted_total +=
            (d.rvc_class * src_.n_factor[static_cast<size_t>(row_f.rvc_id)]) * (w * f);
        area_total += w;
      }
    }
  }

  weighted_total = weighted_total * delta;
  return {weighted_total, area_total, equilibrium};
}

std::string ImpactGenerator::operation_text() const {
  return operation_id_ ? "operation " + std::to_string(*operation_id_) + ", " : "";
}

void ImpactGenerator::G1_Act_sum() {
  fold_activity_rows(mitigation_rows(), true, operation_text());
}

void ImpactGenerator::G3_Act_sum() {
  fold_activity_rows(yield_rows(), false, operation_text());
}

// ---- the numeric path ----

namespace {

// A figure as its cell reads back: the shortest text of a finite number
// reads back to the number itself, but zero always as +0. Not finite: the
// cell would not read back, so the caller takes the text path.
bool canonical(double& x) {
  if (!std::isfinite(x)) return false;
  if (x == 0) x = 0;
  return true;
}

const std::string* cell_text(const OptionalCell& c) {
  return c.set ? &c.text : nullptr;
}

}  // namespace

void ImpactGenerator::gen_impact_data(int64_t operation_id, int64_t corine_class, int64_t nuts3_id,
                                      int64_t nuts2_id, int64_t nuts1_id, int64_t nuts0_id,
                                      double area_sqkm, int nuts_level) {
  operation_id_ = operation_id;
  results_text_ = false;
  if (!text_cells_ && gen_numeric(operation_id, corine_class, nuts3_id, nuts2_id, nuts1_id,
                                  nuts0_id, area_sqkm, nuts_level)) {
    tables_stale_ = true;
    if (!results_only_) make_tables();
    return;
  }
  // A figure that is not finite or an id that is not a number: the cells
  // decide, as they fail or read back.
  gen_text(operation_id, corine_class, nuts3_id, nuts2_id, nuts1_id, nuts0_id, area_sqkm,
           nuts_level);
  results_from_tables();
  results_text_ = true;
}

bool ImpactGenerator::sets_time_horizon(int64_t operation_id) const {
  const auto* deltas = find_in(src_.deltas, static_cast<double>(operation_id));
  if (!deltas) return false;
  for (const auto& d : *deltas) {
    const auto* factors = src_.factors(kImpactMitigation, d.activity_id);
    if (!factors || factors->empty() || is_multi(d.delta)) continue;
    if (factors->front().mitigation_type == 2) return true;
  }
  return false;
}

// The calculation of gen_text with the figures kept as numbers. Each step
// gives the same figure that writing and reading the cell would; false when
// some figure would not read back, and the text path must decide.
bool ImpactGenerator::gen_numeric(int64_t operation_id, int64_t corine_class, int64_t nuts3_id,
                                  int64_t nuts2_id, int64_t nuts1_id, int64_t nuts0_id,
                                  double area_sqkm, int nuts_level) {
  for (auto& r : results_) r.clear();
  const auto* deltas = find_in(src_.deltas, static_cast<double>(operation_id));
  if (!deltas || deltas->empty()) return true;
  for (const auto& d : *deltas)
    if (!d.id_ok) return false;
  const int saved_horizon = time_horizon_;

  // Fills the figures of one row from one reg_data calculation.
  auto fill = [&](ImpactResult& r, const Data::DeltaRow& d, int type, double delta,
                  int64_t factor_rvc) {
    r.activity_text = &d.activity_text;
    r.activity_id = d.activity_id;
    r.id = d.id;
    Sums s = compute(operation_id, d.activity_id, type, delta, d.rvc_id, d.rvc_class, corine_class,
                     factor_rvc, nuts3_id, nuts2_id, nuts1_id, nuts0_id, area_sqkm, nuts_level);
    if (s.area_total == 0) return true;
    r.per_ha_raw = s.weighted_total / s.area_total;
    if (!std::isfinite(r.per_ha_raw)) return false;
    r.per_ha = round_half_away(r.per_ha_raw, 3);
    r.per_ha_text = ImpactResult::PerHaText::fixed;
    r.total = s.weighted_total;
    if (!canonical(r.total)) return false;
    if (type == kImpactMitigation && s.equilibrium) r.horizon = time_horizon_;
    return true;
  };
  bool ok = true;

  for (const auto& d : *deltas) {
    const auto* factors = src_.factors(kImpactMitigation, d.activity_id);
    if (!factors || factors->empty()) continue;
    if (is_multi(d.delta)) continue;
    const auto& first = factors->front();
    const bool per_horizon = first.mitigation_type == 2;
    for (size_t h = 0; h < (per_horizon ? kHorizons.size() : 1); ++h) {
      if (per_horizon) time_horizon_ = kHorizons[h];
      src_.activity_name(d.activity_id);  // a missing name fails here, as on the text path
      ImpactResult& r = results_[0].emplace_back();
      r.data_quality = cell_text(first.data_quality);
      r.refs = cell_text(first.refs);
      ok = fill(r, d, kImpactMitigation, delta_number(d, operation_id), 0) && ok;
    }
  }
  // The text path's first failure may come from the table step, before
  // the next pass: hand over at once.
  if (!ok || !fold_results(results_[0], true)) {
    time_horizon_ = saved_horizon;
    return false;
  }

  for (const auto& d : *deltas) {
    const auto* factors = src_.factors(kImpactAdaptation, d.activity_id);
    if (!factors) continue;
    for (const auto& f : *factors) {
      double delta = delta_number(d, operation_id);
      src_.activity_name(d.activity_id);
      ImpactResult& r = results_[1].emplace_back();
      r.category = f.rvc_id;
      r.data_quality = cell_text(f.data_quality);
      r.refs = cell_text(f.refs);
      ok = fill(r, d, kImpactAdaptation, delta, f.rvc_id) && ok;
    }
  }
  if (!ok) {
    time_horizon_ = saved_horizon;
    return false;
  }

  for (const auto& d : *deltas) {
    const auto* factors = src_.factors(kImpactYield, d.activity_id);
    if (!factors || factors->empty()) continue;
    if (is_multi(d.delta)) continue;
    for (const auto& f : *factors) {
      src_.activity_name(d.activity_id);
      ImpactResult& r = results_[2].emplace_back();
      r.data_quality = cell_text(f.data_quality);
      r.refs = cell_text(f.refs);
      ok = fill(r, d, kImpactYield, delta_number(d, operation_id), 0) && ok;
    }
  }
  ok = ok && fold_results(results_[2], false);
  // The text path runs the call again from the same horizon.
  if (!ok) time_horizon_ = saved_horizon;
  return ok;
}

// fold_activity_rows on numbers: the sums are the cells' sums as read back,
// and the area-weighted mean the same rounded figure.
bool ImpactGenerator::fold_results(std::vector<ImpactResult>& rows, bool keep_horizons) {
  std::vector<ImpactResult>& sum = fold_work_;
  sum.clear();
  std::vector<float> av_ids;
  std::vector<const std::string*> av_cells;
  for (const auto& r : rows) {
    if (keep_horizons && r.horizon > 0) {
      sum.push_back(r);
      continue;
    }
    ImpactResult* s = nullptr;
    for (auto& x : sum)
      if (x.id == r.id) {
        s = &x;
        break;
      }
    if (!s) {
      sum.push_back(r);
      continue;
    }
    bool known = false;
    for (float a : av_ids) known = known || a == r.id;
    if (!known) {
      av_ids.push_back(r.id);
      av_cells.push_back(r.activity_text);
    }
    s->per_ha += r.per_ha;
    s->total += r.total;
    s->per_ha_text = ImpactResult::PerHaText::shortest;
    if (!canonical(s->per_ha) || !canonical(s->total)) return false;
  }
  for (size_t a = 0; a < av_ids.size(); ++a) {
    double sum_total = 0, sum_area = 0;
    for (const auto& r : rows) {
      if (r.id != av_ids[a]) continue;
      sum_total += r.total;
      if (r.per_ha != 0) sum_area += r.total / r.per_ha;
    }
    double mean = 0;
    auto kind = ImpactResult::PerHaText::zero;
    if (sum_total != 0) {
      if (sum_area == 0)
        throw ImpactDataError("Impact generation, " + operation_text() + "activity " +
                              *av_cells[a] + ": division by zero, the rows' total " +
                              number_to_cell(sum_total) +
                              " has no per-hectare figure other than 0 to average by");
      mean = round_half_even(sum_total / sum_area, 3);
      kind = ImpactResult::PerHaText::shortest;
    }
    for (auto& s : sum)
      if (s.id == av_ids[a]) {
        s.per_ha = mean;
        s.per_ha_text = kind;
      }
  }
  rows.swap(sum);
  return true;
}

// The numeric rows from the text tables, reading the cells as the stored
// rows read them.
void ImpactGenerator::results_from_tables() {
  for (auto& r : results_) r.clear();
  auto text = [](const std::string& c) { return c.empty() ? nullptr : &c; };
  auto base = [&](GridTable& t, int i, int per_ha_col) {
    ImpactResult r;
    r.activity_text = &t.cell(i, 0);
    r.id = static_cast<float>(cell_to_number(t.cell(i, 0)));
    r.total = cell_to_number(t.cell(i, per_ha_col + 1));
    r.per_ha_text = ImpactResult::PerHaText::shortest;
    return r;
  };
  GridTable& m = mitigation_rows_;
  for (int i = 1; i < m.rows(); ++i) {
    ImpactResult r = base(m, i, 2);
    r.horizon = static_cast<int>(cell_to_number(m.cell(i, 4)));
    r.data_quality = text(m.cell(i, 5));
    r.refs = text(m.cell(i, 6));
    results_[0].push_back(r);
  }
  GridTable& ad = adaptation_rows_;
  for (int i = 1; i < ad.rows(); ++i) {
    ImpactResult r = base(ad, i, 3);
    r.category = static_cast<int64_t>(round_half_even(cell_to_number(ad.cell(i, 2)), 0));
    r.data_quality = text(ad.cell(i, 5));
    r.refs = text(ad.cell(i, 6));
    results_[1].push_back(r);
  }
  GridTable& y = yield_rows_;
  for (int i = 1; i < y.rows(); ++i) {
    ImpactResult r = base(y, i, 2);
    r.data_quality = text(y.cell(i, 4));
    r.refs = text(y.cell(i, 5));
    results_[2].push_back(r);
  }
}

// The three tables from the numeric rows, cell for cell as the text path
// writes them.
void ImpactGenerator::make_tables() {
  tables_stale_ = false;
  reset_table(mitigation_rows_, kMitigationHeadings);
  reset_table(adaptation_rows_, kAdaptationHeadings);
  reset_table(yield_rows_, kYieldHeadings);
  auto per_ha = [](const ImpactResult& r) {
    switch (r.per_ha_text) {
      case ImpactResult::PerHaText::zero:
        return std::string("0");
      case ImpactResult::PerHaText::fixed:
        return format_fixed_cell(r.per_ha_raw, 3);
      case ImpactResult::PerHaText::shortest:
        break;
    }
    return number_to_cell(r.per_ha);
  };
  auto opt = [](const std::string* t) { return t ? *t : std::string(); };
  auto put = [](GridTable& t, std::initializer_list<std::string> cells) {
    int row = t.add_row(), c = 0;
    for (const auto& text : cells) t.cell(row, c++) = text;
  };
  for (const auto& r : results_[0])
    put(mitigation_rows_,
        {*r.activity_text, src_.activity_name(r.activity_id), per_ha(r), number_to_cell(r.total),
         std::to_string(r.horizon), opt(r.data_quality), opt(r.refs)});
  for (const auto& r : results_[1])
    put(adaptation_rows_,
        {*r.activity_text, src_.activity_name(r.activity_id), std::to_string(r.category), per_ha(r),
         number_to_cell(r.total), opt(r.data_quality), opt(r.refs)});
  for (const auto& r : results_[2])
    put(yield_rows_, {*r.activity_text, src_.activity_name(r.activity_id), per_ha(r),
                      number_to_cell(r.total), opt(r.data_quality), opt(r.refs)});
}

GridTable& ImpactGenerator::mitigation_rows() {
  if (tables_stale_) make_tables();
  return mitigation_rows_;
}
GridTable& ImpactGenerator::adaptation_rows() {
  if (tables_stale_) make_tables();
  return adaptation_rows_;
}
GridTable& ImpactGenerator::yield_rows() {
  if (tables_stale_) make_tables();
  return yield_rows_;
}

}  // namespace arven

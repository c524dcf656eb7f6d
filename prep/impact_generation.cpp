#include "prep/impact_generation.h"

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/numbers.h"
#include "prep/impact_data.h"
#include "stores/db.h"
#include "stores/value.h"

namespace arven {

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

}  // namespace arven

// The calculation of impact generation with the figures kept as numbers,
// and the tables made from them.
#include <cmath>
#include <string>
#include <vector>

#include "prep/impact_data.h"
#include "prep/impact_generation.h"

namespace arven {

using Data = ImpactSource::Data;

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

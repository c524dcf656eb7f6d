#include "engine/regional_impact.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <tuple>
#include <utility>

#include "base/numbers.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_context.h"
#include "stores/db.h"

namespace arven {

using engine_detail::FileStamp;
using engine_detail::ImpactContext;
using engine_detail::OpsRow;
using engine_detail::QualityTally;
using engine_detail::round_whole;
using engine_detail::stamp_of;
using engine_detail::StoreCache;

// ---- scaling ------------------------------------------------------------------

double boundary_area(const AreaGeometry& area, double strip_width) {
  if (area.field_size == 0)
    throw ImpactError("Cannot calculate regional impact",
                      "A boundary feature cannot be scaled over an average field size of 0.");
  const double fields = area.impact_area / area.field_size;
  const double field_m2 = area.field_size * 10000;
  const double side = std::sqrt(field_m2);
  const double strip_m2 = ((side - strip_width) * 4) * strip_width;
  const double strip_ha = strip_m2 / 10000;
  return fields * strip_ha;
}

double treated_area(const AreaGeometry& area, const ScalingSettings& settings) {
  if (settings.technique == 1) return area.impact_area * (settings.st_value / 100);
  if (settings.technique == 2) return boundary_area(area, settings.st_value);
  return 0;
}

double scale_area_value(double value, const AreaGeometry& area, const ScalingSettings& settings,
                        double& carry) {
  double s = carry;  // another technique keeps the value scaled before, intended
  if (settings.technique == 1) {
    s = value * (settings.st_value / 100);
  } else if (settings.technique == 2) {
    const double boundary_ha = boundary_area(area, settings.st_value);
    const double fraction = area.impact_area == 0 ? 0 : boundary_ha / area.impact_area;
    s = value * fraction;
  }
  s = s * (settings.uptake / 100);
  if (settings.tea_inc == 0) s = s * ((100 - settings.tea_factor) / 100);
  carry = s;
  return s;
}

// ---- tables -------------------------------------------------------------------

namespace {

void set_titles(GridTable& table, int cols, std::initializer_list<const char*> titles) {
  table.clear();
  table.resize(1, cols);
  int c = 0;
  for (const char* t : titles) table.cell(0, c++) = t;
}

void horizon_titles(GridTable& table, const char* per_ha, const char* total) {
  for (size_t h = 0; h < kHorizonYears.size(); ++h) {
    const int y = kHorizonYears[h];
    const std::string span = y == 1 ? " per year" : " per " + std::to_string(y) + " years";
    table.cell(0, 2 * static_cast<int>(h) + 2) = per_ha + span;
    table.cell(0, 2 * static_cast<int>(h) + 3) = total + span;
  }
}

}  // namespace

void reset_ghg_activity_table(GridTable& table) {
  set_titles(table, 19, {"Activity ID", "Activity/feature"});
  horizon_titles(table, "tCO2e/ha", "tCO2e");
  table.cell(0, 16) = "CSeq";
  table.cell(0, 17) = "Data Quality";
  table.cell(0, 18) = "Refs";
}

void reset_adaptation_activity_table(GridTable& table) {
  set_titles(table, 8,
             {"Activity ID", "Activity/feature", "Impact category", "Regional risk reduction",
              "Regional impact index (total)", "Maximum impact", "Data Quality", "Refs"});
}

void reset_production_activity_table(GridTable& table) {
  set_titles(table, 18, {"Activity ID", "Activity/feature"});
  horizon_titles(table, "per ha", "");
  // The total columns read "per year", "per 5 years", ... without a unit.
  for (int c = 3; c <= 15; c += 2) table.cell(0, c).erase(0, 1);
  table.cell(0, 16) = "Data Quality";
  table.cell(0, 17) = "Refs";
}

// ---- settings -------------------------------------------------------------------

namespace engine_detail {

ScalingSettings read_settings(ImpactContext& ctx, int64_t operation_id, bool* in_file) {
  ScalingSettings st;
  {
    Rows& rows = ctx.file_statement(
                        "SELECT \"Scaling up technique\", \"ST Value\", \"Uptake\", \"TEA_Inc\", "
                        "\"TEA_Factor\" FROM \"Operations\" WHERE \"Operation ID\" = ? ORDER BY "
                        "rowid LIMIT 1")
                     .query({Value(operation_id)});
    if (rows.next()) {
      st.technique = rows.get(0).as_int();
      st.st_value = rows.get(1).as_double();
      st.uptake = rows.get(2).as_double();
      st.tea_inc = rows.get(3).as_int();
      st.tea_factor = rows.get(4).as_double();
      // Steps past the one row: a statement left open would hold back the
      // commit of the file's next write outside a transaction.
      rows.next();
      if (in_file) *in_file = true;
      return st;
    }
  }
  if (in_file) *in_file = false;
  Db& store = ctx.store(session().ops_db_path).db();
  auto rows = store.query(
      "SELECT \"Scaling up technique\", \"ST Value\", \"TEA_Inc\", \"TEA_Factor\" "
      "FROM \"Operations\" WHERE \"Operation ID\" = ? ORDER BY rowid LIMIT 1",
      {Value(operation_id)});
  if (!rows.next())
    store.fail("table \"Operations\" has no row where \"Operation ID\" = " +
               std::to_string(operation_id));
  st.technique = rows.get(0).as_int();
  st.st_value = rows.get(1).as_double();
  st.uptake = session().def_uptake;
  st.tea_inc = rows.get(2).as_int();
  st.tea_factor = rows.get(3).as_double();
  return st;
}

}  // namespace engine_detail

ScalingSettings read_operation_settings(int64_t operation_id) {
  ImpactContext ctx;
  return engine_detail::read_settings(ctx, operation_id, nullptr);
}

// ---- the calculation ------------------------------------------------------------

void engine_detail::check_level(const RegionArea& area) {
  if (area.level < 0 || area.level > 3)
    throw ImpactError("Invalid region", "The area " + area.code +
                                            " of the region has the NUTS level " +
                                            std::to_string(area.level) +
                                            ", which is not 0 to 3, so cannot calculate regional "
                                            "impact. Please edit the regional profile.");
}

std::vector<engine_detail::RegionArea> engine_detail::read_regions(Db& file) {
  std::vector<RegionArea> out;
  auto rows = file.query(
      "SELECT \"NUTS Type ID\", \"NUTS Code\", \"NUTS ID\", \"NUTS AREA\" FROM \"Regions\" "
      "ORDER BY rowid");
  while (rows.next())
    out.push_back({rows.get(0).as_int(), rows.get(1).as_text(), rows.get(2).as_int(),
                   rows.get(3).as_double()});
  return out;
}

namespace {

using engine_detail::check_level;
using engine_detail::read_regions;
using engine_detail::RegionArea;

std::string cell_of(double x) {
  return number_to_cell(x);
}

bool is_ghg(const OpsRow& r) {
  return r.impact_type != 3 && r.impact_type != 4;
}

AreaRow& new_area_row(AreaTable& table, const OpsRow& row, StoreCache& store) {
  AreaRow& r = table.emplace_back();
  r.activity_id = row.activity_id.as_text();
  r.activity_key = row.activity_id.as_double();
  r.name = store.activity_name(row.activity_id.as_int());
  return r;
}

// The result rows of one kind, with the first row of each key.
template <typename Key>
struct Merged {
  AreaTable rows;
  std::map<Key, size_t> index;

  // Adds a row's totals to the first row of its key (columns 0 to 4 of the
  // sum are those of the first row seen), or appends it.
  void add(const Key& key, const AreaRow& row, size_t totals) {
    auto it = index.find(key);
    if (it == index.end()) {
      index.emplace(key, rows.size());
      rows.push_back(row);
      return;
    }
    AreaRow& into = rows[it->second];
    for (size_t h = 0; h < totals; ++h) into.totals[h] += row.totals[h];
    into.max += row.max;
  }
};

// The seven horizons of a result: totals to one decimal, per-hectare figures
// worked from the unrounded total over the treated area.
void write_horizons(GridTable& table, int r, const AreaRow& row, double total_area) {
  for (int h = 1; h <= 7; ++h) {
    const double x = row.totals[static_cast<size_t>(h - 1)];
    table.cell(r, 2 * h + 1) = cell_of(round_half_even(x, 1));
    table.cell(r, 2 * h) = total_area == 0 || x == 0 ? "0" : format_fixed_cell(x / total_area, 3);
  }
}

void scale_totals(AreaTable& table, size_t totals, const AreaGeometry& area,
                  const ScalingSettings& st, double& carry) {
  for (AreaRow& row : table)
    for (size_t h = 0; h < totals; ++h)
      row.totals[h] = scale_area_value(row.totals[h], area, st, carry);
}

}  // namespace

namespace engine_detail {

void QualityTally::take(const OpsRow& row, Kind kind, AreaRow& out) {
  if (!row.data_quality.is_empty()) {
    out.quality = row.data_quality.as_text();
    const double q = row.data_quality.as_double();
    sum[kind] += q;
    sum[overall] += q;
    ++count[kind];
    ++count[overall];
  }
  if (!row.refs.is_empty()) out.refs = row.refs.as_text();
}

double scale_area_rows(const std::vector<OpsRow>& rows, StoreCache& store,
                       const ScalingSettings& st, int64_t operation_id,
                       const std::string& area_code, double& carry, AreaTables out,
                       QualityTally& quality) {
  AreaTable& ga = out.ghg;
  AreaTable& aa = out.adaptation;
  AreaTable& pa = out.production;
  ga.clear();
  aa.clear();
  pa.clear();
  if (rows.empty()) return 0;
  // Pass 1: GHG rows without sequestration, one area row per stored row.
  for (const OpsRow& row : rows) {
    if (!is_ghg(row) || row.cseq_years > 0) continue;
    AreaRow& r = new_area_row(ga, row, store);
    for (size_t h = 0; h < 7; ++h) r.totals[h] = round_whole(row.impact_value * kHorizonYears[h]);
    r.cseq = "0";
    quality.take(row, QualityTally::ghg, r);
  }
  // Pass 2: sequestration rows hold the total reached after Cseq Years,
  // written to that horizon alone and not multiplied by the years.
  for (const OpsRow& row : rows) {
    if (!is_ghg(row) || row.cseq_years == 0) continue;
    const double id = row.activity_id.as_double();
    AreaRow* r = nullptr;
    for (AreaRow& candidate : ga)
      if (candidate.activity_key == id) {
        r = &candidate;
        break;
      }
    if (!r) r = &new_area_row(ga, row, store);
    for (size_t h = 0; h < 7; ++h)
      if (kHorizonYears[h] == row.cseq_years) r->totals[h] = round_whole(row.impact_value);
    r->cseq = "1";
    quality.take(row, QualityTally::ghg, *r);
  }
  // Pass 3: adaptation rows.
  for (const OpsRow& row : rows) {
    if (row.impact_type != 3) continue;
    AreaRow& r = new_area_row(aa, row, store);
    r.category = row.impact_category.as_text();
    r.category_key = cell_to_number(r.category);
    r.totals[0] = round_whole(row.impact_value);
    r.max = row.impact_max.is_empty() ? 0 : row.impact_max.as_double();
    quality.take(row, QualityTally::adaptation, r);
  }
  // Pass 4: production rows, normalised by the activity's factor.
  for (const OpsRow& row : rows) {
    if (row.impact_type != 4) continue;
    const double p = row.impact_value * store.norm_factor(row.activity_id.as_int());
    AreaRow& r = new_area_row(pa, row, store);
    for (size_t h = 0; h < 7; ++h) r.totals[h] = round_whole(p * kHorizonYears[h]);
    quality.take(row, QualityTally::production, r);
  }

  // The geometry is that of the area's last row.
  const AreaGeometry geometry{rows.back().impact_area, rows.back().field_size};
  if (st.technique == 2 && geometry.field_size == 0)
    throw ImpactError("Cannot calculate regional impact",
                      "Operation " + std::to_string(operation_id) +
                          " is scaled as a boundary feature, but the area " + area_code +
                          " has an average field size of 0, so its boundaries cannot be "
                          "worked out. Please choose the hectare scaling for this operation.");
  scale_totals(ga, 7, geometry, st, carry);
  // Only the index is scaled; the maximum impact is not, intended.
  scale_totals(aa, 1, geometry, st, carry);
  const double taken_up = treated_area(geometry, st) * (st.uptake / 100);
  scale_totals(pa, 7, geometry, st, carry);
  return taken_up;
}

void prefetch_region_rows(ImpactContext& ctx, std::vector<int64_t> operations) {
  std::sort(operations.begin(), operations.end());
  operations.erase(std::unique(operations.begin(), operations.end()), operations.end());
  if (operations.size() < 2) return;  // one is read as fast area by area
  struct AreaRead {
    std::string store;
    int level;
    int64_t nuts_id;
  };
  std::vector<AreaRead> reads;
  // On more than one core a second thread reads the second half of the
  // areas, on connections of its own, unless they are all kept already.
  size_t half = 0;
  try {
    for (const RegionArea& region : ctx.regions()) {
      if (region.level < 0 || region.level > 3) return;
      reads.push_back(
          {country_store_for(region.code), static_cast<int>(region.level), region.nuts_id});
    }
    half = reads.size();
    if (std::thread::hardware_concurrency() > 1 && reads.size() > 1)
      for (size_t i = reads.size() / 2; i < reads.size(); ++i)
        if (!ctx.store(reads[i].store).all_kept(reads[i].level, reads[i].nuts_id, operations)) {
          half = reads.size() / 2;
          break;
        }
  } catch (const std::exception&) {
    return;  // the calculation reads the same and reports what failed
  }
  std::jthread second;
  if (half < reads.size())
    second = std::jthread([&reads, &operations, half] {
      try {
        ImpactContext own;  // its stores only, opened on this thread
        for (size_t i = half; i < reads.size(); ++i)
          own.store(reads[i].store).prefetch_area(reads[i].level, reads[i].nuts_id, operations);
      } catch (const std::exception&) {
      }
    });
  try {
    for (size_t i = 0; i < half; ++i)
      ctx.store(reads[i].store).prefetch_area(reads[i].level, reads[i].nuts_id, operations);
  } catch (const std::exception&) {
  }
}

void calculate_impact(ImpactContext& ctx, Ui& ui, int64_t operation_id, OperationFigures& ex) {
  if (operation_id == 0) return;
  Session& s = session();

  // Results are built aside and take the explorer's place only at the end,
  // so that a failure leaves the state of the last operation in place.
  Merged<double> ghg, production;
  Merged<std::pair<double, double>> adaptation;
  QualityTally quality;
  double area_sum = 0;

  bool in_file = false;
  const ScalingSettings st = read_settings(ctx, operation_id, &in_file);
  const std::vector<RegionArea>& regions = ctx.regions();
  if (regions.empty()) {
    reset_ghg_activity_table(ex.ghg_activity_table);
    reset_adaptation_activity_table(ex.adaptation_activity_table);
    ex.adaptation_shape = AdaptationShape::calculated;
    reset_production_activity_table(ex.production_activity_table);
    ex.dq_ghg = ex.dq_adaptation = ex.dq_production = ex.dq_overall = 0;
    if (!ctx.no_region_reported)
      ui.message_box("No region has been defined, so cannot calculate regional impact.",
                     "No region defined", MsgButtons::Ok, MsgIcon::Stop);
    ctx.no_region_reported = true;
    return;
  }

  std::string ops_path = s.ops_db_path;
  double carry = 0;  // the working value of the scaling, for the whole call
  AreaTable& ga = ex.ghg_area_table;
  AreaTable& aa = ex.adaptation_area_table;
  AreaTable& pa = ex.production_area_table;

  std::vector<OpsRow> rows;  // one area's rows, the storage reused
  std::string country;       // the country of ops_path
  for (const RegionArea& region : regions) {
    check_level(region);
    if (region.code.size() < 2 || region.code.compare(0, 2, country) != 0) {
      ops_path = country_store_for(region.code);
      country = region.code.substr(0, 2);
    }
    StoreCache& store = ctx.store(ops_path);
    const int level = static_cast<int>(region.level);
    // Exactly the row's level: an area without rows adds neither figures nor area.
    store.read_ops_rows(level, region.nuts_id, operation_id, rows);
    area_sum +=
        scale_area_rows(rows, store, st, operation_id, region.code, carry, {ga, aa, pa}, quality);

    for (const AreaRow& row : ga) ghg.add(row.activity_key, row, 7);
    for (const AreaRow& row : aa) adaptation.add({row.activity_key, row.category_key}, row, 1);
    for (const AreaRow& row : pa) production.add(row.activity_key, row, 7);
  }

  // Every row read counts once: an activity seen in ten areas weighs ten times.
  const double op_total_area = area_sum;
  if (in_file)
    ctx.file_statement("UPDATE \"Operations\" SET \"TArea\" = ? WHERE \"Operation ID\" = ?")
        .run({Value(op_total_area), Value(operation_id)});

  GridTable ghg_table, adaptation_table, production_table;
  reset_ghg_activity_table(ghg_table);
  reset_adaptation_activity_table(adaptation_table);
  reset_production_activity_table(production_table);
  for (const AreaRow& row : ghg.rows) {
    const int r = ghg_table.add_row();
    ghg_table.cell(r, 0) = row.activity_id;
    ghg_table.cell(r, 1) = row.name;
    write_horizons(ghg_table, r, row, op_total_area);
    ghg_table.cell(r, 16) = row.cseq;
    ghg_table.cell(r, 17) = row.quality;
    ghg_table.cell(r, 18) = row.refs;
  }
  double risk_reduction_sum = 0;
  for (const AreaRow& row : adaptation.rows) {
    const int r = adaptation_table.add_row();
    adaptation_table.cell(r, 0) = row.activity_id;
    adaptation_table.cell(r, 1) = row.name;
    adaptation_table.cell(r, 2) = row.category;
    const double x = row.totals[0];
    if (op_total_area == 0) {
      adaptation_table.cell(r, 3) = format_fixed_cell(0, 3);
    } else {
      adaptation_table.cell(r, 3) = format_fixed_cell(x / op_total_area, 3);
      risk_reduction_sum += x / op_total_area;
    }
    adaptation_table.cell(r, 4) = cell_of(x);  // not rounded here
    adaptation_table.cell(r, 5) = cell_of(row.max);
    adaptation_table.cell(r, 6) = row.quality;
    adaptation_table.cell(r, 7) = row.refs;
  }
  for (const AreaRow& row : production.rows) {
    const int r = production_table.add_row();
    production_table.cell(r, 0) = row.activity_id;
    production_table.cell(r, 1) = row.name;
    write_horizons(production_table, r, row, op_total_area);
    production_table.cell(r, 16) = row.quality;
    production_table.cell(r, 17) = row.refs;
  }

  ex.ghg_activity_table = std::move(ghg_table);
  ex.adaptation_activity_table = std::move(adaptation_table);
  ex.adaptation_shape = AdaptationShape::calculated;
  ex.production_activity_table = std::move(production_table);
  ex.op_total_area = op_total_area;
  ex.risk_reduction_sum = risk_reduction_sum;
  ex.dq_ghg = quality.mean(QualityTally::ghg);
  ex.dq_adaptation = quality.mean(QualityTally::adaptation);
  ex.dq_production = quality.mean(QualityTally::production);
  ex.dq_overall = quality.mean(QualityTally::overall);
  s.ops_db_path = ops_path;
}

}  // namespace engine_detail

void forget_kept_store_rows() {
  engine_detail::forget_kept_area_rows();
}

ImpactStatus get_impact_data_direct_MT(Ui& ui, int64_t operation_id, OperationFigures& figures) {
  try {
    ImpactContext ctx;
    engine_detail::calculate_impact(ctx, ui, operation_id, figures);
    return ImpactStatus::done;
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    return ImpactStatus::failed;
  }
}

// ---- the regional area, cached between calls ---------------------------------------

namespace {

// The reads of get_operation_tot_reg_area that the aggregation and the cost
// curves repeat for every operation: the file's Regions, and each area's
// average field size from its country store.
struct AreaReads {
  std::mutex mutex;
  std::optional<FileStamp> file;
  std::vector<RegionArea> regions;
  std::map<std::string, FileStamp> stores;  // path -> stamp the sizes below were read at
  std::map<std::tuple<std::string, int64_t, int64_t>, double> field_sizes;
};

AreaReads& area_reads() {
  static AreaReads reads;
  return reads;
}

double regional_area(double uptake, int64_t technique, double st_value) {
  AreaReads& reads = area_reads();
  std::lock_guard lock(reads.mutex);
  {
    ImpactContext ctx;
    // The regions of the file as last read, while the file is unchanged.
    const std::string& path = session().current_file;
    const std::optional<FileStamp> stamp = stamp_of(path);
    if (!stamp || reads.file != stamp) {
      reads.file.reset();
      reads.regions = read_regions(ctx.assessment());
      reads.file = stamp;
    }
    // No guard for an empty region: the reports come here only with one.
    double sum = 0;
    // One prepared field-size query per store and level for the whole walk.
    std::map<std::pair<std::string, int64_t>, Statement> field_queries;
    // Each store's stamp, taken once per call; nullopt: not kept between calls.
    std::map<std::string, std::optional<FileStamp>> store_stamps;
    for (const RegionArea& region : reads.regions) {
      double a = region.sqkm * 100;  // km² to hectares
      a = a * (uptake / 100);
      if (technique == 1) {
        a = a * (st_value / 100);
      } else if (technique == 2) {
        check_level(region);
        const std::string level = std::to_string(region.level);
        const std::string store_path = engine_detail::country_store_for(region.code);
        auto stamped = store_stamps.find(store_path);
        if (stamped == store_stamps.end()) {
          stamped = store_stamps.emplace(store_path, stamp_of(store_path)).first;
          auto kept = reads.stores.find(store_path);
          if (!stamped->second || kept == reads.stores.end() || kept->second != *stamped->second) {
            // Read again: forget this store's sizes.
            std::erase_if(reads.field_sizes, [&](const auto& entry) {
              return std::get<0>(entry.first) == store_path;
            });
            if (stamped->second)
              reads.stores[store_path] = *stamped->second;
            else
              reads.stores.erase(store_path);
          }
        }
        const auto key = std::make_tuple(store_path, region.level, region.nuts_id);
        auto known = reads.field_sizes.find(key);
        double field = 0;
        if (known != reads.field_sizes.end()) {
          field = known->second;
        } else {
          Db& store = ctx.store(store_path).db();
          auto query = field_queries.find({store_path, region.level});
          if (query == field_queries.end())
            query = field_queries
                        .emplace(std::make_pair(store_path, region.level),
                                 store.prepare_statement("SELECT \"AV_FS\" FROM \"NUTS" + level +
                                                         "\" WHERE \"NUTS" + level +
                                                         "_ID\" = ? LIMIT 1"))
                        .first;
          Rows& rows = query->second.query({Value(region.nuts_id)});
          if (!rows.next())
            store.fail("table \"NUTS" + level + "\" has no row where \"NUTS" + level +
                       "_ID\" = " + std::to_string(region.nuts_id));
          field = rows.get(0).as_double();
          if (stamped->second) reads.field_sizes.emplace(key, field);
        }
        if (field == 0)
          throw ImpactError("Cannot calculate regional area",
                            "The area " + region.code +
                                " has an average field size of 0, so the area of a boundary "
                                "feature cannot be worked out.");
        // Uptake is already inside the area here.
        a = boundary_area({a, field}, st_value);
      }
      sum += a;
    }
    return sum;
  }
}

}  // namespace

ImpactStatus get_operation_tot_reg_area(Ui& ui, double uptake, int64_t technique, double st_value,
                                        double& total) {
  total = 0;
  try {
    total = regional_area(uptake, technique, st_value);
    return ImpactStatus::done;
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    return ImpactStatus::failed;
  }
}

}  // namespace arven

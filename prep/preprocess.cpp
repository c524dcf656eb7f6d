#include "prep/preprocess.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <set>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "base/numbers.h"
#include "core/session.h"
#include "prep/impact_generation.h"
#include "prep/ops_rows.h"
#include "prep/ordered_slots.h"
#include "prep/packaging.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

using prep_detail::Area;
using prep_detail::AreaResult;
using prep_detail::OperationRows;
using prep_detail::OpsRow;
using prep_detail::OpsWriter;

std::string nuts_table(int k) {
  return "NUTS" + std::to_string(k);
}
std::string nuts_id_column(int k) {
  return "NUTS" + std::to_string(k) + "_ID";
}

struct MasterOperation {
  int64_t corine_class = 0;
  double operation_dq = 0;
  std::string last_updated;
};

// What the run needs of the RVC master besides the generator's source: the
// CORINE land-class RVCs and the terms of max_factor.
struct RvcTerms {
  std::map<int64_t, int64_t> corine_rvc;  // class -> first RVC of type 5
  struct Terms {
    double max_factor = 0, euro_max = 0, n_factor = 0;
  };
  std::unordered_map<int64_t, Terms> by_rvc;

  static RvcTerms load(const Db& rvc) {
    RvcTerms t;
    rvc.require_table("RVC_List");
    auto rows = rvc.query("SELECT * FROM \"RVC_List\" ORDER BY rowid");
    rows.each([&](const Rows& rows) {
      int64_t id = rows.get("RVC ID").as_int();
      if (rows.get("RVC Type").as_int() == 5)
        t.corine_rvc.emplace(rows.get("CORINE Class").as_int(), id);  // first row wins
      t.by_rvc.emplace(id,
                       Terms{rows.get("Max_factor").as_double(), rows.get("Euro max").as_double(),
                             rows.get("N factor").as_double()});
    });
    return t;
  }

  // Max_factor x N factor x Euro max x the value; an unknown RVC is a
  // fault of the data.
  double max_factor(int64_t rvc_id, double value) const {
    auto it = by_rvc.find(rvc_id);
    if (it == by_rvc.end())
      throw ImpactDataError("RVC " + std::to_string(rvc_id) +
                            " of an adaptation factor is not in RVC_List");
    if (rvc_id < 0 || rvc_id >= kRvcFactorCount)
      throw ImpactDataError("RVC " + std::to_string(rvc_id) + " is outside 0 to 400");
    return it->second.max_factor * it->second.n_factor * it->second.euro_max * value;
  }
};

// An Activity ID cell read as a 32-bit float, stored as a whole number.
int64_t stored_activity_id(float id) {
  return static_cast<int64_t>(round_half_even(static_cast<double>(id), 0));
}

// Data quality x Operation_DQ, stored as a whole number; an empty cell is 0.
int64_t data_quality(const std::string* cell, double operation_dq) {
  double dq = cell ? cell_to_number(*cell) : 0;
  return static_cast<int64_t>(round_half_even(dq * operation_dq, 0));
}

// The rows that save_to_datapp_db stores for one operation in one area, from
// the generator's results: mitigation, then adaptation, then yield.
void datapp_rows(const ImpactGenerator& gen, double impact_area, double operation_dq,
                 const RvcTerms& rvc, AreaResult& out) {
  auto refs = [&](const std::string* t) -> std::string_view {
    if (!t) return {};
    if (!gen.results_are_text()) return *t;
    return out.texts.emplace_back(*t);  // the generator's cells change on its next call
  };
  // The columns every kind of result fills alike.
  auto row = [&](const auto& r, int64_t impact_type) -> OpsRow& {
    OpsRow& o = out.rows.emplace_back();
    o.activity_id = stored_activity_id(r.id);
    o.impact_type = impact_type;
    o.value = r.total;
    o.data_quality = data_quality(r.data_quality, operation_dq);
    o.refs = refs(r.refs);
    return o;
  };
  for (const auto& r : gen.mitigation_results())
    row(r, r.horizon == 0 ? 1 : 2).cseq = static_cast<double>(r.horizon);
  for (const auto& r : gen.adaptation_results()) {
    OpsRow& o = row(r, 3);
    o.category = r.category;
    o.impact_max = rvc.max_factor(r.category, impact_area);
  }
  for (const auto& r : gen.yield_results()) row(r, 4);
}

// The areas of a country at levels 0..level, in the order the run visits them.
std::vector<Area> country_areas(const Db& rvc, int64_t nuts0_id, int level) {
  std::vector<Area> out;
  for (int k = 0; k <= level; ++k) {
    rvc.require_table(nuts_table(k));
    auto rows = rvc.query(
        "SELECT * FROM " + quote_name(nuts_table(k)) + " WHERE \"NUTS0_ID\" = ? ORDER BY rowid",
        {Value(nuts0_id)});
    rows.each([&](const Rows& rows) {
      Area a;
      a.level = k;
      for (int p = 0; p <= k; ++p) a.ids[p] = rows.get(nuts_id_column(p)).as_int();
      a.code = rows.get("NUTS").as_text();
      a.name = rows.get("NAME").as_text();
      a.sqkm = rows.get("SQKM").as_double();
      a.av_fs = rows.get("AV_FS").as_double();
      out.push_back(std::move(a));
    });
  }
  return out;
}

// The area-operation pairs that already have rows in the target: the test
// of nuts_ops_exists, read once per country, since a run writes an area's
// rows only while it is on that area.
using ExistingRows = std::set<std::tuple<int, int64_t, int64_t>>;  // level, area id, operation

ExistingRows existing_rows(const Db& target, int level) {
  ExistingRows out;
  for (int k = 0; k <= level; ++k) {
    auto rows = target.query("SELECT DISTINCT " + quote_name(nuts_id_column(k)) +
                             ", \"Operation ID\" FROM " + quote_name(nuts_table(k) + "_OPS"));
    rows.each(
        [&](const Rows& rows) { out.emplace(k, rows.get(0).as_int(), rows.get(1).as_int()); });
  }
  return out;
}

// The CORINE shares (class 1 rows) of every area, by level and area id and RVC.
using CorineShares = std::map<std::tuple<int, int64_t, int64_t>, double>;

CorineShares corine_shares(const Db& rvc, const std::vector<Area>& areas, const RvcTerms& terms,
                           int level) {
  std::set<int64_t> corine_ids;
  for (const auto& [cls, id] : terms.corine_rvc) corine_ids.insert(id);
  std::set<std::pair<int, int64_t>> wanted;
  for (const auto& a : areas) wanted.emplace(a.level, a.id());
  CorineShares out;
  for (int k = 0; k <= level; ++k) {
    std::string table = nuts_table(k) + "_RVC_Data_Dist";
    if (!rvc.has_table(table)) continue;
    auto rows =
        rvc.query("SELECT * FROM " + quote_name(table) + " WHERE \"RVC Class\" = 1 ORDER BY rowid");
    rows.each([&](const Rows& rows) {
      int64_t area = rows.get(nuts_id_column(k)).as_int();
      int64_t rvc_id = rows.get("RVC ID").as_int();
      if (!corine_ids.count(rvc_id) || !wanted.count({k, area})) return;
      out.emplace(std::make_tuple(k, area, rvc_id), rows.get("Percent").as_double());  // first row
    });
  }
  return out;
}

// Restores the session's store paths when the run ends in any way.
struct PathGuard {
  std::string ops, rvc;
  ~PathGuard() {
    session().ops_db_path = ops;
    session().rvc_db_path = rvc;
  }
};

bool decide(RunMode mode, const RunOperation& op, bool has_rows, const std::string& master_date,
            const std::string& store_date) {
  switch (mode) {
    case RunMode::by_date:
      return needs_update(master_date, store_date);
    case RunMode::add_new:
      return !has_rows;
    case RunMode::add_new_update_selected:
      return op.selected || !has_rows;
    case RunMode::update_existing:
      return has_rows;
    case RunMode::update_selected:
      return op.selected;
    case RunMode::all:
      return true;
  }
  return false;
}

using AreaSlots = OrderedSlots<AreaResult>;

struct CountryRun {
  const RunParams& params;
  RunControl& control;
  const ImpactSource& source;
  const RvcTerms& terms;
  const std::unordered_map<int64_t, MasterOperation>& master_ops;
  int& time_horizon;  // as a one-thread run leaves it from area to area
};

// What a country's generation needs besides the run.
struct CountryPlan {
  const std::vector<Area>& areas;
  const ExistingRows& existing;
  const std::unordered_map<int64_t, std::string>& store_dates;
  const CorineShares& shares;
  std::vector<int> horizon_at;  // the time horizon at the start of each area
};

// Whether the run processes the operation in the area.
bool processes(const CountryRun& run, const CountryPlan& plan, const Area& a,
               const RunOperation& op) {
  auto m = run.master_ops.find(op.id);
  if (m == run.master_ops.end())
    throw ImpactDataError("operation " + std::to_string(op.id) +
                          " is not in the Operations table of the operations store");
  auto sd = plan.store_dates.find(op.id);
  bool has_rows = plan.existing.count({a.level, a.id(), op.id}) > 0;
  return decide(run.params.mode, op, has_rows, m->second.last_updated,
                sd == plan.store_dates.end() ? "" : sd->second);
}

// The time horizon is the only state a generator keeps from call to call,
// and it changes only to the last horizon. So the horizon a one-thread run
// has at the start of each area is known before any area is generated, and
// each area can be generated apart. The areas' rows are thus those of a
// one-thread run.
void plan_horizons(const CountryRun& run, CountryPlan& plan, const ImpactGenerator& gen) {
  std::unordered_map<int64_t, bool> sets;
  for (const auto& op : run.params.operations) sets.emplace(op.id, gen.sets_time_horizon(op.id));
  plan.horizon_at.clear();
  for (const Area& a : plan.areas) {
    plan.horizon_at.push_back(run.time_horizon);
    for (const auto& op : run.params.operations) {
      if (!sets[op.id]) continue;
      bool does = false;
      try {
        does = processes(run, plan, a, op);
      } catch (const ImpactDataError&) {
        break;  // the generation of this area fails there and says so
      }
      if (does) {
        run.time_horizon = 250;  // the last horizon
        break;
      }
    }
  }
}

// Generates one area with its own generator.
AreaResult generate_area(const CountryRun& run, const CountryPlan& plan, size_t i,
                         ImpactGenerator& gen) {
  const Area& a = plan.areas[i];
  const auto& ops = run.params.operations;
  AreaResult result;
  result.area_index = i;
  gen.set_time_horizon(plan.horizon_at[i]);
  for (size_t j = 0; j < ops.size(); ++j) {
    if (run.control.halted) break;
    const RunOperation& op = ops[j];
    if (j % 32 == 0 || j + 1 == ops.size())
      run.control.update([&](RunProgress& p) {
        p.operation = op.name;
        p.operation_index = static_cast<int>(j + 1);
        p.operation_count = static_cast<int>(ops.size());
      });
    if (!processes(run, plan, a, op)) continue;
    const MasterOperation& m = run.master_ops.at(op.id);
    const int64_t corine = m.corine_class;
    gen.gen_impact_data(op.id, corine, a.ids[3], a.ids[2], a.ids[1], a.ids[0], a.sqkm, a.level);
    double impact_area = a.sqkm * 100;
    if (corine != 0) {
      double p = 0;
      auto rvc = run.terms.corine_rvc.find(corine);
      if (rvc != run.terms.corine_rvc.end()) {
        auto s = plan.shares.find({a.level, a.id(), rvc->second});
        if (s != plan.shares.end()) p = s->second;
      }
      impact_area = (p / 100) * (a.sqkm * 100);
    }
    OperationRows rows;
    rows.operation_id = op.id;
    rows.had_rows = plan.existing.count({a.level, a.id(), op.id}) > 0;
    rows.impact_area = impact_area;
    rows.first = result.rows.size();
    datapp_rows(gen, impact_area, m.operation_dq, run.terms, result);
    rows.count = result.rows.size() - rows.first;
    result.operations.push_back(rows);
    ++result.processed;
  }
  return result;
}

// The pragmas of a store being built in a temporary file: it is renamed into
// place when the run ends, and a killed run leaves the old store, so the
// file need not survive a crash itself. Rollback still works, in memory.
void build_pragmas(Db& db) {
  db.exec_script(
      "PRAGMA journal_mode = MEMORY; PRAGMA synchronous = OFF; PRAGMA cache_size = -65536;");
}

// Areas written per transaction.
constexpr int kAreasPerTransaction = 64;

bool build_country(Ui& ui, const CountryRun& run, int64_t nuts0_id, const std::string& cc,
                   const fs::path& building, bool& armed);

// One country of the run; false when it was halted.
bool run_country(Ui& ui, const CountryRun& run, int64_t nuts0_id, const std::string& cc) {
  const RunParams& params = run.params;
  const fs::path target = country_target_path(cc);
  // The store is built beside the target and replaces it when the run ends
  // in any way but a kill or a disk that cannot take it: done, halted or
  // stopped by a fault of the data (rows already written for areas stay, as
  // they would in place).
  const fs::path building = fs::path(target.string() + ".tmp");
  std::error_code ec;
  fs::remove(building, ec);
  if (!params.existing_db || !fs::exists(target)) {
    // A target that is not a whole store (left by a killed copy) never
    // overwrites the backup of the last good one.
    if (store_is_whole(target))
      copy_store_file(target, prepro_folder() / ("backup_" + target.filename().string()));
    if (!fs::exists(prepro_base_path())) new_basefile();
    copy_store_file(prepro_base_path(), building);
  } else {
    copy_store_file(target, building);
  }
  struct Replace {
    const fs::path &from, &to;
    bool armed = true;
    ~Replace() {
      std::error_code e;
      if (armed) durable_rename(from, to, e);
    }
  } replace{building, target};
  try {
    return build_country(ui, run, nuts0_id, cc, building, replace.armed);
  } catch (const std::exception& e) {
    // A full disk or a read-only folder: the old store stays as it was.
    if (write_fault_of(e)) {
      replace.armed = false;
      fs::remove(building, ec);
    }
    throw;
  }
}

// Fills the store being built and publishes it; `armed` is cleared before
// the store is put in place here.
bool build_country(Ui& ui, const CountryRun& run, int64_t nuts0_id, const std::string& cc,
                   const fs::path& building, bool& armed) {
  const RunParams& params = run.params;
  const fs::path target = country_target_path(cc);
  fill_country_store(building, nuts0_id, params.dq_refs, &ui);

  Db rvc = Db::open(session().rvc_db_path);
  std::vector<Area> areas = country_areas(rvc, nuts0_id, params.level);
  CorineShares shares = corine_shares(rvc, areas, run.terms, params.level);
  std::optional<Db> store_file(Db::open(building, true));
  Db& store = *store_file;
  build_pragmas(store);
  ExistingRows existing = existing_rows(store, params.level);
  auto store_dates = last_updated_by_operation(store);
  run.control.update([&](RunProgress& p) {
    p.area_count = static_cast<int>(areas.size());
    p.area_index = 0;
    p.processed.clear();
  });

  CountryPlan plan{areas, existing, store_dates, shares, {}};
  const unsigned threads =
      params.threads ? params.threads : std::max(1u, std::thread::hardware_concurrency());
  std::vector<ImpactGenerator> gens;
  for (unsigned t = 0; t < threads; ++t) gens.emplace_back(run.source).set_results_only(true);
  plan_horizons(run, plan, gens[0]);

  const auto started = std::chrono::steady_clock::now();
  AreaSlots slots(areas.size(), 2 * threads + 2);
  std::vector<std::thread> workers;
  for (unsigned t = 0; t < threads; ++t)
    workers.emplace_back([&, t] {
      while (auto i = slots.claim(run.control.halted)) {
        try {
          slots.put(*i, generate_area(run, plan, *i, gens[t]));
        } catch (...) {
          slots.fail(*i, std::current_exception());
          slots.stop();
        }
      }
    });
  auto finish_workers = [&] {
    slots.stop();
    for (auto& w : workers)
      if (w.joinable()) w.join();
  };

  std::set<int64_t> list5;  // operations processed in this country
  bool halted = false;
  auto last_report = std::chrono::steady_clock::now() - std::chrono::seconds(1);
  std::optional<Transaction> tx;
  try {
    OpsWriter writer(store);
    int in_tx = 0;
    for (size_t i = 0; i < areas.size(); ++i) {
      // A halt stops the run after the area being written; areas generated
      // ahead of the writer are dropped, as if never reached.
      std::optional<AreaResult> result;
      if (!run.control.halted) result = slots.take(i, run.control.halted);
      if (!result || run.control.halted) {
        halted = true;
        break;
      }
      const Area& a = areas[i];
      if (!tx) tx.emplace(store);
      int64_t rows = 0;
      // Each area is whole or absent, as if it had a transaction of its own.
      store.exec("SAVEPOINT area");
      try {
        for (const auto& op : result->operations) rows += writer.save_to_datapp_db(a, op, *result);
      } catch (...) {
        store.exec("ROLLBACK TO area");
        store.exec("RELEASE area");
        throw;
      }
      store.exec("RELEASE area");
      // List5 compares ids as 32-bit floats, as the list holds text.
      for (const auto& op : result->operations)
        list5.insert(static_cast<int64_t>(static_cast<float>(op.operation_id)));
      if (++in_tx == kAreasPerTransaction) {
        tx->commit();
        tx.reset();
        in_tx = 0;
      }
      int index = static_cast<int>(i) + 1;
      std::string label = std::to_string(index) + "/" + std::to_string(areas.size()) + ". NUTS" +
                          std::to_string(a.level) + ": " + a.code + ": " + a.name;
      run.control.update([&](RunProgress& p) {
        p.area = label;
        p.area_index = index;
        p.pairs += result->processed;
        p.rows += rows;
        // Set once per country, from the first area.
        if (p.processed.empty())
          p.processed =
              "Number of operations being processed = " + std::to_string(result->processed);
      });
      auto now = std::chrono::steady_clock::now();
      if (now - last_report > std::chrono::milliseconds(200) ||
          index == static_cast<int>(areas.size())) {
        ui.progress(index, static_cast<int>(areas.size()), label);
        last_report = now;
        slots.wake();  // a halt asked for during the progress report
      }
    }
    if (tx) tx->commit();
  } catch (...) {
    run.control.halted = true;  // stops the generators
    finish_workers();
    // The areas written before the fault stay.
    if (tx) tx->commit();
    throw;
  }
  finish_workers();
  auto seconds_since = [](std::chrono::steady_clock::time_point t) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
  };
  const double generated = seconds_since(started);
  run.control.update([&](RunProgress& p) { p.generate_seconds += generated; });
  if (halted || run.control.halted) return false;

  // update_last_updated_date: the store now remembers what was generated.
  {
    Transaction tx(store);
    Statement set = store.prepare_statement(
        "UPDATE \"Operations\" SET \"Last_Updated\" = ? WHERE \"Operation ID\" = ?");
    for (int64_t id : list5) {
      auto m = run.master_ops.find(id);
      if (m != run.master_ops.end())
        set.run(
            {m->second.last_updated.empty() ? Value() : Value(m->second.last_updated), Value(id)});
    }
    tx.commit();
  }
  store_file.reset();
  std::vector<int64_t> ids;
  for (const auto& op : params.operations) ids.push_back(op.id);
  armed = false;
  durable_rename(building, target);
  const auto publishing = std::chrono::steady_clock::now();
  publish_country_store(ui, target, cc, ids);
  const double published = seconds_since(publishing);
  run.control.update([&](RunProgress& p) { p.publish_seconds += published; });
  return true;
}

}  // namespace

bool process_start2(Ui& ui, const RunParams& params, RunControl& control) {
  control.halted = false;
  control.update([&](RunProgress& p) {
    p = RunProgress();
    p.running = true;
    p.country_count = static_cast<int>(params.countries.size());
  });
  Session& s = session();
  bool halted = false;
  bool ok = true;
  {
    PathGuard guard{(s.app_folder / "dbases" / "arven_operations.mdb").string(),
                    (s.app_folder / "dbases" / "arven_rvcs.mdb").string()};
    s.ops_db_path = prepro_ops_master_path().string();
    s.rvc_db_path = prepro_rvcs_master_path().string();
    try {
      remove_stale_temporaries();
      if (!params.countries.empty()) {
        ImpactSource source = ImpactSource::load(s.ops_db_path, s.rvc_db_path);
        Db rvc = Db::open(s.rvc_db_path);
        RvcTerms terms = RvcTerms::load(rvc);
        for (int64_t id = 0; id < kRvcFactorCount; ++id)
          s.rvc_n_factor[static_cast<size_t>(id)] = 0;
        for (const auto& [id, t] : terms.by_rvc)
          if (id >= 0 && id < kRvcFactorCount) s.rvc_n_factor[static_cast<size_t>(id)] = t.n_factor;
        std::unordered_map<int64_t, MasterOperation> master_ops;
        {
          Db ops = Db::open(s.ops_db_path);
          ops.require_table("Operations");
          auto rows = ops.query("SELECT * FROM \"Operations\"");
          rows.each([&](const Rows& rows) {
            master_ops.emplace(rows.get("Operation ID").as_int(),
                               MasterOperation{rows.get("CORINE Class").as_int(),
                                               rows.get("Operation_DQ").as_double(),
                                               rows.get("Last_Updated").as_text()});
          });
        }
        int time_horizon = 0;  // a generator's first horizon
        CountryRun run{params, control, source, terms, master_ops, time_horizon};
        int index = 0;
        for (int64_t nuts0_id : params.countries) {
          std::string cc, label;
          {
            auto country =
                rvc.query("SELECT * FROM \"NUTS0\" WHERE \"NUTS0_ID\" = ?", {Value(nuts0_id)});
            if (!country.next())
              rvc.fail("it has no country " + std::to_string(nuts0_id) + " in NUTS0");
            cc = country.get("NUTS").as_text();
            label = cc + " - " + country.get("NAME").as_text();
          }
          ++index;
          control.update([&](RunProgress& p) {
            p.country = label;
            p.country_index = index;
          });
          ui.progress(0, 1, label);
          if (!run_country(ui, run, nuts0_id, cc)) {
            halted = true;
            break;
          }
        }
      }
    } catch (const std::exception& e) {
      ok = false;
      ui.message_box(std::string("The pre-processing run stopped: ") + e.what(), "Pre-processing",
                     MsgButtons::Ok, MsgIcon::Stop);
    }
  }
  control.update([](RunProgress& p) { p.running = false; });
  ui.progress(0, 0, "");
  if (!ok) return false;
  control.halted = true;
  if (halted)
    ui.message_box("Processing halted", "Pre-processing", MsgButtons::Ok, MsgIcon::Information);
  else
    ui.message_box("Done", "Pre-processing", MsgButtons::Ok, MsgIcon::Information);
  return true;
}

}  // namespace arven

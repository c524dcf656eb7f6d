#include "engine/impact_cache.h"

#include <sqlite3.h>

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_context.h"
#include "engine/impact_summaries.h"
#include "stores/db.h"

namespace arven {

using engine_detail::ImpactContext;

namespace {

double num(const std::string& cell) {
  return cell_to_number(cell);
}

// A Long column from a cell: whole numbers as they are, others rounded half
// to even as the store's conversion does.
Value long_of(const std::string& cell) {
  return Value(static_cast<int64_t>(round_half_even(num(cell), 0)));
}
Value long_of(double x) {
  return Value(static_cast<int64_t>(round_half_even(x, 0)));
}

// An empty cell becomes "0", in the table too.
const std::string& zero_if_empty(std::string& cell) {
  if (cell.empty()) cell = "0";
  return cell;
}

// The data-quality mean and the reference text of one kind of impact.
struct Side {
  double quality = 0;
  int count = 0;
  std::string refs;

  void take(const std::string& dq, const std::string& ref) {
    quality += num(dq);
    ++count;
    if (!ref.empty()) refs += (refs.empty() ? "" : ", ") + ref;
  }
  double mean() const { return count > 0 ? quality / count : quality; }
};

// The keys of a reference text, each once, joined by ", ".
std::string unique_refs(const std::string& refs, std::vector<ListItem>& list) {
  add_refs_to_list(refs, list, true);
  std::string out;
  for (const ListItem& item : list) out += (out.empty() ? "" : ", ") + item.text;
  return out;
}

const std::vector<std::string> kActivityColumns = {
    "Operation ID",       "Activity ID",           "Impact type",  "RVC ID",
    "Regional impact ha", "Regional impact total", "Time horizon", "Cseq",
    "Impact max",         "Risk reduction",        "Data_Quality", "Refs"};
const std::vector<std::string> kOperationColumns = {
    "Operation ID",          "Impact type",  "Regional impact ha",
    "Regional impact total", "Time horizon", "Regional risk reduction total",
    "Data_Quality",          "Refs"};

int horizon_index(int64_t years) {
  for (size_t h = 0; h < kHorizonYears.size(); ++h)
    if (kHorizonYears[h] == years) return static_cast<int>(h) + 1;
  return 0;
}

void reset_loaded_adaptation_table(GridTable& table) {
  table.clear();
  table.resize(1, 6);
  const char* titles[] = {"Activity ID",     "Activity/feature",
                          "Impact category", "Regional risk reduction",
                          "Data Quality",    "Refs"};
  for (int c = 0; c < 6; ++c) table.cell(0, c) = titles[c];
}

}  // namespace

namespace engine_detail {

void save_impact(ImpactContext& ctx, int64_t operation_id, OperationFigures& ex) {
  if (ex.adaptation_shape != AdaptationShape::calculated)
    throw std::logic_error("save_impact_data needs the tables of a calculation, not of a load");
  GridTable& ghg = ex.ghg_activity_table;
  GridTable& adaptation = ex.adaptation_activity_table;
  GridTable& production = ex.production_activity_table;
  const GridTable& summary = ex.ghg_summary_table;
  const Value op(operation_id);

  // Every row is worked out before the file is touched.
  std::vector<std::vector<Value>> activity_rows;
  Side ghg_side, adaptation_side, production_side;
  for (int r = 1; r < ghg.rows(); ++r)
    for (int h = 1; h <= 7; ++h) {
      const std::string& cseq = zero_if_empty(ghg.cell(r, 16));
      const std::string& dq = zero_if_empty(ghg.cell(r, 17));
      activity_rows.push_back({op, long_of(ghg.cell(r, 0)), Value(1), Value(),
                               Value(num(ghg.cell(r, 2 * h))), Value(num(ghg.cell(r, 2 * h + 1))),
                               Value(kHorizonYears[static_cast<size_t>(h - 1)]), Value(num(cseq)),
                               Value(), Value(), long_of(dq), Value(ghg.cell(r, 18))});
      // Seven counts per activity, and a missing quality counts as 0.
      ghg_side.take(dq, ghg.cell(r, 18));
    }

  double adaptation_total = 0;
  double risk_reduction_sum = 0;
  for (int r = 1; r < adaptation.rows(); ++r) {
    const double t = num(adaptation.cell(r, 4));
    const double m = num(zero_if_empty(adaptation.cell(r, 5)));
    adaptation_total += t;
    double risk_reduction = 0;
    if (m != 0) {
      risk_reduction = (t / m) * 100;
      risk_reduction_sum += risk_reduction;
    }
    const std::string& dq = zero_if_empty(adaptation.cell(r, 6));
    activity_rows.push_back({op, long_of(adaptation.cell(r, 0)), Value(2),
                             long_of(adaptation.cell(r, 2)), Value(num(adaptation.cell(r, 3))),
                             Value(t), Value(), Value(), Value(m), Value(risk_reduction),
                             long_of(dq), Value(adaptation.cell(r, 7))});
    adaptation_side.take(dq, adaptation.cell(r, 7));
  }

  std::array<double, 8> production_total{};
  for (int r = 1; r < production.rows(); ++r)
    for (int h = 1; h <= 7; ++h) {
      const std::string& dq = zero_if_empty(production.cell(r, 16));
      const double total = num(production.cell(r, 2 * h + 1));
      activity_rows.push_back({op, long_of(production.cell(r, 0)), Value(4), Value(),
                               Value(num(production.cell(r, 2 * h))), Value(total),
                               Value(kHorizonYears[static_cast<size_t>(h - 1)]), Value(), Value(),
                               Value(), long_of(dq), Value(production.cell(r, 17))});
      production_side.take(dq, production.cell(r, 17));
      production_total[static_cast<size_t>(h)] += total;
    }

  std::vector<ListItem> ref_list;
  const std::string ghg_refs = unique_refs(ghg_side.refs, ref_list);
  const std::string adaptation_refs = unique_refs(adaptation_side.refs, ref_list);
  const std::string production_refs = unique_refs(production_side.refs, ref_list);

  const double area = ex.op_total_area;
  std::vector<std::vector<Value>> operation_rows;
  for (int h = 1; h <= 7; ++h)
    operation_rows.push_back({op, Value(1), Value(num(summary.cell(2, h))),
                              Value(num(summary.cell(1, h))),
                              Value(kHorizonYears[static_cast<size_t>(h - 1)]), Value(),
                              long_of(ghg_side.mean()), Value(ghg_refs)});
  if (adaptation.rows() > 1)
    operation_rows.push_back({op, Value(2), Value(area == 0 ? 0 : adaptation_total / area),
                              Value(adaptation_total), Value(1), Value(risk_reduction_sum),
                              long_of(adaptation_side.mean()), Value(adaptation_refs)});
  if (production.rows() > 1)
    for (int h = 1; h <= 7; ++h) {
      const double total = production_total[static_cast<size_t>(h)];
      operation_rows.push_back({op, Value(4), Value(area == 0 ? 0 : total / area), Value(total),
                                Value(kHorizonYears[static_cast<size_t>(h - 1)]), Value(),
                                long_of(production_side.mean()), Value(production_refs)});
    }

  Db& db = ctx.assessment();
  std::optional<Transaction> tx;
  if (!ctx.in_transaction) tx.emplace(db);
  // The operation's rows of a table give way to the new ones. Inside a
  // recalculation the rows of each operation are known (found by one scan,
  // then followed through its own writes) and go by rowid, not by a scan of
  // the table for every operation.
  auto replace = [&](const std::string& table, const std::vector<std::string>& columns,
                     const std::vector<std::vector<Value>>& rows) {
    Statement& insert = ctx.file_statement(insert_sql(table, columns));
    if (!ctx.in_transaction) {
      ctx.file_statement("DELETE FROM " + quote_name(table) + " WHERE \"Operation ID\" = ?")
          .run({op});
      for (const auto& row : rows) insert.run(row);
      return;
    }
    std::vector<int64_t>& rowids = ctx.operation_rowids(table, operation_id);
    Statement& remove = ctx.file_statement("DELETE FROM " + quote_name(table) + " WHERE rowid = ?");
    for (int64_t rowid : rowids) remove.run({Value(rowid)});
    rowids.clear();
    for (const auto& row : rows) {
      insert.run(row);
      rowids.push_back(static_cast<int64_t>(sqlite3_last_insert_rowid(db.handle())));
    }
  };
  replace("Activity-Impact data", kActivityColumns, activity_rows);
  replace("Operation-Impact data", kOperationColumns, operation_rows);
  // Recorded for the whole file, though only this operation was saved: intended.
  ctx.file_statement("UPDATE \"Version\" SET \"Carbon seq included\" = ?")
      .run({Value(session().cseq_included)});
  if (tx) tx->commit();

  ex.ref_list = std::move(ref_list);
  ex.risk_reduction_sum = risk_reduction_sum;
  ex.adaptation_total = adaptation_total;
}

}  // namespace engine_detail

ImpactStatus save_impact_data(Ui& ui, int64_t operation_id, OperationFigures& figures) {
  try {
    ImpactContext ctx;
    engine_detail::save_impact(ctx, operation_id, figures);
    return ImpactStatus::done;
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    return ImpactStatus::failed;
  }
}

namespace {

// One row of Activity-Impact data as the load reads it.
struct CachedRow {
  int64_t activity_id = 0;
  int64_t impact_type = 0;
  Value rvc_id;
  double ha = 0;
  double total = 0;
  int64_t horizon = 0;
  Value cseq;
  double risk_reduction = 0;
  Value data_quality;
  Value refs;
};

// The first pass of a load for one kind of impact: an activity row per
// activity, its horizons from the rows that name them. Returns the sum and
// count of the activities' quality.
std::pair<double, int> load_horizons(const std::vector<CachedRow>& rows, bool production,
                                     GridTable& table, engine_detail::StoreCache& ops) {
  double quality = 0;
  int count = 0;
  std::map<int64_t, int> found;
  for (const CachedRow& row : rows) {
    const bool wanted =
        production ? row.impact_type == 4 : row.impact_type != 2 && row.impact_type != 4;
    if (!wanted) continue;
    auto it = found.find(row.activity_id);
    int r;
    if (it != found.end()) {
      r = it->second;
    } else {
      r = table.add_row();
      found.emplace(row.activity_id, r);
      table.cell(r, 0) = std::to_string(row.activity_id);
      table.cell(r, 1) = ops.activity_name(row.activity_id);
      if (production) {
        table.cell(r, 16) = row.data_quality.as_text();
        table.cell(r, 17) = row.refs.as_text();
      } else {
        table.cell(r, 16) = row.cseq.as_text();
        table.cell(r, 17) = row.data_quality.as_text();
        table.cell(r, 18) = row.refs.as_text();
      }
      quality += row.data_quality.as_double();
      ++count;
    }
    if (int h = horizon_index(row.horizon)) {
      table.cell(r, 2 * h) = number_to_cell(round_half_even(row.ha, 3));
      table.cell(r, 2 * h + 1) = number_to_cell(round_half_even(row.total, 0));
    }
  }
  engine_detail::sort_rows_on(table, 1);
  return {quality, count};
}

void load_impact(ImpactContext& ctx, int64_t operation_id, OperationFigures& ex) {
  const Session& s = session();
  Db& db = ctx.assessment();
  GridTable ghg, adaptation, production;
  reset_ghg_activity_table(ghg);
  reset_loaded_adaptation_table(adaptation);
  reset_production_activity_table(production);

  std::vector<CachedRow> rows;
  {
    auto q = db.query(
        "SELECT \"Activity ID\", \"Impact type\", \"RVC ID\", \"Regional impact ha\", "
        "\"Regional impact total\", \"Time horizon\", \"Cseq\", \"Risk reduction\", "
        "\"Data_Quality\", \"Refs\" FROM \"Activity-Impact data\" WHERE \"Operation ID\" = ? "
        "ORDER BY rowid",
        {Value(operation_id)});
    while (q.next())
      rows.push_back({q.get(0).as_int(), q.get(1).as_int(), q.get(2), q.get(3).as_double(),
                      q.get(4).as_double(), q.get(5).as_int(), q.get(6), q.get(7).as_double(),
                      q.get(8), q.get(9)});
  }
  auto install = [&] {
    ex.ghg_activity_table = std::move(ghg);
    ex.adaptation_activity_table = std::move(adaptation);
    ex.adaptation_shape = AdaptationShape::loaded;
    ex.production_activity_table = std::move(production);
  };
  if (rows.empty()) {
    // The summaries and op_total_area keep what they held, intended.
    install();
    ex.dq_ghg = ex.dq_adaptation = ex.dq_production = ex.dq_overall = 0;
    ex.risk_reduction_sum = 0;
    return;
  }

  engine_detail::StoreCache& ops = ctx.store(s.ops_db_path);
  auto [ghg_quality, ghg_count] = load_horizons(rows, false, ghg, ops);

  double risk_reduction_sum = 0;
  std::optional<std::reference_wrapper<engine_detail::StoreCache>> rvcs;
  for (const CachedRow& row : rows) {
    if (row.impact_type == 1 || row.impact_type == 4) continue;
    if (!rvcs) rvcs = ctx.store(s.rvc_db_path);
    const int r = adaptation.add_row();
    adaptation.cell(r, 0) = std::to_string(row.activity_id);
    adaptation.cell(r, 1) = ops.activity_name(row.activity_id);
    adaptation.cell(r, 2) = rvcs->get().risk_statement(row.rvc_id.as_int());
    adaptation.cell(r, 3) = number_to_cell(round_half_even(row.risk_reduction, 1));
    adaptation.cell(r, 4) = row.data_quality.as_text();
    adaptation.cell(r, 5) = row.refs.as_text();
    risk_reduction_sum += row.risk_reduction;
  }
  engine_detail::sort_rows_on(adaptation, 1);

  auto [production_quality, production_count] = load_horizons(rows, true, production, ops);

  std::optional<double> total_area;
  {
    auto q = db.query(
        "SELECT \"TArea\" FROM \"Operations\" WHERE \"Operation ID\" = ? ORDER BY rowid LIMIT 1",
        {Value(operation_id)});
    if (q.next() && !q.get(0).is_empty()) total_area = q.get(0).as_double();
  }

  GridTable ghg_summary, production_summary;
  engine_detail::reset_summary_table(ghg_summary, "tCO2e (total)", "tCO2e/ha");
  engine_detail::reset_summary_table(production_summary, "Total", "per ha");
  {
    auto q = db.query(
        "SELECT \"Impact type\", \"Time horizon\", \"Regional impact total\", "
        "\"Regional impact ha\" FROM \"Operation-Impact data\" WHERE \"Operation ID\" = ? "
        "ORDER BY rowid",
        {Value(operation_id)});
    while (q.next()) {
      const int64_t type = q.get(0).as_int();
      if (type == 2) continue;
      GridTable& summary = type == 4 ? production_summary : ghg_summary;
      if (int h = horizon_index(q.get(1).as_int())) {
        summary.cell(1, h) = number_to_cell(round_half_even(q.get(2).as_double(), 0));
        // One decimal where a fresh sum has three: intended.
        summary.cell(2, h) = number_to_cell(round_half_even(q.get(3).as_double(), 1));
      }
    }
  }

  install();
  ex.ghg_summary_table = std::move(ghg_summary);
  ex.production_summary_table = std::move(production_summary);
  if (total_area) ex.op_total_area = *total_area;
  ex.risk_reduction_sum = risk_reduction_sum;
  // Adaptation rows carry no quality into the sums on a load.
  ex.dq_ghg = ghg_count > 0 ? ghg_quality / ghg_count : 0;
  ex.dq_adaptation = 0;
  ex.dq_production = production_count > 0 ? production_quality / production_count : 0;
  const int overall = ghg_count + production_count;
  ex.dq_overall = overall > 0 ? (ghg_quality + production_quality) / overall : 0;
}

}  // namespace

ImpactStatus load_impact_data(Ui& ui, int64_t operation_id, OperationFigures& figures) {
  try {
    ImpactContext ctx;
    load_impact(ctx, operation_id, figures);
    return ImpactStatus::done;
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    return ImpactStatus::failed;
  }
}

// ---- stale cache ------------------------------------------------------------------

CacheState cache_state() {
  Db db = Db::open(session().current_file);
  if (!db.query("SELECT 1 FROM \"Operations\" LIMIT 1").next()) return CacheState::empty;
  auto q = db.query(
      "SELECT \"Regional data changed\", \"Carbon seq included\" FROM \"Version\" ORDER BY rowid "
      "LIMIT 1");
  if (!q.next()) return CacheState::current;
  if (q.get(0).as_text() == "Yes") return CacheState::stale_region;
  // A setting never recorded compares as no difference.
  const Value carbon = q.get(1);
  if (!carbon.is_empty() && carbon.as_double() != session().cseq_included)
    return CacheState::stale_carbon;
  return CacheState::current;
}

// ---- recalculation ------------------------------------------------------------------

ImpactStatus data_update(Ui& ui, const ImpactCacheHooks& hooks, bool confirmed) {
  ExplorerState& ex = explorer_state();
  // The file is written in one transaction: a disk that cannot take it
  // leaves every operation as it was, and is told once.
  engine_detail::OneWriteFailureMessage one_message;
  ex.update_running = true;
  ImpactStatus status = ImpactStatus::done;
  std::string finished;  // the word left in the status bar
  try {
    ImpactContext ctx;
    Db& db = ctx.assessment();
    std::vector<std::pair<int64_t, std::string>> operations;
    auto read_operations = [&](const char* where, std::initializer_list<Value> params) {
      auto q = db.query(std::string("SELECT \"Operation ID\", \"Operation Name\" FROM "
                                    "\"Operations\"") +
                            where + " ORDER BY rowid",
                        params);
      while (q.next()) operations.emplace_back(q.get(0).as_int(), q.get(1).as_text());
    };
    if (ex.recalc_list.empty() && !confirmed) {
      const Answer answer = ui.message_box(
          "Are you sure you want to recalculate the data for all the operations you have "
          "selected?",
          "Recalculate impact data", MsgButtons::YesNoCancel, MsgIcon::Question);
      if (answer == Answer::Yes)
        read_operations("", {});
      else
        status = ImpactStatus::declined;
    } else if (ex.recalc_list.empty()) {
      read_operations("", {});
    } else {
      for (int64_t id : ex.recalc_list) read_operations(" WHERE \"Operation ID\" = ?", {Value(id)});
    }

    if (status == ImpactStatus::done) {
      // The wait page comes after the question, so nothing waits behind it.
      ui.progress(0, 1, "Updating regional impact data...");
      reset_summary_tables(ex);
      if (hooks.wait) hooks.wait(ui, "Updating regional impact data. Please wait...");
      Transaction tx(db);
      ctx.in_transaction = true;
      std::vector<int64_t> ids;
      for (const auto& op : operations) ids.push_back(op.first);
      engine_detail::prefetch_region_rows(ctx, ids);
      const int count = static_cast<int>(operations.size());
      for (int i = 0; i < count; ++i) {
        const auto& [id, name] = operations[static_cast<size_t>(i)];
        ui.progress(i, count, "Calculating data for... " + name);
        engine_detail::calculate_impact(ctx, ui, id, ex);
        operation_impact_sum_data(ex);
        engine_detail::save_impact(ctx, id, ex);
      }
      ui.progress(count, count, "");
      // Cleared even when only the listed operations were recalculated: intended.
      db.exec("UPDATE \"Version\" SET \"Regional data changed\" = 'No'");
      tx.commit();
      ex.recalc_list.clear();
      finished = "Recalculation finished: " + std::to_string(count) +
                 (count == 1 ? " operation." : " operations.");
    }
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    status = ImpactStatus::failed;
  }
  if (hooks.rebuild_lists) hooks.rebuild_lists(ui);
  ex.update_running = false;
  ui.progress(0, 0, finished);
  if (hooks.after_update) {
    try {
      hooks.after_update(ui);
    } catch (const std::exception& e) {
      engine_detail::report_failure(ui, e);
    }
  }
  return status;
}

bool data_update_link(Ui& ui, std::string_view target, const ImpactCacheHooks& hooks) {
  auto slash = target.find_last_of("/\\");
  if (slash != std::string_view::npos) target.remove_prefix(slash + 1);
  if (target == "data_update.yes") {
    // The link is the answer to the stale-data question: no second one.
    data_update(ui, hooks, true);
    return true;
  }
  if (target == "data_update.xno") {
    if (hooks.show_first_operation) hooks.show_first_operation(ui);
    return true;
  }
  return false;
}

}  // namespace arven

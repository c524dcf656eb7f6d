// arven-dump-regional SEED OUT_DIR: builds a country store and an assessment
// from SEED, runs the regional calculation, the lists, the aggregation and
// the cost curves over them, and writes everything they produced into
// OUT_DIR: every table of the assessment file (rows sorted, doubles with 17
// significant digits), the explorer's tables and every page. Two runs of the
// same seed on two builds can then be compared with `diff -r`.
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "assessment/assessment_file.h"
#include "core/registry.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_cache.h"
#include "engine/impact_summaries.h"
#include "engine/regional_impact.h"
#include "reports/aggregation.h"
#include "reports/explorer_window.h"
#include "reports/mac_curves.h"
#include "reports/operation_reports.h"
#include "reports/page_kit.h"
#include "reports/regional_analysis.h"
#include "silent_ui.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "windows/explorer.h"

namespace {

namespace fs = std::filesystem;
using arven::Value;

// A small generator whose draws are the same on every platform.
struct Random {
  std::mt19937_64 engine;
  explicit Random(uint64_t seed) : engine(seed) {}
  int64_t below(int64_t n) { return static_cast<int64_t>(engine() % static_cast<uint64_t>(n)); }
  bool chance(int percent) { return below(100) < percent; }
  // A figure with up to 6 decimals, from -range to +range.
  double figure(double range) {
    const int64_t steps = static_cast<int64_t>(range * 1000000);
    return static_cast<double>(below(2 * steps + 1) - steps) / 1000000.0;
  }
};

struct Sizes {
  int nuts2 = 0, nuts3 = 0, operations = 0, activities = 0, rvcs = 0, measures = 0;
};

std::string text_of(sqlite3_stmt* st, int c) {
  char buf[64];
  switch (sqlite3_column_type(st, c)) {
    case SQLITE_NULL:
      return "NULL";
    case SQLITE_INTEGER:
      std::snprintf(buf, sizeof buf, "%" PRId64, static_cast<int64_t>(sqlite3_column_int64(st, c)));
      return buf;
    case SQLITE_FLOAT:
      std::snprintf(buf, sizeof buf, "%.17g", sqlite3_column_double(st, c));
      return std::string("r:") + buf;
    default: {
      const auto* t = reinterpret_cast<const char*>(sqlite3_column_text(st, c));
      return "'" + std::string(t ? t : "") + "'";
    }
  }
}

// Every table of the store, one file per table, rows sorted.
void dump_store(const fs::path& file, const fs::path& out) {
  arven::Db db = arven::Db::open(file);
  fs::create_directories(out);
  for (const std::string& table : db.table_names()) {
    sqlite3_stmt* st = nullptr;
    const std::string sql = "SELECT * FROM " + arven::quote_name(table);
    if (sqlite3_prepare_v2(db.handle(), sql.c_str(), -1, &st, nullptr) != SQLITE_OK)
      db.fail("cannot read " + table);
    std::vector<std::string> rows;
    std::string head;
    for (int c = 0; c < sqlite3_column_count(st); ++c)
      head += std::string(c ? "\t" : "") + sqlite3_column_name(st, c);
    while (sqlite3_step(st) == SQLITE_ROW) {
      std::string line;
      for (int c = 0; c < sqlite3_column_count(st); ++c) line += (c ? "\t" : "") + text_of(st, c);
      rows.push_back(std::move(line));
    }
    sqlite3_finalize(st);
    std::sort(rows.begin(), rows.end());
    std::ofstream f(out / (table + ".tsv"));
    f << head << "\n";
    for (const auto& r : rows) f << r << "\n";
  }
}

void dump_grid(std::ofstream& f, const std::string& name, const arven::GridTable& g) {
  f << "== " << name << " " << g.rows() << "x" << g.cols() << "\n";
  for (int r = 0; r < g.rows(); ++r) {
    for (int c = 0; c < g.cols(); ++c) f << (c ? "\t" : "") << g.cell(r, c);
    f << "\n";
  }
}

std::string d17(double x) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.17g", x);
  return buf;
}

void dump_state(const fs::path& file, const std::string& status) {
  const arven::ExplorerState& ex = arven::explorer_state();
  std::ofstream f(file);
  f << "status " << status << "\n";
  f << "op_total_area " << d17(ex.op_total_area) << "\nrisk_reduction_sum "
    << d17(ex.risk_reduction_sum) << "\nadaptation_total " << d17(ex.adaptation_total) << "\ndq "
    << d17(ex.dq_ghg) << " " << d17(ex.dq_adaptation) << " " << d17(ex.dq_production) << " "
    << d17(ex.dq_overall) << "\n";
  dump_grid(f, "ghg_activity", ex.ghg_activity_table);
  dump_grid(f, "adaptation_activity", ex.adaptation_activity_table);
  dump_grid(f, "production_activity", ex.production_activity_table);
  dump_grid(f, "ghg_summary", ex.ghg_summary_table);
  dump_grid(f, "production_summary", ex.production_summary_table);
  for (const auto* t : {&ex.ghg_area_table, &ex.adaptation_area_table, &ex.production_area_table}) {
    f << "== area table " << t->size() << "\n";
    for (const auto& r : *t) {
      f << r.activity_id << "\t" << d17(r.activity_key) << "\t" << r.name << "\t" << r.category
        << "\t" << d17(r.category_key) << "\t" << d17(r.max) << "\t" << r.cseq << "\t" << r.quality
        << "\t" << r.refs;
      for (double x : r.totals) f << "\t" << d17(x);
      f << "\n";
    }
  }
  f << "== refs";
  for (const auto& item : ex.ref_list) f << " " << item.text;
  f << "\n";
}

void dump_window(const fs::path& file) {
  const arven::ExplorerWindow& w = arven::explorer_window();
  std::ofstream f(file);
  dump_grid(f, "MSFlexGrid3", w.MSFlexGrid3);
  dump_grid(f, "MSFlexGrid4", w.MSFlexGrid4);
  dump_grid(f, "MSFlexGrid5", w.MSFlexGrid5);
  dump_grid(f, "MSFlexGrid12", w.MSFlexGrid12);
  dump_grid(f, "RegGrid1", w.RegGrid1);
  dump_grid(f, "AgGrid1", w.AgGrid1);
  dump_grid(f, "AgGrid1_Ranked", w.AgGrid1_Ranked);
  dump_grid(f, "MACCGrid1", w.MACCGrid1);
  dump_grid(f, "MACCGrid2_M", w.MACCGrid2_M);
  dump_grid(f, "MACCGrid2_A", w.MACCGrid2_A);
}

// Moves every page of the program folder into `out`.
void take_pages(const fs::path& app, const fs::path& out) {
  fs::create_directories(out);
  for (const auto& e : fs::directory_iterator(app))
    if (e.path().extension() == ".htm") fs::rename(e.path(), out / e.path().filename());
}

const char* status_text(arven::ImpactStatus s) {
  return s == arven::ImpactStatus::done     ? "done"
         : s == arven::ImpactStatus::failed ? "failed"
                                            : "declined";
}

// A Ui that answers Yes and writes every message into a log.
class LoggingUi : public arven::bench::SilentUi {
 public:
  explicit LoggingUi(std::ofstream& log) : log_(log) {}
  arven::Answer message_box(const std::string& text, const std::string& title, arven::MsgButtons,
                            arven::MsgIcon) override {
    log_ << "message [" << title << "] " << text << "\n";
    return arven::Answer::Yes;
  }

 private:
  std::ofstream& log_;
};

void build_country(Random& rnd, const Sizes& z, const std::string& code, int country,
                   const fs::path& store_path, bool zero_fields) {
  arven::Db store = arven::create_country_store_base(store_path);
  arven::Transaction tx(store);
  for (int a = 1; a <= z.activities; ++a)
    store.insert("Activities", {"Activity ID", "Activity Name", "Norm_factor"},
                 {a, "Activity <" + std::to_string(a) + "> & co",
                  rnd.chance(10) ? Value() : Value(rnd.figure(3.0))});
  for (int v = 1; v <= z.rvcs; ++v)
    store.insert("RVC_List", {"RVC ID", "RVC Type", "Risk statement"},
                 {100 + v, 1, "Risk of \"" + std::to_string(v) + "\""});
  for (int op = 1; op <= z.operations; ++op)
    store.insert("Operations",
                 {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "TEA_Inc",
                  "TEA_Factor"},
                 {op, "Operation " + std::to_string(op), 1 + rnd.below(3),
                  5.0 + static_cast<double>(rnd.below(90)), rnd.below(2), rnd.figure(40) + 40});
  for (int m = 1; m <= z.measures; ++m)
    store.insert("New_Measures", {"Measure ID", "Measure EU ID", "Measure name"},
                 {m, "M" + std::to_string(m), "Measure " + std::to_string(m) + " <&>"});
  for (int op = 1; op <= z.operations; ++op) {
    const int links = static_cast<int>(rnd.below(4));  // some in no measure
    for (int k = 0; k < links; ++k)
      store.insert("Operations_New_Measures", {"Operation ID", "Measure ID"},
                   {op, 1 + rnd.below(z.measures + 2)});  // some measures do not exist
  }
  const std::vector<std::string> columns = {
      "NUTS Type ID", "NUTS Code",   "NUTS0_ID",    "NUTS3_ID",        "Average field size",
      "Operation ID", "Activity ID", "Impact Type", "Impact Category", "Impact value",
      "Impact area",  "Cseq Years",  "Impact max",  "Data_Quality",    "Refs"};
  for (int level : {2, 3}) {
    const int count = level == 2 ? z.nuts2 : z.nuts3;
    const std::string id_col = "NUTS" + std::to_string(level) + "_ID";
    std::vector<std::string> cols = columns;
    cols[3] = id_col;
    for (int area = 1; area <= count; ++area) {
      const std::string nuts = code + std::to_string(level * 1000 + area);
      // A field size of 0 stops every boundary feature: only in some seeds.
      const double field = zero_fields && rnd.chance(5) ? 0.0 : 0.5 + rnd.figure(10) + 10;
      const double impact_area = rnd.chance(5) ? 0.0 : 100 + rnd.figure(5000) + 5000;
      store.insert("NUTS" + std::to_string(level), {id_col, "NUTS0_ID", "NUTS", "NAME", "AV_FS"},
                   {area, country, nuts, "Area " + nuts, field});
      for (int op = 1; op <= z.operations; ++op) {
        if (rnd.chance(8)) continue;  // no rows for this pair
        const int n = 1 + static_cast<int>(rnd.below(9));
        for (int j = 0; j < n; ++j) {
          const int type = 1 + static_cast<int>(rnd.below(4));
          const int activity = 1 + static_cast<int>(rnd.below(z.activities));
          const double cseq =
              type == 2
                  ? static_cast<double>(arven::kHorizonYears[static_cast<size_t>(rnd.below(7))])
                  : 0.0;
          const Value category = type == 3 ? Value(100 + 1 + rnd.below(z.rvcs)) : Value();
          const Value max = type == 3 && !rnd.chance(10) ? Value(rnd.figure(500)) : Value();
          const Value quality = rnd.chance(10) ? Value() : Value(1 + rnd.below(5));
          const Value refs = rnd.chance(20) ? Value()
                                            : Value(std::to_string(1 + rnd.below(9)) + ", " +
                                                    std::to_string(1 + rnd.below(9)));
          store.insert("NUTS" + std::to_string(level) + "_OPS", cols,
                       {level, nuts, country, area, field, op, activity, type, category,
                        rnd.figure(200), impact_area, cseq, max, quality, refs});
        }
      }
    }
  }
  tx.commit();
}

void build_assessment(Random& rnd, const Sizes& z, const std::string& code, int country,
                      const fs::path& file) {
  arven::create_assessment_file(file.string());
  arven::Db db = arven::Db::open(file);
  arven::Transaction tx(db);
  for (int level : {2, 3}) {
    const int count = level == 2 ? z.nuts2 : z.nuts3;
    for (int area = 1; area <= count; ++area) {
      if (rnd.chance(30)) continue;
      db.insert("Regions", {"NUTS0_ID", "NUTS Type ID", "NUTS Code", "NUTS ID", "NUTS AREA"},
                {country, level, code + std::to_string(level * 1000 + area), area,
                 rnd.chance(3) ? 0.0 : rnd.figure(900) + 1000});
    }
  }
  for (int op = 1; op <= z.operations; ++op) {
    if (rnd.chance(20)) continue;
    auto maybe = [&](double range) { return rnd.chance(15) ? Value() : Value(rnd.figure(range)); };
    db.insert(
        "Operations",
        {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "Uptake", "Cost",
         "Cost Single", "TEA_Inc", "TEA_Factor", "TEA_Cost"},
        {op, "Operation " + std::to_string(op) + " \"mine\"", rnd.chance(10) ? 3 : 1 + rnd.below(2),
         5.0 + static_cast<double>(rnd.below(90)), rnd.figure(50) + 50, maybe(300), maybe(100000),
         rnd.below(2), rnd.figure(40) + 40, maybe(20000)});
  }
  tx.commit();
}

int run(uint32_t seed, const fs::path& out) {
  Random rnd(seed);
  Sizes z;
  z.nuts2 = 3 + static_cast<int>(rnd.below(10));
  z.nuts3 = 20 + static_cast<int>(rnd.below(60));
  z.operations = 10 + static_cast<int>(rnd.below(30));
  z.activities = 5 + static_cast<int>(rnd.below(20));
  z.rvcs = 3 + static_cast<int>(rnd.below(8));
  z.measures = 4 + static_cast<int>(rnd.below(10));

  // A fixed folder, as messages name the stores in it.
  const fs::path dir = fs::temp_directory_path() / ("arven_dump_regional_" + std::to_string(seed));
  fs::remove_all(dir);
  fs::create_directories(dir);
  fs::create_directories(out);
  const std::string code = "SK";
  const int country = arven::country_index_by_code(code);
  const fs::path store_path = arven::country_store_path(dir, code);
  build_country(rnd, z, code, country, store_path, seed % 5 == 4);
  const fs::path file = dir / "dump.arv";
  build_assessment(rnd, z, code, country, file);

  arven::set_page_date_source([] {
    return std::chrono::year_month_day{std::chrono::year{2024}, std::chrono::month{3},
                                       std::chrono::day{9}};
  });
  arven::Session& s = arven::session();
  s.app_folder = dir;
  s.country_installed[static_cast<size_t>(country)] = 1;
  s.country_db_path[static_cast<size_t>(country)] = store_path.string();
  s.ops_db_path = s.rvc_db_path = store_path.string();
  s.current_file = file.string();
  s.cseq_included = static_cast<int>(seed % 2);
  s.ranking_TH = arven::kHorizonYears[seed % 7];
  arven::reset_explorer_state();

  std::ofstream log(out / "log.txt");
  LoggingUi ui(log);
  arven::ExplorerState& ex = arven::explorer_state();
  std::vector<int64_t> chosen;
  {
    arven::Db db = arven::Db::open(file);
    auto q = db.query("SELECT \"Operation ID\" FROM \"Operations\" ORDER BY rowid");
    while (q.next()) chosen.push_back(q.get(0).as_int());
  }

  // The recalculation of every chosen operation, with the wait page the
  // explorer shows.
  arven::ImpactCacheHooks waits;
  waits.wait = arven::explorer_wait_page;
  ex.recalc_list = chosen;
  log << "data_update " << status_text(arven::data_update(ui, waits)) << "\n";
  dump_state(out / "state_after_update.txt", "");
  dump_store(file, out / "file_after_update");

  // One operation at a time, live and then loaded back, with its reports.
  for (int64_t op : {chosen.front(), chosen[chosen.size() / 2], chosen.back(),
                     static_cast<int64_t>(z.operations + 5)}) {
    const std::string tag = "op" + std::to_string(op);
    ex.current_operation_id = op;
    dump_state(out / (tag + "_impact.txt"),
               status_text(arven::operation_impact(ui, op, arven::explorer_state())));
    arven::explorer_window().current_operation = op;
    arven::operation_specific_html_hub(ui, 1, 1);
    arven::operation_specific_html_hub(ui, 1, 2);
    for (int kind : {1, 2, 4}) arven::regional_analysis(ui, op, kind);
    dump_state(out / (tag + "_load.txt"),
               status_text(arven::load_impact_data(ui, op, arven::explorer_state())));
    for (int64_t technique : {1, 2, 3}) {
      double total = 0;
      const auto st = arven::get_operation_tot_reg_area(ui, 40, technique, 12.5, total);
      log << tag << " area " << technique << " " << status_text(st) << " " << d17(total) << "\n";
    }
    take_pages(dir, out / ("pages_" + tag));
  }

  // The lists, the aggregation and the cost curves, under both cost sources.
  arven::ExplorerWindow& w = arven::explorer_window();
  w.sort_grid5 = 1 + static_cast<int>(seed % 10);
  w.ranking_mode = 1 + static_cast<int>(seed % 2);
  arven::load_sorted_lists();
  arven::my_operation_list_html();
  for (int source : {2, 1}) {
    w.mac_source = source;
    w.mac_costs = 1 + static_cast<int>((seed + static_cast<uint32_t>(source)) % 3);
    arven::aggregate_new_measure(ui);
    arven::mac_curve_ghg_hub(ui);
    take_pages(dir, out / ("pages_source" + std::to_string(source) + "_ghg"));
    arven::mac_curve_adapt_hub(ui);
    take_pages(dir, out / ("pages_source" + std::to_string(source) + "_adapt"));
    arven::mac_curve_ghg_measures_hub(ui);
    take_pages(dir, out / ("pages_source" + std::to_string(source) + "_measures"));
    dump_window(out / ("window_source" + std::to_string(source) + ".txt"));
  }

  // A recalculation after the region changed: a second data_update of all.
  {
    arven::Db db = arven::Db::open(file);
    db.exec("DELETE FROM \"Regions\" WHERE rowid % 3 = 0");
  }
  ex.recalc_list.clear();
  log << "data_update all " << status_text(arven::data_update(ui, waits, true)) << "\n";
  dump_state(out / "state_after_second_update.txt", "");
  dump_store(file, out / "file_final");
  take_pages(dir, out / "pages_final");
  log.close();
  fs::remove_all(dir);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: arven-dump-regional SEED OUT_DIR\n");
    return 2;
  }
  try {
    return run(static_cast<uint32_t>(std::stoul(argv[1])), argv[2]);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "arven-dump-regional: %s\n", e.what());
    return 1;
  }
}

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "assessment/assessment_file.h"
#include "core/registry.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_cache.h"
#include "engine/impact_summaries.h"
#include "engine/regional_impact.h"
#include "reports/aggregation.h"
#include "reports/analyst_pages.h"
#include "reports/explorer_window.h"
#include "reports/mac_curves.h"
#include "reports/operation_reports.h"
#include "reports/scenario_compare.h"
#include "reports/uncertainty.h"
#include "silent_ui.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "windows/explorer.h"
#include "windows/report_pack.h"

namespace {

namespace fs = std::filesystem;
using arven::Value;

constexpr int kAreas = 400;
constexpr int kOperations = 100;
constexpr int kActivities = 40;
constexpr int kRowsPerArea = 8;

using arven::bench::SilentUi;

// A synthetic country of 400 NUTS3 areas with eight impact rows per area and
// operation for 100 operations (four plain GHG rows, one sequestration row,
// two adaptation rows, one production row), and an assessment whose region
// is every area and which has chosen every operation. Built once per run in
// the program folder of the session, removed at exit.
struct Country {
  fs::path dir = fs::temp_directory_path() / ("arven_bench_regional_" + std::to_string(::getpid()));

  Country() {
    const std::string code = "SK";
    const int country = arven::country_index_by_code(code);
    const fs::path store_path = arven::country_store_path(dir, code);
    {
      arven::Db store = arven::create_country_store_base(store_path);
      arven::Transaction tx(store);
      for (int a = 1; a <= kActivities; ++a)
        store.insert("Activities", {"Activity ID", "Activity Name", "Norm_factor"},
                     {a, "Activity " + std::to_string(a), 1.0 + a % 3});
      for (int op = 1; op <= kOperations; ++op)
        store.insert("Operations",
                     {"Operation ID", "Operation Name", "Scaling up technique", "ST Value",
                      "TEA_Inc", "TEA_Factor"},
                     {op, "Operation " + std::to_string(op), 1 + op % 2, op % 2 ? 10.0 : 80.0,
                      op % 3 == 0 ? 0 : 1, 15.0});
      // Twenty measures; every operation stands in one, every third in two.
      for (int m = 1; m <= 20; ++m)
        store.insert("New_Measures", {"Measure ID", "Measure EU ID", "Measure name"},
                     {m, "M" + std::to_string(m), "Measure " + std::to_string(m)});
      for (int op = 1; op <= kOperations; ++op) {
        store.insert("Operations_New_Measures", {"Operation ID", "Measure ID"}, {op, op % 20 + 1});
        if (op % 3 == 0)
          store.insert("Operations_New_Measures", {"Operation ID", "Measure ID"},
                       {op, (op + 7) % 20 + 1});
      }
      const std::vector<std::string> columns = {
          "NUTS Type ID", "NUTS Code",   "NUTS0_ID",    "NUTS3_ID",        "Average field size",
          "Operation ID", "Activity ID", "Impact Type", "Impact Category", "Impact value",
          "Impact area",  "Cseq Years",  "Impact max",  "Data_Quality",    "Refs"};
      for (int area = 1; area <= kAreas; ++area) {
        const std::string nuts = code + std::to_string(1000 + area);
        const double impact_area = 2000.0 + (area * 37) % 5000;
        const double field = 3.0 + area % 7;
        store.insert("NUTS3", {"NUTS3_ID", "NUTS0_ID", "NUTS", "NAME", "SQKM", "AV_FS"},
                     {area, country, nuts, "Area " + std::to_string(area), 50.0, field});
        for (int op = 1; op <= kOperations; ++op)
          for (int j = 0; j < kRowsPerArea; ++j) {
            const int activity = (op * 7 + j) % kActivities + 1;
            const int type = j < 4 ? 1 : j == 4 ? 2 : j < 7 ? 3 : 4;
            // Mitigation rows mostly reduce emissions, so that cost curves have
            // something to draw.
            const double magnitude = 10.0 + ((area * 131 + op * 17 + j * 7) % 900) / 7.0;
            const double value = type == 1 && (op + j) % 4 != 0 ? -magnitude : magnitude;
            store.insert(
                "NUTS3_OPS", columns,
                {3, nuts, country, area, field, op, activity, type,
                 type == 3 ? Value(100 + j) : Value(), value, impact_area, type == 2 ? 25.0 : 0.0,
                 type == 3 ? Value(value * 3) : Value(), 1 + (area + j) % 5,
                 std::to_string(j + 1) + ", " + std::to_string(j + 2)});
          }
      }
      tx.commit();
    }

    const fs::path file = dir / "bench.arv";
    arven::create_assessment_file(file.string());
    {
      arven::Db db = arven::Db::open(file);
      arven::Transaction tx(db);
      for (int area = 1; area <= kAreas; ++area)
        db.insert("Regions", {"NUTS0_ID", "NUTS Type ID", "NUTS Code", "NUTS ID", "NUTS AREA"},
                  {country, 3, code + std::to_string(1000 + area), area, 50.0});
      for (int op = 1; op <= kOperations; ++op)
        db.insert("Operations",
                  {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "Uptake",
                   "TEA_Inc", "TEA_Factor"},
                  {op, "Operation " + std::to_string(op), 1 + op % 2, op % 2 ? 10.0 : 80.0, 50.0,
                   op % 3 == 0 ? 0 : 1, 15.0});
      tx.commit();
    }

    arven::Session& s = arven::session();
    s.app_folder = dir;
    s.country_installed[static_cast<size_t>(country)] = 1;
    s.country_db_path[static_cast<size_t>(country)] = store_path.string();
    s.ops_db_path = s.rvc_db_path = store_path.string();
    s.current_file = file.string();
    arven::reset_explorer_state();
  }
  ~Country() { fs::remove_all(dir); }
};

const Country& country() {
  static const Country c;
  return c;
}

void report_peak_memory(benchmark::State& state) {
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["peak_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is KiB
}

// One operation live over the 400 areas: 400 area queries of 8 rows each,
// the scaling, the merges and both summaries.
void BM_operation_impact(benchmark::State& state) {
  country();
  SilentUi ui;
  for (auto _ : state) {
    if (arven::operation_impact(ui, 42, arven::explorer_state()) != arven::ImpactStatus::done)
      state.SkipWithError("failed");
    benchmark::DoNotOptimize(arven::explorer_state().op_total_area);
  }
  report_peak_memory(state);
}
BENCHMARK(BM_operation_impact)->Unit(benchmark::kMillisecond);

// The same, each time as the first calculation after start-up: the store's
// rows are not kept from the run before.
void BM_operation_impact_first(benchmark::State& state) {
  country();
  SilentUi ui;
  for (auto _ : state) {
    state.PauseTiming();
    arven::forget_kept_store_rows();
    state.ResumeTiming();
    if (arven::operation_impact(ui, 42, arven::explorer_state()) != arven::ImpactStatus::done)
      state.SkipWithError("failed");
    benchmark::DoNotOptimize(arven::explorer_state().op_total_area);
  }
  report_peak_memory(state);
}
BENCHMARK(BM_operation_impact_first)->Unit(benchmark::kMillisecond);

// A recalculation of all 100 chosen operations through recalc_list, each
// calculated and saved, in one transaction.
void BM_data_update_100(benchmark::State& state) {
  country();
  SilentUi ui;
  for (auto _ : state) {
    auto& list = arven::explorer_state().recalc_list;
    list.clear();
    for (int op = 1; op <= kOperations; ++op) list.push_back(op);
    if (arven::data_update(ui) != arven::ImpactStatus::done) state.SkipWithError("failed");
  }
  report_peak_memory(state);
}
BENCHMARK(BM_data_update_100)->Unit(benchmark::kMillisecond);

// The same, each time as the first recalculation after start-up.
void BM_data_update_100_first(benchmark::State& state) {
  country();
  SilentUi ui;
  for (auto _ : state) {
    state.PauseTiming();
    arven::forget_kept_store_rows();
    auto& list = arven::explorer_state().recalc_list;
    list.clear();
    for (int op = 1; op <= kOperations; ++op) list.push_back(op);
    state.ResumeTiming();
    if (arven::data_update(ui) != arven::ImpactStatus::done) state.SkipWithError("failed");
  }
  report_peak_memory(state);
}
BENCHMARK(BM_data_update_100_first)->Unit(benchmark::kMillisecond);

// The stored figures of all 100 chosen operations, once per run.
void ensure_figures() {
  static bool done = false;
  if (done) return;
  SilentUi ui;
  auto& list = arven::explorer_state().recalc_list;
  list.clear();
  for (int op = 1; op <= kOperations; ++op) list.push_back(op);
  arven::data_update(ui);
  done = true;
}

// The four list pages of 100 chosen operations: read, scored, sorted, written.
void BM_list_pages_100(benchmark::State& state) {
  country();
  ensure_figures();
  arven::explorer_window().sort_grid5 = 10;
  for (auto _ : state) {
    arven::load_sorted_lists();
    arven::my_operation_list_html();
  }
  report_peak_memory(state);
}
BENCHMARK(BM_list_pages_100)->Unit(benchmark::kMillisecond);

// The aggregation of 100 operations over 20 measures, with its two pages.
void BM_aggregate_100(benchmark::State& state) {
  country();
  ensure_figures();
  SilentUi ui;
  arven::explorer_window().mac_source = 2;  // entered costs: the area of each operation
  for (auto _ : state) arven::aggregate_new_measure(ui);
  // A check that the run did its work: measures with a figure.
  const arven::GridTable& ag = arven::explorer_window().AgGrid1;
  int with_figures = 0;
  for (int r = 1; r < ag.rows(); ++r) with_figures += ag.cell(r, 2) != "0";
  state.counters["measures"] = with_figures;
  report_peak_memory(state);
}
BENCHMARK(BM_aggregate_100)->Unit(benchmark::kMillisecond);

// A GHG cost curve of 100 operations, costs from their production figures.
void BM_mac_curve_ghg_100(benchmark::State& state) {
  country();
  ensure_figures();
  SilentUi ui;
  arven::explorer_window().mac_source = 1;
  for (auto _ : state) arven::mac_curve_ghg_hub(ui);
  state.counters["curve_columns"] = arven::explorer_window().MACCGrid1.cols();
  report_peak_memory(state);
}
BENCHMARK(BM_mac_curve_ghg_100)->Unit(benchmark::kMillisecond);

// The comparison of two files of 100 operations over the 400 areas: the
// second a copy of the first with other uptakes. Costs from the entered
// data, so each file's regional area of every operation is worked out.
void BM_compare_100(benchmark::State& state) {
  const Country& c = country();
  ensure_figures();
  const fs::path other = c.dir / "bench_other.arv";
  fs::copy_file(arven::session().current_file, other, fs::copy_options::overwrite_existing);
  arven::Db::open(other).exec("UPDATE \"Operations\" SET \"Uptake\" = 30");
  SilentUi ui;
  arven::explorer_window().mac_source = 2;
  for (auto _ : state) arven::compare_html(ui, other.string());
  state.counters["rows"] = arven::explorer_window().CompareGrid.rows();
  report_peak_memory(state);
}
BENCHMARK(BM_compare_100)->Unit(benchmark::kMillisecond);

// The totals of 100 operations at the seven horizons, with their page.
void BM_totals_100(benchmark::State& state) {
  country();
  ensure_figures();
  SilentUi ui;
  arven::explorer_window().mac_source = 2;
  for (auto _ : state) arven::portfolio_totals_html(ui);
  report_peak_memory(state);
}
BENCHMARK(BM_totals_100)->Unit(benchmark::kMillisecond);

// The Monte Carlo run of 100 operations at 1,000 draws on every core (the
// figures read once), and the whole Uncertainty page with its reading and
// cost curve.
void BM_monte_carlo_100(benchmark::State& state) {
  country();
  ensure_figures();
  const auto ops = arven::read_uncertain_operations(arven::Db::open(arven::session().current_file));
  size_t activities = 0;
  for (const auto& op : ops) activities += op.activities.size();
  arven::MonteCarloOptions options;
  for (auto _ : state) benchmark::DoNotOptimize(arven::monte_carlo(ops, options));
  state.counters["activities"] = static_cast<double>(activities);
  report_peak_memory(state);
}
BENCHMARK(BM_monte_carlo_100)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_uncertainty_page_100(benchmark::State& state) {
  country();
  ensure_figures();
  SilentUi ui;
  arven::explorer_window().mac_source = 1;
  for (auto _ : state) arven::uncertainty_html(ui, 5);
  report_peak_memory(state);
}
BENCHMARK(BM_uncertainty_page_100)->Unit(benchmark::kMillisecond)->UseRealTime();

// The report pack of 50 of those operations over the 400 areas: every page,
// the workbook, and the PDF when Chromium is found (the counter "pdf" says
// whether it was). Real time: Chromium runs in processes of its own.
void BM_report_pack_50(benchmark::State& state) {
  const Country& c = country();
  ensure_figures();
  arven::Session& s = arven::session();
  const std::string all = s.current_file;
  const fs::path half = c.dir / "bench_50.arv";
  fs::copy_file(all, half, fs::copy_options::overwrite_existing);
  {
    arven::Db db = arven::Db::open(half);
    for (const char* table : {"Operations", "Operation-Impact data", "Activity-Impact data"})
      db.exec("DELETE FROM " + arven::quote_name(table) + " WHERE \"Operation ID\" > 50");
  }
  // The detailed reports name the risk of each adaptation category.
  {
    arven::Db store = arven::Db::open(s.ops_db_path);
    for (int rvc : {105, 106})
      store.exec(
          "INSERT OR IGNORE INTO \"RVC_List\" (\"RVC ID\", \"RVC Type\", \"Risk statement\") "
          "VALUES (" +
          std::to_string(rvc) + ", 2, 'Risk " + std::to_string(rvc) + "')");
  }
  s.current_file = half.string();
  SilentUi ui;
  arven::explorer_window().mac_source = 2;
  const fs::path chromium = arven::find_chromium();
  arven::ReportPack pack;
  for (auto _ : state) pack = arven::write_report_pack(ui, c.dir / "pack", chromium);
  s.current_file = all;
  state.counters["pages"] = static_cast<double>(pack.sections.size());
  state.counters["pdf"] = pack.pdf ? 1 : 0;
  if (!pack.pdf && !chromium.empty()) state.SkipWithError(pack.pdf_note.c_str());
  report_peak_memory(state);
}
BENCHMARK(BM_report_pack_50)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(1);

}  // namespace

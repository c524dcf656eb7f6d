#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "assessment/assessment_file.h"
#include "core/registry.h"
#include "core/session.h"
#include "reports/hotspot.h"
#include "reports/rvc_browser.h"
#include "silent_ui.h"
#include "stores/db.h"
#include "synthetic_country.h"

namespace {

namespace fs = std::filesystem;

using arven::bench::SilentUi;

// The synthetic country SK (400 NUTS3 areas, 40 RVCs of which 9 of the
// browser's type) installed as the country store, and an assessment whose
// region is the whole country. Built once per run, removed at exit.
struct RvcCountry {
  fs::path dir = fs::temp_directory_path() / ("arven_bench_rvc_" + std::to_string(::getpid()));

  RvcCountry() {
    arven::synth::Options options;
    options.out = dir;
    options.operations = 20;
    arven::synth::generate_country(options);
    const int country = arven::country_index_by_code("SK");
    arven::Session& s = arven::session();
    s.app_folder = dir;
    s.country_installed[static_cast<size_t>(country)] = 1;
    s.country_db_path[static_cast<size_t>(country)] = (dir / "arven_rvcs.mdb").string();
    s.rvc_db_path = s.ops_db_path = s.country_db_path[static_cast<size_t>(country)];
    s.current_file = (dir / "bench.arv").string();
    arven::create_assessment_file(s.current_file);
    arven::Db file = arven::Db::open(s.current_file);
    file.insert("Regions", {"NUTS0_ID", "NUTS Type ID", "NUTS Code", "NUTS ID"},
                {country, 0, "SK", country});
  }
  ~RvcCountry() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

RvcCountry& country() {
  static RvcCountry c;
  return c;
}

void BM_hotspot_report_400_areas(benchmark::State& state) {
  country();
  SilentUi ui;
  for (auto _ : state) {
    if (!arven::hotspot_hub(ui, arven::kBrowserRvcType)) state.SkipWithError("cancelled");
  }
  state.counters["cells"] = static_cast<double>(arven::rvc_browser().MSFlexGrid4.rows() - 1) *
                            (arven::rvc_browser().MSFlexGrid4.cols() - 1);
}
BENCHMARK(BM_hotspot_report_400_areas)->Unit(benchmark::kMillisecond);

void BM_rvc_index_page(benchmark::State& state) {
  country();
  SilentUi ui;
  for (auto _ : state) arven::top_index(ui);
}
BENCHMARK(BM_rvc_index_page)->Unit(benchmark::kMillisecond);

// The country's own page (its NUTS1 areas) and a NUTS2 page of ten NUTS3 areas.
void BM_rvc_country_page(benchmark::State& state) {
  country();
  SilentUi ui;
  for (auto _ : state) arven::nuts_index(ui, "SK");
}
BENCHMARK(BM_rvc_country_page)->Unit(benchmark::kMillisecond);

void BM_rvc_details_page(benchmark::State& state) {
  country();
  SilentUi ui;
  for (auto _ : state) arven::details(ui, "SK1");
}
BENCHMARK(BM_rvc_details_page)->Unit(benchmark::kMillisecond);

}  // namespace

#include <benchmark/benchmark.h>

#include <unistd.h>
#include <filesystem>

#include "bench/synthetic_country.h"
#include "stores/db.h"

namespace {

namespace fs = std::filesystem;

// A small synthetic country, generated once per run and removed at exit.
const fs::path& country_dir() {
  struct Country {
    fs::path dir = fs::temp_directory_path() / ("arven_bench_stores_" + std::to_string(::getpid()));
    Country() {
      arven::synth::Options o;
      o.out = dir;
      o.nuts3 = 40;
      o.operations = 30;
      arven::synth::generate_country(o);
    }
    ~Country() { fs::remove_all(dir); }
  };
  static const Country country;
  return country.dir;
}

// The class shares of one area and RVC, as impact generation reads them
// for every factor row: a query by NUTS3_ID and RVC ID over the whole table.
void BM_nuts3_rvc_distribution(benchmark::State& state) {
  arven::Db db = arven::Db::open(country_dir() / "arven_rvcs.mdb");
  int area = 1, rvc = 1;
  int64_t rows_read = 0;
  for (auto _ : state) {
    auto rows =
        db.query("SELECT * FROM \"NUTS3_RVC_Data_Dist\" WHERE \"NUTS3_ID\" = ? AND \"RVC ID\" = ?",
                 {area, rvc});
    double sum = 0;
    while (rows.next()) {
      sum += rows.get("Percent").as_double() * rows.get("RVC Class").as_double();
      ++rows_read;
    }
    benchmark::DoNotOptimize(sum);
    area = area % 40 + 1;
    rvc = rvc % 40 + 1;
  }
  state.counters["rows/query"] =
      benchmark::Counter(static_cast<double>(rows_read) / static_cast<double>(state.iterations()));
}
BENCHMARK(BM_nuts3_rvc_distribution);

}  // namespace

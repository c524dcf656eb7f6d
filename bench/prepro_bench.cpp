// The pre-processing benchmark: a full run in mode "all" at level 3 on
// synthetic countries, against the store's write floor measured in the same
// process: the same produced rows copied with one INSERT INTO ... SELECT per
// table into the indexed NUTS<k>_OPS tables of an empty store. The last line
// is "run / floor = R".
//   arven-bench-prepro [--nuts3 N] [--operations N] [--countries N|CC,CC,...]
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <thread>

#include "bench/synthetic_country.h"
#include "core/console_ui.h"
#include "core/registry.h"
#include "core/session.h"
#include "prep/packaging.h"
#include "prep/preprocess.h"
#include "stores/schema.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point t) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

double peak_mib() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_maxrss) / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace arven;
  synth::Options o;
  std::vector<std::string> synth_args;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string a = argv[i];
    if (a == "--nuts3" || a == "--operations" || a == "--countries") {
      synth_args.push_back(a);
      synth_args.push_back(argv[i + 1]);
    }
  }
  char templ[] = "/tmp/arven-bench-XXXXXX";
  std::filesystem::path dir = mkdtemp(templ);
  synth_args.push_back("--out");
  synth_args.push_back((dir / "dbases").string());
  o = synth::parse_options(synth_args);
  session().app_folder = dir;
  synth::generate_country(o);
  session().db_version = kDbVersion;
  session().ops_db_path = (o.out / "arven_operations.mdb").string();
  session().rvc_db_path = (o.out / "arven_rvcs.mdb").string();
  copy_dbs();
  new_basefile();

  RunParams params;
  for (const auto& code : synth::country_codes(o))
    params.countries.push_back(country_index_by_code(code));
  params.level = 3;
  params.mode = RunMode::all;
  for (const auto& item : prepro_operation_search(""))
    params.operations.push_back({item.data, item.text, true});
  std::ofstream null_out("/dev/null");
  ConsoleUi ui(null_out);
  RunControl control;
  auto t0 = std::chrono::steady_clock::now();
  bool ok = process_start2(ui, params, control);
  double run_s = seconds_since(t0);
  double run_peak = peak_mib();
  RunProgress p = control.snapshot();
  if (!ok) {
    std::cerr << "the run failed\n";
    return 1;
  }

  // The floor: the same rows copied by the store itself, one INSERT INTO
  // ... SELECT per table and country, into the indexed tables of an empty
  // store of the same schema, one transaction per country. Such a copy moves
  // the records as they are. With `filter` the copy cannot do that and builds
  // every record and index entry anew, as the run's inserts must: the cost
  // of writing the rows through SQLite at all.
  auto copy_rows = [&](const std::string& name, const std::string& filter, int64_t& rows_copied) {
    Db copy = create_country_store_base(dir / name);
    rows_copied = 0;
    auto t = std::chrono::steady_clock::now();
    for (const auto& code : synth::country_codes(o)) {
      copy.exec("ATTACH DATABASE ? AS produced", {Value(country_target_path(code).string())});
      {
        Transaction tx(copy);
        for (int k = 0; k <= 3; ++k) {
          std::string table = quote_name("NUTS" + std::to_string(k) + "_OPS");
          rows_copied +=
              copy.exec("INSERT INTO main." + table + " SELECT * FROM produced." + table + filter);
        }
        tx.commit();
      }
      copy.exec("DETACH DATABASE produced");
    }
    return seconds_since(t);
  };
  int64_t rows_copied = 0, rows_rebuilt = 0;
  const double floor_s = copy_rows("floor.mdb", "", rows_copied);
  const double rebuild_s = copy_rows("rebuilt.mdb", " WHERE 1", rows_rebuilt);

  std::printf("countries: %zu, areas x operations: %lld pairs, %lld rows\n",
              params.countries.size(), static_cast<long long>(p.pairs),
              static_cast<long long>(p.rows));
  std::printf("run: %.2f s, %.0f pairs/s, %.0f rows/s, peak memory %.0f MiB, %u threads\n", run_s,
              static_cast<double>(p.pairs) / run_s, static_cast<double>(p.rows) / run_s, run_peak,
              std::max(1u, std::thread::hardware_concurrency()));
  std::printf("of which generating and writing the areas %.2f s, stamping and zipping %.2f s\n",
              p.generate_seconds, p.publish_seconds);
  std::printf("floor: %.2f s for %lld rows (INSERT INTO ... SELECT into indexed tables)\n", floor_s,
              static_cast<long long>(rows_copied));
  std::printf("record-building copy: %.2f s for %lld rows (the same, each record built anew)\n",
              rebuild_s, static_cast<long long>(rows_rebuilt));
  std::printf("record-building copy / floor = %.2f, run / record-building copy = %.2f\n",
              rebuild_s / floor_s, run_s / rebuild_s);
  std::printf("run / floor = %.2f\n", run_s / floor_s);
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  return 0;
}

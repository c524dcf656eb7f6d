// The pre-processing benchmark: a full run in mode "all" at level 3 on a
// synthetic country, against the time of writing the same output rows
// alone into an empty store (the write limit).
//   arven-bench-prepro [--nuts3 N] [--operations N]
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>

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
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string a = argv[i];
    if (a == "--nuts3") o.nuts3 = std::stoi(argv[i + 1]);
    if (a == "--operations") o.operations = std::stoi(argv[i + 1]);
  }
  char templ[] = "/tmp/arven-bench-XXXXXX";
  std::filesystem::path dir = mkdtemp(templ);
  session().app_folder = dir;
  o.out = dir / "dbases";
  synth::generate_country(o);
  session().db_version = kDbVersion;
  session().ops_db_path = (o.out / "arven_operations.mdb").string();
  session().rvc_db_path = (o.out / "arven_rvcs.mdb").string();
  copy_dbs();
  new_basefile();

  RunParams params;
  params.countries = {country_index_by_code(o.country)};
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

  // The write limit: the same rows, read back, written alone into an empty
  // store with the same statements, one transaction per area.
  Db produced = Db::open(country_target_path(o.country));
  std::map<std::pair<int, int64_t>, std::vector<std::vector<Value>>> by_area;
  std::vector<std::string> cols = produced.column_names("NUTS3_OPS");
  int64_t rows_read = 0;
  for (int k = 0; k <= 3; ++k) {
    auto rows =
        produced.query("SELECT * FROM \"NUTS" + std::to_string(k) + "_OPS\" ORDER BY rowid");
    while (rows.next()) {
      std::vector<Value> r;
      for (int c = 0; c < rows.column_count(); ++c) r.push_back(rows.get(c));
      by_area[{k, rows.get("NUTS" + std::to_string(k) + "_ID").as_int()}].push_back(std::move(r));
      ++rows_read;
    }
  }
  Db empty = create_country_store_base(dir / "write_limit.mdb");
  std::string names, marks;
  for (const auto& c : cols) {
    names += (names.empty() ? "" : ", ") + quote_name(c);
    marks += marks.empty() ? "?" : ", ?";
  }
  std::vector<Statement> insert;
  for (int k = 0; k <= 3; ++k)
    insert.push_back(empty.prepare_statement("INSERT INTO \"NUTS" + std::to_string(k) + "_OPS\" (" +
                                             names + ") VALUES (" + marks + ")"));
  auto t1 = std::chrono::steady_clock::now();
  for (const auto& [key, rows] : by_area) {
    Transaction tx(empty);
    for (const auto& r : rows) insert[static_cast<size_t>(key.first)].run(r);
    tx.commit();
  }
  double write_s = seconds_since(t1);

  std::printf("areas x operations: %lld pairs, %lld rows\n", static_cast<long long>(p.pairs),
              static_cast<long long>(p.rows));
  std::printf("run: %.2f s, %.0f pairs/s, %.0f rows/s, peak memory %.0f MiB\n", run_s,
              static_cast<double>(p.pairs) / run_s, static_cast<double>(p.rows) / run_s, run_peak);
  std::printf("write limit: %.2f s for %lld rows; run / write limit = %.2f\n", write_s,
              static_cast<long long>(rows_read), run_s / write_s);
  std::error_code ec;
  std::filesystem::remove_all(dir, ec);
  return 0;
}

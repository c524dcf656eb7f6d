// The RVC import and aggregation benchmark: an export of 1,500 NUTS3 areas x
// 255 class columns imported for one RVC, then 40 RVCs aggregated over those
// areas to every NUTS level.
//   arven-bench-rvc [--nuts3 N] [--rvcs N]
#include <chrono>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>

#include "core/session.h"
#include "prep/rvc_import.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point t) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

}  // namespace

int main(int argc, char** argv) {
  using namespace arven;
  int nuts3 = 1500, rvcs = 40;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string a = argv[i];
    if (a == "--nuts3") nuts3 = std::stoi(argv[i + 1]);
    if (a == "--rvcs") rvcs = std::stoi(argv[i + 1]);
  }
  char templ[] = "/tmp/arven-bench-rvc-XXXXXX";
  std::filesystem::path dir = mkdtemp(templ);
  session().app_folder = dir;
  std::filesystem::create_directories(dir / "dbases" / "rvcs");
  session().rvc_db_path = (dir / "dbases" / "arven_rvcs.mdb").string();

  // One country of 10 NUTS1, 60 NUTS2 and `nuts3` NUTS3 areas; each area has
  // classes in 12 of the 255 columns of the export.
  std::mt19937 rng(15);
  {
    Db rvc = create_rvcs_master(session().rvc_db_path);
    Transaction tx(rvc);
    rvc.exec("INSERT INTO NUTS0 (NUTS0_ID, NUTS, GIS_AREA, \"EU-27\") VALUES (1, 'SY', ?, 'Y')",
             {Value(nuts3 * 100.0)});
    for (int i = 1; i <= 10; ++i)
      rvc.exec("INSERT INTO NUTS1 (NUTS1_ID, NUTS0_ID, NUTS, GIS_AREA) VALUES (?, 1, ?, ?)",
               {Value(i), Value("SY" + std::to_string(i % 10)), Value(nuts3 * 10.0)});
    for (int i = 1; i <= 60; ++i)
      rvc.exec(
          "INSERT INTO NUTS2 (NUTS2_ID, NUTS0_ID, NUTS1_ID, NUTS, GIS_AREA) VALUES (?, 1, ?, ?, ?)",
          {Value(i), Value((i - 1) / 6 + 1), Value("SY2" + std::to_string(i)),
           Value(nuts3 * 100.0 / 60)});
    for (int i = 1; i <= nuts3; ++i)
      rvc.exec(
          "INSERT INTO NUTS3 (NUTS3_ID, NUTS0_ID, NUTS1_ID, NUTS2_ID, NUTS, GIS_AREA) VALUES (?, "
          "1, ?, ?, ?, 100)",
          {Value(i), Value((i - 1) * 10 / nuts3 + 1), Value((i - 1) * 60 / nuts3 + 1),
           Value("SY3" + std::to_string(i))});
    for (int r = 1; r <= rvcs; ++r)
      rvc.exec(
          "INSERT INTO RVC_List (\"RVC ID\", \"RVC Type\", \"RVC Short Name\") VALUES (?, 1, ?)",
          {Value(r), Value("R" + std::to_string(r))});
    tx.commit();

    Db src = Db::create(rvc_import_store_path());
    std::string cols = "NUTS TEXT", marks = "?";
    for (int c = 1; c <= 255; ++c)
      cols += ", VALUE_" + std::to_string(c) + " DOUBLE", marks += ", ?";
    src.exec_script("CREATE TABLE Export_Output (" + cols + ")");
    Transaction stx(src);
    Statement put = src.prepare_statement("INSERT INTO Export_Output VALUES (" + marks + ")");
    for (int i = 1; i <= nuts3; ++i) {
      std::vector<Value> row(256, Value(0.0));
      row[0] = Value("SY3" + std::to_string(i));
      for (int k = 0; k < 12; ++k) row[1 + rng() % 255] = Value(static_cast<double>(1 + rng() % 8));
      put.run(row);
    }
    stx.commit();
  }

  auto t = std::chrono::steady_clock::now();
  auto one = nuts3_import(1, rvc_import_store_path(), "Export_Output");
  double import_s = seconds_since(t);
  std::cout << "import of " << nuts3 << " rows x 255 columns: " << import_s << " s (" << one.rows
            << " rows)\n";
  t = std::chrono::steady_clock::now();
  for (int r = 2; r <= rvcs; ++r) nuts3_import(r, rvc_import_store_path(), "Export_Output");
  std::cout << "import of the other " << rvcs - 1 << " RVCs: " << seconds_since(t) << " s\n";

  t = std::chrono::steady_clock::now();
  auto a = rvc_aggregate({0, 1, 2, 3}, std::nullopt);
  double agg_s = seconds_since(t);
  std::cout << "aggregation of " << rvcs << " RVCs over " << nuts3
            << " NUTS3 areas to every level (" << a.areas << " areas): " << agg_s << " s, "
            << a.data_rows << " data rows, " << a.dist_rows << " distribution rows\n";
  std::filesystem::remove_all(dir);
  return 0;
}

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "core/session.h"
#include "prep/rvc_import.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

// Every row of a table as text, in order: what a test compares before and after.
std::string dump(const Db& db, const std::string& table) {
  std::string out;
  auto rows = db.query("SELECT * FROM " + quote_name(table) + " ORDER BY rowid");
  while (rows.next()) {
    for (int i = 0; i < rows.column_count(); ++i) out += rows.get(i).as_text() + "|";
    out += "\n";
  }
  return out;
}

// A country AA of three NUTS3 areas (GIS 100, 200, 100) under one NUTS1 and
// NUTS2, a country BB outside the EU-27 with one area, and an export of
// RVC classes for every area but AA113.
class RvcImportTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = dir.path();
    fs::create_directories(dir / "dbases" / "rvcs");
    session().rvc_db_path = (dir / "dbases" / "arven_rvcs.mdb").string();
    session().ops_db_path = (dir / "dbases" / "arven_operations.mdb").string();
    Db rvc = create_rvcs_master(session().rvc_db_path);
    rvc.exec_script(
        "INSERT INTO NUTS0 (NUTS0_ID, NUTS, GIS_AREA, NAME, \"EU-27\") VALUES "
        "(1, 'AA', 400, 'Aland', 'Y'), (2, 'BB', 100, 'Bland', 'N');"
        "INSERT INTO NUTS1 (NUTS1_ID, NUTS0_ID, NUTS, GIS_AREA, NAME, \"EU-27\") VALUES "
        "(1, 1, 'AA1', 400, 'A one', 'Y'), (2, 2, 'BB1', 100, 'B one', 'Y');"
        "INSERT INTO NUTS2 (NUTS2_ID, NUTS0_ID, NUTS1_ID, NUTS, GIS_AREA, NAME) VALUES "
        "(1, 1, 1, 'AA11', 400, 'A one one');"
        "INSERT INTO NUTS3 (NUTS3_ID, NUTS0_ID, NUTS1_ID, NUTS2_ID, NUTS, GIS_AREA, NAME, "
        "\"EU-27\") VALUES (1, 1, 1, 1, 'AA111', 100, 'a', 'Y'), (2, 1, 1, 1, 'AA112', 200, "
        "'b', 'Y'), (3, 1, 1, 1, 'AA113', 100, 'c', 'Y'), (4, 2, 0, 0, 'BB111', 100, 'd', 'Y');"
        "INSERT INTO RVC_List (\"RVC ID\", \"RVC Type\", \"RVC Short Name\", \"Euro min\", "
        "\"Euro max\") VALUES (1, 1, 'Erosion', 0, 3), (2, 3, 'Independent', 0, 1), "
        "(3, 1, 'Heat', 3, 6);");
    Db src = Db::create(rvc_import_store_path());
    std::string cols = "NUTS TEXT";
    for (int i = 1; i <= 255; ++i) cols += ", VALUE_" + std::to_string(i) + " DOUBLE";
    src.exec_script("CREATE TABLE Export_Output (" + cols +
                    ");"
                    "INSERT INTO Export_Output (NUTS, VALUE_1, VALUE_2) VALUES ('AA111', 50, 25);"
                    "INSERT INTO Export_Output (NUTS, VALUE_3) VALUES ('AA112', 200);"
                    "INSERT INTO Export_Output (NUTS, VALUE_200) VALUES ('BB111', 100);"
                    "INSERT INTO Export_Output (NUTS, VALUE_1) VALUES ('ZZ999', 5);");
  }
  Db rvc() { return Db::open(session().rvc_db_path); }
  std::string message_of(const std::function<void()>& f) {
    try {
      f();
    } catch (const std::exception& e) {
      return e.what();
    }
    ADD_FAILURE() << "no failure";
    return "";
  }
  void import_all() {
    for (int64_t id : {1, 3}) nuts3_import(id, rvc_import_store_path(), "Export_Output");
  }

  TempDir dir;
};

TEST_F(RvcImportTest, ImportWritesSharesOfGisAreaAndAggregationWeightsChildren) {
  auto r = nuts3_import(1, rvc_import_store_path(), "Export_Output");
  EXPECT_EQ(r.rows, 4);
  EXPECT_EQ(r.areas, 3);
  EXPECT_EQ(dump(rvc(), "NUTS3_Erosion"),
            "1|AA111|1|0.5|\n1|AA111|2|0.25|\n2|AA112|3|1|\n4|BB111|200|1|\n");
  nuts3_import(3, rvc_import_store_path(), "Export_Output");

  auto a = rvc_aggregate({3, 0}, std::nullopt);
  EXPECT_EQ(a.areas, 6);
  Db db = rvc();
  // Type 3 gets nothing; AA113 has no export row, so all of it is class 0;
  // Average divides by 1000 and Min compares shares with class numbers.
  EXPECT_EQ(dump(db, "NUTS3_RVC_Data"),
            "1|1|0|1000|2|\n1|3|0|1000|2|\n2|1|0|0|3|\n2|3|0|0|3|\n3|1|0|0|0|\n3|3|0|0|0|\n"
            "4|1|20|0|200|\n4|3|20|0|200|\n");
  auto rows_of = [&](const std::string& table, int64_t area) {
    std::map<double, int64_t> out;
    auto rows = db.query("SELECT * FROM " + quote_name(table) + " WHERE \"RVC ID\" = 1 AND " +
                             quote_name(table.substr(0, 5) + "_ID") + " = ?",
                         {Value(area)});
    while (rows.next()) out[rows.get("RVC Class").as_double()] = rows.get("Percent").as_int();
    return out;
  };
  // Class 0 only where it has a share; the country weights AA112 twice:
  // 12.5, 6.25, 50 and 31.25 %, stored as whole numbers, half to even.
  EXPECT_EQ(rows_of("NUTS3_RVC_Data_Dist", 1),
            (std::map<double, int64_t>{{0, 25}, {1, 50}, {2, 25}}));
  EXPECT_EQ(rows_of("NUTS3_RVC_Data_Dist", 2), (std::map<double, int64_t>{{3, 100}}));
  EXPECT_EQ(rows_of("NUTS3_RVC_Data_Dist", 3), (std::map<double, int64_t>{{0, 100}}));
  EXPECT_EQ(rows_of("NUTS0_RVC_Data_Dist", 1),
            (std::map<double, int64_t>{{0, 31}, {1, 12}, {2, 6}, {3, 50}}));
  EXPECT_EQ(rows_of("NUTS0_RVC_Data_Dist", 2), (std::map<double, int64_t>{{200, 100}}));
  EXPECT_EQ(db.query("SELECT count(*) FROM NUTS3_RVC_Data_Dist WHERE \"RVC ID\" = 2").next(), true);
  EXPECT_EQ(
      db.query("SELECT count(*) FROM NUTS3_RVC_Data_Dist WHERE \"RVC ID\" = 2").get(0).as_int(), 0);

  // One RVC at one level leaves the other RVC and the other level alone.
  std::string level0 = dump(db, "NUTS0_RVC_Data_Dist");
  db.exec("UPDATE NUTS3_Erosion SET \"RVC Class\" = 4 WHERE \"RVC Class\" = 3");
  rvc_aggregate({3}, 1);
  EXPECT_EQ(dump(db, "NUTS0_RVC_Data_Dist"), level0);
  EXPECT_EQ(rows_of("NUTS3_RVC_Data_Dist", 2), (std::map<double, int64_t>{{4, 100}}));
  EXPECT_EQ(
      db.query(
            "SELECT count(*) FROM NUTS3_RVC_Data_Dist WHERE \"RVC ID\" = 3 AND \"RVC Class\" = 3")
          .get(0)
          .as_int(),
      0);
}

TEST_F(RvcImportTest, FaultsStopTheRunNameTheAreaAndKeepTheOldRows) {
  import_all();
  rvc_aggregate({0, 1, 2, 3}, std::nullopt);
  auto snapshot = [&] {
    Db db = rvc();
    std::string s;
    for (int k = 0; k <= 3; ++k)
      s += dump(db, "NUTS" + std::to_string(k) + "_RVC_Data") +
           dump(db, "NUTS" + std::to_string(k) + "_RVC_Data_Dist");
    return s + dump(db, "NUTS3_Erosion");
  };
  const std::string before = snapshot();

  rvc().exec("INSERT INTO NUTS3_Erosion VALUES (1, 'AA111', 1001, 0.1)");
  std::string after_insert = snapshot();
  auto m = message_of([] { rvc_aggregate({0, 1, 2, 3}, std::nullopt); });
  EXPECT_NE(
      m.find("\"NUTS3_Erosion\", row 5, column \"RVC Class\": class 1001 is outside 0 to 1000"),
      std::string::npos)
      << m;
  EXPECT_EQ(snapshot(), after_insert);
  rvc().exec("DELETE FROM NUTS3_Erosion WHERE \"RVC Class\" = 1001");

  rvc().exec("UPDATE NUTS2 SET GIS_AREA = 0");
  m = message_of([] { rvc_aggregate({3, 2}, std::nullopt); });
  EXPECT_NE(m.find("NUTS2 area AA11 (NUTS2_ID 1) has GIS_AREA 0"), std::string::npos) << m;
  EXPECT_EQ(snapshot(), before);  // level 3 was already rewritten in the transaction

  rvc().exec("UPDATE NUTS3 SET GIS_AREA = 0 WHERE NUTS = 'AA112'");
  m = message_of([] { nuts3_import(1, rvc_import_store_path(), "Export_Output"); });
  EXPECT_NE(m.find("NUTS3 area AA112 (NUTS3_ID 2) has GIS_AREA 0"), std::string::npos) << m;
  EXPECT_EQ(snapshot(), before);

  m = message_of([] { nuts3_import(1, rvc_import_store_path(), "Export_Output_1"); });
  EXPECT_NE(m.find("NUTS3_Import.mdb"), std::string::npos) << m;
  EXPECT_NE(m.find("Export_Output_1"), std::string::npos) << m;
  rvc().exec("DROP TABLE NUTS3_Heat");
  m = message_of([] { rvc_aggregate({3}, std::nullopt); });
  EXPECT_NE(m.find("NUTS3_Heat"), std::string::npos) << m;
}

TEST_F(RvcImportTest, BandsListsAndAreaMaintenance) {
  // Euro range 0..3: t1 = 1, t2 = 2; a value on a threshold stays below it.
  EXPECT_EQ(get_rvc_band(1, 0), 1);
  EXPECT_EQ(get_rvc_band(1, 1), 1);
  EXPECT_EQ(get_rvc_band(1, 1.0000001), 2);
  EXPECT_EQ(get_rvc_band(1, 2), 2);
  EXPECT_EQ(get_rvc_band(1, 2.0000001), 3);
  // Euro range 3..6: the thresholds still count from 0, so 1.5 is band 2.
  EXPECT_EQ(get_rvc_band(3, 1.5), 2);
  EXPECT_EQ(get_rvc_band(3, 4), 3);

  auto l0 = nutslist(0);
  ASSERT_EQ(l0.size(), 1u);
  EXPECT_EQ(l0[0].text, "AA - Aland");
  EXPECT_EQ(nutslist(3).size(), 4u);
  EXPECT_EQ(eu27_process(3), 4);
  EXPECT_EQ(nutslist(3).size(), 3u);  // BB111 now carries its country's "N"
  EXPECT_EQ(rvcs_with_classes(), (std::vector<int64_t>{1, 3}));

  rvc().exec("UPDATE NUTS3 SET NUTS1_ID = 0");
  EXPECT_EQ(nuts_setup(), 4);
  EXPECT_EQ(dump(rvc(), "NUTS3").substr(0, 8), "1|1|1|1|");
  EXPECT_EQ(rvc().query("SELECT NUTS1_ID FROM NUTS3 WHERE NUTS = 'BB111'").next(), true);
  EXPECT_EQ(rvc().query("SELECT NUTS1_ID FROM NUTS3 WHERE NUTS = 'BB111'").get(0).as_int(), 0);
}

TEST_F(RvcImportTest, UpdateOpFromRvcTouchesOperationsOfItsActivitiesOnly) {
  Db ops = create_operations_master(session().ops_db_path);
  ops.exec_script(
      "INSERT INTO Adaptation_Activity_Impact_Factors (\"Activity ID\", \"RVC ID\") VALUES (5, 1);"
      "INSERT INTO Mitigation_Activity_Emission_Factors (\"Activity ID\", \"RVC ID\") VALUES (6, "
      "1);"
      "INSERT INTO Yield_Activity_Impact_Factors (\"Activity ID\", \"RVC ID\") VALUES (7, 3), (5, "
      "1);"
      "INSERT INTO Operation_Activity_Delta (\"Operation ID\", \"Activity ID\") VALUES "
      "(10, 5), (11, 6), (12, 7), (10, 6);"
      "INSERT INTO Operations (\"Operation ID\", Last_Updated) VALUES (10, '2000-01-01 00:00:00'), "
      "(11, '2000-01-01 00:00:00'), (12, '2000-01-01 00:00:00');");
  EXPECT_EQ(update_op_from_rvc(1), 2);
  auto rows = ops.query("SELECT Last_Updated FROM Operations ORDER BY \"Operation ID\"");
  std::vector<std::string> dates;
  while (rows.next()) dates.push_back(rows.get(0).as_text());
  ASSERT_EQ(dates.size(), 3u);
  EXPECT_NE(dates[0], "2000-01-01 00:00:00");
  EXPECT_NE(dates[1], "2000-01-01 00:00:00");
  EXPECT_EQ(dates[2], "2000-01-01 00:00:00");
}

// A kill -9 in the middle of the aggregation's write, by the real admin
// program: the store opens afterwards with its old rows.
TEST_F(RvcImportTest, KillDuringAggregationLeavesTheOldRows) {
  {
    Db db = rvc();
    Transaction tx(db);
    for (int i = 0; i < 1500; ++i)
      db.exec(
          "INSERT INTO NUTS3 (NUTS3_ID, NUTS0_ID, NUTS1_ID, NUTS2_ID, NUTS, GIS_AREA) VALUES (?, "
          "1, 1, 1, ?, 50)",
          {Value(100 + i), Value("AX" + std::to_string(100 + i))});
    for (int r = 10; r < 40; ++r) {
      std::string t = "NUTS3_R" + std::to_string(r);
      db.exec(
          "INSERT INTO RVC_List (\"RVC ID\", \"RVC Type\", \"RVC Short Name\") VALUES (?, 1, ?)",
          {Value(r), Value("R" + std::to_string(r))});
      db.exec_script("CREATE TABLE " + t +
                     " (NUTS3_ID INTEGER, NUTS TEXT, \"RVC Class\" INTEGER, Percent DOUBLE)");
      db.exec("INSERT INTO " + t + " SELECT NUTS3_ID, NUTS, (NUTS3_ID % 7) + 1, 0.3 FROM NUTS3");
      db.exec("INSERT INTO " + t + " SELECT NUTS3_ID, NUTS, (NUTS3_ID % 5) + 10, 0.6 FROM NUTS3");
    }
    tx.commit();
  }
  import_all();
  rvc_aggregate({0, 1, 2, 3}, 1);
  const std::string before = dump(rvc(), "NUTS3_RVC_Data") + dump(rvc(), "NUTS3_RVC_Data_Dist");
  const fs::path journal = session().rvc_db_path + "-journal";

  pid_t child = fork();
  if (child == 0) {
    std::string app = dir.path().string();
    execl(ARVEN_BINARY_DIR "/arven-admin", "arven-admin", "rvc-aggregate", "--levels", "0,1,2,3",
          "--all", "--app-dir", app.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  bool seen = false;
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!seen && std::chrono::steady_clock::now() < end) {
    if (fs::exists(journal)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      seen = true;
    }
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child) break;
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  ASSERT_TRUE(seen) << "the aggregation ended before it was seen writing";
  Db db = rvc();
  db.require_intact();
  EXPECT_EQ(dump(db, "NUTS3_RVC_Data") + dump(db, "NUTS3_RVC_Data_Dist"), before);
}

}  // namespace
}  // namespace arven

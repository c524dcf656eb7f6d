#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "stores/db.h"
#include "stores/schema.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

using testing::TempDir;

std::string joined(const std::vector<std::string>& v) {
  std::string out;
  for (const auto& s : v) out += (out.empty() ? "" : "|") + s;
  return out;
}

TEST(Stores, NamesWithQuotesAndNonAsciiLettersRoundTrip) {
  TempDir dir;
  Db db = create_rvcs_master(dir / "r.mdb");
  for (const char* name : {"Côtes-d'Armor", "Sjælland", "O'Brien & <Sons>", "100% \\ _x"})
    db.insert("NUTS3", {"NUTS3_ID", "NAME", "NUTS"}, {1, name, "X"});
  auto rows = db.query("SELECT * FROM \"NUTS3\" WHERE \"NAME\" = ?", {"Côtes-d'Armor"});
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.get("name").as_text(), "Côtes-d'Armor");  // column names ignore case
  EXPECT_TRUE(rows.get("SQKM").is_null());
  EXPECT_EQ(rows.get("SQKM").as_double(), 0);
  EXPECT_FALSE(rows.next());
  auto like = db.query(
      "SELECT count(*) AS n FROM \"NUTS3\" WHERE \"NAME\" LIKE '%' || ? || '%' ESCAPE '\\'",
      {"'Brien"});
  ASSERT_TRUE(like.next());
  EXPECT_EQ(like.get("N").as_int(), 1);
  EXPECT_THROW(rows.get("No such column"), StoreError);
}

TEST(Stores, TransactionKeepsOldRowsUnlessCommitted) {
  TempDir dir;
  Db db = create_files_store(dir / "f.mdb");
  db.insert("Files", {"Name"}, {"old"});
  try {
    Transaction tx(db);
    db.exec("DELETE FROM \"Files\"");
    db.insert("Files", {"Name"}, {"new"});
    throw std::runtime_error("interrupted");
  } catch (const std::runtime_error&) {
  }
  auto rows = db.query("SELECT * FROM \"Files\"");
  ASSERT_TRUE(rows.next());
  EXPECT_EQ(rows.get("Name").as_text(), "old");
  {
    Transaction tx(db);
    db.exec("UPDATE \"Files\" SET \"Name\" = ?", {"new"});
    tx.commit();
  }
  auto after = db.query("SELECT * FROM \"Files\"");
  ASSERT_TRUE(after.next());
  EXPECT_EQ(after.get("Name").as_text(), "new");
}

TEST(Stores, BadFilesFailWithTheFileName) {
  TempDir dir;
  std::ofstream(dir / "junk.arv") << "PK\x03\x04 not a database at all, just some bytes";
  try {
    Db::open(dir / "junk.arv");
    FAIL() << "opened a file that is not a store";
  } catch (const StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("junk.arv"), std::string::npos);
  }
  EXPECT_THROW(Db::open(dir / "missing.arv"), StoreError);
  Db db = create_files_store(dir / "f.mdb");
  try {
    db.require_table("Regions");
    FAIL();
  } catch (const StoreError& e) {
    EXPECT_NE(std::string(e.what()).find("Regions"), std::string::npos);
    EXPECT_NE(std::string(e.what()).find("f.mdb"), std::string::npos);
  }
  EXPECT_THROW(db.query("SELECT * FROM \"Regions\""), StoreError);
}

// Table and column names as every other module and every installed store
// spell them, spaces and hyphens included.
TEST(Stores, EveryStoreKindHasItsTablesAndColumns) {
  TempDir dir;
  std::map<std::string, std::string> expected = {
      {"Regions", "NUTS0_ID|NUTS Type ID|NUTS Code|NUTS Name|NUTS ID|NUTS AREA"},
      {"Operations",
       "Operation ID|Operation Name|Scaling up technique|ST Value|Uptake|Cost|Cost Single|TArea|"
       "TEA_Inc|TEA_Factor|TEA_Cost"},
      {"Activity-Impact data",
       "Operation ID|Activity ID|Impact type|RVC ID|Impact factor|Range|Regional impact ha|"
       "Regional impact total|Time horizon|Cseq|Impact max|Risk reduction|Refs|Data_Quality"},
      {"Operation-Impact data",
       "Operation ID|Impact type|Regional impact ha|Regional impact total|Time horizon|"
       "Regional risk reduction total|Refs|Data_Quality"},
      {"Version", "Structure Version|Regional data changed|Carbon seq included"},
  };
  Db arv = create_assessment_store(dir / "a.arv");
  EXPECT_EQ(joined(arv.table_names()),
            "Regions|Operations|Activity-Impact data|Operation-Impact data|Version");
  for (const auto& [table, cols] : expected) EXPECT_EQ(joined(arv.column_names(table)), cols);
  auto v = arv.query("SELECT * FROM \"Version\"");
  ASSERT_TRUE(v.next());
  EXPECT_EQ(v.get("Structure Version").as_int(), 8);
  EXPECT_EQ(v.get("Regional data changed").as_text(), "No");

  Db settings = create_settings_store(dir / "arven_settings.avs");
  EXPECT_EQ(joined(settings.column_names("Country Output Norm Factors")),
            "Country ID|Output ID|Norm_factor");
  EXPECT_EQ(joined(create_files_store(dir / "ARVEN_Files.mdb").column_names("Files")),
            "Name|Farm|Location");

  Db country = create_country_store_base(dir / "c.mdb");
  EXPECT_EQ(joined(country.column_names("NUTS3")),
            "NUTS3_ID|NUTS0_ID|NUTS1_ID|NUTS2_ID|NUTS|GIS_AREA|NAME|EU-27|SQKM|AV_FS");
  EXPECT_EQ(joined(country.column_names("NUTS0")), "NUTS0_ID|NUTS|GIS_AREA|NAME|EU-27|SQKM|AV_FS");
  EXPECT_EQ(joined(country.column_names("NUTS2_RVC_Data_Dist")),
            "NUTS2_ID|RVC ID|RVC Class|Percent");
  EXPECT_EQ(joined(country.column_names("NUTS1_OPS")),
            "NUTS Type ID|NUTS Code|NUTS Name|NUTS0_ID|NUTS1_ID|NUTS2_ID|NUTS3_ID|NUTS area|"
            "Average field size|Number of fields|Operation ID|Activity ID|Impact Type|"
            "Impact Category|Impact value|Impact area|Cseq Years|Impact max|Data_Quality|Refs");
  EXPECT_EQ(joined(country.column_names("Version")), "Version|DB Version");
  EXPECT_FALSE(country.has_table("xPPL_List"));
  auto idx = country.query("SELECT group_concat(name, '|') AS c FROM pragma_index_info(?)",
                           {"idx_NUTS2_OPS"});
  ASSERT_TRUE(idx.next());
  EXPECT_EQ(idx.get("c").as_text(), "NUTS2_ID|Operation ID");

  Db ops = create_operations_master(dir / "arven_operations.mdb");
  EXPECT_EQ(ops.table_names().size(), 24u);  // with the budget chart's Countries
  EXPECT_TRUE(ops.has_table("Countries"));
  EXPECT_FALSE(country.has_table("Countries"));
  EXPECT_EQ(joined(ops.column_names("Operations")),
            "Operation ID|Operation Type ID|Operation Name|Operation Description|CORINE Class|"
            "Scaling up technique|ST Value|Uptake|Cost|Cost Single|TEA_Inc|TEA_Factor|TEA_Cost|"
            "Notes|Operation_DQ|Last_Updated");
  EXPECT_EQ(joined(ops.column_names("Mitigation_Activity_Emission_Factors")),
            "Activity ID|RVC ID|RVC Value|Mitigation Type|tCO2e|Equilibrium|Refs|Data_Quality");
  EXPECT_EQ(joined(ops.column_names("Operation_Activity_Delta")),
            "Operation ID|Baseline ID|Activity ID|RVC ID|RVC Class|Delta");
  Db rvcs = create_rvcs_master(dir / "arven_rvcs.mdb");
  EXPECT_EQ(rvcs.table_names().size(), 14u);
  EXPECT_EQ(joined(rvcs.column_names("Baseline_Impact_Look_Up")),
            "Combo RVC|Combo Class|Baseline RVC|Baseline RVC Class|Impact RVC|Impact RVC Class");
  EXPECT_EQ(rvcs.column_names("RVC_List").size(), 18u);

  Db all = create_all_country_store(dir / "new_arven_operations.mdb", {"DK", "IE"});
  EXPECT_TRUE(all.has_table("NUTS3_OPS_IE"));
  EXPECT_TRUE(all.has_table("Version"));
}

}  // namespace
}  // namespace arven

namespace arven {
namespace {

TEST(Stores, PreparedStatementsRunAndQueryRepeatedly) {
  testing::TempDir dir;
  Db db = create_files_store(dir / "f.mdb");
  Statement insert =
      db.prepare_statement("INSERT INTO \"Files\" (\"Name\", \"Farm\") VALUES (?, ?)");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(insert.run({"n" + std::to_string(i), Value(i)}), 1);
  Statement find = db.prepare_statement("SELECT * FROM \"Files\" WHERE \"Name\" = ?");
  for (const char* name : {"n2", "n0", "missing", "n1"}) {
    Rows& rows = find.query({name});
    if (std::string(name) == "missing") {
      EXPECT_FALSE(rows.next());
      continue;
    }
    ASSERT_TRUE(rows.next()) << name;
    EXPECT_EQ(rows.get("NAME").as_text(), name);
    EXPECT_EQ(rows.get("Farm").as_text(), std::string(1, name[1]));
    EXPECT_FALSE(rows.next());
  }
  EXPECT_THROW(insert.run({"a", "b", "c"}), StoreError);  // one value too many
}

}  // namespace
}  // namespace arven

#include <gtest/gtest.h>
#include <zip.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "core/session.h"
#include "prep/packaging.h"
#include "settings/zip_files.h"
#include "stores/schema.h"
#include "tests/support/guards.h"
#include "tests/support/scripted_ui.h"
#include "tests/support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using arven::testing::ScriptedUi;
using arven::testing::TempDir;

std::string read_file(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

void write_file(const fs::path& p, const std::string& text) {
  std::ofstream(p, std::ios::binary) << text;
}

bool unzip_accepts(const fs::path& zip) {
  std::string cmd = "unzip -tq '" + zip.string() + "' >/dev/null 2>&1";
  return std::system(cmd.c_str()) == 0;
}

std::vector<std::string> entry_names(const fs::path& zip) {
  int err = 0;
  zip_t* za = zip_open(zip.c_str(), ZIP_RDONLY, &err);
  std::vector<std::string> out;
  if (!za) return out;
  for (zip_int64_t i = 0; i < zip_get_num_entries(za, 0); ++i)
    out.push_back(zip_get_name(za, static_cast<zip_uint64_t>(i), 0));
  zip_discard(za);
  return out;
}

// Column `col` of every row of a query, as text ("<null>" for null).
std::vector<std::string> column(const Db& db, const std::string& sql, int col = 0) {
  std::vector<std::string> out;
  auto rows = db.query(sql);
  while (rows.next()) out.push_back(rows.get(col).is_null() ? "<null>" : rows.get(col).as_text());
  return out;
}

using Strings = std::vector<std::string>;

// ---- the zip facility ----

TEST(ZipFiles, ListErrorsCarryTextAndSourceAndKeepTheList) {
  CGZipFiles z;
  EXPECT_EQ(z.RootDirectory(), "\\");
  z.AddFile("a.mdb");
  try {
    z.AddFile("a.mdb");
    FAIL() << "a second AddFile must throw";
  } catch (const ZipError& e) {
    EXPECT_STREQ(e.what(), "File is already in Zip List");
    EXPECT_EQ(e.source(), "CGZip::AddFile");
  }
  EXPECT_EQ(z.ZipFileCount(), 1);
  z.RemoveFile("a.mdb");
  try {
    z.RemoveFile("a.mdb");
    FAIL() << "RemoveFile on an empty list must throw";
  } catch (const ZipError& e) {
    EXPECT_STREQ(e.what(), "File is not in Zip List");
    EXPECT_EQ(e.source(), "CGZip::RemoveFile");
  }
  EXPECT_EQ(z.ZipFileCount(), 0);
}

TEST(ZipFiles, SingleFileArchiveIsValidAndRoundTrips) {
  TempDir dir;
  fs::path store = dir / "sub" / "new_arven_operations_DK.mdb";
  create_country_store_base(store).insert("Version", {"Version", "DB Version"},
                                          {"2014-05-01 10:00:00", 5});
  ScriptedUi ui;
  ASSERT_EQ(zip_single_file(ui, store.string(), (dir / "a.zip").string()), kZipOk);
  EXPECT_TRUE(ui.messages.empty());
  EXPECT_TRUE(unzip_accepts(dir / "a.zip"));
  EXPECT_EQ(entry_names(dir / "a.zip"), Strings{"new_arven_operations_DK.mdb"});

  std::string why;
  ASSERT_EQ(unzip_to_folder(dir / "a.zip", dir / "out", &why), kUnzipOk) << why;
  EXPECT_EQ(read_file(dir / "out" / "new_arven_operations_DK.mdb"), read_file(store));
  EXPECT_EQ(column(Db::open(dir / "out" / "new_arven_operations_DK.mdb"),
                   "SELECT \"DB Version\" FROM \"Version\""),
            Strings{"5"});

  // A file that is not there: the user is told the zip's own message.
  EXPECT_NE(zip_single_file(ui, (dir / "missing.mdb").string(), (dir / "b.zip").string()), kZipOk);
  ASSERT_EQ(ui.messages.size(), 1u);
  EXPECT_NE(ui.messages[0].text.find("missing.mdb"), std::string::npos) << ui.messages[0].text;
  EXPECT_FALSE(fs::exists(dir / "b.zip"));
}

TEST(ZipFiles, MakeZipFileTakesTheFirstHundredFiles) {
  TempDir dir;
  CGZipFiles z;
  z.SetRootDirectory(dir.path().string());
  z.SetZipFileName((dir / "many.zip").string());
  for (int i = 1; i <= 101; ++i) {
    std::string name = "f" + std::to_string(i) + ".txt";
    write_file(dir / name, "file " + std::to_string(i));
    z.AddFile(name);
  }
  EXPECT_EQ(z.ZipFileCount(), 101);
  ASSERT_EQ(z.MakeZipFile(), kZipOk) << z.GetLastMessage();
  auto names = entry_names(dir / "many.zip");
  ASSERT_EQ(names.size(), 100u);
  EXPECT_EQ(names.front(), "f1.txt");
  EXPECT_EQ(names.back(), "f100.txt");
  EXPECT_TRUE(unzip_accepts(dir / "many.zip"));
}

TEST(ZipFiles, UnzipRefusesEntriesThatLeaveTheFolder) {
  TempDir dir;
  for (const char* bad : {"../evil", "/tmp/arven-absolute-evil", "a/../../evil"}) {
    fs::path zip = dir / "bad.zip";
    int err = 0;
    zip_t* za = zip_open(zip.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &err);
    ASSERT_NE(za, nullptr);
    static const char kText[] = "payload";
    for (const char* name : {"good.txt", bad})
      ASSERT_GE(zip_file_add(za, name, zip_source_buffer(za, kText, sizeof kText - 1, 0), 0), 0);
    ASSERT_EQ(zip_close(za), 0);

    std::string why;
    EXPECT_EQ(unzip_to_folder(zip, dir / "out", &why), kUnzipUnsafePath) << bad;
    EXPECT_NE(why.find(bad), std::string::npos) << why;
    EXPECT_FALSE(fs::exists(dir / "evil"));
    EXPECT_FALSE(fs::exists("/tmp/arven-absolute-evil"));
    EXPECT_FALSE(fs::exists(dir / "out" / "good.txt")) << "nothing is written";
  }
}

// ---- packaging ----

class PackagingTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = dir_.path();
    fs::create_directories(dir_ / "dbases");
    session().ops_db_path = (dir_ / "dbases" / "arven_operations.mdb").string();
    session().rvc_db_path = (dir_ / "dbases" / "arven_rvcs.mdb").string();
    make_masters();
    target_ = country_target_path("DK");
    make_target();
  }

  // Two countries, Austria (1) and Denmark (6), one area per level each.
  void make_masters() {
    Db rvc = create_rvcs_master(session().rvc_db_path);
    rvc.insert("NUTS0", {"NUTS0_ID", "NUTS", "NAME", "EU-27", "SQKM"},
               {1, "AT", "Austria", "Y", 1.5});
    rvc.insert("NUTS0", {"NUTS0_ID", "NUTS", "NAME", "EU-27", "SQKM"},
               {6, "DK", "Denmark", "Y", 2.5});
    rvc.insert("NUTS1", {"NUTS1_ID", "NUTS0_ID", "NUTS", "NAME"}, {11, 1, "AT1", "Ost"});
    rvc.insert("NUTS1", {"NUTS1_ID", "NUTS0_ID", "NUTS", "NAME"}, {61, 6, "DK0", "Danmark"});
    rvc.insert("NUTS2", {"NUTS2_ID", "NUTS0_ID", "NUTS1_ID", "NUTS"}, {111, 1, 11, "AT11"});
    rvc.insert("NUTS2", {"NUTS2_ID", "NUTS0_ID", "NUTS1_ID", "NUTS"}, {611, 6, 61, "DK01"});
    rvc.insert("NUTS3", {"NUTS3_ID", "NUTS0_ID", "NUTS1_ID", "NUTS2_ID", "NUTS", "AV_FS"},
               {1111, 1, 11, 111, "AT111", 3.0});
    rvc.insert("NUTS3", {"NUTS3_ID", "NUTS0_ID", "NUTS1_ID", "NUTS2_ID", "NUTS", "AV_FS"},
               {6111, 6, 61, 611, "DK011", 4.0});
    for (auto [id, avg] : {std::pair{1111, 1.0}, {6111, 2.0}}) {
      rvc.insert("NUTS3_RVC_Data", {"NUTS3_ID", "RVC ID", "Average"}, {id, 7, avg});
      rvc.insert("NUTS3_RVC_Data_Dist", {"NUTS3_ID", "RVC ID", "RVC Class", "Percent"},
                 {id, 7, 1.0, 40});
    }
    rvc.insert("RVC_List", {"RVC ID", "RVC Short Name"}, {7, "Soil"});
    rvc.insert("Baseline_Impact_Look_Up", {"Combo RVC", "Impact RVC"}, {8, 7});

    Db ops = create_operations_master(session().ops_db_path);
    const Strings op_cols = {"Operation ID", "Operation Name", "Operation_DQ", "Last_Updated"};
    ops.insert("Operations", op_cols, {1, "Cover crops v2", 0.8, "2013-02-08 09:13:00"});
    ops.insert("Operations", op_cols, {2, "Hedges", 0.5, "2014-05-01 10:00:00"});
    ops.insert("Operations", op_cols, {3, "Ponds", 0.7, nullptr});
    ops.insert("Impact areas", {"Impact ID", "Impact name"}, {1, "Water"});
    const Strings f = {"Activity ID", "RVC ID", "Refs", "Data_Quality"};
    ops.insert("Adaptation_Activity_Impact_Factors", f, {10, 7, "", 3});
    ops.insert("Mitigation_Activity_Emission_Factors", f, {10, 7, "5,6", 4});
    ops.insert("Yield_Activity_Impact_Factors", f, {20, 7, "7", 2});
    // A master column the country store does not have must not travel.
    ops.exec("ALTER TABLE \"Activities\" ADD COLUMN \"Admin note\" TEXT");
    ops.insert("Activities", {"Activity ID", "Activity Name", "Admin note"}, {10, "Tillage", "x"});
  }

  // The country's store as a previous run left it.
  void make_target() {
    Db t = create_country_store_base(target_);
    const Strings op_cols = {"Operation ID", "Operation Name", "Operation_DQ", "Last_Updated"};
    t.insert("Operations", op_cols, {1, "Cover crops", 0.9, "2012-04-10 00:00:00"});
    t.insert("Operations", op_cols, {9, "Gone", 0.1, "2012-01-01 00:00:00"});
    t.insert("References", {"Ref ID", "Ref Short"}, {1, "stale"});
    t.insert("NUTS1", {"NUTS1_ID", "NUTS0_ID", "NUTS"}, {11, 1, "AT1"});
    const Strings ops_cols = {"NUTS0_ID", "Operation ID", "Activity ID", "Refs", "Data_Quality"};
    t.insert("NUTS0_OPS", ops_cols, {6, 9, 10, "old", 9});
    t.insert("NUTS0_OPS", ops_cols, {6, 9, 20, "old", 9});
    t.insert("NUTS0_OPS", ops_cols, {6, 9, 30, "old", 9});
  }

  TempDir dir_;
  fs::path target_;
};

TEST_F(PackagingTest, CountryStoreHoldsOnlyItsCountryAndMergesOperations) {
  fill_country_store(target_, 6, false);
  Db t = Db::open(target_);
  // Only Denmark's areas, every level, with their columns.
  EXPECT_EQ(column(t, "SELECT NUTS FROM NUTS0"), Strings{"DK"});
  EXPECT_EQ(column(t, "SELECT SQKM FROM NUTS0"), Strings{"2.5"});
  EXPECT_EQ(column(t, "SELECT NUTS FROM NUTS1"), Strings{"DK0"});
  EXPECT_EQ(column(t, "SELECT NUTS FROM NUTS2"), Strings{"DK01"});
  EXPECT_EQ(column(t, "SELECT AV_FS FROM NUTS3"), Strings{"4"});
  EXPECT_EQ(column(t, "SELECT NUTS3_ID || ':' || Average FROM NUTS3_RVC_Data"),
            Strings{"6111:2.0"});
  EXPECT_EQ(column(t, "SELECT NUTS3_ID FROM NUTS3_RVC_Data_Dist"), Strings{"6111"});
  EXPECT_EQ(column(t, "SELECT \"RVC Short Name\" FROM RVC_List"), Strings{"Soil"});
  EXPECT_EQ(column(t, "SELECT \"Combo RVC\" FROM Baseline_Impact_Look_Up"), Strings{"8"});

  // Operations merged: the master's values, the store's own Last_Updated and
  // Operation_DQ; a new row starts without either; a removed one goes.
  EXPECT_EQ(column(t,
                   "SELECT \"Operation ID\" || '|' || \"Operation Name\" || '|' || "
                   "ifnull(\"Last_Updated\", '-') || '|' || ifnull(\"Operation_DQ\", '-') "
                   "FROM Operations ORDER BY \"Operation ID\""),
            (Strings{"1|Cover crops v2|2012-04-10 00:00:00|0.9", "2|Hedges|-|-", "3|Ponds|-|-"}));
  // ...but the removed operation's impact rows stay.
  EXPECT_EQ(column(t, "SELECT count(*) FROM NUTS0_OPS WHERE \"Operation ID\" = 9"), Strings{"3"});

  // An empty master table empties the target; empty Refs arrive as null.
  EXPECT_EQ(column(t, "SELECT count(*) FROM \"References\""), Strings{"0"});
  EXPECT_EQ(column(t, "SELECT Refs FROM Adaptation_Activity_Impact_Factors"), Strings{"<null>"});
  EXPECT_EQ(column(t, "SELECT Refs FROM Mitigation_Activity_Emission_Factors"), Strings{"5,6"});
  EXPECT_EQ(column(t, "SELECT \"Activity Name\" FROM Activities"), Strings{"Tillage"});
  EXPECT_EQ(column(t, "SELECT \"Impact name\" FROM \"Impact areas\""), Strings{"Water"});

  // DQ_and_Refs: mitigation overrides adaptation for activity 10, yield
  // gives activity 20's, and an activity without factors keeps its values.
  DQ_and_Refs(target_);
  EXPECT_EQ(column(t,
                   "SELECT \"Activity ID\" || ':' || ifnull(Refs, '-') || ':' || Data_Quality "
                   "FROM NUTS0_OPS ORDER BY \"Activity ID\""),
            (Strings{"10:5,6:4", "20:7:2", "30:old:9"}));
}

TEST_F(PackagingTest, PublishStampsVersionAndWritesArchiveAndVersionFile) {
  ScriptedUi ui;
  fill_country_store(target_, 6, false);
  ASSERT_EQ(publish_country_store(ui, target_, "DK", {1, 2, 3}), kZipOk);
  EXPECT_TRUE(ui.messages.empty());
  {
    Db t = Db::open(target_);
    EXPECT_EQ(column(t, "SELECT Version || '|' || \"DB Version\" FROM Version"),
              Strings{"2014-05-01 10:00:00|5"});
  }
  fs::path csv = dir_ / "dbases" / "prepro" / "zipped" / "arven_db_version_DK.csv";
  fs::path zip = dir_ / "dbases" / "prepro" / "zipped" / "arven_db_DK.zip";
  EXPECT_EQ(read_file(csv), "01/05/2014\n");
  EXPECT_TRUE(unzip_accepts(zip));
  EXPECT_EQ(entry_names(zip), Strings{"new_arven_operations_DK.mdb"});
  EXPECT_FALSE(fs::exists(csv.string() + ".tmp"));
  EXPECT_FALSE(fs::exists(zip.string() + ".tmp"));

  // Stamping again edits the one row; with no operation the date is the
  // empty date.
  EXPECT_EQ(set_version(target_, "DK", {}), kEmptyDate);
  EXPECT_EQ(column(Db::open(target_), "SELECT Version FROM Version"), Strings{kEmptyDate});
  EXPECT_EQ(read_file(csv), "30/12/1899\n");
  // Only operation 1 asked for: its date, not the newest in the master.
  EXPECT_EQ(latest_last_updated({1, 3}), "2013-02-08 09:13:00");
  EXPECT_THROW(latest_last_updated({42}), StoreError);
}

TEST_F(PackagingTest, MasterLackingATableChangesNothingAndPublishesNothing) {
  ScriptedUi ui;
  fill_country_store(target_, 6, false);
  ASSERT_EQ(publish_country_store(ui, target_, "DK", {1}), kZipOk);
  fs::path zip = country_archive_path("DK");
  fs::path csv = country_version_file_path("DK");
  std::string old_zip = read_file(zip), old_csv = read_file(csv);

  {
    Db ops = Db::open(session().ops_db_path);
    ops.exec("DELETE FROM Operations WHERE \"Operation ID\" = 1");
    ops.exec("DROP TABLE \"Measures\"");
  }
  try {
    fill_country_store(target_, 6, false);
    FAIL() << "a missing master table must throw";
  } catch (const StoreError& e) {
    std::string what = e.what();
    EXPECT_NE(what.find("arven_operations.mdb"), std::string::npos) << what;
    EXPECT_NE(what.find("Measures"), std::string::npos) << what;
  }
  // The operations copy did not run half: operation 1 is still there.
  EXPECT_EQ(column(Db::open(target_), "SELECT count(*) FROM Operations WHERE \"Operation ID\" = 1"),
            Strings{"1"});
  EXPECT_EQ(read_file(zip), old_zip);
  EXPECT_EQ(read_file(csv), old_csv);
}

TEST_F(PackagingTest, AdminButtonsBuildBaseCopyMastersAndSplitCountries) {
  new_basefile();
  fs::path base = dir_ / "dbases" / "prepro" / "new_arven_operations_base.mdb";
  ASSERT_TRUE(fs::exists(base));
  EXPECT_TRUE(Db::open(base).has_table("NUTS3_OPS"));
  EXPECT_EQ(column(Db::open(base), "SELECT count(*) FROM Operations"), Strings{"0"});

  copy_dbs(target_);
  EXPECT_EQ(read_file(dir_ / "dbases" / "prepro" / "arven_operations.mdb"),
            read_file(session().ops_db_path));
  EXPECT_EQ(read_file(dir_ / "dbases" / "prepro" / "arven_rvcs.mdb"),
            read_file(session().rvc_db_path));
  EXPECT_EQ(read_file(dir_ / "dbases" / "prepro" / "backup_new_arven_operations_DK.mdb"),
            read_file(target_));

  // A store with every country's rows is split by code, then copied into
  // the all-country store; a country whose table is missing is reported.
  EXPECT_EQ(all_country_codes(), (Strings{"AT", "DK"}));
  fs::path chosen = dir_ / "chosen.mdb";
  {
    Db c = create_country_store_base(chosen);
    for (const char* code : {"DK011", "AT111", "DK012"})
      c.insert("NUTS3_OPS", {"NUTS Code", "Operation ID"}, {code, 1});
  }
  ScriptedUi ui;
  temp_data_trans(ui, chosen);
  Db::open(chosen).exec("DROP TABLE \"NUTS2_OPS_AT\"");
  create_all_country_store(all_country_store_path(), {"AT", "DK"});
  copy_preprocess_tables(ui, chosen);
  Db all = Db::open(all_country_store_path());
  EXPECT_EQ(column(all, "SELECT \"NUTS Code\" FROM NUTS3_OPS_DK"), (Strings{"DK011", "DK012"}));
  EXPECT_EQ(column(all, "SELECT \"NUTS Code\" FROM NUTS3_OPS_AT"), Strings{"AT111"});
  ASSERT_EQ(ui.messages.size(), 2u);
  EXPECT_EQ(ui.messages[0].text, "Done");
  EXPECT_EQ(ui.messages[1].text, "NUTS2_OPS_AT Copy Failed & \\\" & ");
}

}  // namespace
}  // namespace arven

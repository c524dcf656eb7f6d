// The conveniences of the admin dialogs: Row and Column Copy, the Excel and
// manure storage imports of the activity factors, and the pre-processor's
// check of its working copies against the masters.
#include <gtest/gtest.h>
#include <xlsxwriter.h>

#include <chrono>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "prep/activity_delta.h"
#include "prep/factor_tools.h"
#include "prep/packaging.h"
#include "prep/working_copies.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"
#include "windows/prepro_dialog.h"

namespace arven::testing {
namespace {

namespace fs = std::filesystem;

GridTable table_of(std::initializer_list<std::vector<std::string>> rows) {
  GridTable t(static_cast<int>(rows.begin()->size()));
  for (const auto& row : rows) {
    int r = t.add_row();
    for (size_t c = 0; c < row.size(); ++c) t.cell(r, static_cast<int>(c)) = row[c];
  }
  return t;
}

std::vector<std::string> column(const GridTable& t, int c) {
  std::vector<std::string> out;
  for (int r = 1; r < t.rows(); ++r) out.push_back(t.cell(r, c));
  return out;
}

XlsxCell num(const std::string& text) {
  return {XlsxCell::Kind::number, text};
}
XlsxCell txt(const std::string& text) {
  return {XlsxCell::Kind::text, text};
}

TEST(FactorCopies, RowCopyFillsTheRowsBelowAndColumnCopyTheWholeColumnButNeverKeys) {
  GridTable t = table_of({{"RVC Class", "tCO2e", "Equilibrium"},
                          {"0", "1", "10"},
                          {"1", "2", "20"},
                          {"2", "", ""},
                          {"3", "4", ""}});
  EXPECT_EQ(row_copy(t, FactorKind::carbon_sequestration, 2), 2);
  EXPECT_EQ(column(t, 0), (std::vector<std::string>{"0", "1", "2", "3"}));  // classes stay
  EXPECT_EQ(column(t, 1), (std::vector<std::string>{"1", "2", "2", "2"}));
  EXPECT_EQ(column(t, 2), (std::vector<std::string>{"10", "20", "20", "20"}));
  EXPECT_EQ(row_copy(t, FactorKind::carbon_sequestration, 4), 0);  // the last row

  EXPECT_EQ(column_copy(t, FactorKind::carbon_sequestration, 3, 2), 3);
  EXPECT_EQ(column(t, 2), (std::vector<std::string>{"20", "20", "20", "20"}));
  EXPECT_EQ(column(t, 1), (std::vector<std::string>{"1", "2", "2", "2"}));
  // The class column, a row outside the table and no current cell refuse.
  EXPECT_THROW(column_copy(t, FactorKind::carbon_sequestration, 1, 0), EditError);
  EXPECT_THROW(row_copy(t, FactorKind::ghg, 5), EditError);
  EXPECT_THROW(row_copy(t, FactorKind::ghg, 0), EditError);  // the titles

  // Ecosystem services: the RVC ID travels, the name column is not typed into.
  GridTable es = table_of({{"RVC ID", "RVC Name", "Value"}, {"4", "Nitrate", "0.5"}, {"", "", ""}});
  row_copy(es, FactorKind::ecosystem_services, 1);
  EXPECT_EQ(column(es, 0), (std::vector<std::string>{"4", "4"}));
  EXPECT_EQ(column(es, 1), (std::vector<std::string>{"Nitrate", ""}));
  EXPECT_THROW(column_copy(es, FactorKind::ecosystem_services, 1, 1), EditError);
}

TEST(FactorImport, SheetRowsFillByKeyAddMissingKeysAndRefuseWholeOnABadCell) {
  GridTable t = table_of(
      {{"RVC Class", "tCO2e", "Equilibrium"}, {"0", "9", "90"}, {"1", "", ""}, {"2", "7", ""}});
  XlsxSheet notes{"Notes", {{txt("Read me")}}};
  XlsxSheet sheet{"Factors",
                  {{txt(" rvc class "), txt("Label"), txt("TCO2E")},
                   {num("1"), txt("one"), num("1.5")},
                   {},  // a blank line
                   {num("3"), txt("three"), txt("2.25")},
                   {num("2"), txt("two")}}};
  FactorFill fill = import_factor_sheet(t, FactorKind::carbon_sequestration, {notes, sheet});
  EXPECT_EQ(fill.source, "Factors");
  EXPECT_EQ(fill.filled, 2);
  EXPECT_EQ(fill.added, 1);
  EXPECT_EQ(column(t, 0), (std::vector<std::string>{"0", "1", "2", "3"}));
  // Class 2's empty cell empties it; Equilibrium, absent from the sheet, stays.
  EXPECT_EQ(column(t, 1), (std::vector<std::string>{"9", "1.5", "", "2.25"}));
  EXPECT_EQ(column(t, 2), (std::vector<std::string>{"90", "", "", ""}));

  GridTable before = t;
  sheet.rows[3][2] = txt("n/a");
  try {
    import_factor_sheet(t, FactorKind::carbon_sequestration, {sheet});
    FAIL() << "a text was imported as a number";
  } catch (const EditError& e) {
    EXPECT_NE(std::string(e.what()).find("Sheet \"Factors\", cell C4: \"n/a\""), std::string::npos);
  }
  sheet.rows[3][2] = {XlsxCell::Kind::error, "#DIV/0!"};
  EXPECT_THROW(import_factor_sheet(t, FactorKind::carbon_sequestration, {sheet}), EditError);
  EXPECT_EQ(column(t, 1), column(before, 1));
  EXPECT_EQ(t.rows(), before.rows());

  // Ecosystem services are keyed by RVC ID; a sheet without it, or without
  // any value column, is refused.
  GridTable es = table_of({{"RVC ID", "RVC Name", "Value"}, {"4", "Nitrate", "0.5"}});
  EXPECT_THROW(import_factor_sheet(es, FactorKind::ecosystem_services, {sheet}), EditError);
  XlsxSheet ids{"ES",
                {{txt("RVC ID"), txt("Value")}, {num("4"), num("0.75")}, {num("7"), num("1")}}};
  fill = import_factor_sheet(es, FactorKind::ecosystem_services, {ids});
  EXPECT_EQ(column(es, 2), (std::vector<std::string>{"0.75", "1"}));
  XlsxSheet keys_only{"Keys", {{txt("RVC ID"), txt("Other")}, {num("4"), num("1")}}};
  EXPECT_THROW(import_factor_sheet(es, FactorKind::ecosystem_services, {keys_only}), EditError);
}

class FactorStores : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    set_decimal_separator(".");
    session().app_folder = dir_.path();
    fs::create_directories(dir_ / "dbases");
    session().ops_db_path = (dir_ / "dbases/arven_operations.mdb").string();
    session().rvc_db_path = (dir_ / "dbases/arven_rvcs.mdb").string();
    Db ops = create_operations_master(session().ops_db_path);
    for (int id : {1, 2})
      ops.insert("Operations", {"Operation ID", "Operation Name", "Last_Updated"},
                 {id, "Op " + std::to_string(id), "2000-01-01 00:00:00"});
    Db rvc = create_rvcs_master(session().rvc_db_path);
    rvc.insert("RVC_List", {"RVC ID", "RVC Type", "RVC Short Name"}, {4, 1, "Nitrate"});
  }
  TempDir dir_;
  ScriptedUi ui_;
};

TEST_F(FactorStores, WorkbookAndManureMapFillTheTable) {
  // A workbook as a spreadsheet program writes it.
  fs::path book_path = dir_ / "es.xlsx";
  {
    lxw_workbook* book = workbook_new(book_path.c_str());
    lxw_worksheet* ws = workbook_add_worksheet(book, "Sheet1");
    worksheet_write_string(ws, 0, 0, "RVC ID", nullptr);
    worksheet_write_string(ws, 0, 1, "Value", nullptr);
    worksheet_write_number(ws, 1, 0, 4, nullptr);
    worksheet_write_number(ws, 1, 1, 0.125, nullptr);
    ASSERT_EQ(workbook_close(book), LXW_NO_ERROR);
  }
  GridTable es = factor_table(FactorKind::ecosystem_services);
  FactorFill fill = excel_import(es, FactorKind::ecosystem_services, book_path);
  EXPECT_EQ(fill.source, "es.xlsx, sheet \"Sheet1\"");
  EXPECT_EQ(fill.added, 1);
  name_es_rows(es);
  EXPECT_EQ(es.cell(1, 1), "Nitrate");
  EXPECT_EQ(es.cell(1, 2), "0.125");
  EXPECT_THROW(excel_import(es, FactorKind::ecosystem_services, dir_ / "dbases/arven_rvcs.mdb"),
               EditError);  // not a workbook

  GridTable ghg = table_of({{"RVC Class", "tCO2e"}, {"1", ""}, {"2", "8"}, {"3", "9"}});
  EXPECT_THROW(manure_storage_import(ghg, FactorKind::ghg, 1), EditError);  // no map yet
  fs::create_directories(manure_storage_map_path().parent_path());
  {
    Db map = Db::create(manure_storage_map_path());
    map.exec_script(
        "CREATE TABLE Export_Output (ELE_STX_R5 INTEGER, IPCC_RC2 INTEGER, VALUE DOUBLE);"
        "INSERT INTO Export_Output VALUES (1, 1, 10), (1, 2, 11.5), (2, 2, 12), (3, 2, NULL);");
  }
  fill = manure_storage_import(ghg, FactorKind::ghg, 2);
  EXPECT_EQ(fill.filled, 2);
  EXPECT_EQ(fill.unmatched, std::vector<std::string>{"3"});
  EXPECT_EQ(column(ghg, 1), (std::vector<std::string>{"11.5", "12", "9"}));
  EXPECT_THROW(manure_storage_import(es, FactorKind::ecosystem_services, 2), EditError);
  GridTable empty = factor_table(FactorKind::yield);
  EXPECT_THROW(manure_storage_import(empty, FactorKind::yield, 2), EditError);
}

TEST_F(FactorStores, WorkingCopiesAreOutdatedAfterAMasterChangesUntilCopiedAgain) {
  auto copies = working_copies(true);
  EXPECT_TRUE(copies[0].missing);
  EXPECT_TRUE(working_copies_outdated(copies));
  EXPECT_NE(working_copies_line(copies).find("No working copy of arven_operations.mdb, "
                                             "arven_rvcs.mdb yet"),
            std::string::npos);

  copy_dbs();
  copies = working_copies(true);
  EXPECT_FALSE(working_copies_outdated(copies));
  EXPECT_EQ(working_copies_warning(copies), "");

  // A master written again with the same bytes (restored from the copy) is
  // newer but unchanged: nothing to say.
  fs::copy_file(prepro_rvcs_master_path(), session().rvc_db_path,
                fs::copy_options::overwrite_existing);
  fs::last_write_time(session().rvc_db_path,
                      fs::last_write_time(prepro_rvcs_master_path()) + std::chrono::seconds(5));
  EXPECT_FALSE(working_copies_outdated(working_copies()));

  // An edit of the master stamps its operation: the copy is behind it.
  touch_operation(2);
  fs::last_write_time(session().ops_db_path,
                      fs::last_write_time(prepro_ops_master_path()) + std::chrono::seconds(5));
  copies = working_copies(true);
  EXPECT_TRUE(copies[0].stale);
  EXPECT_FALSE(copies[1].stale);
  EXPECT_EQ(copies[0].edited_operations, std::vector<std::string>{"2 Op 2"});
  std::string warning = working_copies_warning(copies);
  EXPECT_NE(warning.find("arven_operations.mdb changed"), std::string::npos);
  EXPECT_NE(warning.find("operations edited since: 2 Op 2."), std::string::npos);
  EXPECT_EQ(warning.find("arven_rvcs.mdb"), std::string::npos);

  // Start asks before running on them; No leaves the run unstarted.
  auto& d = prepro_dialog();
  d.countries = {{"LU - Luxembourg", 29}};
  d.country_selected = {true};
  d.operations.clear();
  ui_.answers = {Answer::No};
  prepro_start(ui_);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].title, "Pre-processing");
  EXPECT_EQ(ui_.messages[0].buttons, MsgButtons::YesNo);
  EXPECT_NE(d.status.find("not started"), std::string::npos);
  EXPECT_EQ(prepro_run_scope(), "A run covers 1 country: LU - Luxembourg; NUTS levels 0 to 3.");
  // Without a country a run does nothing, so there is nothing to warn of.
  d.country_selected = {false};
  ui_.messages.clear();
  prepro_start(ui_);
  ASSERT_EQ(ui_.messages.size(), 1u);
  EXPECT_EQ(ui_.messages[0].text, "Done");

  copy_dbs();
  EXPECT_FALSE(working_copies_outdated(working_copies()));
}

}  // namespace
}  // namespace arven::testing

#include "windows/operation_manager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "assessment/assessment_file.h"
#include "base/numbers.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;
using testing::ScriptedUi;

// A scripted Ui whose modal windows run a step of the test while "open".
class ModalUi : public ScriptedUi {
 public:
  std::function<void()> while_modal;
  void show_modal(const std::string& window, int tab) override {
    ScriptedUi::show_modal(window, tab);
    if (while_modal) while_modal();
  }
};

// One Operations row of the settings the manager edits; nulls stay null.
struct OpRow {
  int64_t id;
  std::string name;
  Value technique = 1, st = 100.0, uptake = 50.0, cost = 12.5, single = 0.0, tea_inc = 1,
        tea_factor = 0.0, tea_cost = 0.0;
};

void insert_op(Db& db, const OpRow& r) {
  db.insert("Operations",
            {"Operation ID", "Operation Name", "Scaling up technique", "ST Value", "Uptake", "Cost",
             "Cost Single", "TEA_Inc", "TEA_Factor", "TEA_Cost"},
            {r.id, r.name, r.technique, r.st, r.uptake, r.cost, r.single, r.tea_inc, r.tea_factor,
             r.tea_cost});
}

// An assessment file with operations 7 and 9, open and edited from the file.
class OperationPropertiesTest : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    reset_explorer_state();
    reset_operation_manager();
    set_decimal_separator(".");
    Session& s = session();
    s.documents_folder = dir_.path().string();
    fs::create_directories(dir_ / "My ARVEN Files");
    s.current_file = file_.string();
    Db db = create_assessment_store(file_);
    insert_op(db, {7, "Hedgerow planting"});
    insert_op(db, {9, "Cover crops", 2, 6.0, 80.0});
    s.edit_from_assessment = true;
  }
  void TearDown() override { set_decimal_separator("."); }

  Value stored(int64_t id, const std::string& column) {
    Db db = Db::open(file_);
    auto rows = db.query("SELECT * FROM Operations WHERE \"Operation ID\" = ?", {Value(id)});
    return rows.next() ? rows.get(column) : Value("<missing>");
  }
  std::string cell(int r, int c) { return operation_manager().table.cell(r, c); }

  testing::TempDir dir_;
  fs::path file_ = dir_ / "My ARVEN Files" / "mine.arv";
  ScriptedUi ui_;
};

TEST_F(OperationPropertiesTest, LoadsOneOperationAndSavesNothingWithoutEdit) {
  get_operations(2, 9);
  ASSERT_EQ(operation_manager().table.rows(), 2);
  EXPECT_EQ(cell(1, kOpColId), "9");
  EXPECT_EQ(cell(1, kOpColTechnique), kTechniqueBoundary);
  EXPECT_EQ(cell(1, kOpColStValue), "6");
  EXPECT_EQ(cell(1, kOpColTeaInc), "Yes");

  EXPECT_FALSE(save_changes(ui_));
  EXPECT_TRUE(ui_.messages.empty());
  EXPECT_TRUE(explorer_state().recalc_list.empty());
  EXPECT_EQ(operation_manager().status, "No changes to save.");
}

TEST_F(OperationPropertiesTest, ClicksCycleTechniqueResettingValueAndToggleTea) {
  Db db = Db::open(file_);
  insert_op(db, {11, "Unset", Value(), Value(), Value(), Value(), Value(), Value()});
  operation_manager().search_text = "";
  get_operations(1, 0);
  ASSERT_EQ(operation_manager().table.rows(), 4);
  EXPECT_EQ(cell(3, kOpColTechnique), "");
  EXPECT_EQ(cell(3, kOpColStValue), "0");  // a null number reads as 0
  EXPECT_EQ(cell(3, kOpColTeaInc), "No");

  ASSERT_TRUE(operation_cell_edit(ui_, 1, kOpColStValue, "42"));
  ASSERT_TRUE(operation_cell_click(1, kOpColTechnique));
  EXPECT_EQ(cell(1, kOpColTechnique), kTechniqueBoundary);
  EXPECT_EQ(cell(1, kOpColStValue), "10");  // the typed 42 is gone
  operation_cell_click(1, kOpColTechnique);
  EXPECT_EQ(cell(1, kOpColTechnique), kTechniqueHectare);
  EXPECT_EQ(cell(1, kOpColStValue), "100");
  operation_cell_click(3, kOpColTechnique);
  EXPECT_EQ(cell(3, kOpColTechnique), kTechniqueHectare);

  operation_cell_click(1, kOpColTeaInc);
  EXPECT_EQ(cell(1, kOpColTeaInc), "No");
  operation_manager().table.cell(3, kOpColTeaInc) = "";
  operation_cell_click(3, kOpColTeaInc);
  EXPECT_EQ(cell(3, kOpColTeaInc), "Yes");

  EXPECT_FALSE(operation_cell_click(1, kOpColId));
  EXPECT_FALSE(operation_manager().changed[2]);
  EXPECT_TRUE(operation_manager().changed[1] && operation_manager().changed[3]);
  EXPECT_TRUE(operation_manager().dirty);
}

TEST_F(OperationPropertiesTest, NumericCellsRefuseTextThatIsNoNumber) {
  get_operations(2, 7);
  for (const char* bad : {"abc", "1.2.3", ".", "-5", "1e3", "12 "}) {
    EXPECT_FALSE(operation_cell_edit(ui_, 1, kOpColCost, bad)) << bad;
    EXPECT_EQ(ui_.messages.back().title, "Invalid value");
  }
  EXPECT_EQ(cell(1, kOpColCost), "12.5");
  EXPECT_FALSE(operation_manager().dirty);

  EXPECT_TRUE(operation_cell_edit(ui_, 1, kOpColName, "Hedges & <walls>"));
  EXPECT_TRUE(operation_cell_edit(ui_, 1, kOpColCost, "7."));
  EXPECT_TRUE(operation_cell_edit(ui_, 1, kOpColTeaCost, ""));
  EXPECT_FALSE(operation_cell_edit(ui_, 1, kOpColId, "8"));

  session().decimal_separator = ",";
  set_decimal_separator(",");
  // Either separator is read, one at most; the cell keeps the locale's.
  EXPECT_FALSE(operation_cell_edit(ui_, 1, kOpColUptake, "1,2.5"));
  EXPECT_TRUE(operation_cell_edit(ui_, 1, kOpColTeaFactor, "2.5"));
  EXPECT_EQ(cell(1, kOpColTeaFactor), "2,5");
  EXPECT_TRUE(operation_cell_edit(ui_, 1, kOpColUptake, "12,5"));
  ui_.answers = {Answer::Yes};
  ASSERT_TRUE(save_changes(ui_));
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 12.5);
  EXPECT_DOUBLE_EQ(stored(7, "TEA_Factor").as_double(), 2.5);
  EXPECT_DOUBLE_EQ(stored(7, "Cost").as_double(), 7);
  EXPECT_EQ(stored(7, "Operation Name").as_text(), "Hedges & <walls>");
  EXPECT_EQ(operation_manager().status, "Saved 1 operation in mine.arv: Hedges & <walls>.");
}

TEST_F(OperationPropertiesTest, PercentagesStayWithinHundredAndSavedRowsLoseTheirMark) {
  get_operations(2, 7);
  for (int col : {kOpColUptake, kOpColTeaFactor}) {
    ui_.messages.clear();
    EXPECT_FALSE(operation_cell_edit(ui_, 1, col, "250")) << col;
    EXPECT_FALSE(operation_cell_edit(ui_, 1, col, "100.5")) << col;
    ASSERT_EQ(ui_.messages.size(), 2u);
    EXPECT_EQ(ui_.messages.back().title, "Invalid value");
    EXPECT_TRUE(operation_cell_edit(ui_, 1, col, "100")) << col;
  }
  EXPECT_TRUE(operation_cell_edit(ui_, 1, kOpColCost, "250"));  // money has no limit
  ui_.answers = {Answer::Yes};
  ASSERT_TRUE(save_changes(ui_));
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 100);
  EXPECT_FALSE(operation_manager().changed[1]);
}

TEST_F(OperationPropertiesTest, ClosingWithUnsavedEditsAsksToSaveThem) {
  get_operations(2, 7);
  EXPECT_TRUE(operation_manager_query_close(ui_));  // nothing to ask
  EXPECT_TRUE(ui_.messages.empty());
  operation_cell_edit(ui_, 1, kOpColUptake, "75");
  ui_.answers = {Answer::Cancel};
  EXPECT_FALSE(operation_manager_query_close(ui_));
  EXPECT_TRUE(operation_manager().dirty);
  ui_.answers = {Answer::Yes, Answer::Yes};  // save, and sure
  EXPECT_TRUE(operation_manager_query_close(ui_));
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 75);
  operation_cell_edit(ui_, 1, kOpColUptake, "60");
  ui_.answers = {Answer::No};
  EXPECT_TRUE(operation_manager_query_close(ui_));
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 75);
}

TEST_F(OperationPropertiesTest, NothingSavedMeansNoRecalculationQuestion) {
  ModalUi ui;
  ui.while_modal = [&] { operation_cell_edit(ui, 1, kOpColUptake, "75"); };
  edit_operation_properties(ui, 7);
  EXPECT_EQ(ui.log, (std::vector<std::string>{"modal:opman:0"}));
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 50);
}

TEST_F(OperationPropertiesTest, SaveWritesChangedRowsWithDefaultsOnce) {
  Db db = Db::open(file_);
  insert_op(db, {12, "Odd technique", 3});
  operation_manager().search_text = "";
  get_operations(1, 0);
  ASSERT_EQ(operation_manager().table.rows(), 4);

  operation_cell_edit(ui_, 1, kOpColUptake, "");
  operation_cell_edit(ui_, 1, kOpColCost, "");
  operation_manager().table.cell(1, kOpColTeaInc) = "";
  operation_cell_edit(ui_, 3, kOpColCostSingle, "250");

  ui_.answers = {Answer::No};
  EXPECT_FALSE(save_changes(ui_));
  EXPECT_EQ(ui_.messages.back().text, "Are you sure you want to save the changes made?");
  EXPECT_EQ(ui_.messages.back().title, "Save changes");
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 50);
  EXPECT_TRUE(operation_manager().dirty);

  ASSERT_TRUE(save_changes(ui_));
  EXPECT_FALSE(operation_manager().dirty);
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 100);  // not 0 like the others
  EXPECT_DOUBLE_EQ(stored(7, "Cost").as_double(), 0);
  EXPECT_EQ(stored(7, "TEA_Inc").as_int(), 1);
  EXPECT_EQ(cell(1, kOpColUptake), "100");
  EXPECT_EQ(cell(1, kOpColTeaInc), "Yes");
  EXPECT_DOUBLE_EQ(stored(12, "Cost Single").as_double(), 250);
  EXPECT_EQ(stored(12, "Scaling up technique").as_int(), 3);  // no technique named: kept
  EXPECT_DOUBLE_EQ(stored(9, "Uptake").as_double(), 80);      // unchanged row untouched
  EXPECT_EQ(explorer_state().recalc_list, (std::vector<int64_t>{7, 12}));

  operation_cell_click(1, kOpColTeaInc);
  ASSERT_TRUE(save_changes(ui_));
  EXPECT_EQ(stored(7, "TEA_Inc").as_int(), 0);
  EXPECT_EQ(explorer_state().recalc_list, (std::vector<int64_t>{7, 12}));
}

TEST_F(OperationPropertiesTest, ClosingWithNoToRecalculateKeepsSettingsAndClearsList) {
  ModalUi ui;
  bool flags_during = false;
  ui.while_modal = [&] {
    flags_during = session().operation_manager_open && session().edit_from_assessment;
    operation_cell_edit(ui, 1, kOpColUptake, "75");
    save_changes(ui);
  };
  ui.answers = {Answer::Yes, Answer::No};
  session().edit_from_assessment = false;
  explorer_state().recalc_list = {9};
  edit_operation_properties(ui, 7);

  EXPECT_TRUE(flags_during);
  EXPECT_FALSE(session().operation_manager_open || session().edit_from_assessment);
  EXPECT_EQ(ui.log, (std::vector<std::string>{"modal:opman:0", "message:Save changes",
                                              "message:Recalculate"}));
  EXPECT_EQ(ui.messages.back().text, "Would you like to recalculate the results?");
  EXPECT_EQ(ui.messages.back().icon, MsgIcon::Question);
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 75);
  EXPECT_TRUE(explorer_state().recalc_list.empty());
}

TEST_F(OperationPropertiesTest, CountryStoreSearchHonoursDataAvailable) {
  fs::path store_path = dir_ / "country.mdb";
  Db store = create_country_store_base(store_path);
  insert_op(store, {1, "Cover 100%"});
  insert_op(store, {2, "Cover 1000"});
  insert_op(store, {3, "Buffer 100% strips"});
  store.insert("Operation_Activity_Delta", {"Operation ID", "Activity ID"}, {3, 1});
  session().ops_db_path = store_path.string();
  session().edit_from_assessment = false;

  auto ids = [&] {
    std::vector<std::string> out;
    for (int r = 1; r < operation_manager().table.rows(); ++r) out.push_back(cell(r, kOpColId));
    return out;
  };
  operation_manager().search_text = "100%";
  get_operations(1, 0);
  EXPECT_EQ(ids(), (std::vector<std::string>{"1", "3"}));
  operation_manager().data_available = true;
  get_operations(1, 0);
  EXPECT_EQ(ids(), (std::vector<std::string>{"3"}));
}

TEST_F(OperationPropertiesTest, ImportCopiesSettingsOfOperationsFoundAndMarksThem) {
  fs::path other = dir_ / "My ARVEN Files" / "other.arv";
  {
    Db db = create_assessment_store(other);
    insert_op(db, {7, "Renamed elsewhere", 2, 8.0, Value(), 30.0, 400.0, 0, 20.0, 55.0});
    insert_op(db, {10, "Not in this file"});
  }
  operation_manager().search_text = "";
  get_operations(1, 0);
  ui_.files = {other.string()};
  choose_import_file(ui_);
  EXPECT_EQ(ui_.log.front(), "file_dialog:Import data from ARVEN File...");
  ASSERT_EQ(operation_manager().import_path, other.string());

  import_data(ui_);
  EXPECT_TRUE(ui_.messages.empty());
  const OperationManagerState& st = operation_manager();
  EXPECT_TRUE(st.dirty);
  EXPECT_TRUE(st.changed[1]);
  EXPECT_FALSE(st.changed[2]);
  EXPECT_EQ(cell(1, kOpColTechnique), kTechniqueBoundary);
  EXPECT_EQ(cell(1, kOpColStValue), "8");
  EXPECT_EQ(cell(1, kOpColUptake), "");  // null in the other file
  EXPECT_EQ(cell(1, kOpColCostSingle), "400");
  EXPECT_EQ(cell(1, kOpColTeaInc), "No");
  EXPECT_EQ(cell(2, kOpColUptake), "80");
  EXPECT_DOUBLE_EQ(stored(7, "Cost Single").as_double(), 0);  // nothing written yet

  ASSERT_TRUE(save_changes(ui_));
  EXPECT_DOUBLE_EQ(stored(7, "Cost Single").as_double(), 400);
  EXPECT_DOUBLE_EQ(stored(7, "Uptake").as_double(), 100);
}

TEST_F(OperationPropertiesTest, ImportRefusesMissingEmptyAndInvalidFiles) {
  get_operations(2, 7);
  import_data(ui_);
  EXPECT_EQ(ui_.messages.back().title, "Cannot import: not file selected");
  EXPECT_EQ(ui_.messages.back().text, "Please select a file from which to import data.");

  fs::path empty = dir_ / "My ARVEN Files" / "empty.arv";
  create_assessment_store(empty);
  fs::path junk = dir_ / "My ARVEN Files" / "junk.arv";
  std::ofstream(junk) << "not a store";
  fs::path other_kind = dir_ / "My ARVEN Files" / "settings.arv";
  create_settings_store(other_kind);

  ui_.files = {empty.string(), junk.string(), other_kind.string()};
  choose_import_file(ui_);
  EXPECT_EQ(ui_.messages.back().title, "No data");
  EXPECT_EQ(ui_.messages.back().text, "This file contains no data to import.");
  for (int i = 0; i < 2; ++i) {
    choose_import_file(ui_);
    EXPECT_EQ(ui_.messages.back().title, "Invalid file");
    EXPECT_EQ(ui_.messages.back().text, "This file is not a valid file from which to import data.");
  }
  EXPECT_TRUE(operation_manager().import_path.empty());
  EXPECT_FALSE(operation_manager().dirty);
}

}  // namespace
}  // namespace arven

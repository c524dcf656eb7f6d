// The admin editors on real master stores: details and deltas, factors,
// components and RVCs.
#include <gtest/gtest.h>

#include "base/numbers.h"
#include "core/session.h"
#include "prep/activity_delta.h"
#include "prep/activity_factors.h"
#include "prep/comp_man.h"
#include "prep/master_import.h"
#include "reports/charts.h"
#include "stores/schema.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/store_fixture.h"
#include "support/temp_dir.h"
#include "windows/activity_details.h"
#include "windows/activity_factors_dialog.h"
#include "windows/comp_man_dialog.h"

namespace arven::testing {
namespace {

class AdminEditors : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    set_decimal_separator(".");
    session().app_folder = dir_.path();
    std::filesystem::create_directories(dir_ / "dbases");
    session().ops_db_path = (dir_ / "dbases/arven_operations.mdb").string();
    session().rvc_db_path = (dir_ / "dbases/arven_rvcs.mdb").string();
    ops_.emplace(create_operations_master(session().ops_db_path));
    rvc_.emplace(create_rvcs_master(session().rvc_db_path));
    for (int a : {1, 2, 3})
      ops_->insert("Activities", {"Activity ID", "Activity Name", "Impact type", "Notes"},
                   {a, "Act " + std::to_string(a), 1, "note " + std::to_string(a)});
    operation(1, "Cover crops");
    operation(2, "Buffer strips");
    for (int b : {1, 2})
      ops_->insert("Baselines", {"Baseline ID", "Baseline name"}, {b, "Base " + std::to_string(b)});
    rvc_->insert("RVC_List", {"RVC ID", "RVC Type", "RVC Short Name", "RVC min", "RVC max"},
                 {10, 1, "Soil", 0, 3});
    rvc_->insert("RVC_List", {"RVC ID", "RVC Type", "RVC Short Name", "RVC min", "RVC max"},
                 {11, 2, "Baseline RVC", 1, 2});
  }
  void operation(int64_t id, const std::string& name) {
    ops_->insert("Operations", {"Operation ID", "Operation Name", "Last_Updated"},
                 {id, name, "2000-01-01 00:00:00"});
  }
  std::string stamp(int64_t op) {
    auto rows = ops_->query("SELECT Last_Updated FROM Operations WHERE \"Operation ID\" = ?", {op});
    return rows.next() ? rows.get(0).as_text() : "";
  }
  bool touched(int64_t op) { return stamp(op) != "2000-01-01 00:00:00"; }
  // The rows of a query, each as "a|b|c".
  std::vector<std::string> rows(const std::string& sql, std::initializer_list<Value> p = {}) {
    std::vector<std::string> out;
    for (auto r = ops_->query(sql, p); r.next();) {
      std::string line;
      for (int c = 0; c < r.column_count(); ++c) line += (c ? "|" : "") + r.get(c).as_text();
      out.push_back(line);
    }
    return out;
  }
  void detail(const char* table, int64_t owner, int64_t act, int64_t rvc, int64_t cls,
              const std::string& v) {
    std::string key =
        std::string(table) == "Operation_Activity_Details" ? "Operation ID" : "Baseline ID";
    ops_->insert(table, {key, "Activity ID", "RVC ID", "RVC Class", "Details"},
                 {owner, act, rvc, cls, v});
  }

  TempDir dir_;
  std::optional<Db> ops_, rvc_;
  ScriptedUi ui_;
};

TEST_F(AdminEditors, DeltaKeepsOnlyDifferencesAndMarksClassByClassActivities) {
  const char* O = "Operation_Activity_Details";
  const char* B = "Baseline_Activity_Details";
  detail(O, 1, 1, 0, 0, "5");  // unchanged: no row, never a 0
  detail(B, 1, 1, 0, 0, "5");
  detail(O, 1, 2, 0, 0, "0.94");  // kept to 15 significant digits
  detail(B, 1, 2, 0, 0, "1");
  detail(O, 1, 3, 0, 0, "Multi");
  detail(B, 1, 3, 0, 0, "Multi");
  for (int cls : {1, 2, 3}) {
    detail(O, 1, 3, 10, cls, cls == 2 ? "40" : "30");
    detail(B, 1, 3, 10, cls, "40");
  }
  ops_->insert("Operation_Activity_Delta", {"Operation ID", "Baseline ID", "Activity ID", "Delta"},
               {1, 1, 1, "99"});
  EXPECT_EQ(calculate_delta(1, 1), 4);
  EXPECT_EQ(rows("SELECT \"Activity ID\", \"RVC ID\", \"RVC Class\", Delta FROM "
                 "Operation_Activity_Delta ORDER BY rowid"),
            (std::vector<std::string>{"2|0|0|-0.0600000000000001", "3|0|0|Multi", "3|10|1|-10",
                                      "3|10|3|-10"}));
  EXPECT_TRUE(touched(1));
  EXPECT_FALSE(touched(2));

  GridTable d = get_delta(1, 1);
  ASSERT_EQ(d.rows(), 3);
  EXPECT_EQ(d.cell(2, 1), "Multi");
  EXPECT_EQ(get_delta_multi(1, 1, 3).rows(), 3);

  // A row with no baseline counterpart is refused and the old deltas stay.
  detail(O, 1, 1, 10, 9, "1");
  EXPECT_THROW(calculate_delta(1, 1), EditError);
  EXPECT_EQ(rows("SELECT * FROM Operation_Activity_Delta").size(), 4u);

  // No details: the pair loses its deltas.
  delete_delta(1, 1);
  ops_->insert("Operation_Activity_Delta", {"Operation ID", "Baseline ID", "Activity ID", "Delta"},
               {2, 1, 1, "3"});
  calculate_delta(2, 1);
  EXPECT_TRUE(rows("SELECT * FROM Operation_Activity_Delta").empty());
}

TEST_F(AdminEditors, RecalculatingTheDemoDetailsGivesTheDemoDeltasBack) {
  ops_.reset();
  rvc_.reset();
  import_master_csv(std::filesystem::path(ARVEN_SOURCE_DIR) / "data" / "demo",
                    session().ops_db_path, session().rvc_db_path);
  ops_.emplace(Db::open(session().ops_db_path));
  const std::string all = "SELECT * FROM Operation_Activity_Delta ORDER BY 1, 2, 3, 4, 5";
  auto before = rows(all);
  ASSERT_GT(before.size(), 100u);
  EXPECT_EQ(delta_calc_all(ui_, delta_operation_list("")), 47);
  EXPECT_EQ(rows(all), before);
}

TEST_F(AdminEditors, BulkRunUsesTheFirstBaselineOnlyAfterItsQuestion) {
  for (int op : {1, 2}) {
    ops_->insert("Delta_List", {"Operation ID", "Baseline ID"}, {op, 2});
    ops_->insert("Delta_List", {"Operation ID", "Baseline ID"}, {op, 1});
    detail("Operation_Activity_Details", op, 1, 0, 0, "3");
  }
  detail("Baseline_Activity_Details", 1, 1, 0, 0, "1");
  detail("Baseline_Activity_Details", 2, 1, 0, 0, "2");
  ui_.answers.push_back(Answer::No);
  EXPECT_EQ(delta_calc_all(ui_, delta_operation_list("")), 0);
  EXPECT_TRUE(rows("SELECT * FROM Operation_Activity_Delta").empty());
  EXPECT_EQ(delta_calc_all(ui_, delta_operation_list("")), 2);
  EXPECT_EQ(ui_.messages[0].title, "Delta Calc All");
  EXPECT_EQ(rows("SELECT \"Baseline ID\", Delta FROM Operation_Activity_Delta"),
            (std::vector<std::string>{"2|1", "2|1"}));
  auto bases = delta_baseline_list(1);
  ASSERT_EQ(bases.size(), 2u);
  EXPECT_TRUE(bases[0].marked);
  EXPECT_FALSE(bases[1].marked);
}

TEST_F(AdminEditors, DetailSavesTurnEmptyIntoZeroAndRefuseWholeTablesWithBadCells) {
  GridTable t = get_details_new(1);
  ASSERT_EQ(t.rows(), 4);
  EXPECT_EQ(t.cell(1, 1), "0");
  t.cell(1, 1) = "";
  t.cell(2, 1) = "2.5";
  t.cell(3, 1) = "Multi";
  detail("Operation_Activity_Details", 1, 3, 10, 1, "8");  // class rows stay
  save_operation_details(1, t);
  EXPECT_EQ(rows("SELECT \"Activity ID\", \"RVC ID\", Details FROM Operation_Activity_Details "
                 "ORDER BY \"RVC ID\", \"Activity ID\""),
            (std::vector<std::string>{"1|0|0", "2|0|2.5", "3|0|Multi", "3|10|8"}));
  EXPECT_EQ(get_details_new(1).cell(3, 1), "Multi");

  t.cell(1, 1) = "4";
  t.cell(2, 1) = "1,5";  // a comma where the locale has a point
  try {
    save_operation_details(1, t);
    FAIL() << "a comma was taken as a number";
  } catch (const EditError& e) {
    EXPECT_NE(std::string(e.what()).find("Row 2, column \"Details\""), std::string::npos);
  }
  EXPECT_EQ(rows("SELECT Details FROM Operation_Activity_Details WHERE \"Activity ID\" = 1")[0],
            "0");

  GridTable classes = class_rows(10);
  ASSERT_EQ(classes.rows(), 5);  // classes 0 to 3
  classes.cell(2, 1) = "6";
  baseline_multi_save(2, 3, 10, classes);
  int64_t rvc = 0;
  GridTable back = get_baseline_multi(2, 3, rvc);
  EXPECT_EQ(rvc, 10);
  EXPECT_EQ(back.cell(1, 1), "0");
  EXPECT_EQ(back.cell(2, 1), "6");

  // The copy asks, and asks again before overwriting.
  ui_.answers = {Answer::No};
  EXPECT_FALSE(copy_details(ui_, true, 2, "Base 2", 1));
  EXPECT_EQ(ui_.messages.back().text, "Are you sure you want to copy data from Base 2?");
  ui_.answers = {Answer::Yes};  // baseline 1 has nothing to overwrite
  EXPECT_TRUE(copy_details(ui_, true, 2, "Base 2", 1));
  ui_.answers = {Answer::Yes, Answer::No};
  EXPECT_FALSE(copy_details(ui_, true, 2, "Base 2", 1));
  EXPECT_EQ(ui_.messages.back().title, "Overwrite data");
  EXPECT_EQ(get_baseline_multi(1, 3, rvc).rows(), 5);
}

// The dialog as a person drives it: what each button needs, an edit saved,
// details copied to another operation, a bad value refused whole.
TEST_F(AdminEditors, DetailsDialogSavesCopiesAndSaysWhatAButtonNeeds) {
  details_dialog() = DetailsDialog();
  details_load();
  DetailsDialog& d = details_dialog();
  ASSERT_EQ(d.ops.size(), 2u);
  details_search("no such operation");
  details_button(ui_, "save");
  EXPECT_EQ(d.status, "Choose an operation first.");
  details_button(ui_, "calc");
  EXPECT_EQ(d.status, "Choose an operation and one of its baselines first.");

  details_search("Cover");
  ASSERT_EQ(details_operation(), 1);
  details_grid_click(false, 2, 1, true, "2.5");
  details_button(ui_, "save");
  EXPECT_EQ(d.status, "Saved the details of \"Cover crops\": 3 activities.");
  const std::string activity2 =
      "SELECT Details FROM Operation_Activity_Details WHERE \"Operation ID\" = ? AND "
      "\"Activity ID\" = 2";
  EXPECT_EQ(rows(activity2, {1}), (std::vector<std::string>{"2.5"}));
  EXPECT_FALSE(touched(1));  // details alone stand until a delta is calculated

  details_button(ui_, "paste");
  EXPECT_EQ(ui_.messages.back().text, "Copy the details of another operation first.");
  details_button(ui_, "copy");
  details_search("Buffer");
  details_button(ui_, "paste");  // its question answered Yes
  EXPECT_EQ(d.status, "Pasted the details of \"Cover crops\" into \"Buffer strips\".");
  EXPECT_EQ(rows(activity2, {2}), (std::vector<std::string>{"2.5"}));

  details_grid_click(false, 1, 1, true, "x");
  EXPECT_THROW(details_button(ui_, "save"), EditError);
  EXPECT_EQ(rows("SELECT Details FROM Operation_Activity_Details WHERE \"Operation ID\" = 2 "
                 "ORDER BY \"Activity ID\""),
            (std::vector<std::string>{"0", "2.5", "0"}));
}

TEST_F(AdminEditors, FactorSavesReplaceRowsCheckFirstAndStampUsers) {
  ops_->insert("Operation_Activity_Delta", {"Operation ID", "Baseline ID", "Activity ID", "Delta"},
               {2, 1, 1, "3"});
  ops_->insert("Mitigation_Activity_Emission_Factors",
               {"Activity ID", "RVC ID", "RVC Value", "Mitigation Type", "tCO2e", "Equilibrium"},
               {1, 10, 1, 2, 9.0, 20.0});
  auto acts = get_activities("Act", FactorKind::ghg);
  ASSERT_EQ(acts.size(), 3u);
  EXPECT_TRUE(acts[0].has_data);
  EXPECT_FALSE(get_activities("Act", FactorKind::ecosystem_services)[0].has_data);
  EXPECT_EQ(get_rvcs().size(), 1u);  // type 2 is left out

  GridTable t = factor_class_rows(FactorKind::ghg, 10);
  ASSERT_EQ(t.rows(), 5);
  t.cell(2, 1) = "1.25";
  t.cell(3, 1) = "abc";
  try {
    save_ghg_details(1, 1, 10, t);
    FAIL();
  } catch (const EditError& e) {
    EXPECT_NE(std::string(e.what()).find("Row 3, column \"tCO2e\""), std::string::npos);
  }
  EXPECT_EQ(rows("SELECT \"Mitigation Type\" FROM Mitigation_Activity_Emission_Factors"),
            std::vector<std::string>{"2"});
  EXPECT_FALSE(touched(2));

  t.cell(3, 1) = "";
  save_ghg_details(1, 1, 10, t);  // GHG replaces the sequestration rows
  EXPECT_EQ(rows("SELECT \"RVC Value\", \"Mitigation Type\", tCO2e, Equilibrium FROM "
                 "Mitigation_Activity_Emission_Factors ORDER BY \"RVC Value\""),
            (std::vector<std::string>{"0|1|0|", "1|1|1.25|", "2|1|0|", "3|1|0|"}));
  EXPECT_TRUE(touched(2));
  EXPECT_FALSE(touched(1));

  GridTable es = factor_table(FactorKind::ecosystem_services);
  int r = es.add_row();
  es.cell(r, 0) = "10";
  es.cell(r, 2) = "0.5";
  save_es_details(3, es);  // no delta rows: marks nothing
  EXPECT_EQ(get_es_details(3).cell(1, 1), "Soil");

  GridTable y = factor_table(FactorKind::yield);  // a whole-area row has no class
  y.cell(y.add_row(), 1) = "1.5";
  save_yield_details(3, 0, y);
  EXPECT_EQ(rows("SELECT \"RVC Value\" IS NULL, Yield FROM Yield_Activity_Impact_Factors"),
            std::vector<std::string>{"1|1.5"});
  EXPECT_EQ(display_act_info(3), "note 3");
}

// The factors dialog as a person drives it: the RVC its classes need, the
// class rows filled and copied, the save and what it stamps.
TEST_F(AdminEditors, FactorsDialogFillsClassesCopiesAndSaves) {
  ops_->insert("Operation_Activity_Delta", {"Operation ID", "Baseline ID", "Activity ID", "Delta"},
               {2, 1, 1, "3"});
  factors_dialog() = FactorsDialog();
  factors_load();
  FactorsDialog& d = factors_dialog();
  factors_button(ui_, "save");
  EXPECT_EQ(d.status, "Choose an activity first: there is nothing to save.");
  factors_search("Act 1");
  factors_select_activity(0);
  ASSERT_EQ(factors_activity(), 1);
  factors_button(ui_, "classes");
  EXPECT_EQ(d.status, "Choose the RVC of the classes first.");
  factors_select_rvc(0);
  factors_button(ui_, "classes");
  ASSERT_EQ(d.table.rows(), 5);  // classes 0 to 3
  EXPECT_EQ(d.status, "4 rows for the classes of the RVC. Not saved yet.");
  factors_edit_cell(2, 1, "1.25");
  factors_button(ui_, "rowcopy", 2, 1);
  EXPECT_EQ(d.status, "Row Copy: row 2 copied into the 2 rows below it. Not saved yet.");
  EXPECT_EQ(d.table.cell(4, 1), "1.25");
  EXPECT_EQ(d.table.cell(1, 1), "");  // the row above is left as it was

  factors_button(ui_, "save");
  EXPECT_EQ(d.status,
            "Saved 4 rows of GHG Emissions factors of \"Act 1\"; 1 operation due for the next "
            "run by date.");
  EXPECT_EQ(rows("SELECT \"RVC Value\", tCO2e FROM Mitigation_Activity_Emission_Factors "
                 "ORDER BY \"RVC Value\""),
            (std::vector<std::string>{"0|0", "1|1.25", "2|1.25", "3|1.25"}));
  EXPECT_TRUE(touched(2));
  EXPECT_TRUE(d.activities[0].has_data);  // the list is read again

  factors_edit_cell(1, 1, "x");
  EXPECT_THROW(factors_button(ui_, "save"), EditError);
  EXPECT_EQ(rows("SELECT tCO2e FROM Mitigation_Activity_Emission_Factors WHERE \"RVC Value\" = 0"),
            std::vector<std::string>{"0"});
}

TEST_F(AdminEditors, ComponentNamesStayUniqueAndDefaultsApply) {
  CompRecord rec = get_comp_details(CompKind::operations, 1);
  rec.fields["Operation_DQ"] = "";
  rec.fields["ST Value"] = "";
  rec.measures = {4, 4};
  EXPECT_EQ(save_comp_details(ui_, CompKind::operations, rec, false), 1);  // its own name
  EXPECT_EQ(rows("SELECT Operation_DQ, \"ST Value\" FROM Operations WHERE \"Operation ID\" = 1"),
            std::vector<std::string>{"1|0"});
  EXPECT_EQ(rows("SELECT \"Measure ID\" FROM Operations_Measures"), std::vector<std::string>{"4"});
  EXPECT_TRUE(touched(1));

  CompRecord fresh;
  fresh.fields["Operation Name"] = "O'Brien <hedges> & ditches";
  int64_t key = add_new_comp(ui_, CompKind::operations, fresh);
  EXPECT_EQ(key, 3);
  EXPECT_EQ(comp_title(CompKind::operations, key), "O'Brien <hedges> & ditches ID: 3");
  EXPECT_EQ(add_new_comp(ui_, CompKind::operations, fresh), 0);
  EXPECT_EQ(ui_.messages.back().text, "That name already exists. Please enter an alternative name");
  EXPECT_EQ(ui_.messages.back().title, "Invalid name");
  rec.fields["Operation Name"] = "Buffer strips";  // another record's name
  EXPECT_EQ(save_comp_details(ui_, CompKind::operations, rec, false), 0);
  rec.fields["Operation Name"] = "Cover crops";
  rec.fields["Cost"] = "12,5";
  EXPECT_EQ(save_comp_details(ui_, CompKind::operations, rec, false), 0);
  EXPECT_EQ(ui_.messages.back().title, "Invalid value");

  // Refs and Data_Quality go to every factor row of the activity.
  ops_->insert("Yield_Activity_Impact_Factors", {"Activity ID", "Yield"}, {2, 1.0});
  ops_->insert("Adaptation_Activity_Impact_Factors", {"Activity ID", "Impact factor"}, {2, 1.0});
  CompRecord act = get_comp_details(CompKind::activities, 2);
  act.fields["Refs"] = "3,4";
  act.fields["Data_Quality"] = "2";
  act.fields["Norm_factor"] = "";
  EXPECT_EQ(save_comp_details(ui_, CompKind::activities, act, false), 2);
  EXPECT_EQ(rows("SELECT Refs, Data_Quality FROM Yield_Activity_Impact_Factors UNION ALL "
                 "SELECT Refs, Data_Quality FROM Adaptation_Activity_Impact_Factors"),
            (std::vector<std::string>{"3,4|2", "3,4|2"}));
  EXPECT_EQ(get_comp_details(CompKind::activities, 2).fields["Refs"], "3,4");

  ops_->insert("Operation_Activity_Delta", {"Operation ID", "Baseline ID", "Activity ID", "Delta"},
               {2, 1, 1, "3"});
  EXPECT_EQ(comp_title(CompKind::operations, 2), "Buffer strips ID: 2 - Delta calculated");
  auto list = get_comp_list(CompKind::operations, "");
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0].item.text, "Buffer strips");
  EXPECT_TRUE(list[0].data_available);
  EXPECT_FALSE(list[1].data_available);
}

// Comp Man and the RVC Manager as a person drives them: a record chosen,
// edited and saved (the list showing it again), a new one added, a button
// that needs a record.
TEST_F(AdminEditors, CompManAndRvcManagerEditSaveAndAdd) {
  comp_dialog() = CompManDialog();
  comp_load();
  CompManDialog& d = comp_dialog();
  comp_select_kind(2);
  comp_search("no such baseline");
  comp_button(ui_, "save");
  EXPECT_EQ(d.status, "Choose a baseline first.");

  comp_select_kind(0);
  comp_search("Cover");
  ASSERT_EQ(d.record.key, 1);
  comp_set_field("Operation Name", "Cover crops, winter");
  comp_button(ui_, "save");
  EXPECT_EQ(d.status, "Saved operation \"Cover crops, winter\".");
  EXPECT_EQ(rows("SELECT \"Operation Name\" FROM Operations WHERE \"Operation ID\" = 1"),
            std::vector<std::string>{"Cover crops, winter"});
  comp_set_field("Operation Name", "Hedges");
  comp_button(ui_, "add");
  EXPECT_EQ(d.status, "Added operation \"Hedges\" with ID 3.");
  EXPECT_EQ(d.record.key, 3);
  EXPECT_EQ(d.selected, -1);  // the search "Cover" does not list it; it shows all the same
  comp_search("");
  ASSERT_EQ(d.items.size(), 3u);
  EXPECT_EQ(d.items[2].item.text, "Hedges");  // listed by name
  comp_select_item(2);
  EXPECT_EQ(d.record.key, 3);

  rvc_dialog() = RvcDialog();
  rvcman_load();
  ASSERT_EQ(rvc_dialog().record.id, 10);
  rvcman_set_field("RVC Short Name", "Soil texture");
  rvcman_button(ui_, "save");
  EXPECT_EQ(rvc_dialog().status, "Saved RVC \"Soil texture\".");
  EXPECT_EQ(RVC_list()[0].text, "Soil texture");
}

TEST_F(AdminEditors, ScopeOutMakesTheNextSpareAndDropsDetailsAndDeltas) {
  ops_->insert("Operations_Measures", {"Operation ID", "Measure ID"}, {1, 7});
  ops_->insert("Operation_Activity_Delta", {"Operation ID", "Baseline ID", "Activity ID", "Delta"},
               {1, 1, 1, "3"});
  detail("Operation_Activity_Details", 1, 1, 0, 0, "3");
  operation(5, "zSpareOp_4");
  ui_.answers = {Answer::No};
  EXPECT_FALSE(scope_out(ui_, 1));
  EXPECT_TRUE(scope_out(ui_, 1));
  EXPECT_EQ(ui_.messages.back().text, "Scope out operation: Cover crops?");
  EXPECT_EQ(rows("SELECT \"Operation Name\" FROM Operations WHERE \"Operation ID\" = 1"),
            std::vector<std::string>{"zSpareOp_5"});
  EXPECT_EQ(rows("SELECT \"Operation Name\" FROM Scoped_Out_Operations"),
            std::vector<std::string>{"Cover crops"});
  EXPECT_EQ(rows("SELECT \"Measure ID\" FROM Scoped_Out_Operations_Measures"),
            std::vector<std::string>{"7"});
  for (const char* t :
       {"Operations_Measures", "Operation_Activity_Details", "Operation_Activity_Delta"})
    EXPECT_TRUE(rows(std::string("SELECT * FROM ") + t).empty()) << t;
  EXPECT_TRUE(scope_out(ui_, 1));  // a spare scoped out again takes the next number
  EXPECT_EQ(rows("SELECT \"Operation Name\" FROM Operations WHERE \"Operation ID\" = 1"),
            std::vector<std::string>{"zSpareOp_6"});
  EXPECT_EQ(rows("SELECT * FROM Scoped_Out_Operations").size(), 1u);
  for (const auto& item : get_comp_list(CompKind::operations, ""))
    EXPECT_EQ(item.item.text.rfind("zSpareOp_", 0), std::string::npos);
}

TEST_F(AdminEditors, RvcManagerAddsWithOrWithoutItsTableAndSumsFactors) {
  std::map<std::string, std::string> f = {
      {"RVC Short Name", "Drought"}, {"RVC max", "4"}, {"RVC Parent", "10"}};
  ui_.answers = {Answer::Yes, Answer::No};
  int64_t id = add_rvc(ui_, f);
  EXPECT_EQ(id, 12);
  EXPECT_FALSE(rvc_->has_table("NUTS3_Drought"));
  EXPECT_EQ(get_RVC_details(10).children.size(), 1u);
  ui_.answers = {Answer::Yes, Answer::Yes};
  EXPECT_EQ(add_rvc(ui_, f), 0);  // the same name again
  f["RVC Short Name"] = "Heat";
  ui_.answers = {Answer::Yes, Answer::Yes};
  EXPECT_EQ(add_rvc(ui_, f), 13);
  EXPECT_TRUE(rvc_->has_table("NUTS3_Heat"));
  EXPECT_EQ(save_RVC_details(ui_, 13, f), 13);

  EXPECT_EQ(get_mf(10), "0");
  for (double v : {1.5, 2.0})
    ops_->insert("Adaptation_Activity_Impact_Factors", {"Activity ID", "RVC ID", "Impact factor"},
                 {1, 10, v});
  EXPECT_EQ(get_mf(10), "3.5");  // the sum, not the greatest
}

TEST_F(AdminEditors, CountryBudgetChartStacksSixSeries) {
  ops_->insert("Countries", {"Country name", "Axis 1", "Axis 2"}, {"Côte d'Or", 1.5e6, 2.0});
  country_budget_page();
  std::string page = read_file(dir_ / "country_budget.htm");
  EXPECT_NE(page.find("text: 'EU Member States RDP Budget'"), std::string::npos);
  EXPECT_NE(page.find("categories: ['Côte d&#39;Or']"), std::string::npos);
  EXPECT_NE(page.find("name: 'Axis 1',\ndata: [1500000]"), std::string::npos);
  EXPECT_NE(page.find("name: 'Compliments to direct payments',\ndata: [null]"), std::string::npos);
  EXPECT_NE(page.find("stacking: 'normal'"), std::string::npos);
}

}  // namespace
}  // namespace arven::testing

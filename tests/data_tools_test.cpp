// The admin data tools on the demo master stores.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "core/session.h"
#include "prep/activity_delta.h"
#include "prep/activity_factors.h"
#include "prep/drill_down.h"
#include "prep/master_import.h"
#include "prep/master_keys.h"
#include "prep/packaging.h"
#include "prep/preprocess.h"
#include "prep/rationalised_store.h"
#include "prep/references.h"
#include "prep/table_sheets.h"
#include "prep/update_page.h"
#include "prep/xlsx_reader.h"
#include "reports/export.h"
#include "stores/db.h"
#include "support/guards.h"
#include "support/scripted_ui.h"
#include "support/temp_dir.h"
#include "windows/drill_dialog.h"
#include "windows/lists_dialog.h"
#include "windows/references_dialog.h"

namespace arven::testing {
namespace {

class DataTools : public ::testing::Test {
 protected:
  testing::SessionGuard session_guard_;
  void SetUp() override {
    reset_session();
    session().app_folder = dir_.path();
    const auto dbases = dir_ / "dbases";
    session().ops_db_path = (dbases / "arven_operations.mdb").string();
    session().rvc_db_path = (dbases / "arven_rvcs.mdb").string();
    import_master_csv(std::filesystem::path(ARVEN_SOURCE_DIR) / "data" / "demo",
                      session().ops_db_path, session().rvc_db_path);
  }
  // Every row of a table (or a query), each as "a|b|c", in stored order.
  std::string dump(const std::string& sql, bool rvc = false) {
    Db db = Db::open(rvc ? session().rvc_db_path : session().ops_db_path);
    std::string out;
    for (auto r = db.query(sql); r.next();) {
      for (int c = 0; c < r.column_count(); ++c) out += (c ? "|" : "") + r.get(c).as_text();
      out += "\n";
    }
    return out;
  }
  std::string table(const std::string& name) {
    return dump("SELECT * FROM \"" + name + "\" ORDER BY rowid");
  }
  // A workbook of the table as exported, with `edit` applied to its grid.
  std::filesystem::path edited(const std::string& name, void (*edit)(GridTable&)) {
    auto file = dir_ / (name + ".xlsx");
    export_table_xlsx(name, file);
    auto sheet = read_xlsx_file(file).front();
    GridTable grid(static_cast<int>(sheet.rows.front().size()));
    for (size_t r = 0; r < sheet.rows.size(); ++r) {
      int row = grid.add_row();
      for (int c = 0; c < grid.cols(); ++c) grid.cell(row, c) = sheet.at(r, c).text;
    }
    edit(grid);
    // Every column as text: the import must read numbers typed as text too.
    write_xlsx(grid, file, name, {}, std::vector<bool>(grid.cols(), true));
    return file;
  }
  std::string refused(const std::string& name, void (*edit)(GridTable&)) {
    auto file = edited(name, edit);
    std::string before = table(name);
    try {
      import_table_xlsx(name, file);
    } catch (const EditError& e) {
      EXPECT_EQ(table(name), before) << "a refused import changed " << name;
      return e.what();
    }
    ADD_FAILURE() << "the import of " << name << " was not refused";
    return "";
  }

  TempDir dir_;
};

TEST_F(DataTools, EveryMasterTableSurvivesExportAndImportUnchanged) {
  for (const auto& name : master_table_names()) {
    bool rvc = dump("SELECT name FROM sqlite_master WHERE name = '" + name + "'", true) != "";
    const std::string all = "SELECT * FROM \"" + name + "\" ORDER BY rowid";
    const std::string before = dump(all, rvc);
    const std::string ops = table("Operations");
    auto file = dir_ / "t.xlsx";
    export_table_xlsx(name, file);
    SheetImport done = import_table_xlsx(name, file);
    EXPECT_EQ(dump(all, rvc), before) << name;
    EXPECT_EQ(done.changed, 0) << name;
    EXPECT_EQ(table("Operations"), ops) << name << ": nothing changed, nothing stamped";
  }
}

TEST_F(DataTools, AnEditedCellIsImportedAndStampsTheOperationsThatUseIt) {
  // Practicality item 2 is assigned to operations; its new text stamps them.
  const std::string users = dump(
      "SELECT \"Operation ID\" FROM Operations_Practicality WHERE \"Practicality ID\" = 2 "
      "ORDER BY 1");
  ASSERT_FALSE(users.empty());
  auto file =
      edited("Practicality_Items", [](GridTable& g) { g.cell(2, 1) = "Needs a contractor"; });
  SheetImport done = import_table_xlsx("Practicality_Items", file);
  EXPECT_EQ(done.changed, 2);  // the old row out, the new one in
  EXPECT_EQ(
      dump("SELECT \"Practicality Text\" FROM Practicality_Items WHERE \"Practicality ID\" = 2"),
      "Needs a contractor\n");
  EXPECT_EQ(
      dump("SELECT \"Operation ID\" FROM Operations WHERE Last_Updated > '2020-01-01' ORDER BY 1"),
      users);
  EXPECT_EQ(done.stamped, static_cast<int>(std::count(users.begin(), users.end(), '\n')));
}

TEST_F(DataTools, ABadCellIsNamedAndChangesNothing) {
  EXPECT_EQ(refused("References", [](GridTable& g) { g.cell(3, 0) = "three"; }),
            "Table \"References\", sheet \"References\", row 4, column A (\"Ref ID\"): \"three\" "
            "is not a whole number. Nothing was imported; the table stays as it was.");
  EXPECT_NE(refused("References", [](GridTable& g) { g.cell(3, 0) = g.cell(2, 0); })
                .find("row 4, column A (\"Ref ID\"): row 3 has the same key"),
            std::string::npos);
  // A reference that factor rows name cannot be left out.
  EXPECT_NE(refused("References", [](GridTable& g) { g.cell(1, 0) = "999"; })
                .find("no row is left with \"Ref ID\" 1, which table "
                      "\"Mitigation_Activity_Emission_Factors\" still names"),
            std::string::npos);
  EXPECT_NE(
      refused("Mitigation_Activity_Emission_Factors", [](GridTable& g) { g.cell(1, 6) = "1; 2"; })
          .find("column G (\"Refs\"): the Ref IDs are not whole numbers separated by commas"),
      std::string::npos);
  EXPECT_NE(refused("Operations_Practicality", [](GridTable& g) { g.cell(1, 1) = "77"; })
                .find("row 2, column B (\"Practicality ID\"): \"77\" has no row in table "
                      "\"Practicality_Items\""),
            std::string::npos);
  EXPECT_NE(refused("Operations", [](GridTable& g) { g.cell(0, 2) = "Name"; })
                .find("row 1, column C: the table has no column \"Name\""),
            std::string::npos);
  EXPECT_NE(refused("Operations", [](GridTable& g) { g.cell(4, 15) = "yesterday"; })
                .find("column P (\"Last_Updated\"): \"yesterday\" is not a date"),
            std::string::npos);
}

TEST_F(DataTools, PracticalityItemsAreEditedAndAssignedInTheListsEditor) {
  GridTable items = master_table_rows("Practicality_Items");
  int added = items.add_row();
  items.cell(added, 0) = "10";
  items.cell(added, 1) = "Needs a water licence";
  EXPECT_EQ(replace_table_rows("Practicality_Items", items).changed, 1);
  GridTable pairs = master_table_rows("Operations_Practicality");
  int pair = pairs.add_row();
  pairs.cell(pair, 0) = "5";
  pairs.cell(pair, 1) = "10";
  SheetImport done = replace_table_rows("Operations_Practicality", pairs);
  EXPECT_EQ(done.stamped, 1);
  EXPECT_EQ(dump("SELECT \"Operation ID\" FROM Operations WHERE Last_Updated > '2020-01-01'"),
            "5\n");

  // An item still assigned stays; a refusal names the table, row and column.
  const std::string before = table("Practicality_Items");
  items.cell(added, 0) = "";
  try {
    replace_table_rows("Practicality_Items", items);
    ADD_FAILURE() << "a row without its key was saved";
  } catch (const EditError& e) {
    EXPECT_EQ(std::string(e.what()),
              "Table \"Practicality_Items\", row " + std::to_string(added) +
                  ", column \"Practicality ID\": the key column holds no value. Nothing was "
                  "saved; the table stays as it was.");
  }
  items.cell(added, 0) = "11";
  EXPECT_THROW(replace_table_rows("Practicality_Items", items), EditError);  // 10 is assigned
  EXPECT_EQ(table("Practicality_Items"), before);
}

// The lists and drill-down windows as an administrator drives them: a row
// added and saved, a bad one refused whole, and what a button still needs.
TEST_F(DataTools, ListsAndDrillDownWindowsSaveWholeAndSayWhatTheyNeed) {
  ScriptedUi ui;
  lists_dialog() = ListsDialog();
  lists_select(0);
  ListsDialog& d = lists_dialog();
  ASSERT_EQ(lists_table_name(), "Practicality_Items");
  lists_button("delrow");
  EXPECT_EQ(d.status, "Click a cell of the row to delete first.");
  lists_button("addrow");
  const int added = d.rows.rows() - 1;
  lists_edit_cell(added, 0, "10");
  lists_edit_cell(added, 1, "Needs a water licence");
  lists_button("save");
  EXPECT_EQ(d.status.rfind("Saved ", 0), 0u);
  EXPECT_NE(table("Practicality_Items").find("10|Needs a water licence"), std::string::npos);
  const std::string before = table("Practicality_Items");
  lists_edit_cell(added, 0, "ten");
  EXPECT_THROW(lists_button("save"), EditError);
  EXPECT_EQ(table("Practicality_Items"), before);

  drill_dialog() = DrillDialog();
  drill_load();
  drill_show(ui);
  EXPECT_EQ(ui.messages.back().title, kDrillTitle);
  EXPECT_FALSE(drill_dialog().shown);
}

TEST_F(DataTools, RationalisedOperationsAreEditedAndAssignedInTheirOwnStore) {
  auto add = [](GridTable& g, std::vector<std::string> cells) {
    int r = g.add_row();
    for (int c = 0; c < g.cols(); ++c) g.cell(r, c) = cells[static_cast<size_t>(c)];
  };
  auto text = [](const GridTable& g) {
    std::string out;
    for (int r = 0; r < g.rows(); ++r)
      for (int c = 0; c < g.cols(); ++c) out += g.cell(r, c) + (c + 1 < g.cols() ? "|" : "\n");
    return out;
  };
  // The store is made on first use, beside the operations master.
  ASSERT_FALSE(std::filesystem::exists(rationalised_store_path()));
  GridTable land = master_table_rows("Land management");
  ASSERT_TRUE(std::filesystem::exists(rationalised_store_path()));
  EXPECT_EQ(text(land), "Rationalised ID|Rationalised Operation|Description\n");

  const std::string operations = table("Operations");
  add(land, {"1", "Hedges & field margins", "Hedgerows, buffer strips, grass margins"});
  add(land, {"2", "Soil cover", ""});
  EXPECT_EQ(replace_table_rows("Land management", land).rows, 2);
  GridTable assigned = master_table_rows("Operations_Rationalised");
  add(assigned, {"1", "Land management", "1"});
  add(assigned, {"3", "Land management", "1"});
  SheetImport done = replace_table_rows("Operations_Rationalised", assigned);
  EXPECT_EQ(done.changed, 2);
  EXPECT_EQ(done.stamped, 0);
  EXPECT_EQ(text(master_table_rows("Land management")), text(land));
  EXPECT_EQ(text(master_table_rows("Operations_Rationalised")), text(assigned));
  EXPECT_EQ(table("Operations"), operations) << "the operations master is not touched";

  // Refused, each naming its row and column, with both tables unchanged: an
  // operation not in the catalogue, an unknown category, an ID its category
  // lacks, an operation assigned twice, and a rationalised operation still
  // assigned taken out.
  auto refusal = [&](const std::string& name, const GridTable& grid) {
    const std::string before = text(master_table_rows(name));
    try {
      replace_table_rows(name, grid);
    } catch (const EditError& e) {
      EXPECT_EQ(text(master_table_rows(name)), before);
      return std::string(e.what());
    }
    ADD_FAILURE() << "not refused: " << text(grid);
    return std::string();
  };
  auto with = [&](std::vector<std::string> row) {
    GridTable g = assigned;
    add(g, row);
    return g;
  };
  EXPECT_NE(refusal("Operations_Rationalised", with({"999", "Land management", "1"}))
                .find("row 3, column \"Operation ID\": \"999\" has no row in table \"Operations\""),
            std::string::npos);
  EXPECT_NE(refusal("Operations_Rationalised", with({"2", "Forestry", "1"}))
                .find("row 3, column \"Category\""),
            std::string::npos);
  EXPECT_NE(refusal("Operations_Rationalised", with({"2", "Tourism and leisure", "1"}))
                .find("\"1\" has no row in table \"Tourism and leisure\""),
            std::string::npos);
  EXPECT_NE(refusal("Operations_Rationalised", with({"1", "Land management", "2"}))
                .find("row 1 has the same key"),
            std::string::npos);
  GridTable fewer = master_table_rows("Land management");
  fewer.cell(1, 0) = "5";
  EXPECT_NE(refusal("Land management", fewer)
                .find("no row is left with \"Rationalised ID\" 1, which table "
                      "\"Operations_Rationalised\" still names (row 1"),
            std::string::npos);
  fewer.cell(1, 0) = "x";
  EXPECT_NE(refusal("Land management", fewer).find("row 1, column \"Rationalised ID\""),
            std::string::npos);
}

TEST_F(DataTools, ReferencesAreEditedWhereUsedAndKeptWhileNamed) {
  // Where used: the factor rows whose Refs name reference 2, as SQL finds them.
  std::string named;
  for (const char* t : {"Mitigation_Activity_Emission_Factors",
                        "Adaptation_Activity_Impact_Factors", "Yield_Activity_Impact_Factors"})
    named += dump(std::string("SELECT \"Activity ID\" FROM ") + t +
                  " WHERE ',' || replace(Refs, ' ', '') || ',' LIKE '%,2,%' ORDER BY rowid");
  GridTable uses = reference_uses(2);
  std::string listed;
  for (int r = 1; r < uses.rows(); ++r) listed += uses.cell(r, 2) + "\n";
  ASSERT_FALSE(named.empty());
  EXPECT_EQ(listed, named);

  // An edit stamps the operations whose activities' factors name it.
  std::set<int64_t> users;
  {
    Db db = Db::open(session().ops_db_path);
    users = operations_naming_refs(db, {2});
  }
  ASSERT_FALSE(users.empty());
  EXPECT_EQ(save_reference(2, "Larsen & Quinn (2012)", "Corrected.", ""), 2);
  EXPECT_EQ(dump("SELECT \"Ref Short\", \"Ref Long\", URL IS NULL FROM \"References\" WHERE "
                 "\"Ref ID\" = 2"),
            "Larsen & Quinn (2012)|Corrected.|1\n");
  std::string stamped;
  for (int64_t op : users) stamped += std::to_string(op) + "\n";
  EXPECT_EQ(dump("SELECT \"Operation ID\" FROM Operations WHERE Last_Updated > '2020-01-01' "
                 "ORDER BY 1"),
            stamped);

  // Refused: an empty short text, a reference in use; the table stays.
  const std::string refs = table("References");
  EXPECT_THROW(save_reference(3, "", "x", ""), EditError);
  try {
    delete_reference(2);
    ADD_FAILURE() << "a reference in use was deleted";
  } catch (const EditError& e) {
    EXPECT_NE(std::string(e.what()).find("Reference 2 cannot be deleted"), std::string::npos);
  }
  EXPECT_EQ(table("References"), refs);

  // A new one takes the lowest free ID; chosen for a factor row, it is kept
  // until the row lets it go.
  int64_t id = save_reference(0, "New study (2024)", "", "https://example.org/study");
  EXPECT_EQ(id, 17);
  std::vector<FactorRefRow> rows = factor_ref_rows(1);
  ASSERT_FALSE(rows.empty());
  save_factor_refs(rows[0].table, rows[0].rowid, {id, 1});
  EXPECT_EQ(factor_ref_rows(1)[0].refs, (std::vector<int64_t>{id, 1}));
  EXPECT_THROW(delete_reference(id), EditError);
  EXPECT_THROW(save_factor_refs(rows[0].table, rows[0].rowid, {999}), EditError);
  save_factor_refs(rows[0].table, rows[0].rowid, rows[0].refs);
  delete_reference(id);
  EXPECT_EQ(table("References"), refs);
}

// The References window as an administrator drives it: a new reference
// added, chosen for a factor row and saved there, then refused deletion
// while the row names it.
TEST_F(DataTools, ReferencesDialogAddsChoosesForARowAndKeepsWhatIsNamed) {
  ScriptedUi ui;
  references_dialog() = ReferencesDialog();
  references_load();
  ReferencesDialog& d = references_dialog();
  references_button(ui, "save");
  EXPECT_EQ(ui.messages.back().text, "Choose a reference, or Add New, first.");

  references_button(ui, "add");
  references_set_field("Ref Short", "New study (2024)");
  references_set_field("URL", "https://example.org/study");
  references_button(ui, "save");
  EXPECT_EQ(d.status, "Saved reference 17 \"New study (2024)\".");
  ASSERT_TRUE(references_has_ref(d));
  EXPECT_EQ(d.refs[static_cast<size_t>(d.ref)].id, 17);

  references_select_activity(0);
  references_button(ui, "saverefs");
  EXPECT_EQ(d.status, "Choose a factor row first: there is nothing to save.");
  references_select_row(0);
  const std::vector<int64_t> before = d.chosen;
  const int at = static_cast<int>(d.all.size()) - 1;  // the new one, listed last
  ASSERT_EQ(d.all[static_cast<size_t>(at)].id, 17);
  references_toggle(at);
  references_button(ui, "saverefs");
  std::vector<int64_t> expected = before;
  expected.push_back(17);
  EXPECT_EQ(d.rows[0].refs, expected);

  ui.answers.push_back(Answer::Yes);
  EXPECT_THROW(references_button(ui, "delete"), EditError);
  EXPECT_EQ(dump("SELECT COUNT(*) FROM \"References\" WHERE \"Ref ID\" = 17"), "1\n");
}

TEST_F(DataTools, SavingFactorsKeepsTheRefsAndQualityOfTheRowsThatRemain) {
  // References chosen for a class row in the References tool...
  std::vector<FactorRefRow> rows = factor_ref_rows(11);
  ASSERT_EQ(rows.size(), 5u);
  save_factor_refs(rows[1].table, rows[1].rowid, {16, 5});
  const std::string sql =
      "SELECT \"RVC Value\", Refs, Data_Quality FROM Mitigation_Activity_Emission_Factors "
      "WHERE \"Activity ID\" = 11 ORDER BY \"RVC Value\"";
  std::string before = dump(sql);
  ASSERT_NE(before.find("2|16, 5|2\n"), std::string::npos) << before;

  // ...survive the factor editor's next save of the activity: a changed
  // value keeps its row's, a dropped class takes its own away, a new class
  // starts without.
  int64_t rvc = 0;
  GridTable t = get_ghg_details(11, FactorKind::carbon_sequestration, rvc);
  ASSERT_EQ(t.rows(), 6);
  for (int r = 1; r < t.rows(); ++r) t.cell(r, 2) = "-20";
  t.cell(3, 1) = "-0.45";
  t.cell(5, 0) = "6";
  save_ghg_details(11, 2, rvc, t);
  before.replace(before.find("5|5, 6|2\n"), 9, "6||\n");
  EXPECT_EQ(dump(sql), before);
  EXPECT_EQ(dump("SELECT tCO2e FROM Mitigation_Activity_Emission_Factors WHERE \"RVC Value\" = "
                 "3 AND \"Activity ID\" = 11"),
            "-0.45\n");

  // An ecosystem-service row also keeps its impact category; so do yields.
  const std::string es =
      "SELECT \"RVC ID\", \"Impact Category ID\", Refs, Data_Quality FROM "
      "Adaptation_Activity_Impact_Factors WHERE \"Activity ID\" = 20 ORDER BY rowid";
  std::string es_before = dump(es);
  GridTable e = get_es_details(20);
  e.cell(2, 2) = "0.55";
  save_es_details(20, e);
  EXPECT_EQ(dump(es), es_before);
  const std::string ys = "SELECT Refs, Data_Quality FROM Yield_Activity_Impact_Factors";
  std::string ys_before = dump(ys);
  GridTable y = get_yield_details(34, rvc);
  y.cell(1, 1) = "11";
  save_yield_details(34, rvc, y);
  EXPECT_EQ(dump(ys), ys_before);
}

TEST_F(DataTools, DrillDownRowsAreTheOnesThatMakeTheStoredFigure) {
  // Luxembourg's store as the pre-processor makes it.
  session().db_version = 5;
  copy_dbs();
  RunParams params;
  for (const auto& item : prepro_operation_search(""))
    params.operations.push_back({item.data, item.text, false});
  params.countries = {29};
  params.level = 3;
  params.mode = RunMode::all;
  ScriptedUi ui;
  RunControl control;
  ASSERT_TRUE(process_start2(ui, params, control));
  const std::string store = "dbases/prepro/new_arven_operations_LU.mdb";
  ASSERT_NE(std::find(drill_down_stores().begin(), drill_down_stores().end(), store),
            drill_down_stores().end());

  DrillDown dd = drill_down(store, 3, "LU000", 1);
  ASSERT_EQ(dd.sections.size(), 7u);
  const GridTable& ops = dd.sections[0].second;
  // The area's rows of the operation, as the store holds them.
  std::string stored;
  {
    Db db = Db::open(dir_ / store);
    for (auto r = db.query("SELECT \"Activity ID\", \"Impact value\" FROM NUTS3_OPS WHERE "
                           "NUTS3_ID = 20 AND \"Operation ID\" = 1 ORDER BY rowid");
         r.next();)
      stored += r.get(0).as_text() + ":" + r.get(1).as_text() + " ";
  }
  std::string shown;
  for (int r = 1; r < ops.rows(); ++r) shown += ops.cell(r, 0) + ":" + ops.cell(r, 3) + " ";
  ASSERT_FALSE(stored.empty());
  EXPECT_EQ(shown, stored);

  // A plain mitigation figure is its delta times its factor times its area.
  const GridTable& deltas = dd.sections[1].second;
  const GridTable& factors = dd.sections[2].second;
  int checked = 0;
  for (int r = 1; r < ops.rows(); ++r) {
    if (ops.cell(r, 1) != "1") continue;
    std::vector<std::string> delta, factor;
    for (int d = 1; d < deltas.rows(); ++d)
      if (deltas.cell(d, 1) == ops.cell(r, 0)) delta.push_back(deltas.cell(d, 5));
    for (int f = 1; f < factors.rows(); ++f)
      if (factors.cell(f, 0) == ops.cell(r, 0)) factor.push_back(factors.cell(f, 4));
    if (delta.size() != 1 || factor.size() != 1 || delta[0] == "Multi") continue;
    double expected = std::stod(delta[0]) * std::stod(factor[0]) * std::stod(ops.cell(r, 4));
    EXPECT_NEAR(std::stod(ops.cell(r, 3)), expected, 1e-9 * std::max(1.0, std::abs(expected)))
        << "activity " << ops.cell(r, 0);
    ++checked;
  }
  EXPECT_GT(checked, 0);

  // The class distribution holds the area's rows only, and the references
  // are those the rows name.
  const GridTable& dist = dd.sections[5].second;
  EXPECT_GT(dist.rows(), 1);
  std::set<std::string> named, listed;
  for (int r = 1; r < ops.rows(); ++r)
    for (int64_t id : parse_refs(ops.cell(r, 8)).value_or(std::vector<int64_t>{}))
      named.insert(std::to_string(id));
  const GridTable& refs = dd.sections[6].second;
  for (int r = 1; r < refs.rows(); ++r) listed.insert(refs.cell(r, 0));
  EXPECT_EQ(listed, named);
  EXPECT_THROW(drill_down(store, 3, "XX999", 1), EditError);
}

TEST_F(DataTools, TheManualUpdatePageListsWhatIsPublishedWithItsChecksum) {
  const auto zipped = dir_ / "dbases/prepro/zipped";
  std::filesystem::create_directories(zipped);
  auto put = [&](const std::string& name, const std::string& text) {
    std::ofstream(zipped / name, std::ios::binary) << text;
  };
  put("arven_db_LU.zip", "abc");
  put("arven_db_LU.zip.sha256", "x");
  put("arven_db_version_LU.csv", "LU,5\n");
  put("arven_db_IE.zip.tmp.42", "half");
  std::ifstream in(write_manual_update_page());
  std::stringstream page;
  page << in.rdbuf();
  const std::string html = page.str();
  EXPECT_NE(html.find("<a href=\"arven_db_LU.zip\">arven_db_LU.zip</a>"), std::string::npos);
  EXPECT_NE(html.find("<td class=\"size\">3</td><td><code>"
                      "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad</code>"),
            std::string::npos);
  EXPECT_NE(html.find(">arven_db_version_LU.csv</a>"), std::string::npos);
  EXPECT_EQ(html.find(".tmp"), std::string::npos);
  EXPECT_EQ(html.find(">arven_db_LU.zip.sha256<"), std::string::npos);
}

}  // namespace
}  // namespace arven::testing

#include "windows/operation_manager.h"

#include <algorithm>
#include <cctype>
#include <exception>
#include <filesystem>
#include <optional>
#include <set>

#include "base/numbers.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {

namespace {

namespace fs = std::filesystem;

constexpr const char* kTitles[kOpColumnCount] = {"ID",
                                                 "Name",
                                                 "Scaling up",
                                                 "Value (percent or width)",
                                                 "Uptake rate (%)",
                                                 "Cost (€ per ha per annum)",
                                                 "Cost (€, single investment)",
                                                 "Sufficient TEA provided",
                                                 "TEA Factor (%)",
                                                 "TEA Cost (€)"};

// The Operations column behind each table column.
constexpr const char* kStoreColumns[kOpColumnCount] = {
    "Operation ID", "Operation Name", "Scaling up technique", "ST Value", "Uptake", "Cost",
    "Cost Single",  "TEA_Inc",        "TEA_Factor",           "TEA_Cost"};

constexpr int kNumberColumns[] = {kOpColStValue,    kOpColUptake,    kOpColCost,
                                  kOpColCostSingle, kOpColTeaFactor, kOpColTeaCost};

constexpr const char* kYes = "Yes";
constexpr const char* kNo = "No";

constexpr const char* kSaveTitle = "Save changes";
constexpr const char* kSaveQuestion = "Are you sure you want to save the changes made?";
constexpr const char* kInvalidValueTitle = "Invalid value";
constexpr const char* kImportDialogTitle = "Import data from ARVEN File...";
constexpr const char* kNoDataTitle = "No data";
constexpr const char* kNoDataText = "This file contains no data to import.";
constexpr const char* kInvalidFileTitle = "Invalid file";
constexpr const char* kInvalidFileText = "This file is not a valid file from which to import data.";
// The wording of this title is intended; users know the message by it.
constexpr const char* kNoFileTitle = "Cannot import: not file selected";
constexpr const char* kNoFileText = "Please select a file from which to import data.";
constexpr const char* kUnsavedQuestion =
    "The table has changes that are not saved. Save them before closing?";
constexpr const char* kRecalcTitle = "Recalculate";
constexpr const char* kRecalcQuestion = "Would you like to recalculate the results?";

void put_titles(GridTable& table) {
  table.clear();
  table.add_row();
  for (int c = 0; c < kOpColumnCount; ++c) table.cell(0, c) = kTitles[c];
}

OperationManagerState empty_state() {
  OperationManagerState st;
  put_titles(st.table);
  st.changed.assign(1, false);
  return st;
}

OperationManagerState& state_storage() {
  static OperationManagerState state = empty_state();
  return state;
}

std::string technique_text(const Value& v) {
  if (v.is_empty()) return "";
  switch (v.as_int()) {
    case 1:
      return kTechniqueHectare;
    case 2:
      return kTechniqueBoundary;
    default:
      return "";
  }
}

// The technique code of a cell, 0 for a cell that names neither technique.
int technique_code(const std::string& text) {
  if (text == kTechniqueHectare) return 1;
  if (text == kTechniqueBoundary) return 2;
  return 0;
}

bool is_number_column(int col) {
  return std::find(std::begin(kNumberColumns), std::end(kNumberColumns), col) !=
         std::end(kNumberColumns);
}

// The text an empty number cell is saved as: uptake defaults to full uptake.
const char* number_default(int col) {
  return col == kOpColUptake ? "100" : "0";
}

bool data_row(const OperationManagerState& st, int row) {
  return row >= 1 && row < st.table.rows();
}

void mark(OperationManagerState& st, int row) {
  if (st.changed.size() < static_cast<size_t>(st.table.rows()))
    st.changed.resize(static_cast<size_t>(st.table.rows()), false);
  st.changed[static_cast<size_t>(row)] = true;
  st.dirty = true;
}

// Opens a file to import from after the checks an assessment file passes on
// opening: a Version row of this structure, and every table and column of
// the assessment schema. Throws StoreError.
Db open_import_file(const std::string& path) {
  if (path.empty() || !fs::is_regular_file(path)) throw StoreError(path, "the file is missing");
  Db db = Db::open(path);
  db.require_table("Version");
  {
    auto rows = db.query("SELECT * FROM " + quote_name("Version"));
    if (!rows.next()) db.fail("its table \"Version\" has no row");
    Value structure = rows.get("Structure Version");
    if (structure.is_empty() || structure.as_double() != kStructureVersion)
      db.fail("it has another structure version");
  }
  require_assessment_schema(db);
  return db;
}

std::string operations_by_id_sql() {
  return "SELECT * FROM " + quote_name("Operations") + " WHERE " + quote_name("Operation ID") +
         " = ?";
}

}  // namespace

OperationCellKind operation_column_kind(int col) {
  if (col == kOpColName) return OperationCellKind::text;
  if (col == kOpColTechnique) return OperationCellKind::cycle;
  if (col == kOpColTeaInc) return OperationCellKind::toggle;
  if (is_number_column(col)) return OperationCellKind::number;
  return OperationCellKind::readonly;
}

OperationManagerState& operation_manager() {
  return state_storage();
}

void reset_operation_manager() {
  state_storage() = empty_state();
}

void get_operations(int mode, int64_t operation_id) {
  OperationManagerState& st = state_storage();
  const Session& s = session();
  const bool from_file = s.edit_from_assessment;
  Db db = Db::open(from_file ? s.current_file : s.ops_db_path);

  std::set<int64_t> with_data;
  const bool filter = !from_file && st.data_available;
  if (filter) {
    auto q = db.query("SELECT DISTINCT " + quote_name("Operation ID") + " FROM " +
                      quote_name("Operation_Activity_Delta"));
    while (q.next()) with_data.insert(q.get(0).as_int());
  }

  GridTable table(kOpColumnCount);
  put_titles(table);
  Rows rows = mode == 1 ? db.query("SELECT * FROM " + quote_name("Operations") + " WHERE " +
                                       quote_name("Operation Name") +
                                       " LIKE '%' || ? || '%' ESCAPE '\\' ORDER BY rowid",
                                   {Value(like_escape(st.search_text))})
                        : db.query(operations_by_id_sql(), {Value(operation_id)});
  while (rows.next()) {
    Value id = rows.get(kStoreColumns[kOpColId]);
    if (filter && (id.is_empty() || !with_data.count(id.as_int()))) continue;
    int r = table.add_row();
    table.cell(r, kOpColId) = id.is_empty() ? "" : std::to_string(id.as_int());
    table.cell(r, kOpColName) = rows.get(kStoreColumns[kOpColName]).as_text();
    table.cell(r, kOpColTechnique) = technique_text(rows.get(kStoreColumns[kOpColTechnique]));
    for (int c : kNumberColumns)
      table.cell(r, c) = number_to_cell(rows.get(kStoreColumns[c]).as_double());
    Value tea = rows.get(kStoreColumns[kOpColTeaInc]);
    table.cell(r, kOpColTeaInc) = !tea.is_empty() && tea.as_int() == 1 ? kYes : kNo;
  }
  st.table = std::move(table);
  st.changed.assign(static_cast<size_t>(st.table.rows()), false);
  st.dirty = false;
}

bool operation_cell_click(int row, int col) {
  OperationManagerState& st = state_storage();
  if (!data_row(st, row)) return false;
  if (col == kOpColTechnique) {
    // The two techniques measure in different units, so the value restarts
    // at the new unit's default whatever the user had typed.
    std::string& technique = st.table.cell(row, kOpColTechnique);
    if (technique == kTechniqueHectare) {
      technique = kTechniqueBoundary;
      st.table.cell(row, kOpColStValue) = "10";
    } else {
      technique = kTechniqueHectare;
      st.table.cell(row, kOpColStValue) = "100";
    }
  } else if (col == kOpColTeaInc) {
    std::string& tea = st.table.cell(row, kOpColTeaInc);
    tea = tea == kYes ? kNo : kYes;
  } else {
    return false;
  }
  mark(st, row);
  return true;
}

bool valid_operation_number(std::string_view text) {
  // The point is read as well as the locale's separator: both are common
  // on keyboards, and neither can be a thousands mark in a cell.
  const std::string& sep = session().decimal_separator;
  bool digit = false, separator = false;
  for (size_t i = 0; i < text.size();) {
    if (std::isdigit(static_cast<unsigned char>(text[i]))) {
      digit = true;
      ++i;
    } else if (!separator && text[i] == '.') {
      separator = true;
      ++i;
    } else if (!sep.empty() && !separator && text.substr(i, sep.size()) == sep) {
      separator = true;
      i += sep.size();
    } else {
      return false;
    }
  }
  return text.empty() || digit;
}

std::optional<double> operation_number_limit(int col) {
  if (col == kOpColUptake || col == kOpColTeaFactor) return 100.0;
  return std::nullopt;
}

bool operation_cell_edit(Ui& ui, int row, int col, const std::string& text) {
  OperationManagerState& st = state_storage();
  OperationCellKind kind = operation_column_kind(col);
  if (!data_row(st, row) || (kind != OperationCellKind::text && kind != OperationCellKind::number))
    return false;
  std::string stored = text;
  if (kind == OperationCellKind::number) {
    const std::string& sep = session().decimal_separator;
    std::string separators = sep == "." ? "\".\"" : "\"" + sep + "\" or \".\"";
    if (!valid_operation_number(text)) {
      ui.message_box("The value of \"" + std::string(kTitles[col]) +
                         "\" must be a number: digits with at most one decimal separator (" +
                         separators + ").",
                     kInvalidValueTitle, MsgButtons::Ok, MsgIcon::Exclamation);
      return false;
    }
    if (!text.empty()) {
      // One cell form whichever separator was typed: the session's.
      std::string dotted = text;
      if (sep != "." && dotted.find(sep) != std::string::npos)
        dotted.replace(dotted.find(sep), sep.size(), ".");
      if (dotted.back() == '.') dotted.pop_back();
      if (dotted.front() == '.') dotted.insert(0, "0");
      const double value = std::stod(dotted);
      if (auto limit = operation_number_limit(col); limit && value > *limit) {
        ui.message_box("The value of \"" + std::string(kTitles[col]) +
                           "\" must lie between 0 and " + number_to_cell(*limit) + ".",
                       kInvalidValueTitle, MsgButtons::Ok, MsgIcon::Exclamation);
        return false;
      }
      stored = dotted;
      if (sep != "." && stored.find('.') != std::string::npos)
        stored.replace(stored.find('.'), 1, sep);
    }
  }
  std::string& cell = st.table.cell(row, col);
  if (cell == stored) return true;  // an editor closed without a change
  cell = stored;
  mark(st, row);
  return true;
}

bool save_changes(Ui& ui) {
  OperationManagerState& st = state_storage();
  if (!st.dirty) {
    st.status = "No changes to save.";
    return false;
  }
  if (ui.message_box(kSaveQuestion, kSaveTitle, MsgButtons::YesNo, MsgIcon::Question) !=
      Answer::Yes) {
    st.status = "Nothing saved: the changes are still in the table.";
    return false;
  }

  std::vector<int64_t> saved;
  std::string names;
  try {
    Db db = Db::open(session().current_file);
    Transaction tx(db);
    for (int r = 1; r < st.table.rows(); ++r) {
      if (r >= static_cast<int>(st.changed.size()) || !st.changed[static_cast<size_t>(r)]) continue;
      int64_t id = static_cast<int64_t>(cell_to_number(st.table.cell(r, kOpColId)));
      std::vector<std::string> columns = {kStoreColumns[kOpColName]};
      std::vector<Value> values = {Value(st.table.cell(r, kOpColName))};
      // A cell that names no technique leaves the stored one alone.
      if (int code = technique_code(st.table.cell(r, kOpColTechnique))) {
        columns.push_back(kStoreColumns[kOpColTechnique]);
        values.emplace_back(code);
      }
      for (int c : kNumberColumns) {
        std::string& cell = st.table.cell(r, c);
        if (cell.empty()) cell = number_default(c);
        columns.push_back(kStoreColumns[c]);
        values.emplace_back(cell_to_number(cell));
      }
      std::string& tea = st.table.cell(r, kOpColTeaInc);
      if (tea.empty()) tea = kYes;
      columns.push_back(kStoreColumns[kOpColTeaInc]);
      values.emplace_back(tea == kYes ? 1 : 0);

      std::string sql = "UPDATE " + quote_name("Operations") + " SET ";
      for (size_t i = 0; i < columns.size(); ++i)
        sql += (i ? ", " : "") + quote_name(columns[i]) + " = ?";
      sql += " WHERE " + quote_name("Operation ID") + " = ?";
      values.emplace_back(id);
      db.exec(sql, values);
      saved.push_back(id);
      names += (names.empty() ? "" : ", ") + st.table.cell(r, kOpColName);
    }
    tx.commit();
  } catch (const std::exception& e) {
    st.status = "Nothing saved.";
    ui.message_box(std::string("The changes could not be saved:\n") + e.what(), kSaveTitle,
                   MsgButtons::Ok, MsgIcon::Stop);
    return false;
  }
  st.status = "Saved " + std::to_string(saved.size()) +
              (saved.size() == 1 ? " operation" : " operations") + " in " +
              fs::path(session().current_file).filename().string() +
              (names.empty() ? "." : ": " + names + ".");

  std::vector<int64_t>& list = explorer_state().recalc_list;
  for (int64_t id : saved)
    if (std::find(list.begin(), list.end(), id) == list.end()) list.push_back(id);
  st.dirty = false;
  std::fill(st.changed.begin(), st.changed.end(), false);
  return true;
}

bool operation_manager_query_close(Ui& ui) {
  OperationManagerState& st = state_storage();
  if (!st.dirty) return true;
  Answer a =
      ui.message_box(kUnsavedQuestion, kSaveTitle, MsgButtons::YesNoCancel, MsgIcon::Question);
  if (a == Answer::Cancel) return false;
  if (a == Answer::No) {
    st.dirty = false;
    return true;
  }
  // Yes: save_changes asks its own question; its No keeps the window open.
  return save_changes(ui);
}

void choose_import_file(Ui& ui) {
  FileDialogRequest request;
  request.title = kImportDialogTitle;
  request.filter = "*.arv";
  request.initial_dir = (fs::path(session().documents_folder) / "My ARVEN Files").string();
  std::string path = ui.file_dialog(request);
  if (path.empty()) return;
  bool has_rows = false;
  try {
    Db db = open_import_file(path);
    has_rows = db.query("SELECT * FROM " + quote_name("Operations") + " LIMIT 1").next();
  } catch (const std::exception&) {
    ui.message_box(kInvalidFileText, kInvalidFileTitle, MsgButtons::Ok, MsgIcon::Exclamation);
    return;
  }
  if (!has_rows) {
    ui.message_box(kNoDataText, kNoDataTitle, MsgButtons::Ok, MsgIcon::Information);
    return;
  }
  state_storage().import_path = path;
}

void import_data(Ui& ui) {
  OperationManagerState& st = state_storage();
  if (st.import_path.empty()) {
    ui.message_box(kNoFileText, kNoFileTitle, MsgButtons::Ok, MsgIcon::Exclamation);
    return;
  }
  // Read everything first, so that a file that fails halfway changes nothing.
  GridTable table = st.table;
  std::vector<int> found;
  try {
    Db db = open_import_file(st.import_path);
    Statement by_id = db.prepare_statement(operations_by_id_sql());
    for (int r = 1; r < table.rows(); ++r) {
      auto id = parse_number(table.cell(r, kOpColId));
      if (!id) continue;
      Rows& rows = by_id.query({Value(static_cast<int64_t>(*id))});
      if (!rows.next()) continue;
      table.cell(r, kOpColTechnique) = technique_text(rows.get(kStoreColumns[kOpColTechnique]));
      for (int c : kNumberColumns) {
        Value v = rows.get(kStoreColumns[c]);
        table.cell(r, c) = v.is_empty() ? "" : number_to_cell(v.as_double());
      }
      Value tea = rows.get(kStoreColumns[kOpColTeaInc]);
      table.cell(r, kOpColTeaInc) = tea.is_empty() ? "" : tea.as_int() == 1 ? kYes : kNo;
      found.push_back(r);
    }
  } catch (const std::exception&) {
    ui.message_box(kInvalidFileText, kInvalidFileTitle, MsgButtons::Ok, MsgIcon::Exclamation);
    return;
  }
  st.table = std::move(table);
  for (int r : found) mark(st, r);
  st.dirty = true;
}

void refresh_operations(Ui& ui) {
  try {
    get_operations(1, 0);
  } catch (const std::exception& e) {
    ui.message_box(std::string("The operations could not be read:\n") + e.what(),
                   "Operation Manager", MsgButtons::Ok, MsgIcon::Stop);
  }
}

void edit_operation_properties(Ui& ui, int64_t operation_id, const ImpactCacheHooks& hooks) {
  Session& s = session();
  reset_operation_manager();
  s.operation_manager_open = true;
  s.edit_from_assessment = true;
  bool shown = false;
  try {
    get_operations(2, operation_id);
    shown = true;
  } catch (const std::exception& e) {
    ui.message_box(std::string("The operation could not be read:\n") + e.what(),
                   "Operation Manager", MsgButtons::Ok, MsgIcon::Stop);
  }
  if (shown) ui.show_modal("opman");
  s.operation_manager_open = false;
  s.edit_from_assessment = false;
  // Nothing saved, nothing to recalculate.
  if (!shown || explorer_state().recalc_list.empty()) return;

  if (ui.message_box(kRecalcQuestion, kRecalcTitle, MsgButtons::YesNo, MsgIcon::Question) ==
      Answer::Yes)
    data_update(ui, hooks);
  else
    explorer_state().recalc_list.clear();
}

}  // namespace arven

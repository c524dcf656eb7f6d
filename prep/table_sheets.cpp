#include "prep/table_sheets.h"

#include <algorithm>
#include <map>
#include <set>

#include "base/text.h"
#include "core/grid_export.h"
#include "core/lookups.h"
#include "prep/activity_delta.h"
#include "prep/master_import.h"
#include "prep/master_keys.h"
#include "prep/master_stores.h"
#include "prep/rationalised_store.h"
#include "prep/references.h"
#include "prep/xlsx_reader.h"
#include "stores/schema.h"

namespace arven {

namespace {

std::string q(std::string_view name) {
  return quote_name(name);
}

enum class Store { ops, rvc, rationalised };

struct MasterTable {
  const TableDef* def = nullptr;
  Store store = Store::ops;
};

MasterTable locate(const std::string& table) {
  for (const auto& t : operations_master_tables())
    if (t.name == table) return {&t, Store::ops};
  for (const auto& t : rvcs_master_tables())
    if (t.name == table) return {&t, Store::rvc};
  for (const auto& t : rationalised_tables())
    if (t.name == table) return {&t, Store::rationalised};
  throw EditError("There is no master table \"" + table + "\".");
}

Db open_store(const MasterTable& m) {
  switch (m.store) {
    case Store::ops:
      return ops_db();
    case Store::rvc:
      return rvc_db();
    case Store::rationalised:
      break;
  }
  return rationalised_db();
}

std::vector<std::string> column_names(const TableDef& def) {
  std::vector<std::string> names;
  for (const auto& c : def.columns) names.push_back(c.name);
  return names;
}

std::string select_all(const TableDef& def) {
  std::string sql = "SELECT ";
  for (size_t i = 0; i < def.columns.size(); ++i) sql += (i ? ", " : "") + q(def.columns[i].name);
  return sql + " FROM " + q(def.name) + " ORDER BY rowid";
}

std::vector<std::vector<Value>> stored_rows(const Db& db, const TableDef& def) {
  std::vector<std::vector<Value>> out;
  auto rows = db.query(select_all(def));
  while (rows.next()) {
    std::vector<Value> row;
    for (int i = 0; i < rows.column_count(); ++i) row.push_back(rows.get(i));
    out.push_back(std::move(row));
  }
  return out;
}

// The values of one column of a stored table, as text.
std::set<std::string> stored_values(const Db& db, const std::string& table,
                                    const std::string& column) {
  std::set<std::string> out;
  auto rows = db.query("SELECT " + q(column) + " FROM " + q(table));
  while (rows.next()) out.insert(rows.get(0).as_text());
  return out;
}

int column_index(const TableDef& def, std::string_view name) {
  for (size_t i = 0; i < def.columns.size(); ++i)
    if (def.columns[i].name == name) return static_cast<int>(i);
  return -1;
}

constexpr const char* kNothing = " Nothing was imported; the table stays as it was.";

// One sheet being checked against one table.
// One sheet being checked against one table. Rows typed in an editor come
// as a sheet without a name, whose rows are counted from the first below the
// titles and whose columns are named by their titles alone.
struct SheetCheck {
  const TableDef& def;
  std::string sheet;
  std::vector<int> column_of;  // sheet column -> table column, -1 for none

  std::string where() const {
    return "Table \"" + def.name + "\"" + (sheet.empty() ? "" : ", sheet \"" + sheet + "\"");
  }
  size_t line(size_t index) const { return sheet.empty() ? index : index + 1; }
  std::string nothing() const {
    return sheet.empty() ? " Nothing was saved; the table stays as it was." : kNothing;
  }
  [[noreturn]] void fail(size_t line, int table_column, const std::string& what) const {
    std::string at = where() + ", row " + std::to_string(line);
    if (table_column >= 0) {
      auto it = std::find(column_of.begin(), column_of.end(), table_column);
      size_t letter = static_cast<size_t>(it - column_of.begin());
      at += sheet.empty() ? ", column \"" + def.columns[table_column].name + "\""
                          : ", column " + xlsx_column_letters(letter) + " (\"" +
                                def.columns[table_column].name + "\")";
    }
    throw EditError(at + ": " + what + "." + nothing());
  }
};

struct SheetRow {
  size_t line = 0;  // the sheet's row number, from 1
  std::vector<Value> values;
};

const XlsxSheet& table_sheet(const std::vector<XlsxSheet>& sheets, const std::string& table) {
  if (sheets.empty()) throw XlsxError("the workbook has no worksheet");
  const std::string name = excel_sheet_name(table);
  for (const auto& s : sheets)
    if (s.name == name) return s;
  return sheets.front();
}

void read_header(SheetCheck& check, const XlsxSheet& sheet) {
  const TableDef& def = check.def;
  size_t width = sheet.rows.empty() ? 0 : sheet.rows.front().size();
  for (size_t c = 0; c < width; ++c) {
    const std::string title = sheet.at(0, c).text;
    int found = -1;
    for (size_t i = 0; i < def.columns.size() && !title.empty(); ++i)
      if (lower_case(def.columns[i].name) == lower_case(title)) found = static_cast<int>(i);
    if (!title.empty() && found < 0)
      throw EditError("Table \"" + def.name + "\", sheet \"" + check.sheet + "\", row 1, column " +
                      xlsx_column_letters(c) + ": the table has no column \"" + title + "\"." +
                      kNothing);
    if (found >= 0 &&
        std::find(check.column_of.begin(), check.column_of.end(), found) != check.column_of.end())
      throw EditError("Table \"" + def.name + "\", sheet \"" + check.sheet + "\", row 1, column " +
                      xlsx_column_letters(c) + ": the column \"" + title + "\" is named twice." +
                      kNothing);
    check.column_of.push_back(found);
  }
  for (size_t i = 0; i < def.columns.size(); ++i)
    if (std::find(check.column_of.begin(), check.column_of.end(), static_cast<int>(i)) ==
        check.column_of.end())
      throw EditError("Table \"" + def.name + "\", sheet \"" + check.sheet +
                      "\", row 1: no column is titled \"" + def.columns[i].name +
                      "\"; the first row names every column of the table." + kNothing);
}

std::vector<SheetRow> read_rows(const SheetCheck& check, const XlsxSheet& sheet) {
  const TableDef& def = check.def;
  std::vector<SheetRow> out;
  for (size_t r = 1; r < sheet.rows.size(); ++r) {
    const auto& cells = sheet.rows[r];
    if (std::all_of(cells.begin(), cells.end(),
                    [](const XlsxCell& c) { return c.kind == XlsxCell::Kind::empty; }))
      continue;
    SheetRow row{check.line(r), std::vector<Value>(def.columns.size())};
    for (size_t c = 0; c < cells.size(); ++c) {
      const XlsxCell& cell = cells[c];
      if (cell.kind == XlsxCell::Kind::empty) continue;
      int col = c < check.column_of.size() ? check.column_of[c] : -1;
      if (col < 0)
        throw EditError(check.where() + ", row " + std::to_string(check.line(r)) + ", column " +
                        xlsx_column_letters(c) + ": the cell lies under no column title." +
                        kNothing);
      const ColumnDef& cd = def.columns[col];
      if (cell.kind == XlsxCell::Kind::error)
        check.fail(row.line, col, "the cell holds the error " + cell.text);
      try {
        row.values[col] = master_cell_value(cell.text, cd);
      } catch (const std::invalid_argument& e) {
        check.fail(row.line, col, e.what());
      }
      if (cd.type == ColType::Text && !fits_text_column(cell.text, cd.size))
        check.fail(
            row.line, col,
            "the text is longer than the column's " + std::to_string(cd.size) + " characters");
    }
    out.push_back(std::move(row));
  }
  return out;
}

void check_keys(const SheetCheck& check, const std::vector<SheetRow>& rows) {
  const auto& keys = key_columns(check.def.name);
  if (keys.empty()) return;
  std::vector<int> cols;
  for (const auto& k : keys) cols.push_back(column_index(check.def, k));
  std::map<std::string, size_t> seen;
  for (const auto& row : rows) {
    std::string key;
    for (int c : cols) {
      if (row.values[c].is_empty()) check.fail(row.line, c, "the key column holds no value");
      key += row.values[c].as_text() + '\x1f';
    }
    auto [it, fresh] = seen.emplace(key, row.line);
    if (!fresh)
      check.fail(row.line, cols.front(), "row " + std::to_string(it->second) + " has the same key");
  }
}

std::set<std::string> new_values(const std::vector<SheetRow>& rows, int column) {
  std::set<std::string> out;
  for (const auto& row : rows) out.insert(row.values[column].as_text());
  return out;
}

// An assignment names an operation of the catalogue (in the operations
// master), a category by its table's name, and a row of that table.
void check_assignments(const SheetCheck& check, const std::vector<SheetRow>& rows, const Db& db) {
  std::set<std::string> operations = stored_values(ops_db(), "Operations", "Operation ID");
  const int op = 0, category = 1, id = 2;
  std::map<std::string, std::set<std::string>> ids;
  for (const auto& row : rows) {
    const std::string name = row.values[category].as_text();
    if (!operations.count(row.values[op].as_text()))
      check.fail(row.line, op,
                 "\"" + row.values[op].as_text() +
                     "\" has no row in table \"Operations\" of the operations master");
    if (!is_rationalised_category(name))
      check.fail(row.line, category,
                 "\"" + name + "\" is not a category of rationalised operation");
    if (!ids.count(name)) ids[name] = stored_values(db, name, "Rationalised ID");
    if (!ids[name].count(row.values[id].as_text()))
      check.fail(row.line, id,
                 "\"" + row.values[id].as_text() + "\" has no row in table \"" + name + "\"");
  }
}

// The columns of the sheet that name rows of other tables (or of itself).
void check_named_rows(const SheetCheck& check, const std::vector<SheetRow>& rows, const Db& db) {
  const std::string& table = check.def.name;
  for (const auto& fk : foreign_keys()) {
    if (fk.table != table) continue;
    int col = column_index(check.def, fk.column);
    std::set<std::string> parents =
        fk.parent == table ? new_values(rows, column_index(check.def, fk.parent_column))
                           : stored_values(db, fk.parent, fk.parent_column);
    for (const auto& row : rows)
      if (!row.values[col].is_empty() && !parents.count(row.values[col].as_text()))
        check.fail(
            row.line, col,
            "\"" + row.values[col].as_text() + "\" has no row in table \"" + fk.parent + "\"");
  }
  if (table == kRationalisedAssignments) check_assignments(check, rows, db);
  if (std::find(refs_tables().begin(), refs_tables().end(), table) == refs_tables().end()) return;
  int col = column_index(check.def, "Refs");
  std::set<std::string> refs = stored_values(db, "References", "Ref ID");
  for (const auto& row : rows) {
    auto ids = parse_refs(row.values[col].as_text());
    if (!ids) check.fail(row.line, col, "the Ref IDs are not whole numbers separated by commas");
    for (int64_t id : *ids)
      if (!refs.count(std::to_string(id)))
        check.fail(row.line, col,
                   "Ref ID " + std::to_string(id) + " has no row in table \"References\"");
  }
}

// Rows of other tables that name a row the import would leave out.
void check_kept_rows(const SheetCheck& check, const std::vector<SheetRow>& rows, const Db& db) {
  const std::string& table = check.def.name;
  auto refuse = [&](const std::string& column, const std::string& value, const std::string& child,
                    int64_t child_row, const std::string& child_column) {
    throw EditError(check.where() + ": no row is left with \"" + column + "\" " + value +
                    ", which table \"" + child + "\" still names (row " +
                    std::to_string(child_row) + ", column \"" + child_column + "\")." +
                    check.nothing());
  };
  for (const auto& fk : foreign_keys()) {
    if (fk.parent != table || fk.table == table) continue;
    std::set<std::string> keys = new_values(rows, column_index(check.def, fk.parent_column));
    auto named = db.query("SELECT " + q(fk.column) + " FROM " + q(fk.table) + " ORDER BY rowid");
    while (named.next()) {
      Value v = named.get(0);
      if (!v.is_empty() && !keys.count(v.as_text()))
        refuse(fk.parent_column, v.as_text(), fk.table, named.row(), fk.column);
    }
  }
  if (is_rationalised_category(table)) {
    std::set<std::string> keys = new_values(rows, column_index(check.def, "Rationalised ID"));
    auto named = db.query("SELECT " + q("Category") + ", " + q("Rationalised ID") + " FROM " +
                          q(kRationalisedAssignments) + " ORDER BY rowid");
    while (named.next())
      if (named.get(0).as_text() == table && !keys.count(named.get(1).as_text()))
        refuse("Rationalised ID", named.get(1).as_text(), kRationalisedAssignments, named.row(),
               "Rationalised ID");
  }
  if (table != "References") return;
  std::set<std::string> keys = new_values(rows, column_index(check.def, "Ref ID"));
  for (const auto& child : refs_tables()) {
    auto named = db.query("SELECT " + q("Refs") + " FROM " + q(child) + " ORDER BY rowid");
    while (named.next()) {
      auto ids = parse_refs(named.get(0).as_text());
      for (int64_t id : ids.value_or(std::vector<int64_t>{}))
        if (!keys.count(std::to_string(id)))
          refuse("Ref ID", std::to_string(id), child, named.row(), "Refs");
    }
  }
}

std::string row_text(const std::vector<Value>& values) {
  std::string out;
  for (const auto& v : values) out += (v.is_null() ? std::string("\x1e") : v.as_text()) + '\x1f';
  return out;
}

// The rows that the import adds, removes or alters.
std::vector<std::vector<Value>> changed_rows(const std::vector<std::vector<Value>>& old_rows,
                                             const std::vector<SheetRow>& rows) {
  std::multiset<std::string> before;
  for (const auto& r : old_rows) before.insert(row_text(r));
  std::vector<std::vector<Value>> out;
  for (const auto& r : rows) {
    auto it = before.find(row_text(r.values));
    if (it == before.end())
      out.push_back(r.values);
    else
      before.erase(it);
  }
  for (const auto& r : old_rows)
    if (auto it = before.find(row_text(r)); it != before.end()) {
      before.erase(it);
      out.push_back(r);
    }
  return out;
}

// Where the operations that use a row are found, by the column that keys it:
// the table and its column that pair that key with an Operation ID.
std::pair<std::string, std::string> operation_link(const std::string& table,
                                                   const std::string& column) {
  if (column == "Activity ID") return {"Operation_Activity_Delta", column};
  if (column == "Baseline ID") return {"Delta_List", column};
  if (column == "Practicality ID") return {"Operations_Practicality", column};
  if (column == "Impact ID") return {"Operations_Impacts", column};
  if (column == "Operation Type ID") return {"Operations", column};
  if (column == "Measure ID")
    return {table == "New_Measures" ? "Operations_New_Measures" : "Operations_Measures", column};
  return {};
}

// The operations whose data the changed rows touch.
std::set<int64_t> affected_operations(const Db& db, const TableDef& def,
                                      const std::vector<std::vector<Value>>& changed) {
  std::set<int64_t> ops;
  if (changed.empty()) return ops;
  if (int op = column_index(def, "Operation ID"); op >= 0) {
    for (const auto& r : changed)
      if (!r[op].is_empty()) ops.insert(r[op].as_int());
    return ops;
  }
  // A reference reaches operations through the factor rows that name it.
  if (def.name == "References") {
    std::set<int64_t> ids;
    for (const auto& r : changed) ids.insert(r[0].as_int());
    return operations_naming_refs(db, ids);
  }
  std::string key_column;
  for (const auto& c : def.columns)
    if (!operation_link(def.name, c.name).first.empty()) {
      key_column = c.name;
      break;
    }
  if (key_column.empty()) return ops;
  std::set<std::string> keys;
  int col = column_index(def, key_column);
  for (const auto& r : changed) keys.insert(r[col].as_text());
  auto [link, column] = operation_link(def.name, key_column);
  auto rows = db.query("SELECT " + q("Operation ID") + ", " + q(column) + " FROM " + q(link));
  while (rows.next())
    if (keys.count(rows.get(1).as_text())) ops.insert(rows.get(0).as_int());
  return ops;
}

}  // namespace

std::vector<std::string> master_table_names() {
  std::vector<std::string> out;
  for (const auto& t : operations_master_tables()) out.push_back(t.name);
  for (const auto& t : rvcs_master_tables()) out.push_back(t.name);
  return out;
}

int master_table_row_count(const std::string& table) {
  MasterTable m = locate(table);
  Db db = open_store(m);
  auto rows = db.query("SELECT COUNT(*) FROM " + q(table));
  rows.next();
  return static_cast<int>(rows.get(0).as_int());
}

void export_table_xlsx(const std::string& table, const std::filesystem::path& file) {
  const TableDef& def = *locate(table).def;
  std::vector<bool> text_columns;
  for (const auto& c : def.columns)
    text_columns.push_back(c.type == ColType::Text || c.type == ColType::Memo ||
                           c.type == ColType::Date);
  write_xlsx(master_table_rows(table), file, table, {}, text_columns);
}

namespace {

SheetImport replace_rows(const MasterTable& m, const XlsxSheet& sheet) {
  const TableDef& def = *m.def;
  SheetCheck check{def, sheet.name, {}};
  read_header(check, sheet);
  std::vector<SheetRow> rows = read_rows(check, sheet);
  check_keys(check, rows);

  Db db = open_store(m);
  check_named_rows(check, rows, db);
  check_kept_rows(check, rows, db);

  SheetImport result;
  result.rows = static_cast<int>(rows.size());
  auto changed = changed_rows(stored_rows(db, def), rows);
  result.changed = static_cast<int>(changed.size());
  std::set<int64_t> ops =
      m.store == Store::ops ? affected_operations(db, def, changed) : std::set<int64_t>{};
  Transaction tx(db);
  db.exec("DELETE FROM " + q(def.name));
  const std::vector<std::string> names = column_names(def);
  for (const auto& row : rows) db.insert(def.name, names, row.values);
  result.stamped = stamp_operations(db, ops);
  tx.commit();
  return result;
}

}  // namespace

SheetImport import_table_xlsx(const std::string& table, const std::filesystem::path& file) {
  MasterTable m = locate(table);
  std::vector<XlsxSheet> sheets = read_xlsx_file(file);
  return replace_rows(m, table_sheet(sheets, table));
}

GridTable master_table_rows(const std::string& table) {
  MasterTable m = locate(table);
  Db db = open_store(m);
  const TableDef& def = *m.def;
  GridTable grid(static_cast<int>(def.columns.size()));
  grid.add_row();
  for (size_t c = 0; c < def.columns.size(); ++c)
    grid.cell(0, static_cast<int>(c)) = def.columns[c].name;
  for (const auto& row : stored_rows(db, def)) {
    int r = grid.add_row();
    for (size_t c = 0; c < row.size(); ++c) grid.cell(r, static_cast<int>(c)) = row[c].as_text();
  }
  return grid;
}

SheetImport replace_table_rows(const std::string& table, const GridTable& grid) {
  MasterTable m = locate(table);
  XlsxSheet sheet;  // no name: the rows of an editor
  for (int r = 0; r < grid.rows(); ++r) {
    std::vector<XlsxCell> cells;
    for (int c = 0; c < grid.cols(); ++c)
      cells.push_back(grid.cell(r, c).empty() ? XlsxCell{}
                                              : XlsxCell{XlsxCell::Kind::text, grid.cell(r, c)});
    sheet.rows.push_back(std::move(cells));
  }
  return replace_rows(m, sheet);
}

}  // namespace arven

#include "prep/factor_tools.h"

#include <optional>

#include "base/numbers.h"
#include "base/text.h"
#include "core/session.h"
#include "prep/master_stores.h"
#include "stores/db.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr const char* kNothingImported = " Nothing was imported.";

void check_row(const GridTable& table, int row) {
  if (row < 1 || row >= table.rows()) throw EditError("Click a cell of the table first.");
}

// The number a key cell holds; nullopt for an empty or other text.
std::optional<double> key_of(const std::string& text) {
  return parse_number(text);
}

int find_key_row(const GridTable& table, int key_col, double key) {
  for (int r = 1; r < table.rows(); ++r)
    if (key_of(table.cell(r, key_col)) == key) return r;
  return -1;
}

int column_titled(const GridTable& table, std::string_view title) {
  for (int c = 0; c < table.cols(); ++c)
    if (table.cell(0, c) == title) return c;
  return -1;
}

// A sheet's row as the import reads it: the key and a text per value column
// (nullopt where the sheet has no such column).
struct SheetRow {
  double key = 0;
  std::vector<std::optional<std::string>> values;
};

}  // namespace

bool factor_column_editable(FactorKind kind, int col) {
  if (kind == FactorKind::ecosystem_services) return col != 1;
  return col != 0;
}

const char* factor_key_column(FactorKind kind) {
  return kind == FactorKind::ecosystem_services ? "RVC ID" : "RVC Class";
}

int row_copy(GridTable& table, FactorKind kind, int row) {
  check_row(table, row);
  for (int r = row + 1; r < table.rows(); ++r)
    for (int c = 0; c < table.cols(); ++c)
      if (factor_column_editable(kind, c)) table.cell(r, c) = table.cell(row, c);
  return table.rows() - 1 - row;
}

int column_copy(GridTable& table, FactorKind kind, int row, int col) {
  check_row(table, row);
  if (col < 0 || col >= table.cols() || !factor_column_editable(kind, col))
    throw EditError("Click a cell of a column that takes values first.");
  for (int r = 1; r < table.rows(); ++r) table.cell(r, col) = table.cell(row, col);
  return table.rows() - 2;
}

FactorFill import_factor_sheet(GridTable& table, FactorKind kind,
                               const std::vector<XlsxSheet>& sheets) {
  const std::string key_title = factor_key_column(kind);
  const int key_col = column_titled(table, key_title);
  const XlsxSheet* sheet = nullptr;
  size_t sheet_key = 0;
  for (const auto& s : sheets) {
    if (s.rows.empty()) continue;
    for (size_t c = 0; c < s.rows[0].size() && !sheet; ++c)
      if (lower_case(trim_blanks(s.rows[0][c].text)) == lower_case(key_title)) {
        sheet = &s;
        sheet_key = c;
      }
    if (sheet) break;
  }
  if (!sheet || key_col < 0)
    throw EditError("No sheet has the column \"" + key_title + "\" in its first row." +
                    kNothingImported);

  // The table's value columns, and where the sheet has each.
  std::vector<int> columns;
  std::vector<std::optional<size_t>> from;
  bool any = false;
  for (int c = 0; c < table.cols(); ++c) {
    if (c == key_col || !factor_column_editable(kind, c)) continue;
    columns.push_back(c);
    std::optional<size_t> found;
    for (size_t s = 0; s < sheet->rows[0].size(); ++s)
      if (lower_case(trim_blanks(sheet->rows[0][s].text)) == lower_case(table.cell(0, c)))
        found = s;
    any = any || found.has_value();
    from.push_back(found);
  }
  if (!any)
    throw EditError("Sheet \"" + sheet->name +
                    "\" has no column of the table's values in its first row." + kNothingImported);

  // Every cell is read before the table changes: a refusal leaves it whole.
  auto number = [&](size_t r, size_t c) -> std::optional<std::string> {
    const XlsxCell& cell = sheet->at(r, c);
    if (cell.kind == XlsxCell::Kind::empty || trim_blanks(cell.text).empty()) return "";
    std::optional<double> n;
    if (cell.kind == XlsxCell::Kind::number || cell.kind == XlsxCell::Kind::text)
      n = parse_number(cell.text);
    if (!n)
      throw EditError("Sheet \"" + sheet->name + "\", cell " + xlsx_column_letters(c) +
                      std::to_string(r + 1) + ": \"" + cell.text + "\" is not a number." +
                      kNothingImported);
    return number_to_cell(*n);
  };
  std::vector<SheetRow> rows;
  for (size_t r = 1; r < sheet->rows.size(); ++r) {
    std::string key = *number(r, sheet_key);
    if (key.empty()) continue;
    SheetRow row{*key_of(key), {}};
    for (const auto& f : from) row.values.push_back(f ? number(r, *f) : std::nullopt);
    rows.push_back(std::move(row));
  }

  FactorFill fill;
  fill.source = sheet->name;
  for (const SheetRow& row : rows) {
    int r = find_key_row(table, key_col, row.key);
    if (r < 0) {
      r = table.add_row();
      table.cell(r, key_col) = number_to_cell(row.key);
      ++fill.added;
    } else {
      ++fill.filled;
    }
    for (size_t i = 0; i < columns.size(); ++i)
      if (row.values[i]) table.cell(r, columns[i]) = *row.values[i];
  }
  return fill;
}

FactorFill excel_import(GridTable& table, FactorKind kind, const fs::path& workbook) {
  std::vector<XlsxSheet> sheets;
  try {
    sheets = read_xlsx_file(workbook);
  } catch (const XlsxError& e) {
    throw EditError(std::string(e.what()) + "." + kNothingImported);
  }
  FactorFill fill = import_factor_sheet(table, kind, sheets);
  fill.source = workbook.filename().string() + ", sheet \"" + fill.source + "\"";
  return fill;
}

fs::path manure_storage_map_path() {
  return session().app_folder / "dbases" / "data import maps" / "LSR and IPCC CZ.mdb";
}

FactorFill manure_storage_import(GridTable& table, FactorKind kind, int64_t ipcc_rc2,
                                 const fs::path& map) {
  if (!factor_kind_by_class(kind))
    throw EditError(
        "Manure storage import fills factors by class: GHG Emissions, Carbon Sequestration or "
        "Yield.");
  if (table.rows() < 2)
    throw EditError(
        "The table has no classes yet: choose the RVC and press \"Classes of the RVC\" "
        "first.");
  std::error_code ec;
  if (!fs::is_regular_file(map, ec))
    throw EditError("The manure storage map " + map.string() + " is missing." + kNothingImported);
  Db db = Db::open(map);
  db.require_table("Export_Output");
  Statement value = db.prepare_statement(
      "SELECT \"VALUE\" FROM \"Export_Output\" WHERE \"ELE_STX_R5\" = ? AND \"IPCC_RC2\" = ? "
      "ORDER BY rowid LIMIT 1");
  std::vector<std::optional<double>> values;
  for (int r = 1; r < table.rows(); ++r) {
    std::optional<double> found;
    if (auto cls = key_of(table.cell(r, 0))) {
      Rows& rows = value.query({Value(*cls), Value(ipcc_rc2)});
      if (rows.next() && !rows.get(0).is_empty()) found = rows.get(0).as_double();
    }
    values.push_back(found);
  }
  FactorFill fill;
  fill.source = map.filename().string();
  for (int r = 1; r < table.rows(); ++r) {
    const auto& v = values[static_cast<size_t>(r - 1)];
    if (v) {
      table.cell(r, 1) = number_to_cell(*v);
      ++fill.filled;
    } else {
      fill.unmatched.push_back(table.cell(r, 0).empty() ? "(no class)" : table.cell(r, 0));
    }
  }
  return fill;
}

void name_es_rows(GridTable& table) {
  Db rvc = rvc_db();
  Statement name =
      rvc.prepare_statement("SELECT \"RVC Short Name\" FROM \"RVC_List\" WHERE \"RVC ID\" = ?");
  for (int r = 1; r < table.rows(); ++r) {
    auto id = parse_number(table.cell(r, 0));
    Rows& rows = name.query({id ? Value(*id) : Value()});
    table.cell(r, 1) = id && rows.next() ? rows.get(0).as_text() : "";
  }
}

}  // namespace arven

#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/grid_table.h"

namespace arven {

// Spreadsheet export and import of the master tables: one table, one
// workbook, the column titles in the first row.

// Every table of the two master stores, the operations master's first, in
// creation order.
std::vector<std::string> master_table_names();
// The number of rows the table holds now.
int master_table_row_count(const std::string& table);

// Writes the table's rows to a workbook with one sheet named after the
// table (cut to a sheet name's 31 characters): numbers as numbers, text,
// memo and date columns as text.
void export_table_xlsx(const std::string& table, const std::filesystem::path& file);

struct SheetImport {
  int rows = 0;     // rows written
  int changed = 0;  // rows added, removed or altered
  int stamped = 0;  // operations stamped as changed
};

// Replaces the table's rows by the workbook's: the sheet named after the
// table, else the first. Its first row names every column of the table once
// (in any order, any case); blank rows are skipped. Every cell is checked
// first against its column's type and size and the table's keys (key values
// present and unique, keys of other tables named by a column present, rows
// that other tables name kept), and the rows are written in one transaction
// together with the Last_Updated stamp of each operation whose data changed.
// A bad cell throws EditError naming the table, sheet, row and column, and
// the store stays as it was; an unreadable workbook throws XlsxError.
SheetImport import_table_xlsx(const std::string& table, const std::filesystem::path& file);

// The table's rows as text, row 0 the column titles. These two also take
// the tables of the rationalised operations store (prep/rationalised_store.h),
// whose assignments are checked against the operations master's catalogue.
GridTable master_table_rows(const std::string& table);
// Replaces the table's rows by those of an editor's grid (row 0 the column
// titles, as master_table_rows gives them), checked and written as
// import_table_xlsx does; a refusal names the table, the row (counted from
// the first below the titles) and the column.
SheetImport replace_table_rows(const std::string& table, const GridTable& grid);

}  // namespace arven

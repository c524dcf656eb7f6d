#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "prep/activity_factors.h"
#include "prep/xlsx_reader.h"

namespace arven {

// The conveniences of the "Activity Factors" dialog. None of them writes a
// store: each fills cells of the editing table, which the administrator then
// saves as any typed value. A refusal throws EditError and leaves the table
// as it was. Rows count as in the table: 1 is the first row below the titles.

// Whether a column of the kind's editing table takes values (the class of a
// kind by class and the RVC name of ecosystem services do not).
bool factor_column_editable(FactorKind kind, int col);

// "Row Copy": the editable cells of `row` into every row below it. Returns
// the number of rows filled.
int row_copy(GridTable& table, FactorKind kind, int row);
// "Column Copy": the cell at `row`, `col` into every row of its column.
// Returns the number of rows filled.
int column_copy(GridTable& table, FactorKind kind, int row, int col);

// What an import did to the table.
struct FactorFill {
  std::string source;                  // the sheet or the map read
  int filled = 0;                      // rows that took values
  int added = 0;                       // rows added for keys the table lacked
  std::vector<std::string> unmatched;  // keys of the table the source had no value for
};

// The column that keys a row of the kind: "RVC Class", or "RVC ID" for
// ecosystem services.
const char* factor_key_column(FactorKind kind);

// "Excel Import": the first sheet whose first row holds the key column's
// title fills the table. Columns are matched by title (case and blanks
// around it aside); each sheet row fills the table row of the same key, a
// key the table lacks gets a row of its own at the end, and rows without a
// key are passed over. Refused when no sheet has the key column or any
// value column, or when a key or a value is not a number (a sheet cell
// named as in the workbook, "C4").
FactorFill import_factor_sheet(GridTable& table, FactorKind kind,
                               const std::vector<XlsxSheet>& sheets);
// import_factor_sheet on a workbook file; an unreadable one is refused too.
FactorFill excel_import(GridTable& table, FactorKind kind, const std::filesystem::path& workbook);

// The manure storage map of the import: dbases/data import maps/LSR and
// IPCC CZ.mdb, table Export_Output.
std::filesystem::path manure_storage_map_path();
// "Manure storage import" for a kind by class: the first value column of
// each row takes VALUE of the map row whose ELE_STX_R5 is the row's class and
// whose IPCC_RC2 is `ipcc_rc2`. Rows without a map row keep their cells and
// are listed as unmatched. Refused for ecosystem services, for a table
// without rows, and when the map is missing.
FactorFill manure_storage_import(GridTable& table, FactorKind kind, int64_t ipcc_rc2,
                                 const std::filesystem::path& map = manure_storage_map_path());

// Sets the "RVC Name" of every row of an ecosystem services table from its
// "RVC ID" (empty for an ID that RVC_List lacks).
void name_es_rows(GridTable& table);

}  // namespace arven

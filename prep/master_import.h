#pragma once

#include <filesystem>
#include <string>

#include "stores/schema.h"
#include "stores/value.h"

namespace arven {

// Builds the two master stores from a folder of CSV files, one file per table
// named "<table>.csv" whose first row names the columns. Both stores are
// built anew under temporary names beside their paths and renamed into place
// only when every table of both loaded. Empty fields are null; numbers use
// '.' as the decimal point. A missing file, a header naming a column the
// table does not have, a row with the wrong number of fields, a quote left
// open, a NUL byte, a number that does not parse or text that is not UTF-8
// throws std::runtime_error naming the file, line and column; both stores
// then stay exactly as they were.
// The value a master table's column stores for a cell's text: null for an
// empty text, else the whole number, real number, date or text it reads as.
// Throws std::invalid_argument saying what is wrong ("\"x\" is not a whole
// number") when the text does not fit the column's type.
Value master_cell_value(const std::string& text, const ColumnDef& column);

void import_master_csv(const std::filesystem::path& csv_dir, const std::filesystem::path& ops_store,
                       const std::filesystem::path& rvc_store);

}  // namespace arven

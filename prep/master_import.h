#pragma once

#include <filesystem>

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
void import_master_csv(const std::filesystem::path& csv_dir, const std::filesystem::path& ops_store,
                       const std::filesystem::path& rvc_store);

}  // namespace arven

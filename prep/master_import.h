#pragma once

#include <filesystem>

namespace arven {

// Builds the two master stores from a folder of CSV files, one file per table
// named "<table>.csv" whose first row names the columns. Both stores are
// created anew (any file at either path is replaced) and every table that
// has a file is loaded, each store in one transaction. Empty fields are null;
// numbers use '.' as the decimal point. A header naming a column the table
// does not have, a row with the wrong number of fields, a number that does
// not parse or text that is not UTF-8 throws std::runtime_error naming the
// file, line and column; the store being loaded is then left without rows.
void import_master_csv(const std::filesystem::path& csv_dir, const std::filesystem::path& ops_store,
                       const std::filesystem::path& rvc_store);

}  // namespace arven

#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace arven {

// The keys of the master tables: the columns that name a row, and the
// columns that name a row of another table. The stores declare neither;
// the admin tools check them before they write.

// The columns whose values together name one row of the table: each row
// has them all, and no two rows share them. Empty for a table without such
// a key.
const std::vector<std::string>& key_columns(std::string_view table);

// A column whose values must be keys of another table.
struct ForeignKey {
  std::string table, column;          // the naming table and column
  std::string parent, parent_column;  // the named table and its key column
};
const std::vector<ForeignKey>& foreign_keys();

// The factor tables with a `Refs` column, which names rows of References.
const std::vector<std::string>& refs_tables();
// The Ref IDs a Refs field names, as the stores write them: whole numbers
// separated by commas ("2, 1"); empty for an empty field, nullopt for a
// field that is not such a list.
std::optional<std::vector<int64_t>> parse_refs(std::string_view text);

// True when the text has at most `size` characters (UTF-8), or `size` is 0
// (a column of the engine's default size, or memo).
bool fits_text_column(std::string_view text, int size);

class Db;

// Sets Last_Updated of each operation to now, as part of the caller's
// transaction on the operations master; returns how many rows it stamped.
int stamp_operations(Db& db, const std::set<int64_t>& operation_ids);

}  // namespace arven

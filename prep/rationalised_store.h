#pragma once

#include <filesystem>
#include <string_view>

#include "stores/db.h"

namespace arven {

// The rationalised operations store, beside the operations master: the
// categories of rationalised operation and the assignment of the
// catalogue's operations to them (stores/schema.h, rationalised_tables).

// Its file: "arven rationalised operations V3.mdb" in the operations
// master's folder.
std::filesystem::path rationalised_store_path();
// Opens the store; the first use creates it, empty, built under a temporary
// name and renamed into place, so that a failed creation leaves no store.
Db rationalised_db();
// True for a table of that store.
bool is_rationalised_table(std::string_view table);
// True for one of its category tables (all but the assignment table).
bool is_rationalised_category(std::string_view table);
// The assignment table.
inline constexpr const char* kRationalisedAssignments = "Operations_Rationalised";

}  // namespace arven

#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace arven {

// The fixed registry of 50 countries. The index (1..50) is also the value
// of NUTS0_ID in every store.

// Two-letter code of an index; empty when the index is not 1..50.
std::string country_code_by_index(int index);
// Index of a two-letter code, compared with each entry in turn; 0 when none
// matches.
int country_index_by_code(std::string_view code);
// Display name, e.g. "Denmark (DK)"; empty when the index is not 1..50.
std::string country_display_name(int index);
// The country store file of a code under the program folder:
// dbases/new_arven_operations_<CC>.mdb.
std::filesystem::path country_store_path(const std::filesystem::path& app_folder,
                                         std::string_view code);

}  // namespace arven

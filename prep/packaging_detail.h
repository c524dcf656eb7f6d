#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/ui.h"
#include "stores/db.h"

namespace arven::packaging_detail {

// What the packaging steps (prep/packaging.cpp) and the dialogs' buttons
// (prep/store_buttons.cpp) share.

// Throws StoreError naming the store and the table when the table or one of
// the columns is missing.
void require_columns(const Db& db, const std::string& table,
                     const std::vector<std::string>& columns);
// "<prefix><k><suffix>", as "NUTS2_RVC_Data".
std::string level_name(const char* prefix, int k, const char* suffix = "");
// Progress on the Ui when there is one.
void show(Ui* ui, int value, int max, const std::string& label);
// The time now as "YYYY-MM-DD HH:MM:SS".
std::string now_text();
// Edits the first Version row of the store, or adds one.
void write_version_row(const std::filesystem::path& store, const std::string& date);
// The path with the text added to its file name.
std::filesystem::path with_suffix(const std::filesystem::path& p, const char* suffix);
// Replaces the file as base/replace_file.h does, its folder made when missing.
void replace_text_file(const std::filesystem::path& path, const std::string& text);
// Replaces a table of the target by the source's: its definition with its
// indexes, then every row. False, with the reason, when that fails.
bool copy_table_across(const std::filesystem::path& source, const std::filesystem::path& target,
                       const std::string& table, std::string* why = nullptr);
// A message box titled "ARVEN" with the text.
void message(Ui& ui, const std::string& text);
// Copies tables of a master into the all-country store, reporting each
// failure by the table's name.
void copy_tables_to_all(Ui& ui, const std::filesystem::path& master,
                        const std::vector<std::string>& tables);
// The RVC master's look-up tables, and its tables by area.
std::vector<std::string> rvc_lookup_tables();
std::vector<std::string> rvc_area_tables();
// NUTS0 rows of the RVC master whose EU-27 is not "N": codes in table order.
std::vector<std::string> member_codes_in_table_order();

}  // namespace arven::packaging_detail

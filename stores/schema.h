#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "stores/db.h"

namespace arven {

// Column kinds of the stores: Long (32-bit integer), Double, Text(n) (n = 0
// for the engine's default size), Memo (long text) and Date (stored as
// "YYYY-MM-DD HH:MM:SS" text).
enum class ColType { Long, Double, Text, Memo, Date };

struct ColumnDef {
  std::string name;
  ColType type;
  int size = 0;  // Text(n)
};

struct TableDef {
  std::string name;
  std::vector<ColumnDef> columns;
};

// Structure constants compiled into the program.
inline constexpr int kStructureVersion = 8;          // assessment files
inline constexpr int kDbVersion = 5;                 // country stores
inline constexpr int kSettingsStructureVersion = 1;  // settings store

// ---- table definitions, one list per store kind, in creation order ----

// Assessment file (.arv): Regions, Operations, Activity-Impact data,
// Operation-Impact data, Version.
const std::vector<TableDef>& assessment_tables();
// Throws StoreError naming the first table or column of the assessment
// schema that the store lacks.
void require_assessment_schema(const Db& db);
// Settings store (arven_settings.avs).
const std::vector<TableDef>& settings_tables();
// Files store (ARVEN_Files.mdb).
const std::vector<TableDef>& files_tables();
// Master operations store (arven_operations.mdb), admin tables included.
const std::vector<TableDef>& operations_master_tables();
// Master RVC store (arven_rvcs.mdb): RVC_List, Baseline_Impact_Look_Up and
// the NUTS tables of levels 0..3.
const std::vector<TableDef>& rvcs_master_tables();
// The rationalised operations store (arven rationalised operations V3.mdb):
// one table per category of rationalised operation ("Land management" to
// "Other operations": `Rationalised ID`, `Rationalised Operation`,
// `Description`), then Operations_Rationalised, which assigns an operation
// of the catalogue (`Operation ID`) to one of them (`Category`, the
// category's table name, and `Rationalised ID`).
const std::vector<TableDef>& rationalised_tables();
// The tables that only the master operations store has.
const std::vector<std::string>& master_only_tables();

// One level's tables.
TableDef nuts_table(int level);
TableDef nuts_rvc_data_table(int level);
TableDef nuts_rvc_data_dist_table(int level);
// NUTS<k>_OPS, or NUTS<k>_OPS_<CC> when a suffix is given.
TableDef nuts_ops_table(int level, const std::string& suffix = "");
TableDef country_version_table();

// Creates one table (and nothing else) in an open store.
void create_table(Db& db, const TableDef& table);
// The index that the regional calculation reads NUTS<k>_OPS by.
void create_nuts_ops_index(Db& db, const std::string& table, int level);

// ---- store creation; an existing file at the path is replaced ----

// A new assessment file with its five tables and the Version row
// (structure 8, "No", carbon sequestration not yet recorded).
Db create_assessment_store(const std::filesystem::path& path);
Db create_settings_store(const std::filesystem::path& path);
Db create_files_store(const std::filesystem::path& path);
// The empty CountryStore base: every master table but the admin ones,
// NUTS<k>_OPS with their indexes, and an empty Version.
Db create_country_store_base(const std::filesystem::path& path);
Db create_operations_master(const std::filesystem::path& path);
Db create_rvcs_master(const std::filesystem::path& path);
Db create_rationalised_store(const std::filesystem::path& path);
// The pre-processor's all-country impact store: NUTS<k>_OPS_<CC> for each
// code given, and Version.
Db create_all_country_store(const std::filesystem::path& path,
                            const std::vector<std::string>& country_codes);

// The SQL type name a column is declared with.
std::string sql_type(const ColumnDef& column);

}  // namespace arven

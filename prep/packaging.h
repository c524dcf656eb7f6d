#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace arven {

class Ui;

// Country store packaging for the admin build: filling a CountryStore from
// the two master stores (session().ops_db_path and session().rvc_db_path),
// stamping its version and publishing it as a zip and a version file, plus
// the buttons that maintain the all-country store. Every replace of a set of
// rows runs in one transaction. A master store that lacks a table or a
// column throws StoreError naming that store and table before the target is
// changed.

// ---- files of the pre-processor, under session().app_folder ----

std::filesystem::path prepro_folder();            // dbases/prepro
std::filesystem::path prepro_ops_master_path();   // dbases/prepro/arven_operations.mdb
std::filesystem::path prepro_rvcs_master_path();  // dbases/prepro/arven_rvcs.mdb
std::filesystem::path prepro_base_path();         // .../new_arven_operations_base.mdb
std::filesystem::path all_country_store_path();   // .../new_arven_operations.mdb
// dbases/prepro/new_arven_operations_<CC>.mdb
std::filesystem::path country_target_path(const std::string& country_code);
// dbases/prepro/zipped/arven_db_<CC>.zip
std::filesystem::path country_archive_path(const std::string& country_code);
// dbases/prepro/zipped/arven_db_version_<CC>.csv
std::filesystem::path country_version_file_path(const std::string& country_code);
// The published software version file, zipped/arven_version118.csv.
std::filesystem::path software_version_file_path();
// Writes the software version ("X.Y.Z", whole numbers, at most 10
// characters; "0.0.0" asks users for a new installer) into the published
// folder. Throws std::invalid_argument for another form.
void publish_software_version(const std::string& version);

// Copies a store file under a temporary name beside the destination and
// renames it into place: the destination is whole, or as it was.
void copy_store_file(const std::filesystem::path& from, const std::filesystem::path& to);
// True when the file is a store that opens, passes the integrity check and
// has a Version table: one worth keeping as a backup.
bool store_is_whole(const std::filesystem::path& store);
// Removes what an interrupted copy or zip left in dbases/prepro and its
// zipped folder (names ending ".tmp" or holding ".tmp."); returns how many.
int remove_stale_temporaries();

// ---- filling a country store; `ui` (may be null) shows progress ----

// The country's NUTS<k> rows (k = 0..3) and the RVC data of those areas,
// from the RVC master.
void copy_rvc_data(const std::filesystem::path& target, int64_t nuts0_id, Ui* ui = nullptr);
// RVC_List and Baseline_Impact_Look_Up from the RVC master.
void copy_rvc_base_data(const std::filesystem::path& target, Ui* ui = nullptr);
// The operation, activity, factor and reference tables from the operations
// master. Operations is merged: rows gone from the master go, the others
// get the master's values except Last_Updated and Operation_DQ, which keep
// the target's (a new row has neither, so it counts as due).
void copy_rdp_base_data(const std::filesystem::path& target, Ui* ui = nullptr);
// Sets Refs and Data_Quality of every NUTS<k>_OPS row from the first factor
// row of its activity in the target's adaptation, mitigation and yield
// tables, in that order, so the last table that knows the activity wins.
void DQ_and_Refs(const std::filesystem::path& target, Ui* ui = nullptr);
// copy_rvc_data, copy_rvc_base_data, copy_rdp_base_data and, when asked,
// DQ_and_Refs: a run's preparation of one country's store.
void fill_country_store(const std::filesystem::path& target, int64_t nuts0_id, bool dq_and_refs,
                        Ui* ui = nullptr);

// ---- version and publishing ----

// The date a store has when none of its operations has one.
inline constexpr const char* kEmptyDate = "1899-12-30 00:00:00";

// The newest Last_Updated ("YYYY-MM-DD HH:MM:SS") of these operations in
// the operations master; kEmptyDate when none has one. An operation the
// master does not have, or a Last_Updated that is not a date, throws
// StoreError.
std::string latest_last_updated(const std::vector<int64_t>& operation_ids);
// The one line of a version file for a date: "DD/MM/YYYY".
std::string version_file_text(const std::string& date);
// Stamps the target's Version row (the operations' latest date and DB
// Version 5, the first row edited or one added) and writes the country's
// version file anew. Returns the date.
std::string set_version(const std::filesystem::path& target, const std::string& country_code,
                        const std::vector<int64_t>& operation_ids);
// set_version and the zip of the target, published together: the archive
// and the version file are written under temporary names and renamed into
// place only when both exist, so a failure leaves the published pair as it
// was. A failing zip is reported by the zip facility; returns its code.
int publish_country_store(Ui& ui, const std::filesystem::path& target,
                          const std::string& country_code,
                          const std::vector<int64_t>& operation_ids);

// ---- buttons of the pre-processor dialog ----

// "New Basefile": a new empty CountryStore base in dbases/prepro/.
void new_basefile();
// "Copy DBs": copies the two master stores onto their working copies in
// dbases/prepro/ and, when a target store is named, copies it to
// "backup_" + its file name beside it.
void copy_dbs(const std::filesystem::path& target = {});

// ---- the all-country store buttons ----

// Codes of the NUTS0 rows of the RVC master whose EU-27 is not "N", in
// alphabetical order.
std::vector<std::string> all_country_codes();
// "Code Gen": writes dbases/prepro/gencode.txt, the SQL of the blocks of
// copy_preprocess_tables, for the countries in NUTS0 table order.
void code_gen();
// "Copy pre-process tables to new ARVEN DB": every NUTS<k>_OPS_<CC> of the
// chosen store into the all-country store; a failure is reported per table.
void copy_preprocess_tables(Ui& ui, const std::filesystem::path& chosen_store);
// "Copy ARVEN DB": the named store becomes the all-country store, with its
// Version row rewritten (today's date, DB Version 5).
void copy_arven_db(const std::filesystem::path& named_store);
// "Copy RDP Tables to New ARVEN DB": every table of the operations master.
void copy_rdp_tables_to_all(Ui& ui);
// "Copy RVC Tables to New ARVEN DB": Baseline_Impact_Look_Up and the NUTS tables.
void copy_rvc_tables_to_all(Ui& ui);
// "Copy RVC List and look up tables": Baseline_Impact_Look_Up and RVC_List.
void copy_rvc_list_tables_to_all(Ui& ui);
// The three groups of tables the copy buttons above bring across.
enum class OldTables { Rdp, Rvc, RvcList };
// "Delete old tables": drops one group's tables from the chosen store.
void delete_old_tables(Ui& ui, const std::filesystem::path& store, OldTables group);
// "Temp - data trans": splits NUTS<k>_OPS of the store into NUTS<k>_OPS_<CC>.
void temp_data_trans(Ui& ui, const std::filesystem::path& store);
// "Add new field to existing db": adds `Impact max` to each NUTS<k>_OPS_<CC>
// of the all-country store that lacks it.
void add_impact_max_field();

}  // namespace arven

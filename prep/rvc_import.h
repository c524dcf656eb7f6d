#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/lookups.h"

namespace arven {

class Ui;

// The "RVC Data Import" dialog's work on the RVC master store
// (session().rvc_db_path): a GIS export of one RVC becomes its per-area table
// NUTS3_<RVC Short Name> (`Percent` a fraction of the area), and those tables
// are aggregated, weighted by GIS area, into NUTS<k>_RVC_Data and
// NUTS<k>_RVC_Data_Dist. Every write that replaces rows runs in one
// transaction: a failure or a kill leaves the old rows. Failures throw
// std::runtime_error (StoreError for a store) naming the file, the area, the
// row and the column concerned.

// dbases/rvcs/NUTS3_Import.mdb and dbases/rvcs/spreadsheet outputs/Export_Output.xlsx.
std::filesystem::path rvc_import_store_path();
std::filesystem::path rvc_import_workbook_path();
// The table or sheet that holds the export: "Export_Output" for one RVC, or
// "Export_Output_<RVC ID>" where each RVC has its own (the import of all).
std::string export_table_name(std::optional<int64_t> rvc_id = std::nullopt);
// The per-area table of an RVC, "NUTS3_" + its RVC Short Name.
std::string rvc_nuts3_table(int64_t rvc_id);

// Combo1: every RVC of RVC_List, its RVC Short Name with the RVC ID as data.
std::vector<ListItem> rvc_choice_list();
// The RVCs an import or aggregation of all covers: those whose RVC Type is not 3.
std::vector<int64_t> rvcs_with_classes();

struct RvcImportResult {
  int areas = 0;    // NUTS3 areas that got rows
  int rows = 0;     // class rows written
  int skipped = 0;  // export rows the store has no area for (the workbook's)
};

// nuts3_import: replaces the rows of the RVC's NUTS3 table by the classes of
// the export table `table` of the import store: for each NUTS3 area with an
// export row, one row per VALUE_i that is not 0, Percent = VALUE_i /
// GIS_AREA. An area without an export row gets no rows. The table is
// created when the store lacks it.
RvcImportResult nuts3_import(int64_t rvc_id, const std::filesystem::path& import_store,
                             const std::string& table, Ui* ui = nullptr);
// nuts3_import_excel: the same from the sheet `sheet` of the workbook (the
// first sheet when it has no sheet of that name); row 1 names the columns
// NUTS and VALUE_i. Rows of a country whose EU-27 is "N", codes not of a
// NUTS1 to NUTS3 length, and codes no NUTS3 area has are skipped and counted.
RvcImportResult nuts3_import_excel(int64_t rvc_id, const std::filesystem::path& workbook,
                                   const std::string& sheet, Ui* ui = nullptr);

// The import as the dialog and the batch form run it: one RVC from
// Export_Output, or (rvc_id empty) every RVC of rvcs_with_classes() from its
// own Export_Output_<RVC ID>, an RVC without one being reported "not
// provided, table kept". From the import store, or the workbook when `excel`.
// Returns one line per RVC for the person to read.
std::vector<std::string> rvc_import_run(std::optional<int64_t> rvc_id, bool excel,
                                        Ui* ui = nullptr);

// The areas of NUTS<level> whose EU-27 is not "N": NUTS + " - " + NAME, the
// area's id as data.
std::vector<ListItem> nutslist(int level);
// 1, 2 or 3: the third of the RVC's Euro range the value falls in. The
// thresholds count from 0, not from Euro min, on purpose.
int get_rvc_band(int64_t rvc_id, double value);

struct AggregateResult {
  int areas = 0;
  int64_t data_rows = 0, dist_rows = 0;
};
// Command3, the aggregation ("Do All" when `rvc_id` is empty): for each level
// in the order given, the rows of the RVC (or of all RVCs) are replaced by
// the area-weighted class shares of each area's NUTS3 children; the
// shortfall below 100 % goes to class 0. Progress "Calculating NUTS<k>
// data...". All levels are written in one transaction.
AggregateResult rvc_aggregate(const std::vector<int>& levels, std::optional<int64_t> rvc_id,
                              Ui* ui = nullptr);

// After a re-import: touches every operation with a delta row for an
// activity that has a factor of the RVC, so the pre-processor's run by date
// regenerates it. Returns the number of operations touched.
int update_op_from_rvc(int64_t rvc_id, Ui* ui = nullptr);
// "NUTS Setup": NUTS1_ID of every NUTS3 area from the NUTS1 area whose code is
// the first three characters of its own. Returns the rows set.
int nuts_setup();
// "EU-27 process": EU-27 of every area of NUTS<level> from its country's row
// of NUTS0. Returns the rows set.
int eu27_process(int level);

}  // namespace arven

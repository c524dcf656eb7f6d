#pragma once

#include <array>
#include <string>
#include <vector>

#include "core/lookups.h"
#include "core/ui.h"

namespace arven {

// The "RVC Data Import" dialog: the RVC (Combo1), the NUTS levels of the
// aggregation, "All RVCs" (Check2), and the results list (List1), which is
// for inspection only. Its state lives while the admin build runs.
struct RvcImportDialogState {
  std::vector<ListItem> rvcs;  // Combo1
  int rvc = 0;                 // index into rvcs
  std::array<bool, 4> levels = {true, true, true, true};
  bool all_rvcs = false;             // Check2
  std::vector<std::string> results;  // List1
};

RvcImportDialogState& rvc_import_dialog();

// Form load: Combo1 from RVC_List.
void rvc_dialog_load(Ui& ui);
// The buttons. Each reports "Done" (title "RVC Data Import") or the failure,
// and leaves what it did in the results list.
void rvc_dialog_import(Ui& ui, bool excel);  // nuts3_import, nuts3_import_excel
void rvc_dialog_aggregate(Ui& ui);           // Command3, "Do All" when all RVCs
void rvc_dialog_update_operations(Ui& ui);   // update_op_from_rvc
void rvc_dialog_nuts_setup(Ui& ui);          // "NUTS Setup"
void rvc_dialog_eu27(Ui& ui);                // "EU-27 process", each chosen level

// "Master Store Backups": a backup now, and a restore after a question.
void backup_dialog_backup(Ui& ui);
void backup_dialog_restore(Ui& ui, const std::string& name);

}  // namespace arven

#pragma once

#include <string>
#include <vector>

#include "core/lookups.h"
#include "core/ui.h"
#include "prep/preprocess.h"

namespace arven {

// The "Data Pre-processor" dialog (frmAdminDataPP): its lists, choices and
// the run it starts. Its state lives while the admin build runs.
struct PreproDialogState {
  std::vector<ListItem> countries;  // List0
  std::vector<bool> country_selected;
  int level = 3;                         // Combo1
  RunMode mode = RunMode::by_date;       // Combo2, first entry preselected
  std::string search;                    // the search box of List3
  std::vector<RunOperation> operations;  // List3
  bool existing_db = false;              // Check1 "Existing DB"
  bool dq_refs = false;                  // Check2 "DQ and Refs"
  std::string status;                    // the status line: what the last button did
  std::string store;  // the store the all-country buttons work from (a name in dbases/prepro)
  RunControl control;
};

PreproDialogState& prepro_dialog();

// Form load: List0 from the RVC master, List3 by an empty search.
void prepro_dialog_load(Ui& ui);
// Command2: List3 from the search text.
void prepro_search(Ui& ui, const std::string& text);
// List clicks toggle an entry of a multi-selection list.
void prepro_toggle_country(int index);
void prepro_toggle_operation(int index);
void prepro_select_all_operations(bool selected);
// "Start": the run with the dialog's parameters. When countries are chosen
// and the masters have changed since "Copy DBs", it first says so and asks
// whether to run on the working copies as they are.
void prepro_start(Ui& ui);
// Command8, the halt button; safe from any thread.
void prepro_halt();
// Command11, "How many need updating?" for the first selected country.
void prepro_how_many(Ui& ui);
// Command9, "Copy DBs"; and "New Basefile".
void prepro_copy_dbs(Ui& ui);
void prepro_new_basefile(Ui& ui);
// The all-country store buttons, by id and text, in the dialog's order.
const std::vector<std::pair<std::string, std::string>>& prepro_all_country_buttons();
// Runs one of them; those that need a store take the dialog's `store`.
// Returns false for an id that is not one of them.
bool prepro_all_country(Ui& ui, const std::string& id);
// The "No. regions" line for the first selected country, or "".
std::string prepro_region_counts();
// What a run with the dialog's choices covers: its countries and levels, or
// that with no country chosen it does nothing.
std::string prepro_run_scope();

}  // namespace arven

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/grid_table.h"
#include "core/ui.h"
#include "engine/impact_cache.h"

namespace arven {

// The operation manager: a table of the settings each operation carries in
// an assessment file (scaling up, uptake, costs, training and advice), edited
// in place and written back to the file's Operations rows on request. The
// master data are never written.

// The ten columns of the manager's table.
enum OperationColumn {
  kOpColId = 0,
  kOpColName,
  kOpColTechnique,
  kOpColStValue,
  kOpColUptake,
  kOpColCost,
  kOpColCostSingle,
  kOpColTeaInc,
  kOpColTeaFactor,
  kOpColTeaCost,
  kOpColumnCount
};

// How a column is edited: never, as free text, as a number, by a click that
// cycles the scaling-up technique, or by a click that toggles Yes/No.
enum class OperationCellKind { readonly, text, number, cycle, toggle };
OperationCellKind operation_column_kind(int col);

inline constexpr const char* kTechniqueHectare = "Hectare";
inline constexpr const char* kTechniqueBoundary = "Boundary feature (average field size)";

// The manager's state. Table row 0 holds the titles; `changed` has one mark
// per table row (index 0 unused).
struct OperationManagerState {
  GridTable table{kOpColumnCount};
  std::vector<bool> changed;
  // Set by any edit or import, cleared by saving.
  bool dirty = false;
  // The search box (mode 1 of get_operations).
  std::string search_text;
  // The manager's own "Data available" box: with it ticked, operations of the
  // country store without activity deltas are left out.
  bool data_available = false;
  // The file chosen for the import command; empty for none.
  std::string import_path;
  // The status line: what the last save did.
  std::string status;
};

// The manager of this process.
OperationManagerState& operation_manager();
// An empty table (titles only), no marks, empty boxes.
void reset_operation_manager();

// Fills the table, marks cleared and dirty unset. Mode 1: the operations
// whose name contains the search text; any other mode: the one operation.
// Reads the open assessment file while session().edit_from_assessment is
// set, else the country store (then honouring "Data available"). Throws
// StoreError or NumberError when the store cannot be read.
void get_operations(int mode, int64_t operation_id);

// A click on table row `row` (1 = first operation), column `col`: cycles the
// technique (resetting the value column to its unit's default) or toggles
// "Sufficient TEA provided"; other columns are left to the cell editor.
// Returns true when the cell changed.
bool operation_cell_click(int row, int col);

// The text typed into a cell. Numeric columns take digits with at most one
// session decimal separator, or nothing; any other text is refused with a
// message and not stored. Returns true when the text was stored.
bool operation_cell_edit(Ui& ui, int row, int col, const std::string& text);

// True when `text` may stand in a numeric cell (empty included): digits
// with at most one decimal separator, the locale's or the point.
bool valid_operation_number(std::string_view text);
// The highest value a numeric column takes (uptake and TEA factor are
// percentages); nullopt for no limit. Every number column starts at 0.
std::optional<double> operation_number_limit(int col);

// The close of the manager's window: with unsaved edits, asks whether to
// save them (Yes saves, No discards, Cancel keeps the window open). True
// when the window may close.
bool operation_manager_query_close(Ui& ui);

// The save command: when dirty, asks for confirmation and writes the changed
// rows to the open assessment file in one transaction, filling empty number
// cells with their defaults, and adds their IDs to recalc_list (each once).
// Returns true when rows were written. A failure is shown; the file then
// keeps its rows and dirty stays set. `status` says what was saved, or why
// nothing was.
bool save_changes(Ui& ui);

// The file chooser of the import: tests the chosen assessment file and, when
// it has operations to offer, puts its path in the import box.
void choose_import_file(Ui& ui);

// The import command: copies the settings of the operations found in the
// file of the import box into the table, marking their rows. Nothing is
// written before the user saves.
void import_data(Ui& ui);

// The search box or the "Data available" box changed: lists again (mode 1).
// A store that cannot be read is shown.
void refresh_operations(Ui& ui);

// Edits the properties of an operation of the open assessment file: shows
// the manager modally on that operation, then offers to recalculate. Yes
// runs data_update for the operations saved; No empties recalc_list, so the
// stored figures stay as they were.
void edit_operation_properties(Ui& ui, int64_t operation_id, const ImpactCacheHooks& hooks = {});

}  // namespace arven

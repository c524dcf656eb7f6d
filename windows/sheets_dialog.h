#pragma once

#include <string>
#include <vector>

#include "core/ui.h"

namespace arven {

// "Spreadsheet Import and Export": any master table written to an .xlsx
// workbook, and read back after every cell is checked, in one step or not
// at all. A refused import or a store failure throws, and the view tells it.

inline constexpr const char* kSheetsTitle = "Spreadsheet Import and Export";

struct SheetsDialog {
  std::vector<std::string> tables;
  std::vector<int> counts;  // rows of each table, as last read
  int table = -1;
  std::string status;
};

SheetsDialog& sheets_dialog();

// The dialog opens: the master tables are listed with their row counts.
void sheets_load();
// Chooses a table by its index in the list.
void sheets_select(int index);
// "export" or "import", through a file chooser; what it did is left in the
// status line.
void sheets_button(Ui& ui, const std::string& button);

}  // namespace arven

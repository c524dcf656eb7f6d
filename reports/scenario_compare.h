#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/ui.h"
#include "reports/mac_curves.h"

namespace arven {

// The comparison of the open assessment file with a second one: the same
// operations over another region, say, or with other uptakes.

// One operation's figures in a file, at one time horizon.
struct ScenarioOperation {
  int64_t id = 0;
  std::string name;  // plain text
  double ghg_total = 0;
  double ghg_ha = 0;
  double adaptation = 0;  // the regional risk reduction total
  double production = 0;
  double cost = 0;
};

// An assessment file's chosen operations, in its order, with its regions
// ("code name; code name").
struct Scenario {
  std::string file;
  std::string regions;
  std::vector<ScenarioOperation> operations;
};

// Reads the operations of the assessment file `path`: the stored totals and
// per-hectare GHG (type 1) and production (type 4) at the options' horizon,
// the adaptation risk reduction (type 2), and operation_cost with the
// options over that file's own regions. Throws StoreError, NumberError or
// CostAreaFailed.
Scenario read_scenario(Ui& ui, const std::string& path, const CostOptions& options);

// The table of a comparison: each operation of either file (the first
// file's order, then those of the second only), under "Operation ID" and
// "Operation name", for GHG total, GHG per ha, adaptation, production and
// cost three columns each: file 1, file 2, and the difference file 2 less
// file 1 (a missing operation counting 0 in it, its own cells empty). The
// last row, "Total", adds up each column but the per-hectare ones.
GridTable compare_scenarios(const Scenario& first, const Scenario& second);

// Asks for the second file (the File menu's and the explorer's "Compare"),
// then shows the comparison. Nothing happens without an open file.
void compare_command(Ui& ui);

// Writes "compare.htm" (both files and regions, the table, the bar chart of
// the GHG differences, the export links) for the open file and `other`,
// and shows it in the report window. A failure is shown to the user.
void compare_html(Ui& ui, const std::string& other);

}  // namespace arven

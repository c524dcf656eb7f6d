#pragma once

#include <cstdint>
#include <string>

#include "core/grid_table.h"

namespace arven {

// What the explorer window keeps between page commands: the operation on
// show, the sort states and tables of its lists, the tabs below the chosen
// tree and the cost-curve options.
struct ExplorerWindow {
  int64_t current_operation = 0;
  int64_t last_selected_operation = 0;
  // Sort states 1..10 of the lists.
  int sort_grid3 = 1, sort_grid4 = 1, sort_grid5 = 1, sort_grid12 = 1;
  int sort_reggrid1 = 1, sort_aggrid1 = 1, sort_aggrid1_ranked = 1;
  int reg_impact_kind = 1;  // 1, 2 or 4
  int ranking_mode = 1;     // 1 by regional total, 2 per hectare
  std::string open_page;    // page to return to after a chart window opened
  // Tab below the chosen tree: 1 ranked, 2 mitigation, 3 adaptation,
  // 4 production, 5 operation report, 6 aggregation.
  int tab2 = 1;

  // The lists (row 0 the titles, column 0 the identifier).
  GridTable MSFlexGrid3{5};   // mitigation
  GridTable MSFlexGrid4{4};   // adaptation
  GridTable MSFlexGrid5{7};   // ranked
  GridTable MSFlexGrid12{5};  // production
  GridTable RegGrid1{4};
  GridTable AgGrid1{6};
  GridTable AgGrid1_Ranked{7};
  // Cost curves: the curve of operations, and the measure tables that the
  // aggregation fills.
  GridTable MACCGrid1{4};
  GridTable MACCGrid2_M{5};
  GridTable MACCGrid2_A{5};
  // The analyst's pages: the totals of the chosen operations, and the
  // working behind one operation's figures.
  GridTable TotalsGrid{4};
  GridTable WorkingGrid{9};
  // The comparison of the open file with compare_file.
  GridTable CompareGrid{17};
  std::string compare_file;
  // The intervals of the Uncertainty page, its k and the window showing it.
  GridTable UncertaintyGrid{11};
  int uncertainty_top_k = 5;
  std::string uncertainty_window = "explorer";

  // The size in pixels of the browser that shows the explorer's pages; chart
  // pages are sized from it.
  int browser_width = 1100;
  int browser_height = 700;

  // Recalculations so far, and their count when the report window's page
  // was made: a page made before the last one is marked as out of date.
  int recalculations = 0;
  int report_made_at = 0;

  // Cost-curve options panel.
  bool mac_panel = false;
  int mac_costs = 1;   // 1 both, 2 single investment only, 3 annual area only
  int mac_target = 1;  // 1 operations, 2 aggregated measures
  int mac_source = 2;  // 1 production impact data, 2 data entered for costs
};

ExplorerWindow& explorer_window();
void reset_explorer_window();

}  // namespace arven

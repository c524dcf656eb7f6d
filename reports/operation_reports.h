#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/ui.h"
#include "engine/catalogue.h"

namespace arven {

class PageFile;

// The explorer's pages of chosen operations (ranked, mitigation, adaptation
// and production lists) and the report of one operation, from the figures
// stored in the assessment file and the explorer's result tables.

// Fills the four lists of explorer_window() from the file's
// `Operation-Impact data`: figures, scores scaled to the largest magnitude
// (every score 0 when that is 0), the combined score capped at 100 and the
// weighted data quality.
void load_my_operations_data();
// Writes ranked.htm, mitigation.htm, adaptation.htm and production.htm
// from the lists with their stored sort states.
void my_operation_list_html();
// Writes oplist.htm from the chosen tree and shows it in the explorer.
void myops_list_html(Ui& ui);
// The report of explorer_window().current_operation from the explorer's
// result tables: kind 1 summary (summary_report.htm, shown in the explorer),
// 2 detailed (detailed_report.htm, opened in the report window). in_file 1
// when the operation is among the chosen ones.
void operation_specific_html_hub(Ui& ui, int in_file, int kind);
// operation.htm for the selected node of a tree: a group's operations, a
// flat list, or an operation's ranges when no region is chosen.
void operation_general_html_hub(Ui& ui, const Tree& tree, TreeViewKind view);

// The body of an operation's range page (the page of an operation chosen
// with no region): its name (`fallback_name` when the store has none), the
// note, and the Mitigation, Adaptation, Productivity and Practicality
// sections.
void operation_range_body(PageFile& out, int64_t id, const std::string& fallback_name);

// ---- the arithmetic of the ranked list ----

// One stored figure of an operation: the value that is scored (regional
// total or per hectare by ranking mode; the regional risk reduction total
// for adaptation) and its data quality. A missing row is {0, 0}.
struct ScoreFigure {
  double value = 0;
  double quality = 0;
};

// The largest magnitude of the figures of one impact type, 0 for none.
double largest_magnitude(const std::vector<double>& values);

// The scores of one operation in the ranked list.
struct OperationScores {
  int64_t mitigation = 0;  // -100 × value / scale: a reduction counts positive
  int64_t adaptation = 0;  // 100 × value / scale
  int64_t production = 0;  // 100 × value / scale
  int64_t combined = 0;    // weighted mean of the three, at most 100
  double quality = 0;      // weighted mean of the three qualities
};

// Scores rounded half to even; a scale of 0 gives a score of 0. Weights are
// the settings' 0..100 percentages; weights that sum to 0 give quality 0.
OperationScores score_operation(const ScoreFigure& mitigation, const ScoreFigure& adaptation,
                                const ScoreFigure& production, double mitigation_scale,
                                double adaptation_scale, double production_scale, int miti_weight,
                                int adapt_weight, int prod_weight);

}  // namespace arven

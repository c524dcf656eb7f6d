#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "reports/page_kit.h"

namespace arven {

// Chart scripts: each writes one <script> block into the open head of a
// page; the chart draws itself into the page's <div id="container"> with
// the bundled chart library.
//
// Names (operations, measures, regions, RVCs, bands) are taken as plain
// text, not yet HTML-escaped: the scripts escape them for HTML and for the
// script's string literals themselves. Numbers are read from the cells (in
// either decimal form) and always written with '.'; a cell "null", an empty
// cell or one that is no number leaves a gap in the series.

// What a chart saved as PNG or SVG, or printed alone, carries: a title (the
// chart's own when empty), a line naming the operation, measure or area and
// the region, and the saved file's name. An empty caption adds nothing.
struct ChartCaption {
  std::string title;
  std::string subtitle;
  std::string file_name;
};

// Columns of one row of a grid of time horizons (row 0 the horizons in
// columns 1..n, `row` the values). `ghg` picks the unit: tCO2e or impact.
void chart_impact_columns(PageFile& out, const GridTable& grid, int row, bool ghg,
                          const ChartCaption& caption = {});

// One band of an RVC's class distribution for the pie.
struct PieBand {
  std::string name;     // band name, as shown
  std::string percent;  // cell text of the share in percent
  std::string colour;   // six hex digits, no "#"
};
void chart_rvc_pie(PageFile& out, int64_t rvc_id, const std::string& short_name,
                   const std::vector<PieBand>& bands, const ChartCaption& caption = {});

// Cost curves. `grid`: column 1 the name, columns 4.. the curve columns, one
// series per data row. `scale` is the divisor of the horizontal axis, a power
// of ten from 1 to 100000000 (another value throws std::invalid_argument).
void chart_mac_ghg_operations(PageFile& out, const GridTable& grid, int64_t scale,
                              const ChartCaption& caption = {});
void chart_mac_ghg_measures(PageFile& out, const GridTable& grid, int64_t scale,
                            const ChartCaption& caption = {});
void chart_mac_adapt_operations(PageFile& out, const GridTable& grid,
                                const ChartCaption& caption = {});
void chart_mac_adapt_measures(PageFile& out, const GridTable& grid,
                              const ChartCaption& caption = {});
void chart_mac_example(PageFile& out);

// The bar chart of a regional breakdown: names in column 1 of `grid`,
// totals in column 2 (chart kind 2) or per-hectare values in column 3
// (chart kind 3). An empty operation name gives "Unknown farm". Impact kind
// 1 (GHG), 2 (adaptation) or 4 (production); other kinds throw
// std::invalid_argument.
void chart_regional_bar(PageFile& out, const GridTable& grid, const std::string& operation_name,
                        int impact_kind, int chart_kind, const ChartCaption& caption = {});

// Horizontal bars, one per name, of the values (cells) in `unit`, under a
// title and a subtitle; the chart of a comparison's differences.
void chart_bars(PageFile& out, const std::string& title, const std::string& subtitle,
                const std::vector<std::string>& names, const std::vector<std::string>& values,
                const std::string& unit, const ChartCaption& caption = {});

// Columns, one per name, of the values in `unit`, each with the low and the
// high end of its interval as markers; an empty cell leaves a gap.
void chart_columns_with_intervals(PageFile& out, const std::string& title,
                                  const std::string& subtitle,
                                  const std::vector<std::string>& names,
                                  const std::vector<std::string>& values,
                                  const std::vector<std::string>& lows,
                                  const std::vector<std::string>& highs, const std::string& unit,
                                  const ChartCaption& caption = {});

// The stacked bars of the EU member states' RDP budget: one category per
// row of Countries in the operations master (session().ops_db_path), one
// series per budget column.
void chart_country_budget(PageFile& out);
// Writes "country_budget.htm" with that chart; returns the page's name.
std::string country_budget_page();

}  // namespace arven

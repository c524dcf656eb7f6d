#include <algorithm>
#include <cmath>
#include <exception>
#include <string>
#include <vector>

#include "base/numbers.h"
#include "core/session.h"
#include "engine/impact_context.h"
#include "engine/regional_impact.h"
#include "reports/charts.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/mac_curves.h"
#include "reports/page_kit.h"
#include "reports/report_html.h"
#include "reports/uncertainty.h"

namespace arven {

using namespace report_html;

namespace {

constexpr int kUncertaintyGrid = 33;

std::string full(double x) {
  return number_to_cell(round_half_even(x, 6) + 0.0);
}

std::string interval_text(const Interval& i, int places) {
  return format_display(i.low, places) + " to " + format_display(i.high, places);
}

}  // namespace

void uncertainty_html(Ui& ui, int top_k, const std::string& window) {
  const Session& s = session();
  if (s.current_file.empty()) return;
  ExplorerWindow& w = explorer_window();
  try {
    Db file = Db::open(s.current_file);
    MonteCarloOptions options;
    options.uncertainty = s.dq_uncertainty;
    options.top_k = std::clamp(top_k, 1, 100);
    for (int h = 0; h < kHorizons; ++h)
      if (kHorizonYears[static_cast<size_t>(h)] == s.ranking_TH) options.rank_horizon = h;
    const std::vector<UncertainOperation> ops = read_uncertain_operations(file);
    const std::vector<OperationUncertainty> result = monte_carlo(ops, options);
    const size_t rh = static_cast<size_t>(options.rank_horizon);
    const std::string k = std::to_string(options.top_k);

    GridTable& g = w.UncertaintyGrid;
    head_list(g, {"Operation ID", "Operation name", "Time horizon (years)", "GHG (tCO2e) (total)",
                  "GHG total, 5 %", "GHG total, 95 %", "GHG (tCO2e) / ha", "GHG / ha, 5 %",
                  "GHG / ha, 95 %", "Rank", ("Rank stability (top " + k + ")").c_str()});
    for (size_t o = 0; o < ops.size(); ++o)
      for (size_t h = 0; h < kHorizons; ++h) {
        const OperationUncertainty& u = result[o];
        const int r = g.add_row();
        g.cell(r, 0) = std::to_string(ops[o].id);
        g.cell(r, 1) = html_escape(ops[o].name);
        g.cell(r, 2) = std::to_string(kHorizonYears[h]);
        g.cell(r, 3) = full(u.total[h].point);
        g.cell(r, 4) = full(u.total[h].low);
        g.cell(r, 5) = full(u.total[h].high);
        g.cell(r, 6) = full(u.ha[h].point);
        g.cell(r, 7) = full(u.ha[h].low);
        g.cell(r, 8) = full(u.ha[h].high);
        if (h == rh) {
          g.cell(r, 9) = std::to_string(u.rank);
          g.cell(r, 10) = full(u.rank_stability);
        }
      }
    w.uncertainty_top_k = options.top_k;
    w.uncertainty_window = window;

    // The cost curve: the abating operations by cost per tonne abated, each
    // bar with the cost over the ends of its GHG interval.
    struct Bar {
      std::string name;
      double cost, low, high;
    };
    std::vector<Bar> bars;
    const CostOptions cost_options = current_cost_options();
    for (size_t o = 0; o < ops.size(); ++o) {
      const Interval& t = result[o].total[rh];
      if (t.point >= 0) continue;
      const double cost = operation_cost(ui, file, ops[o].id, false, cost_options).total;
      // The larger reduction gives the lower cost per tonne; an interval
      // that reaches no reduction has no upper end.
      bars.push_back({ops[o].name, cost / -t.point, cost / -t.low,
                      t.high < 0 ? cost / -t.high : std::nan("")});
    }
    std::stable_sort(bars.begin(), bars.end(),
                     [](const Bar& a, const Bar& b) { return a.cost < b.cost; });
    std::vector<std::string> names, costs, lows, highs;
    for (const Bar& b : bars) {
      names.push_back(b.name);
      // Unrounded: a cost per tonne may be a small fraction.
      costs.push_back(number_to_cell(b.cost));
      lows.push_back(number_to_cell(std::min(b.low, b.high)));
      highs.push_back(std::isnan(b.high) ? "null" : number_to_cell(std::max(b.low, b.high)));
    }

    const std::string regions = regions_text();
    const std::string horizon = std::to_string(s.ranking_TH);
    PageFile out("uncertainty.htm");
    page_header(out, 1);
    chart_columns_with_intervals(out, "GHG cost curve with 90 % intervals",
                                 "Time horizon " + horizon + " years; region: " + regions, names,
                                 costs, lows, highs, "€ / tCO2e abated",
                                 {"", "Region: " + regions, "uncertainty-cost-curve"});
    out.line("</head>");
    out.line("<body>");
    out.line(section_heading("Uncertainty"));
    std::string table;
    for (size_t q = 1; q <= 5; ++q)
      table += (q > 1 ? ", " : "") + std::to_string(q) + ": " +
               std::to_string(s.dq_uncertainty[q]) + " %";
    out.line(paragraph(
        "Each activity's GHG figures were varied within the relative uncertainty of their data "
        "quality (" +
        table + "; the half-width of a 95 % interval, set in the settings' Ranking tab), in " +
        format_display(options.draws, 0) + " draws (seed " + std::to_string(options.seed) +
        "). An interval holds 90 % of the draws, from the 5th to the 95th percentile. Regions: " +
        html_escape(regions) + "."));
    std::string choices;
    for (int choice : {3, 5, 10, 20}) {
      const std::string text = std::to_string(choice);
      choices +=
          (choices.empty() ? "" : " | ") +
          (choice == options.top_k ? "<strong>" + text + "</strong>" : link(text + ".unk", text));
    }
    out.line(
        paragraph("Rank stability: the share of draws in which an operation keeps its place "
                  "in the top k by GHG total (in it, or out of it, as its own figure "
                  "places it). k = " +
                  choices));
    out.line(section_heading("Time horizon " + horizon + " years"));
    out.line(kTableOpen);
    table_row(
        out, {head_cell("Operation name"), head_cell("GHG (tCO2e) (total)"),
              head_cell("90 % interval"), head_cell("GHG (tCO2e) / ha"), head_cell("90 % interval"),
              head_cell("Rank"), head_cell("Rank stability (top " + k + ")")});
    const std::string right = " align=\"right\"";
    for (size_t o = 0; o < ops.size(); ++o) {
      const OperationUncertainty& u = result[o];
      table_row(
          out,
          {cell(html_escape(ops[o].name)), cell(format_display(u.total[rh].point, 2), right),
           cell(interval_text(u.total[rh], 2), right),
           cell(format_display(u.ha[rh].point, 3), right), cell(interval_text(u.ha[rh], 3), right),
           cell(std::to_string(u.rank), right), cell(format_display(u.rank_stability, 2), right)});
    }
    out.line("</table>");
    const int height = 420;
    out.line("<div id=\"container\" style=\"width: 95%; height: " + std::to_string(height) +
             "px; margin: 0 auto\"></div>");
    out.line(section_heading("Every time horizon"));
    out.line(kTableOpen);
    table_row(out, {head_cell("Operation name"), head_cell("Time horizon (years)"),
                    head_cell("GHG (tCO2e) (total)"), head_cell("90 % interval"),
                    head_cell("GHG (tCO2e) / ha"), head_cell("90 % interval")});
    for (size_t o = 0; o < ops.size(); ++o)
      for (size_t h = 0; h < kHorizons; ++h) {
        const OperationUncertainty& u = result[o];
        table_row(out,
                  {cell(html_escape(ops[o].name)), cell(std::to_string(kHorizonYears[h]), right),
                   cell(format_display(u.total[h].point, 2), right),
                   cell(interval_text(u.total[h], 2), right),
                   cell(format_display(u.ha[h].point, 3), right),
                   cell(interval_text(u.ha[h], 3), right)});
      }
    out.line("</table>");
    out.line(export_links_html(kUncertaintyGrid));
    page_footer(out);
    if (window == "report") {
      w.report_made_at = w.recalculations;
      ui.show_window("report");
    }
    ui.navigate(window, "uncertainty.htm");
  } catch (const CostAreaFailed&) {
    // Already shown.
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
  }
}

}  // namespace arven

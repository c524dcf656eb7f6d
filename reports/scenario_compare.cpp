#include "reports/scenario_compare.h"

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>

#include "base/numbers.h"
#include "base/utf8.h"
#include "core/session.h"
#include "engine/impact_context.h"
#include "engine/stored_figures.h"
#include "reports/charts.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/page_kit.h"
#include "reports/report_html.h"
#include "stores/db.h"

namespace arven {

using namespace report_html;

namespace {

constexpr int kCompareGrid = 32;

// The regional area of the cost is worked out over the open file's regions:
// while a second file is read, it stands as the open file.
class OpenFileAs {
 public:
  explicit OpenFileAs(const std::string& path) : kept_(session().current_file) {
    session().current_file = path;
  }
  ~OpenFileAs() { session().current_file = kept_; }
  OpenFileAs(const OpenFileAs&) = delete;
  OpenFileAs& operator=(const OpenFileAs&) = delete;

 private:
  std::string kept_;
};

// A figure of the table: full precision, less the noise of a subtraction.
std::string figure(double x) {
  return number_to_cell(round_half_even(x, 6) + 0.0);
}

}  // namespace

Scenario read_scenario(Ui& ui, const std::string& path, const CostOptions& options) {
  Scenario s;
  s.file = path;
  s.regions = regions_text(path);
  Db file = Db::open(path);
  const StoredFigures figures(file);
  auto q = file.query(
      "SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" ORDER BY "
      "rowid");
  const OpenFileAs as(path);
  while (q.next()) {
    ScenarioOperation op;
    op.id = q.get(0).as_int();
    op.name = valid_utf8(q.get(1).as_text());
    if (const auto* row = figures.first(op.id, 1, options.years)) {
      op.ghg_total = row->total.as_double();
      op.ghg_ha = row->ha.as_double();
    }
    if (const auto* row = figures.first(op.id, 2, std::nullopt))
      op.adaptation = row->risk_reduction.as_double();
    if (const auto* row = figures.first(op.id, 4, options.years))
      op.production = row->total.as_double();
    op.cost = operation_cost(ui, file, op.id, false, options).total;
    s.operations.push_back(std::move(op));
  }
  return s;
}

GridTable compare_scenarios(const Scenario& first, const Scenario& second) {
  static const char* const kFigures[] = {"GHG (tCO2e) (total)", "GHG (tCO2e) / ha",
                                         "Adaptation (risk reduction)", "Production (€)",
                                         "Cost (€)"};
  constexpr int kCount = 5;
  auto values = [](const ScenarioOperation& op) {
    return std::array<double, kCount>{op.ghg_total, op.ghg_ha, op.adaptation, op.production,
                                      op.cost};
  };
  GridTable grid(2 + 3 * kCount);
  grid.add_row();
  grid.cell(0, 0) = "Operation ID";
  grid.cell(0, 1) = "Operation name";
  for (int f = 0; f < kCount; ++f) {
    grid.cell(0, 2 + 3 * f) = std::string(kFigures[f]) + ", file 1";
    grid.cell(0, 3 + 3 * f) = std::string(kFigures[f]) + ", file 2";
    grid.cell(0, 4 + 3 * f) = std::string(kFigures[f]) + ", difference";
  }
  std::map<int64_t, const ScenarioOperation*> in_first, in_second;
  for (const auto& op : first.operations) in_first.emplace(op.id, &op);
  for (const auto& op : second.operations) in_second.emplace(op.id, &op);
  std::vector<int64_t> order;
  for (const auto& op : first.operations)
    if (std::find(order.begin(), order.end(), op.id) == order.end()) order.push_back(op.id);
  for (const auto& op : second.operations)
    if (!in_first.count(op.id) && std::find(order.begin(), order.end(), op.id) == order.end())
      order.push_back(op.id);

  std::array<double, 3 * kCount> sums{};
  for (int64_t id : order) {
    const ScenarioOperation* a = in_first.count(id) ? in_first.at(id) : nullptr;
    const ScenarioOperation* b = in_second.count(id) ? in_second.at(id) : nullptr;
    const int r = grid.add_row();
    grid.cell(r, 0) = std::to_string(id);
    grid.cell(r, 1) = html_escape(a ? a->name : b->name);
    const auto va = a ? values(*a) : std::array<double, kCount>{};
    const auto vb = b ? values(*b) : std::array<double, kCount>{};
    for (int f = 0; f < kCount; ++f) {
      const double d = vb[static_cast<size_t>(f)] - va[static_cast<size_t>(f)];
      if (a) grid.cell(r, 2 + 3 * f) = figure(va[static_cast<size_t>(f)]);
      if (b) grid.cell(r, 3 + 3 * f) = figure(vb[static_cast<size_t>(f)]);
      grid.cell(r, 4 + 3 * f) = figure(d);
      sums[static_cast<size_t>(3 * f)] += va[static_cast<size_t>(f)];
      sums[static_cast<size_t>(3 * f + 1)] += vb[static_cast<size_t>(f)];
      sums[static_cast<size_t>(3 * f + 2)] += d;
    }
  }
  const int r = grid.add_row();
  grid.cell(r, 1) = "Total";
  for (int c = 0; c < 3 * kCount; ++c)
    if (c / 3 != 1) grid.cell(r, 2 + c) = figure(sums[static_cast<size_t>(c)]);
  return grid;
}

void compare_command(Ui& ui) {
  if (session().current_file.empty()) {
    ui.message_box("Open the ARVEN file to compare from first.", "Compare", MsgButtons::Ok,
                   MsgIcon::Information);
    return;
  }
  FileDialogRequest request;
  request.title = "Compare with";
  request.initial_dir =
      (std::filesystem::path(session().documents_folder) / "My ARVEN Files").string();
  const std::string other = ui.file_dialog(request);
  if (!other.empty()) compare_html(ui, other);
}

void compare_html(Ui& ui, const std::string& other) {
  const Session& s = session();
  if (s.current_file.empty()) return;
  ExplorerWindow& w = explorer_window();
  try {
    const CostOptions options = current_cost_options();
    const Scenario first = read_scenario(ui, s.current_file, options);
    const Scenario second = read_scenario(ui, other, options);
    w.CompareGrid = compare_scenarios(first, second);
    w.compare_file = other;
    const GridTable& g = w.CompareGrid;

    auto name_of = [](const std::string& path) {
      return html_escape(valid_utf8(std::filesystem::path(path).filename().string()));
    };
    const std::string horizon = std::to_string(options.years);
    PageFile out("compare.htm");
    page_header(out, 1);
    std::vector<std::string> names, differences;
    for (int r = 1; r + 1 < g.rows(); ++r) {
      names.push_back(html_unescape(g.cell(r, 1)));
      differences.push_back(g.cell(r, 4));
    }
    chart_bars(out, "Difference in GHG, file 2 less file 1",
               "Time horizon " + horizon + " years; file 1: " + first.regions +
                   "; file 2: " + second.regions,
               names, differences, "tCO2e",
               {"", "Region: " + first.regions + " / " + second.regions, "scenario-difference"});
    out.line("</head>");
    out.line("<body>");
    out.line(section_heading("Scenario comparison"));
    out.line(paragraph(
        "File 1: " + name_of(s.current_file) + ", regions: " + html_escape(first.regions) +
        "<br>File 2: " + name_of(other) + ", regions: " + html_escape(second.regions)));
    out.line(
        paragraph("Figures for the " + horizon +
                  " year time horizon; the difference is file 2 less file 1, an operation "
                  "missing from a file counting 0. Costs as the MAC curve options take them."));
    const int height = std::max(200, 60 + 30 * static_cast<int>(names.size()));
    out.line("<div id=\"container\" style=\"width: 95%; height: " + std::to_string(height) +
             "px; margin: 0 auto\"></div>");
    out.line(kTableOpen);
    for (int r = 0; r < g.rows(); ++r) {
      out.line("<tr>");
      for (int c = 1; c < g.cols(); ++c) {
        const std::string& text = g.cell(r, c);
        if (r == 0 || c == 1)
          out.line(r == 0 ? head_cell(text) : cell(text));
        else if (r + 1 == g.rows())
          out.line(head_cell(display_figure(text, -1), " align=\"right\""));
        else
          out.line(cell(display_figure(text, -1), " align=\"right\""));
      }
      out.line("</tr>");
    }
    out.line("</table>");
    out.line(export_links_html(kCompareGrid));
    page_footer(out);
    w.report_made_at = w.recalculations;
    ui.show_window("report");
    ui.navigate("report", "compare.htm");
  } catch (const CostAreaFailed&) {
    // Already shown.
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
  }
}

}  // namespace arven

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/numbers.h"
#include "core/session.h"
#include "engine/catalogue.h"
#include "engine/stored_figures.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/operation_reports.h"
#include "reports/page_kit.h"
#include "reports/report_html.h"
#include "stores/db.h"

namespace arven {

namespace report_html {

// A list cell of a stored figure: its cell text, "0" when the field is empty.
std::string figure_cell(const Value& v) {
  return v.is_empty() ? "0" : number_to_cell(v.as_double());
}

void head_list(GridTable& grid, std::initializer_list<const char*> titles) {
  grid.clear();
  grid.resize(1, static_cast<int>(titles.size()));
  int c = 0;
  for (const char* t : titles) grid.cell(0, c++) = t;
}

}  // namespace report_html

using namespace report_html;

// ---- arithmetic ----

double largest_magnitude(const std::vector<double>& values) {
  // Walk with the maximum and minimum from 0: the scale is the maximum, or
  // -minimum when that is larger.
  double max = 0, min = 0;
  for (double v : values) {
    max = std::max(max, v);
    min = std::min(min, v);
  }
  return (min >= 0 || -min <= max) ? max : -min;
}

OperationScores score_operation(const ScoreFigure& mitigation, const ScoreFigure& adaptation,
                                const ScoreFigure& production, double mitigation_scale,
                                double adaptation_scale, double production_scale, int miti_weight,
                                int adapt_weight, int prod_weight) {
  auto score = [](double scaled, double scale) -> int64_t {
    if (scale == 0) return 0;
    return static_cast<int64_t>(round_half_even(scaled / scale, 0));
  };
  OperationScores s;
  s.mitigation = score(-100 * mitigation.value, mitigation_scale);
  s.adaptation = score(100 * adaptation.value, adaptation_scale);
  s.production = score(100 * production.value, production_scale);
  const double m = miti_weight / 100.0, a = adapt_weight / 100.0, p = prod_weight / 100.0;
  const double combined =
      (m * static_cast<double>(s.mitigation) + a * static_cast<double>(s.adaptation) +
       p * static_cast<double>(s.production)) /
      3;
  // Capped above only: there is no lower bound, intended.
  s.combined = std::min<int64_t>(static_cast<int64_t>(round_half_even(combined, 0)), 100);
  const double weights = m + a + p;
  s.quality =
      weights == 0
          ? 0
          : (m * mitigation.quality + a * adaptation.quality + p * production.quality) / weights;
  return s;
}

// ---- lists ----

void load_my_operations_data() {
  ExplorerWindow& w = explorer_window();
  const Session& s = session();
  head_list(w.MSFlexGrid3, {"Operation ID", "Operation name", "Regional impact (tCO2e) / ha",
                            "Regional impact (tCO2e) (total)", "Data Quality"});
  head_list(w.MSFlexGrid4,
            {"Operation ID", "Operation name", "Regional risk reduction total", "Data Quality"});
  head_list(w.MSFlexGrid12, {"Operation ID", "Operation name", "Regional impact (€) / ha",
                             "Regional impact (€) (total)", "Data Quality"});
  head_list(w.MSFlexGrid5, {"Operation ID", "Operation name", "Mitigation", "Adaptation",
                            "Production", "Combined", "Data Quality"});

  Db db = Db::open(s.current_file);
  std::vector<std::pair<int64_t, std::string>> operations;
  std::map<int64_t, std::string> names;
  {
    auto q =
        db.query("SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" ORDER BY rowid");
    while (q.next()) {
      operations.emplace_back(q.get(0).as_int(), q.get(1).as_text());
      names.emplace(operations.back().first, operations.back().second);
    }
  }
  auto name_of = [&names](int64_t id) {
    auto it = names.find(id);
    return it == names.end() ? std::string() : html_escape(it->second);
  };
  // The field that is scored and scaled: by ranking mode for GHG and
  // production, always the risk reduction for adaptation.
  using Row = StoredFigures::Row;
  Value Row::*field = w.ranking_mode == 2 ? &Row::ha : &Row::total;
  const StoredFigures figures(db);

  std::vector<double> mitigation_values, adaptation_values, production_values;
  auto add_figures = [&](GridTable& grid, const Row& row) {
    const int r = grid.add_row();
    grid.cell(r, 0) = row.operation.as_text();
    grid.cell(r, 1) = name_of(row.operation.as_int());
    grid.cell(r, 2) = figure_cell(row.ha);
    grid.cell(r, 3) = figure_cell(row.total);
    grid.cell(r, 4) = figure_cell(row.quality);
  };
  for (const Row& row : figures.rows()) {
    if (!stored_equals(row.horizon, s.ranking_TH)) continue;
    const int64_t type = row.type.as_int();
    if (type == 1) {
      add_figures(w.MSFlexGrid3, row);
      mitigation_values.push_back((row.*field).as_double());
    } else if (type == 4) {
      add_figures(w.MSFlexGrid12, row);
      production_values.push_back((row.*field).as_double());
    }
  }
  // Adaptation has one time horizon only.
  for (const Row& row : figures.rows()) {
    if (!stored_equals(row.horizon, 1) || row.type.as_int() != 2) continue;
    GridTable& g = w.MSFlexGrid4;
    const int r = g.add_row();
    g.cell(r, 0) = row.operation.as_text();
    g.cell(r, 1) = name_of(row.operation.as_int());
    g.cell(r, 2) = figure_cell(row.risk_reduction);
    g.cell(r, 3) = figure_cell(row.quality);
    adaptation_values.push_back(row.risk_reduction.as_double());
  }
  const double mitigation_scale = largest_magnitude(mitigation_values);
  const double adaptation_scale = largest_magnitude(adaptation_values);
  const double production_scale = largest_magnitude(production_values);

  auto figure = [](const Row* row, Value Row::*value_field) {
    ScoreFigure f;
    if (row) {
      f.value = (row->*value_field).as_double();
      f.quality = row->quality.as_double();
    }
    return f;
  };
  for (const auto& [id, name] : operations) {
    const ScoreFigure mitigation = figure(figures.first(id, 1, s.ranking_TH), field);
    const ScoreFigure adaptation = figure(figures.first(id, 2, std::nullopt), &Row::risk_reduction);
    const ScoreFigure production = figure(figures.first(id, 4, s.ranking_TH), field);
    const OperationScores sc =
        score_operation(mitigation, adaptation, production, mitigation_scale, adaptation_scale,
                        production_scale, s.miti_weight, s.adapt_weight, s.prod_weight);
    GridTable& g = w.MSFlexGrid5;
    const int r = g.add_row();
    g.cell(r, 0) = id_text(id);
    g.cell(r, 1) = html_escape(name);
    g.cell(r, 2) = std::to_string(sc.mitigation);
    g.cell(r, 3) = std::to_string(sc.adaptation);
    g.cell(r, 4) = std::to_string(sc.production);
    g.cell(r, 5) = std::to_string(sc.combined);
    g.cell(r, 6) = number_to_cell(sc.quality);
  }
}

void my_operation_list_html() {
  const ExplorerWindow& w = explorer_window();
  const std::string horizon = std::to_string(session().ranking_TH);
  const std::string horizon_note =
      "Data shown are for the " + horizon +
      " year time horizon (the time horizon used can be changed in the software settings).";
  struct ListPage {
    const char* file;
    const char* heading;
    std::string sentence;
    const GridTable& grid;
    int grid_number;
    int state;
  };
  const ListPage pages[] = {
      {"ranked.htm", "My Operations",
       "Ranked by total regional impact using the " + horizon +
           " year time horizon (the time horizon used can be changed in the software settings).",
       w.MSFlexGrid5, 5, w.sort_grid5},
      {"mitigation.htm", "Mitigation", horizon_note, w.MSFlexGrid3, 3, w.sort_grid3},
      {"adaptation.htm", "Adaptation", "", w.MSFlexGrid4, 4, w.sort_grid4},
      {"production.htm", "Production", horizon_note, w.MSFlexGrid12, 12, w.sort_grid12},
  };
  for (const ListPage& p : pages) {
    PageFile out(p.file);
    page_header(out, 0);
    out.line(section_heading(p.heading));
    if (!p.sentence.empty()) out.line(paragraph(p.sentence));
    grid_table_sortable(p.grid, out, 1, p.state, p.grid_number);
    out.line(export_links_html(p.grid_number));
    page_footer(out);
  }
}

void myops_list_html(Ui& ui) {
  const Tree& tree = catalogue().chosen;
  PageFile out("oplist.htm");
  page_header(out, 0);
  const bool has_selection =
      tree.selected >= 0 && tree.selected < static_cast<int>(tree.nodes.size());
  const std::string heading =
      has_selection ? html_escape(tree.nodes[static_cast<size_t>(tree.selected)].text) : "";
  out.line("<p><font face=\"Arial\" size=\"4\">" + heading + "</font></p>");
  // Every operation leaf of the tree, in the tree's order: an operation
  // under several groups (measures) is a leaf of each, and is listed so.
  std::set<int64_t> listed;
  bool repeated = false;
  std::vector<int> leaves;
  for (int i = 0; i < static_cast<int>(tree.nodes.size()); ++i) {
    if (!tree.is_operation(i)) continue;
    leaves.push_back(i);
    repeated = !listed.insert(tree.operation_id(i)).second || repeated;
  }
  if (!leaves.empty()) {
    out.line(paragraph(repeated ? "The operations of this file as the tree lists them: an "
                                  "operation under more than one group comes once for each."
                                : "The operations of this file as the tree lists them."));
    out.line(kTableOpen);
    for (int i : leaves) {
      const std::string id = id_text(tree.operation_id(i));
      table_row(out, {cell(link(id + ".zzz", html_escape(tree.nodes[static_cast<size_t>(i)].text))),
                      cell(link(id + ".yyy", "REMOVE"))});
    }
    out.line("</table>");
    out.line(paragraph(link("remove.rem", "REMOVE ALL")));
  }
  page_footer(out);
  ui.navigate("explorer", "oplist.htm");
}

}  // namespace arven

#include "reports/aggregation.h"

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/numbers.h"
#include "core/grid_table.h"
#include "core/session.h"
#include "engine/impact_context.h"
#include "engine/regional_impact.h"
#include "engine/stored_figures.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/list_sorting.h"
#include "reports/mac_curves.h"
#include "reports/operation_reports.h"
#include "reports/page_kit.h"
#include "stores/db.h"

namespace arven {

namespace {

// The training and advice measure: TEA shares of every operation are booked
// to it.
constexpr int64_t kTrainingMeasure = 1;

// AgGrid1's columns.
constexpr int kTco2e = 2, kAdaptive = 3, kProduction = 4, kQuality = 5;

std::string cell_of(double x) {
  return number_to_cell(x + 0.0);  // never "-0"
}

// A cell grows by x and is rounded at once; an empty cell counts as 0.
void add_rounded(std::string& cell, double x, int places) {
  cell = cell_of(round_half_even(cell_to_number(cell) + x, places));
}

// The unit cost of a measure table's row: total cost ÷ value to 2 decimals,
// "0" for a value of 0.
void set_unit_cost(GridTable& mac, int row) {
  const double value = cell_to_number(mac.cell(row, 2));
  const double cost = cell_to_number(mac.cell(row, 3));
  mac.cell(row, 4) = value == 0 ? "0" : cell_of(round_half_even(cost / value, 2));
}

void head(GridTable& grid, std::initializer_list<const char*> titles) {
  grid.clear();
  grid.resize(1, static_cast<int>(titles.size()));
  int c = 0;
  for (const char* t : titles) grid.cell(0, c++) = t;
}

struct Tables {
  GridTable ag, ghg, adapt;
};

void head_tables(Tables& t) {
  head(t.ag, {"Measure ID", "Measure Name", "tCO2e", "Adaptive Capacity Impact", "Production (€)",
              "Data Quality"});
  head(t.ghg, {"Measure ID", "Measure Name", "tCO2e", "Total Cost (€)", "Cost (€) / tCO2e"});
  head(t.adapt, {"Measure ID", "Measure Name", "Risk reduction", "Total Cost (€)",
                 "Cost (€) / Risk reduction"});
}

void head_ranked(GridTable& grid) {
  head(grid, {"Measure ID", "Measure Name", "Mitigation", "Adaptation", "Production", "Combined",
              "Data Quality"});
}

struct ChosenOperation {
  int64_t id = 0;
  bool tea = false;
  double tea_factor = 0;
  std::vector<int64_t> measures;  // its rows of Operations_New_Measures
};

// One pass over the operations: an impact type, its field and where it goes.
struct Pass {
  int impact_type;
  bool with_horizon;
  Value StoredFigures::Row::*field;
  int ag_column;
  GridTable* costs;    // the measure table of the cost curves; none for production
  bool adaptation;     // costs taken with the sign reversed
  int measure_places;  // rounding of the measure row's cell in AgGrid1
};

void run_pass(Ui& ui, const Db& file, const StoredFigures& figures, const Pass& pass,
              const std::vector<ChosenOperation>& ops, const std::map<int64_t, int>& row_of,
              GridTable& ag) {
  const Session& s = session();
  const CostOptions options = current_cost_options();
  const auto training = row_of.find(kTrainingMeasure);
  const std::optional<int64_t> horizon =
      pass.with_horizon ? std::optional<int64_t>(s.ranking_TH) : std::nullopt;

  for (const ChosenOperation& op : ops) {
    // An operation in no measure: its share is dropped.
    if (op.measures.empty()) continue;
    double impact = 0, quality = 0;
    if (const StoredFigures::Row* row = figures.first(op.id, pass.impact_type, horizon)) {
      impact = (row->*pass.field).as_double();
      quality = row->quality.as_double();
    }
    OperationCost cost;
    if (pass.costs) cost = operation_cost(ui, file, op.id, pass.adaptation, options);
    const double n = static_cast<double>(op.measures.size());
    impact /= n;
    cost.total /= n;
    cost.tea /= n;

    if (op.tea) {
      const double tea_share = impact * op.tea_factor / 100;
      impact -= tea_share;
      if (training != row_of.end()) {
        const int row = training->second;
        add_rounded(ag.cell(row, pass.ag_column), tea_share, 0);
        if (pass.costs) {
          add_rounded(pass.costs->cell(row, 2), tea_share, 0);
          add_rounded(pass.costs->cell(row, 3), cost.tea, 0);
          set_unit_cost(*pass.costs, row);
        }
        ag.cell(row, kQuality) = quality_accumulate(ag.cell(row, kQuality), quality);
      }
    }
    for (int64_t measure : op.measures) {
      const auto it = row_of.find(measure);
      if (it == row_of.end()) continue;
      const int row = it->second;
      add_rounded(ag.cell(row, pass.ag_column), impact, pass.measure_places);
      ag.cell(row, kQuality) = quality_accumulate(ag.cell(row, kQuality), quality);
      if (pass.costs) {
        add_rounded(pass.costs->cell(row, 2), impact, 0);
        add_rounded(pass.costs->cell(row, 3), cost.total, 0);
        set_unit_cost(*pass.costs, row);
      }
    }
  }
}

Tables aggregate_tables(Ui& ui) {
  const Session& s = session();
  Db store = Db::open(s.ops_db_path);
  Db file = Db::open(s.current_file);
  Tables t;
  head_tables(t);

  std::map<int64_t, int> row_of;  // Measure ID -> row (the first of an ID)
  {
    auto q =
        store.query("SELECT \"Measure ID\", \"Measure name\" FROM \"New_Measures\" ORDER BY rowid");
    while (q.next()) {
      const int64_t id = q.get(0).as_int();
      const std::string id_text = q.get(0).as_text();
      const std::string name = q.get(1).as_text();
      int row = 0;
      for (GridTable* g : {&t.ag, &t.ghg, &t.adapt}) {
        row = g->add_row();
        g->cell(row, 0) = id_text;
        g->cell(row, 1) = name;
      }
      row_of.emplace(id, row);
    }
  }

  std::vector<ChosenOperation> ops;
  {
    Statement links = store.prepare_statement(
        "SELECT \"Measure ID\" FROM \"Operations_New_Measures\" WHERE \"Operation ID\" = ? ORDER "
        "BY "
        "rowid");
    auto q = file.query(
        "SELECT \"Operation ID\", \"TEA_Inc\", \"TEA_Factor\" FROM \"Operations\" ORDER BY rowid");
    while (q.next()) {
      ChosenOperation op;
      op.id = q.get(0).as_int();
      op.tea = q.get(1).as_int() == 1;
      op.tea_factor = q.get(2).as_double();
      Rows& m = links.query({Value(op.id)});
      while (m.next()) op.measures.push_back(m.get(0).as_int());
      ops.push_back(std::move(op));
    }
  }

  // Mitigation, then adaptation: the measure's adaptive capacity to 1
  // decimal, the training measure's share and the cost table to integers.
  // Production has no cost table.
  using Row = StoredFigures::Row;
  const StoredFigures figures(file);
  run_pass(ui, file, figures, {1, true, &Row::total, kTco2e, &t.ghg, false, 0}, ops, row_of, t.ag);
  run_pass(ui, file, figures, {2, false, &Row::risk_reduction, kAdaptive, &t.adapt, true, 1}, ops,
           row_of, t.ag);
  run_pass(ui, file, figures, {4, true, &Row::total, kProduction, nullptr, false, 1}, ops, row_of,
           t.ag);

  for (int r = 1; r < t.ag.rows(); ++r) {
    for (int c : {kTco2e, kAdaptive, kProduction})
      if (t.ag.cell(r, c).empty()) t.ag.cell(r, c) = "0";
    t.ag.cell(r, kQuality) = cell_of(quality_mean(t.ag.cell(r, kQuality)));
  }
  return t;
}

// A page of one of the two measure tables, names escaped on a copy.
void write_measure_page(const char* file, const char* heading, const char* link_text,
                        const char* link_target, const GridTable& grid, int state,
                        int grid_number) {
  GridTable shown = grid;
  for (int r = 1; r < shown.rows(); ++r) shown.cell(r, 1) = html_escape(grid.cell(r, 1));
  PageFile out(file);
  page_header(out, 0);
  out.line("<p><font face=\"Arial\"><strong>" + std::string(heading) + "</strong></font></p>");
  out.line("<p><font face=\"Verdana\"><small>GHG data shown are based on the " +
           std::to_string(session().ranking_TH) +
           " year time horizon (the time horizon used can be changed in the software settings). "
           "<a href=" +
           std::string(link_target) + ">" + link_text + "</a>.</small></font></p>");
  grid_table_sortable(shown, out, 1, state, grid_number);
  out.line(export_links_html(grid_number));
  out.line("</body>");
  out.line("</html>");
  out.close();
}

// Reads one part of a "sum/count" text as single precision; no number is 0.
float single_part(std::string_view text) {
  auto v = parse_number(text);
  return v ? static_cast<float>(*v) : 0.0f;
}

std::pair<float, float> quality_parts(std::string_view cell) {
  if (cell.empty()) cell = "0/0";
  const size_t slash = cell.find('/');
  if (slash == std::string_view::npos) return {single_part(cell), 0.0f};
  return {single_part(cell.substr(0, slash)), single_part(cell.substr(slash + 1))};
}

}  // namespace

std::string quality_accumulate(std::string_view cell, double value) {
  const auto [sum, count] = quality_parts(cell);
  return cell_of(static_cast<double>(sum) + value) + "/" + cell_of(static_cast<double>(count) + 1);
}

double quality_mean(std::string_view cell) {
  const auto [sum, count] = quality_parts(cell);
  if (count > 1) return static_cast<double>(sum) / static_cast<double>(count);
  return 0;
}

void aggregate_new_measure(Ui& ui) {
  ExplorerWindow& w = explorer_window();
  try {
    Tables t = aggregate_tables(ui);
    w.AgGrid1 = std::move(t.ag);
    w.MACCGrid2_M = std::move(t.ghg);
    w.MACCGrid2_A = std::move(t.adapt);
    aggregate_new_measure_ranked();
    aglist_html();
    aglist_ranked_html();
  } catch (const std::exception& e) {
    // The regional area's failure has been shown already.
    if (!dynamic_cast<const CostAreaFailed*>(&e)) engine_detail::report_failure(ui, e);
    Tables empty;
    head_tables(empty);
    w.AgGrid1 = std::move(empty.ag);
    w.MACCGrid2_M = std::move(empty.ghg);
    w.MACCGrid2_A = std::move(empty.adapt);
    head_ranked(w.AgGrid1_Ranked);
    return;
  }
  ui.navigate("explorer", "aggregate1.htm");
}

void aggregate_new_measure_ranked() {
  ExplorerWindow& w = explorer_window();
  const GridTable& ag = w.AgGrid1;
  GridTable& ranked = w.AgGrid1_Ranked;
  head_ranked(ranked);
  std::vector<double> values[3];
  for (int r = 1; r < ag.rows(); ++r)
    for (int k = 0; k < 3; ++k) values[k].push_back(cell_to_number(ag.cell(r, kTco2e + k)));
  const double mitigation_scale = largest_magnitude(values[0]);
  const double adaptation_scale = largest_magnitude(values[1]);
  const double production_scale = largest_magnitude(values[2]);
  const Session& s = session();
  for (int r = 1; r < ag.rows(); ++r) {
    const size_t i = static_cast<size_t>(r - 1);
    const OperationScores scores = score_operation(
        {values[0][i], 0}, {values[1][i], 0}, {values[2][i], 0}, mitigation_scale, adaptation_scale,
        production_scale, s.miti_weight, s.adapt_weight, s.prod_weight);
    const int row = ranked.add_row();
    ranked.cell(row, 0) = ag.cell(r, 0);
    ranked.cell(row, 1) = ag.cell(r, 1);
    ranked.cell(row, 2) = std::to_string(scores.mitigation);
    ranked.cell(row, 3) = std::to_string(scores.adaptation);
    ranked.cell(row, 4) = std::to_string(scores.production);
    ranked.cell(row, 5) = std::to_string(scores.combined);
    ranked.cell(row, 6) = ag.cell(r, kQuality);
  }
}

void aglist_html() {
  ExplorerWindow& w = explorer_window();
  // The measure list sorts by states 1..8, its ranked form by all ten.
  grid_state_sort(w.AgGrid1, w.sort_aggrid1, 8);
  write_measure_page("aggregate1.htm", "Aggregated by RDP Measures (post-2013)",
                     "Display ranked list", "aggregate_ranked1.htm", w.AgGrid1, w.sort_aggrid1, 7);
}

void aglist_ranked_html() {
  ExplorerWindow& w = explorer_window();
  grid_state_sort(w.AgGrid1_Ranked, w.sort_aggrid1_ranked, 10);
  write_measure_page("aggregate_ranked1.htm", "Aggregated by RDP Measures (post-2013) - Ranked",
                     "Display emissions and adaptation data", "aggregate1.htm", w.AgGrid1_Ranked,
                     w.sort_aggrid1_ranked, 8);
}

}  // namespace arven

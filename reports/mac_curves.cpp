#include "reports/mac_curves.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "base/numbers.h"
#include "core/session.h"
#include "engine/impact_context.h"
#include "engine/regional_impact.h"
#include "reports/charts.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/list_sorting.h"
#include "reports/operation_reports.h"
#include "reports/page_kit.h"

namespace arven {

CostOptions current_cost_options() {
  const ExplorerWindow& w = explorer_window();
  return {w.mac_costs, w.mac_source, session().ranking_TH};
}

OperationCost operation_cost(Ui& ui, const Db& file, int64_t operation_id, bool adaptation,
                             const CostOptions& options) {
  const double sign = adaptation ? -1 : 1;
  OperationCost c;
  if (options.source == 1) {
    auto q = file.query(
        "SELECT \"Regional impact total\" FROM \"Operation-Impact data\" WHERE \"Operation ID\" = "
        "? AND \"Impact type\" = 4 AND \"Time horizon\" = ? ORDER BY rowid LIMIT 1",
        {Value(operation_id), Value(options.years)});
    if (q.next()) c.total = sign * q.get(0).as_double();
    return c;
  }
  int64_t technique = 0;
  double st_value = 0, uptake = 0, annual = 0, single = 0, tea = 0;
  {
    auto q = file.query(
        "SELECT \"Scaling up technique\", \"ST Value\", \"Uptake\", \"Cost\", \"Cost Single\", "
        "\"TEA_Cost\" FROM \"Operations\" WHERE \"Operation ID\" = ? ORDER BY rowid LIMIT 1",
        {Value(operation_id)});
    if (q.next()) {
      technique = q.get(0).as_int();
      st_value = q.get(1).as_double();
      uptake = q.get(2).as_double();
      annual = sign * q.get(3).as_double();
      single = sign * q.get(4).as_double();
      tea = sign * q.get(5).as_double();
    }
  }
  double area = 0;
  if (options.basis != 2 &&
      get_operation_tot_reg_area(ui, uptake, technique, st_value, area) != ImpactStatus::done)
    throw CostAreaFailed();
  const double years = options.years;
  switch (options.basis) {
    case 2:
      c.total = tea + single;
      break;
    case 3:
      c.total = tea + years * area * annual;
      break;
    default:
      c.total = tea + single + years * area * annual;
      break;
  }
  c.tea = tea;
  return c;
}

int64_t mac_scale(double total) {
  struct Step {
    double below;
    int64_t scale;
  };
  static constexpr Step kSteps[] = {
      {-10000000000.0, 100000000},
      {-1000000000.0, 10000000},
      {-100000000.0, 1000000},
      {-10000000.0, 100000},
      {-1000000.0, 10000},
      {-100000.0, 1000},
      {-10000.0, 100},
      {-1000.0, 10},
  };
  for (const Step& s : kSteps)
    if (total < s.below) return s.scale;
  return 1;
}

namespace {

// A number as a script reads it: '.' whatever the session's separator.
std::string script_number(double x) {
  char buf[32];
  auto res = std::to_chars(buf, buf + sizeof buf, x + 0.0);
  return std::string(buf, res.ptr);
}

// A cell as a number; an empty cell counts as 0.
double number_of(const std::string& text) {
  return cell_to_number(text);
}

int64_t rounded(double x) {
  return static_cast<int64_t>(round_half_even(x, 0));
}

}  // namespace

void build_curve_steps(GridTable& grid, double total, int64_t scale, const CurveLayout& layout) {
  constexpr int kFirstCurveColumn = 4;
  const double width = layout.adaptation
                           ? round_half_even(total, 0)
                           : round_half_even(total / static_cast<double>(scale), 0) + 1;
  const double columns = layout.adaptation ? grid.cols() + width : grid.cols() + 2 - width;
  if (!std::isfinite(columns) || columns - kFirstCurveColumn > kMaxCurveColumns ||
      columns * std::max(grid.rows(), 1) > static_cast<double>(kMaxCurveCells))
    throw CurveTooLarge("The curve would need more than " + std::to_string(kMaxCurveColumns) +
                        " steps, which is too many to draw.");
  const int cols = std::max(static_cast<int>(columns), layout.first_number_column);

  // Every row's unit cost, read before the curve columns cover the cells.
  std::vector<std::string> costs(static_cast<size_t>(grid.rows()));
  std::vector<double> values(static_cast<size_t>(grid.rows()));
  for (int r = 1; r < grid.rows(); ++r) {
    costs[static_cast<size_t>(r)] = script_number(number_of(grid.cell(r, layout.cost_column)));
    values[static_cast<size_t>(r)] = number_of(grid.cell(r, 2));
  }
  grid.resize(grid.rows(), cols);
  if (grid.rows() == 0) return;
  for (int c = layout.first_number_column; c < cols; ++c)
    grid.cell(0, c) = std::to_string(c - layout.first_number_column + 1);

  int64_t start = kFirstCurveColumn, end = kFirstCurveColumn;
  for (int r = 1; r < grid.rows(); ++r) {
    int64_t span = rounded(values[static_cast<size_t>(r)] / static_cast<double>(scale));
    int64_t magnitude;
    if (layout.adaptation) {
      magnitude = span < 1 ? 1 : span;
    } else {
      magnitude = -span;
    }
    start = r == 1 ? kFirstCurveColumn : end;
    end = start + magnitude;
    const std::string& cost = costs[static_cast<size_t>(r)];
    for (int c = kFirstCurveColumn; c < cols; ++c)
      grid.cell(r, c) = (c >= start && c <= end) ? cost : "null";
    if (r == 1 && cols > kFirstCurveColumn) grid.cell(r, kFirstCurveColumn) = cost;
  }
}

namespace {

enum class Items { operations, measures };

struct HubKind {
  Items items;
  bool adaptation;
};

const char* items_word(const HubKind& k) {
  return k.items == Items::operations ? "operations" : "measures";
}

void information(Ui& ui, const std::string& text, const std::string& title) {
  ui.message_box(text, title, MsgButtons::Ok, MsgIcon::Information);
}

// The page the explorer shows for the tab below the chosen tree.
std::string page_on_show(const ExplorerWindow& w) {
  switch (w.tab2) {
    case 2:
      return "mitigation.htm";
    case 3:
      return "adaptation.htm";
    case 4:
      return "production.htm";
    case 5:
      return w.current_operation != 0 ? "summary_report.htm" : "oplist.htm";
    case 6:
      return "aggregate1.htm";
    default:
      return "ranked.htm";
  }
}

struct ItemSums {
  double total = 0;
  bool any_cost = false;       // some item has a cost
  bool any_unit_cost = false;  // some item's cost per unit, as drawn, is not 0
};

// The curve of operations: the abating rows of the mitigation or adaptation
// list, each with its cost per unit.
ItemSums operation_rows(Ui& ui, GridTable& curve, bool adaptation) {
  ExplorerWindow& w = explorer_window();
  // The lists in the order the pages show them.
  load_sorted_lists();

  curve.clear();
  curve.resize(1, 4);
  curve.cell(0, 0) = "ID";
  curve.cell(0, 1) = "Operation name";
  curve.cell(0, 2) = adaptation ? "Risk reduction" : "tCO2e";
  curve.cell(0, 3) = adaptation ? "Cost (€) / Risk reduction" : "Cost (€) / tCO2e";

  Db file = Db::open(session().current_file);
  // The lists carry escaped names; the curve wants them plain.
  std::map<int64_t, std::string> names;
  {
    auto q = file.query(
        "SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" ORDER BY rowid");
    while (q.next()) names.emplace(q.get(0).as_int(), q.get(1).as_text());
  }
  const GridTable& list = adaptation ? w.MSFlexGrid4 : w.MSFlexGrid3;
  const int value_column = adaptation ? 2 : 3;
  const CostOptions options = current_cost_options();
  ItemSums items;
  for (int r = 1; r < list.rows(); ++r) {
    const double value = number_of(list.cell(r, value_column));
    if (adaptation ? !(value > 0) : !(value < 0)) continue;
    items.total += value;
    const int64_t id = static_cast<int64_t>(number_of(list.cell(r, 0)));
    const int row = curve.add_row();
    curve.cell(row, 0) = list.cell(r, 0);
    auto name = names.find(id);
    curve.cell(row, 1) = name == names.end() ? std::string() : name->second;
    curve.cell(row, 2) = list.cell(r, value_column);
    const double cost = operation_cost(ui, file, id, adaptation, options).total;
    if (cost != 0) items.any_cost = true;
    const double unit_cost = round_half_even(cost / value, 2) + 0.0;
    if (unit_cost != 0) items.any_unit_cost = true;
    curve.cell(row, 3) = number_to_cell(unit_cost);
  }
  return items;
}

// The curve of measures: the abating rows of the aggregation's table.
ItemSums measure_rows(GridTable& curve, const GridTable& measures, bool adaptation) {
  curve = GridTable(measures.cols());
  for (int r = 0; r < measures.rows(); ++r) {
    if (r > 0) {
      const std::string& text = measures.cell(r, 2);
      const double value = number_of(text);
      if (adaptation ? value <= 0 : value >= 0) continue;
    }
    const int row = curve.add_row();
    for (int c = 0; c < measures.cols(); ++c) curve.cell(row, c) = measures.cell(r, c);
    if (r > 0 && curve.cell(row, 2).empty()) curve.cell(row, 2) = "0";
  }
  ItemSums items;
  for (int r = 1; r < curve.rows(); ++r) {
    items.total += number_of(curve.cell(r, 2));
    if (number_of(curve.cell(r, 3)) != 0) items.any_cost = true;
    if (number_of(curve.cell(r, 4)) != 0) items.any_unit_cost = true;
  }
  return items;
}

void write_curve_page(const GridTable& curve, const HubKind& kind, int64_t scale,
                      const ItemSums& items) {
  const ExplorerWindow& w = explorer_window();
  PageFile out("rep1.htm");
  page_header(out, 1);
  const bool operations = kind.items == Items::operations;
  const ChartCaption caption{"", "Region: " + regions_text(),
                             std::string(kind.adaptation ? "mac-adaptation-" : "mac-ghg-") +
                                 (operations ? "operations" : "measures")};
  if (kind.adaptation) {
    if (operations)
      chart_mac_adapt_operations(out, curve, caption);
    else
      chart_mac_adapt_measures(out, curve, caption);
  } else {
    if (operations)
      chart_mac_ghg_operations(out, curve, scale, caption);
    else
      chart_mac_ghg_measures(out, curve, scale, caption);
  }
  out.line("</head>");
  out.line("<body>");
  const long width = std::lround(w.browser_width * 0.93);
  const long height = std::lround(w.browser_height * 0.9);
  if (!items.any_cost)
    out.line(
        "<p><font face=\"Verdana\"><small>Every cost is zero, so the curve lies flat on the axis. "
        "Enter the operations' costs (Edit Operation Properties) or choose another cost source "
        "to see their cost per unit.</small></font></p>");
  else if (!items.any_unit_cost)
    out.line(
        std::string("<p><font face=\"Verdana\"><small>Every cost per unit rounds to 0.00 €, so the "
                    "curve lies flat on the axis: the costs are small beside the ") +
        (kind.adaptation ? "risk reductions" : "emission reductions") +
        ". Enter the operations' costs (Edit Operation Properties) or choose another cost "
        "source to see their cost per unit.</small></font></p>");
  out.line("<div id=\"container\" style=\"width: " + std::to_string(width) +
           "px; height: " + std::to_string(height) + "px; margin: 0 auto\"></div>");
  out.line(export_links_html(kind.items == Items::operations ? 20 : kind.adaptation ? 22 : 21));
  page_footer(out);
}

void run_hub(Ui& ui, const HubKind& kind) {
  ExplorerWindow& w = explorer_window();
  try {
    w.open_page = kind.items == Items::measures ? "aggregate1.htm" : page_on_show(w);
    wait_page("summary.htm", "Compiling data...");
    ui.navigate("explorer", "summary.htm");

    GridTable measure_curve;
    GridTable& curve = kind.items == Items::operations ? w.MACCGrid1 : measure_curve;
    const ItemSums items =
        kind.items == Items::operations
            ? operation_rows(ui, curve, kind.adaptation)
            : measure_rows(curve, kind.adaptation ? w.MACCGrid2_A : w.MACCGrid2_M, kind.adaptation);

    if (!items.any_cost)
      information(ui,
                  std::string("Cost data for all the ") + items_word(kind) +
                      " is currently set at zero, so the MAC curve will be flat. Please amend "
                      "the cost data for operations where necessary to correct this.",
                  "No cost data");
    if (kind.adaptation ? items.total <= 0 : items.total >= 0) {
      information(ui,
                  std::string("The ") + items_word(kind) +
                      (kind.adaptation ? " selected will not reduce the risk to any ecosystem "
                                         "services."
                                       : " selected will not reduce GHG emissions."),
                  "Cannot produce MAC curve");
      ui.navigate("explorer", w.open_page);
      return;
    }

    const CurveLayout layout{kind.adaptation, kind.items == Items::operations ? 3 : 4,
                             kind.items == Items::operations ? 4 : 5};
    grid_sort_hub(curve, layout.cost_column, 2);
    const int64_t scale = kind.adaptation ? 1 : mac_scale(items.total);
    try {
      build_curve_steps(curve, items.total, scale, layout);
    } catch (const CurveTooLarge& e) {
      information(ui,
                  std::string(e.what()) + " Please check the data of the " + items_word(kind) +
                      " selected.",
                  "Cannot produce MAC curve");
      ui.navigate("explorer", w.open_page);
      return;
    }
    write_curve_page(curve, kind, scale, items);
  } catch (const CostAreaFailed&) {
    // Already shown to the user.
    ui.navigate("explorer", w.open_page);
    return;
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    ui.navigate("explorer", w.open_page);
    return;
  }
  ui.set_timer([&ui] {
    explorer_window().report_made_at = explorer_window().recalculations;
    ui.show_window("report");
    ui.navigate("report", "rep1.htm");
    ui.navigate("explorer", explorer_window().open_page);
  });
}

}  // namespace

void mac_curve_ghg_hub(Ui& ui) {
  run_hub(ui, {Items::operations, false});
}
void mac_curve_ghg_measures_hub(Ui& ui) {
  run_hub(ui, {Items::measures, false});
}
void mac_curve_adapt_hub(Ui& ui) {
  run_hub(ui, {Items::operations, true});
}
void mac_curve_adapt_measures_hub(Ui& ui) {
  run_hub(ui, {Items::measures, true});
}

}  // namespace arven

#include "reports/analyst_pages.h"

#include <cstddef>
#include <exception>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/numbers.h"
#include "core/session.h"
#include "engine/impact_context.h"
#include "engine/regional_impact.h"
#include "engine/stored_figures.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/page_kit.h"
#include "reports/report_html.h"

namespace arven {

using namespace report_html;

namespace {

constexpr int kTotalsGrid = 30;
constexpr int kWorkingGrid = 31;

std::string impact_type_name(int64_t type) {
  switch (type) {
    case 1:
      return "GHG";
    case 2:
      return "Adaptation";
    case 4:
      return "Production";
    default:
      return "Impact type " + std::to_string(type);
  }
}

// A table of a grid's rows [from, to), the columns from `first_column` on,
// figures as the lists show them.
void table_of(const GridTable& grid, PageFile& out, int from, int to, int first_column) {
  out.line(kTableOpen);
  out.line("<tr>");
  for (int c = first_column; c < grid.cols(); ++c) out.line(head_cell(grid.cell(0, c)));
  out.line("</tr>");
  for (int r = from; r < to; ++r) {
    out.line("<tr>");
    for (int c = first_column; c < grid.cols(); ++c) {
      const std::string& text = grid.cell(r, c);
      const bool figure = parse_number(text).has_value();
      out.line(figure ? cell(display_figure(text, -1), " align=\"right\"") : cell(text));
    }
    out.line("</tr>");
  }
  out.line("</table>");
}

// ---- the working ----

// "2, 1" as "[2] Short two; [1] Short one": the ids in their order, each
// with the short text the store has for it.
class References {
 public:
  explicit References(const Db& store) {
    auto q = store.query("SELECT \"Ref ID\", \"Ref Short\" FROM \"References\" ORDER BY rowid");
    while (q.next())
      if (auto id = whole_number(q.get(0))) short_.emplace(*id, q.get(1).as_text());
  }
  std::string text(const std::string& refs) const {
    std::string out;
    size_t at = 0;
    while (at <= refs.size()) {
      size_t end = refs.find_first_of(",;", at);
      if (end == std::string::npos) end = refs.size();
      std::string item = refs.substr(at, end - at);
      const size_t b = item.find_first_not_of(' '), e = item.find_last_not_of(' ');
      item = b == std::string::npos ? "" : item.substr(b, e - b + 1);
      if (!item.empty()) {
        if (!out.empty()) out += "; ";
        out += "[" + item + "]";
        if (auto id = parse_number(item); id && short_.count(static_cast<int64_t>(*id)))
          out += " " + short_.at(static_cast<int64_t>(*id));
      }
      at = end + 1;
    }
    return out;
  }

 private:
  std::map<int64_t, std::string> short_;
};

struct WorkingRow {
  const char* section;
  Value activity;
  Value rvc;
  Value rvc_class;
  std::string quantity;
  Value value;
  Value quality;
  std::string refs;
};

std::string value_text(const Value& v) {
  if (v.is_empty()) return "";
  if (v.is_text()) return v.as_text();
  return number_to_cell(v.as_double());
}

// Each RVC class's share (%) of the regions of the file by area: the NUTS
// area of each region weighs its class distribution, read from the store of
// its country (`store` when the session knows none).
std::map<std::pair<int64_t, double>, double> class_shares(const Db& file, const Db& store,
                                                          const std::set<int64_t>& rvcs) {
  std::map<std::pair<int64_t, double>, double> weighted;
  double area_sum = 0;
  std::map<std::string, Db> stores;
  auto q = file.query(
      "SELECT \"NUTS0_ID\", \"NUTS Type ID\", \"NUTS ID\", \"NUTS AREA\" FROM \"Regions\" "
      "ORDER BY rowid");
  while (q.next()) {
    const int64_t country = q.get(0).as_int(), level = q.get(1).as_int();
    const double area = q.get(3).as_double();
    if (level < 0 || level > 3) continue;
    area_sum += area;
    const Db* source = &store;
    const auto& paths = session().country_db_path;
    if (country > 0 && country < static_cast<int64_t>(paths.size()) &&
        !paths[static_cast<size_t>(country)].empty()) {
      const std::string& path = paths[static_cast<size_t>(country)];
      auto it = stores.find(path);
      if (it == stores.end()) it = stores.emplace(path, Db::open(path)).first;
      source = &it->second;
    }
    const std::string k = std::to_string(level);
    auto d = source->query("SELECT \"RVC ID\", \"RVC Class\", \"Percent\" FROM \"NUTS" + k +
                               "_RVC_Data_Dist\" WHERE \"NUTS" + k + "_ID\" = ? ORDER BY rowid",
                           {q.get(2)});
    while (d.next()) {
      const int64_t rvc = d.get(0).as_int();
      if (!rvcs.count(rvc)) continue;
      weighted[{rvc, d.get(1).as_double()}] += area * d.get(2).as_double();
    }
  }
  for (auto& [key, share] : weighted) share = area_sum == 0 ? 0 : share / area_sum;
  return weighted;
}

}  // namespace

// ---- totals ----

GridTable portfolio_totals(Ui& ui, const Db& file, CostOptions options) {
  GridTable grid;
  head_list(grid, {"Time horizon (years)", "GHG (tCO2e) (total)", "Production (€) (total)",
                   "Cost (€) (total)"});
  std::vector<int64_t> operations;
  {
    auto q = file.query("SELECT \"Operation ID\" FROM \"Operations\" ORDER BY rowid");
    while (q.next()) operations.push_back(q.get(0).as_int());
  }
  const StoredFigures figures(file);
  for (int years : kHorizonYears) {
    double ghg = 0, production = 0, cost = 0;
    options.years = years;
    for (int64_t id : operations) {
      if (const auto* row = figures.first(id, 1, years)) ghg += row->total.as_double();
      if (const auto* row = figures.first(id, 4, years)) production += row->total.as_double();
      cost += operation_cost(ui, file, id, false, options).total;
    }
    const int r = grid.add_row();
    grid.cell(r, 0) = std::to_string(years);
    grid.cell(r, 1) = number_to_cell(round_half_even(ghg, 3) + 0.0);
    grid.cell(r, 2) = number_to_cell(round_half_even(production, 2) + 0.0);
    grid.cell(r, 3) = number_to_cell(round_half_even(cost, 2) + 0.0);
  }
  return grid;
}

void portfolio_totals_html(Ui& ui) {
  const Session& s = session();
  if (s.current_file.empty()) return;
  ExplorerWindow& w = explorer_window();
  try {
    Db file = Db::open(s.current_file);
    w.TotalsGrid = portfolio_totals(ui, file, current_cost_options());
    std::vector<std::pair<int64_t, std::string>> operations;
    auto q = file.query(
        "SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" ORDER BY rowid");
    while (q.next()) operations.emplace_back(q.get(0).as_int(), q.get(1).as_text());

    PageFile out("totals.htm");
    page_header(out, 0);
    out.line(section_heading("Totals of My Operations"));
    out.line(paragraph("Regions: " + html_escape(regions_text()) + ". " +
                       std::to_string(operations.size()) + " operations."));
    out.line(paragraph(
        "Operations on the same land are not additive: where chosen operations share land, these "
        "totals are an upper bound."));
    table_of(w.TotalsGrid, out, 1, w.TotalsGrid.rows(), 0);
    const CostOptions options = current_cost_options();
    out.line(paragraph(std::string("Costs: ") +
                       (options.source == 1  ? "from the production impact data"
                        : options.basis == 2 ? "single investment costs only"
                        : options.basis == 3 ? "annual area costs only"
                                             : "single investment and annual area costs") +
                       ", over each time horizon (the cost options of the MAC curve panel)."));
    out.line(export_links_html(kTotalsGrid));
    out.line(section_heading("The working behind each operation's figures"));
    out.line(kTableOpen);
    for (const auto& [id, name] : operations)
      table_row(out, {cell(link(id_text(id) + ".wrk", html_escape(name)))});
    out.line("</table>");
    page_footer(out);
    ui.navigate("explorer", "totals.htm");
  } catch (const CostAreaFailed&) {
    // Already shown.
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
  }
}

// ---- the working ----

GridTable figure_working(const Db& file, const Db& store, int64_t operation_id) {
  const References references(store);
  std::vector<WorkingRow> rows;
  std::set<int64_t> activities, rvcs;
  {
    auto q = store.query(
        "SELECT \"Baseline ID\", \"Activity ID\", \"RVC ID\", \"RVC Class\", \"Delta\" FROM "
        "\"Operation_Activity_Delta\" WHERE \"Operation ID\" = ? ORDER BY \"Baseline ID\", "
        "\"Activity ID\", \"RVC ID\", \"RVC Class\", rowid",
        {Value(operation_id)});
    while (q.next()) {
      rows.push_back({"Delta", q.get(1), q.get(2), q.get(3),
                      "Delta against baseline " + value_text(q.get(0)), q.get(4), Value(), ""});
      activities.insert(q.get(1).as_int());
    }
  }
  std::vector<WorkingRow> results;
  {
    auto q = file.query(
        "SELECT \"Activity ID\", \"Impact type\", \"RVC ID\", \"Time horizon\", \"Regional "
        "impact ha\", \"Regional impact total\", \"Risk reduction\", \"Data_Quality\", \"Refs\" "
        "FROM \"Activity-Impact data\" WHERE \"Operation ID\" = ? ORDER BY rowid",
        {Value(operation_id)});
    while (q.next()) {
      const int64_t type = q.get(1).as_int();
      const std::string refs = references.text(q.get(8).as_text());
      activities.insert(q.get(0).as_int());
      if (type == 2) {
        results.push_back({"Result", q.get(0), q.get(2), Value(), "Adaptation: risk reduction",
                           q.get(6), q.get(7), refs});
        continue;
      }
      const std::string what = impact_type_name(type) + ", " + value_text(q.get(3)) + " years: ";
      results.push_back({"Result", q.get(0), Value(), Value(), what + "regional impact per ha",
                         q.get(4), q.get(7), refs});
      results.push_back({"Result", q.get(0), Value(), Value(), what + "regional impact total",
                         q.get(5), q.get(7), refs});
    }
  }
  struct FactorTable {
    const char* sql;
    const char* quantity;
  };
  const FactorTable factors[] = {
      {"SELECT \"Activity ID\", \"RVC ID\", \"RVC Value\", \"tCO2e\", \"Data_Quality\", \"Refs\", "
       "\"Mitigation Type\" FROM \"Mitigation_Activity_Emission_Factors\" WHERE \"Activity ID\" = "
       "? ORDER BY rowid",
       "Emission factor (tCO2e), mitigation type "},
      {"SELECT \"Activity ID\", \"RVC ID\", NULL, \"Impact factor\", \"Data_Quality\", \"Refs\", "
       "\"Impact Category ID\" FROM \"Adaptation_Activity_Impact_Factors\" WHERE \"Activity ID\" "
       "= ? ORDER BY rowid",
       "Adaptation impact factor, impact category "},
      {"SELECT \"Activity ID\", \"RVC ID\", \"RVC Value\", \"Yield\", \"Data_Quality\", \"Refs\", "
       "NULL FROM \"Yield_Activity_Impact_Factors\" WHERE \"Activity ID\" = ? ORDER BY rowid",
       "Yield factor"},
  };
  for (int64_t activity : activities)
    for (const FactorTable& f : factors) {
      auto q = store.query(f.sql, {Value(activity)});
      while (q.next())
        rows.push_back({"Factor", q.get(0), q.get(1), q.get(2), f.quantity + value_text(q.get(6)),
                        q.get(3), q.get(4), references.text(q.get(5).as_text())});
    }
  for (const WorkingRow& row : rows)
    if (row.rvc.as_int() != 0) rvcs.insert(row.rvc.as_int());
  for (const auto& [key, share] : class_shares(file, store, rvcs))
    rows.push_back({"Class share", Value(), Value(key.first), Value(key.second),
                    "Share of the regions' area (%)", Value(round_half_even(share, 2) + 0.0),
                    Value(), ""});
  rows.insert(rows.end(), results.begin(), results.end());

  std::map<int64_t, std::string> names;
  {
    auto q = store.query("SELECT \"Activity ID\", \"Activity Name\" FROM \"Activities\"");
    while (q.next()) names.emplace(q.get(0).as_int(), q.get(1).as_text());
  }
  GridTable grid;
  head_list(grid, {"Section", "Activity ID", "Activity", "RVC ID", "RVC class", "Quantity", "Value",
                   "Data Quality", "References"});
  for (const WorkingRow& row : rows) {
    const int r = grid.add_row();
    grid.cell(r, 0) = row.section;
    grid.cell(r, 1) = value_text(row.activity);
    if (!row.activity.is_empty()) {
      auto it = names.find(row.activity.as_int());
      if (it != names.end()) grid.cell(r, 2) = it->second;
    }
    grid.cell(r, 3) = value_text(row.rvc);
    grid.cell(r, 4) = value_text(row.rvc_class);
    grid.cell(r, 5) = row.quantity;
    grid.cell(r, 6) = value_text(row.value);
    grid.cell(r, 7) = value_text(row.quality);
    grid.cell(r, 8) = row.refs;
  }
  return grid;
}

void figure_working_html(Ui& ui, int64_t operation_id) {
  const Session& s = session();
  if (s.current_file.empty() || s.ops_db_path.empty()) return;
  ExplorerWindow& w = explorer_window();
  try {
    Db file = Db::open(s.current_file);
    std::string name;
    {
      auto q = file.query(
          "SELECT \"Operation Name\" FROM \"Operations\" WHERE \"Operation ID\" = ? LIMIT 1",
          {Value(operation_id)});
      if (!q.next()) return;
      name = q.get(0).as_text();
    }
    Db store = Db::open(s.ops_db_path);
    GridTable working = figure_working(file, store, operation_id);
    // The page shows store text, escaped; the export takes it back as it was.
    for (int r = 1; r < working.rows(); ++r)
      for (int c = 0; c < working.cols(); ++c) working.cell(r, c) = html_escape(working.cell(r, c));
    w.WorkingGrid = std::move(working);

    PageFile out("working_figures.htm");
    page_header(out, 0);
    out.line(section_heading("The working behind the figures: " + html_escape(name)));
    out.line(paragraph(
        "Every activity of this operation with its deltas, the factors of the country store with "
        "their data quality and references, the share of each RVC class in the regions (" +
        html_escape(regions_text()) +
        "), and the figures the file keeps for each activity, from which the reports are made."));
    const GridTable& g = w.WorkingGrid;
    int r = 1;
    while (r < g.rows()) {
      int end = r;
      while (end < g.rows() && g.cell(end, 0) == g.cell(r, 0)) ++end;
      out.line(section_heading(g.cell(r, 0)));
      table_of(g, out, r, end, 1);
      r = end;
    }
    if (g.rows() < 2) out.line(paragraph("The stores hold nothing for this operation."));
    out.line(export_links_html(kWorkingGrid));
    page_footer(out);
    ui.navigate("explorer", "working_figures.htm");
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
  }
}

}  // namespace arven

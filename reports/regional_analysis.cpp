#include "reports/regional_analysis.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_context.h"
#include "engine/regional_impact.h"
#include "reports/charts.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/page_kit.h"
#include "stores/db.h"

namespace arven {

namespace {

using engine_detail::ImpactContext;
using engine_detail::OpsRow;
using engine_detail::QualityTally;
using engine_detail::StoreCache;

// RegGrid1 holds the area names raw, as the store gives them: the bar chart
// escapes them for its script itself, and the name sort compares the real
// text. The page is written from a copy whose name column is HTML-escaped
// (escaped_for_page), because the table writer prints cells as they stand.

struct KindHeads {
  const char* total;
  const char* per_ha;
};

KindHeads heads_of(int kind) {
  switch (kind) {
    case 2:
      return {"Risk reduction", "Risk reduction/ha"};
    case 4:
      return {"Production (€)", "Production (€)/ha"};
    default:
      return {"tCO2e", "tCO2e/ha"};
  }
}

void head_grid(GridTable& grid, int kind) {
  const KindHeads heads = heads_of(kind);
  grid.clear();
  grid.resize(1, 4);
  grid.cell(0, 0) = "ID";
  grid.cell(0, 1) = "Name";
  grid.cell(0, 2) = heads.total;
  grid.cell(0, 3) = heads.per_ha;
}

using engine_detail::read_regions;
using RegionRow = engine_detail::RegionArea;

// A NUTS3 area of a region.
struct Nuts3Area {
  int64_t id = 0;
  std::string code;
  std::string name;  // raw
};

// The NUTS3 areas that lie in a region's area, in table order; a NUTS3 area
// lists itself.
std::vector<Nuts3Area> nuts3_areas_of(Db& store, const RegionRow& region) {
  engine_detail::check_level(region);
  const std::string key = "NUTS" + std::to_string(region.level) + "_ID";
  auto rows = store.query("SELECT \"NUTS3_ID\", \"NUTS\", \"NAME\" FROM \"NUTS3\" WHERE " +
                              quote_name(key) + " = ? ORDER BY rowid",
                          {Value(region.nuts_id)});
  std::vector<Nuts3Area> out;
  while (rows.next()) {
    Nuts3Area a;
    a.id = rows.get(0).as_int();
    a.code = rows.get(1).is_empty() ? std::to_string(a.id) : rows.get(1).as_text();
    a.name = rows.get(2).is_empty() ? std::string() : rows.get(2).as_text();
    out.push_back(std::move(a));
  }
  return out;
}

// The index of the time horizon of `years` among kHorizonYears.
size_t horizon_index(int years) {
  for (size_t h = 0; h < kHorizonYears.size(); ++h)
    if (kHorizonYears[h] == years) return h;
  throw ImpactError("Invalid time horizon",
                    "The time horizon of " + std::to_string(years) +
                        " years is not one of 1, 5, 10, 25, 50, 100 and 250 years, so cannot "
                        "calculate the regional breakdown.");
}

// One area's scaled total of an impact kind, summed over its working rows.
// GHG takes the breakdown's horizon and leaves out activities with carbon
// sequestration when the setting excludes it; production takes one year.
double kind_total(const engine_detail::AreaTables& tables, int kind) {
  double total = 0;
  if (kind == 1) {
    const size_t h = horizon_index(session().cseq_years);
    const bool with_cseq = session().cseq_included == 1;
    for (const AreaRow& row : tables.ghg)
      if (with_cseq || row.cseq != "1") total += row.totals[h];
  } else if (kind == 2) {
    for (const AreaRow& row : tables.adaptation) total += row.totals[0];
  } else if (kind == 4) {
    for (const AreaRow& row : tables.production) total += row.totals[0];
  }
  return total;
}

// Fills `grid` (headed) with one row per NUTS3 area of the region. False
// when the region has no area (the user was told).
bool fill_breakdown(Ui& ui, GridTable& grid, int64_t operation_id, int kind) {
  ImpactContext ctx;
  const ScalingSettings settings = engine_detail::read_settings(ctx, operation_id, nullptr);
  const std::vector<RegionRow> regions = read_regions(ctx.assessment());
  if (regions.empty()) {
    ui.message_box("No region has been defined, so cannot calculate regional impact.",
                   "No region defined", MsgButtons::Ok, MsgIcon::Stop);
    return false;
  }
  if (kind == 1) horizon_index(session().cseq_years);  // an unknown horizon stops here
  const int per_ha_places = kind == 2 ? 6 : 3;
  double carry = 0;  // the scaling's working value, for the whole breakdown
  AreaTable ghg, adaptation, production;
  const engine_detail::AreaTables tables{ghg, adaptation, production};
  QualityTally quality;  // not shown here
  for (const RegionRow& region : regions) {
    StoreCache& store = ctx.store(engine_detail::country_store_for(region.code));
    for (const Nuts3Area& area : nuts3_areas_of(store.db(), region)) {
      const int r = grid.add_row();
      grid.cell(r, 0) = std::to_string(area.id);
      grid.cell(r, 1) = area.name;
      const std::vector<OpsRow> rows = store.ops_rows(3, area.id, operation_id);
      if (rows.empty()) {
        grid.cell(r, 2) = "0";
        grid.cell(r, 3) = "0";
        continue;
      }
      const double taken_up = engine_detail::scale_area_rows(rows, store, settings, operation_id,
                                                             area.code, carry, tables, quality);
      const double total = kind_total(tables, kind);
      grid.cell(r, 2) = number_to_cell(round_half_even(total, 1));
      grid.cell(r, 3) =
          taken_up == 0 ? "0" : number_to_cell(round_half_even(total / taken_up, per_ha_places));
    }
  }
  return true;
}

GridTable escaped_for_page(const GridTable& grid) {
  GridTable shown = grid;
  for (int r = 1; r < shown.rows(); ++r) shown.cell(r, 1) = html_escape(shown.cell(r, 1));
  return shown;
}

// The operation's name, raw: the assessment file's when it holds the
// operation, else the country store's; empty when neither has it.
std::string operation_name_of(int64_t operation_id) {
  const Session& s = session();
  if (!s.current_file.empty()) {
    Db file = Db::open(s.current_file);
    auto q = file.query(
        "SELECT \"Operation Name\" FROM \"Operations\" WHERE \"Operation ID\" = ? ORDER BY rowid "
        "LIMIT 1",
        {Value(operation_id)});
    if (q.next() && !q.get(0).is_empty()) return q.get(0).as_text();
  }
  try {
    const Value name = operation_name(operation_id);
    return name.is_empty() ? std::string() : name.as_text();
  } catch (const StoreError&) {
    return "";
  }
}

std::string bold_line(const std::string& text) {
  return "<p><font face=\"Arial\"><strong>" + text + "</strong></font></p>";
}

std::string link(const std::string& target, const std::string& text) {
  return "<a href=" + target + ">" + text + "</a>";
}

}  // namespace

void regional_analysis(Ui& ui, int64_t operation_id, int impact_kind) {
  wait_page("working.htm", "Retrieving data...");
  ui.navigate("explorer", "working.htm");
  GridTable grid(4);
  head_grid(grid, impact_kind);
  try {
    if (!fill_breakdown(ui, grid, operation_id, impact_kind)) return;
  } catch (const std::exception& e) {
    engine_detail::report_failure(ui, e);
    return;
  }
  explorer_window().RegGrid1 = std::move(grid);
  reg_analysis_html(ui, operation_id, impact_kind);
}

void reg_analysis_html(Ui& ui, int64_t operation_id, int impact_kind) {
  ExplorerWindow& w = explorer_window();
  w.reg_impact_kind = impact_kind;
  w.current_operation = operation_id;
  const char* page = impact_kind == 2   ? "reg_analysis_adapt.htm"
                     : impact_kind == 4 ? "reg_analysis_prod.htm"
                                        : "reg_analysis_ghg.htm";
  const char* chart_code = impact_kind == 2 ? "ca" : impact_kind == 4 ? "cp" : "cg";
  const std::string id = std::to_string(operation_id);

  PageFile out(page);
  page_header(out, 0);
  out.line("<p><font face=\"Arial\" size=\"4\"><strong>" +
           html_escape(operation_name_of(operation_id)) + "</strong></font></p>");
  if (impact_kind == 1) {
    const int years = session().cseq_years;
    out.line(bold_line("Time Horizon: " + std::to_string(years) +
                       (years == 1 ? " year" : " years") +
                       " (the time horizon used can be changed in the software settings)"));
  }
  out.line("<p><font face=\"Arial\"><small>Display as a chart: " +
           link(id + "." + chart_code + "1", "Total") + "&nbsp;or&nbsp;" +
           link(id + "." + chart_code + "2", "Per hectare") + "</small></font></p>");
  out.line(bold_line("Regional breakdown"));
  grid_table_sortable(escaped_for_page(w.RegGrid1), out, 1, w.sort_reggrid1, 6);
  out.line(
      "<p><font face=\"Verdana\"><small>The areas are scaled from NUTS3 figures and the region's "
      "total from figures of the region's own level, so their sum may differ slightly from the "
      "total.</small></font></p>");
  out.line(export_links_html(6));
  page_footer(out);
  ui.navigate("explorer", page);
}

void reg_analysis_chart(Ui& ui, int64_t operation_id, int impact_kind, int chart_kind) {
  const ExplorerWindow& w = explorer_window();
  // Every area gets a bar of at least 15 pixels.
  const int areas = std::max(0, w.RegGrid1.rows() - 1);
  const double height = std::max(w.browser_height * 0.85, areas * 15.0);
  const double width = w.browser_width * 0.93;

  PageFile out("regional_chart.htm");
  page_header(out, 1);
  chart_regional_bar(
      out, w.RegGrid1, operation_name_of(operation_id), impact_kind, chart_kind,
      {"", "Region: " + regions_text(), "regional-breakdown-" + std::to_string(operation_id)});
  out.line("</head>");
  out.line("<body>");
  out.line("<div id=\"container\" style=\"width: " + std::to_string(std::lround(width)) +
           "px; height: " + std::to_string(std::lround(height)) + "px; margin: 0 auto\"></div>");
  page_footer(out);
  ui.set_timer([&ui] {
    explorer_window().report_made_at = explorer_window().recalculations;
    ui.show_window("report");
    ui.navigate("report", "regional_chart.htm");
  });
}

}  // namespace arven

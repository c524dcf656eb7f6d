#include "reports/operation_reports.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "reports/charts.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/page_kit.h"
#include "reports/report_html.h"
#include "stores/db.h"

namespace arven {

namespace {

using namespace report_html;

constexpr const char* kBoundaryLabel = "Boundary feature (average field size)";

// ---- values of stores ----

// A stored field as shown on a report: empty stays empty.
std::string field_text(const Value& v) {
  return v.is_empty() ? std::string() : v.as_text();
}

std::string technique_label(const Value& technique) {
  if (technique.is_empty()) return "";
  switch (technique.as_int()) {
    case 1:
      return "Hectare";
    case 2:
      return kBoundaryLabel;
    default:
      return "";
  }
}

// ---- operation report pieces ----

// The operation's name as the report shows it (not yet escaped): the
// assessment file's name when it is chosen, else the country store's.
std::string report_operation_name(int64_t operation_id, int in_file) {
  const Session& s = session();
  if (in_file == 1 && !s.current_file.empty()) {
    Db db = Db::open(s.current_file);
    auto q = db.query(
        "SELECT \"Operation Name\" FROM \"Operations\" WHERE \"Operation ID\" = ? ORDER BY rowid "
        "LIMIT 1",
        {Value(operation_id)});
    if (q.next()) return q.get(0).as_text();
  }
  try {
    return operation_name(operation_id).as_text();
  } catch (const StoreError&) {
    return "";
  }
}

// The settings and costs of an operation shown at the end of its report.
struct OperationProperties {
  Value technique, st_value, uptake, cost, cost_single, tea_inc, tea_factor, tea_cost, tarea;
  std::string land_type;  // escaped
};

OperationProperties read_properties(int64_t operation_id, int in_file) {
  const Session& s = session();
  OperationProperties p;
  auto fill = [&p](Rows& q, bool with_tarea) {
    p.technique = q.get("Scaling up technique");
    p.st_value = q.get("ST Value");
    p.uptake = q.get("Uptake");
    p.cost = q.get("Cost");
    p.cost_single = q.get("Cost Single");
    p.tea_inc = q.get("TEA_Inc");
    p.tea_factor = q.get("TEA_Factor");
    p.tea_cost = q.get("TEA_Cost");
    if (with_tarea) p.tarea = q.get("TArea");
  };
  const bool from_file = in_file == 1 && !s.current_file.empty();
  Db db = Db::open(from_file ? s.current_file : s.ops_db_path);
  auto q =
      db.query("SELECT * FROM \"Operations\" WHERE \"Operation ID\" = ? ORDER BY rowid LIMIT 1",
               {Value(operation_id)});
  if (q.next()) fill(q, from_file);
  try {
    p.land_type = html_escape(operation_field(operation_id, 8).as_text());
  } catch (const StoreError&) {
    // An operation missing from the country store has no land type to show.
  }
  return p;
}

std::string icon_link(const std::string& target, const char* image, const char* label) {
  // The words under the icon are part of the link: a click on them acts.
  return "<td align=\"center\" valign=\"top\"><a href=" + target + "><img src=\"" + image +
         "\" width=\"48\" height=\"48\" border=\"0\" alt=\"" + label + "\" title=\"" + label +
         "\"><br><font face=\"Verdana\"><small><small>" + label +
         "</small></small></font></a></td>";
}

// The action icons of a summary report, one cell each.
std::vector<std::string> icon_cells(int64_t id, int in_file) {
  std::vector<std::string> cells;
  if (in_file == 1) {
    cells.push_back(
        icon_link(id_text(id) + ".yyy", "graphics/edit_rdp_gif.gif", "Remove Operation"));
    cells.push_back(icon_link("edit.opd", "graphics/edit_gif.gif", "Edit Operation Properties"));
  } else {
    cells.push_back(
        icon_link(id_text(id) + ".xxx", "graphics/edit_rdp_gif.gif", "Select Operation"));
  }
  cells.push_back(
      icon_link(id_text(id) + ".det", "graphics/detailed_report.gif", "View Detailed Report"));
  return cells;
}

void icon_row(PageFile& out, int64_t id, int in_file) {
  out.line("<table border=\"0\" cellpadding=\"3\">");
  out.line("<tr>");
  for (const std::string& c : icon_cells(id, in_file)) out.line(c);
  out.line("</tr>");
  out.line("</table>");
}

// Lowest and highest of a summary row's seven horizons; nullopt with none.
std::optional<std::pair<double, double>> horizon_range(const GridTable& summary, int row) {
  std::optional<std::pair<double, double>> range;
  if (summary.rows() <= row) return range;
  for (int c = 1; c <= 7 && c < summary.cols(); ++c) {
    auto v = parse_number(summary.cell(row, c));
    if (!v) continue;
    if (!range)
      range = std::make_pair(*v, *v);
    else
      range = std::make_pair(std::min(range->first, *v), std::max(range->second, *v));
  }
  return range;
}

std::string summary_cell(const GridTable& summary, int row, int col) {
  if (summary.rows() <= row || summary.cols() <= col) return "";
  return summary.cell(row, col);
}

// A production figure in euro with the sign first; per hectare figures are
// small and keep three decimals.
std::string euro(std::string_view cell_text, int places) {
  auto v = parse_number(cell_text);
  return format_money(v ? *v : 0, places);
}

std::string quality_text(double q) {
  return number_to_cell(q);
}

// The column of each activity table that holds its reference keys.
int ghg_refs_column() {
  return 18;
}
int adaptation_refs_column() {
  return explorer_state().adaptation_shape == AdaptationShape::loaded ? 5 : 7;
}
int production_refs_column() {
  return 17;
}

// The references of the operation's tables, each once, in the order they
// are first met: the list's numbers [1], [2], ... are positions in it.
std::vector<ListItem> report_references() {
  const ExplorerState& ex = explorer_state();
  std::vector<ListItem> refs;
  auto collect = [&refs](const GridTable& t, int col) {
    if (col >= t.cols()) return;
    for (int r = 1; r < t.rows(); ++r) add_refs_to_list(t.cell(r, col), refs, false);
  };
  collect(ex.ghg_activity_table, ghg_refs_column());
  collect(ex.adaptation_activity_table, adaptation_refs_column());
  collect(ex.production_activity_table, production_refs_column());
  return refs;
}

// A copy of an activity table whose reference keys are replaced by their
// numbers in the reference list ("[1], [3]"), so the table and the list
// agree.
GridTable with_reference_numbers(const GridTable& table, int col,
                                 const std::vector<ListItem>& refs) {
  GridTable shown = table;
  if (col >= shown.cols()) return shown;
  for (int r = 1; r < shown.rows(); ++r) {
    std::vector<ListItem> keys;
    add_refs_to_list(shown.cell(r, col), keys, false);
    std::string text;
    for (const ListItem& key : keys) {
      for (size_t n = 0; n < refs.size(); ++n) {
        std::vector<ListItem> one = {refs[n]};
        add_refs_to_list(key.text, one, false);
        if (one.size() == 1) {  // the same key
          text += (text.empty() ? "[" : ", [") + std::to_string(n + 1) + "]";
          break;
        }
      }
    }
    shown.cell(r, col) = text;
  }
  return shown;
}

void references_section(PageFile& out) {
  const std::vector<ListItem> refs = report_references();
  out.line(section_heading("References"));
  if (refs.empty()) {
    out.line(paragraph("None"));
    return;
  }
  out.line("<ul>");
  int n = 0;
  for (const ListItem& item : refs) {
    ++n;
    std::string text = "[" + std::to_string(n) + "] ";
    try {
      const std::string brief = reference_field(item.data, 1).as_text();
      const std::string full = reference_field(item.data, 2).as_text();
      const std::string url = reference_field(item.data, 3).as_text();
      text += html_escape(brief);
      if (!full.empty()) text += (brief.empty() ? "" : ": ") + html_escape(full);
      if (!url.empty())
        text +=
            " <a href=\"" + html_escape(url) + "\" target=\"_blank\">" + html_escape(url) + "</a>";
    } catch (const StoreError&) {
      text += "Reference " + html_escape(item.text) + " (not in the reference list)";
    }
    out.line("<li><font face=\"Verdana\"><small>" + text + "</small></font></li>");
  }
  out.line("</ul>");
}

void practicality_section(PageFile& out, int64_t id) {
  out.line(section_heading("Practicality"));
  Db store = Db::open(session().ops_db_path);
  auto q = store.query(
      "SELECT i.\"Practicality Text\" FROM \"Operations_Practicality\" p LEFT JOIN "
      "\"Practicality_Items\" i ON i.\"Practicality ID\" = p.\"Practicality ID\" "
      "WHERE p.\"Operation ID\" = ? ORDER BY p.rowid",
      {Value(id)});
  std::vector<std::string> points;
  while (q.next()) points.push_back(html_escape(q.get(0).as_text()));
  if (points.empty()) {
    out.line(paragraph(kNoData));
    return;
  }
  out.line(paragraph(
      "The following points should be noted with respect to the practical implementation of "
      "this operation:"));
  out.line("<ul>");
  for (const std::string& p : points)
    out.line("<li><font face=\"Verdana\"><small>" + p + "</small></font></li>");
  out.line("</ul>");
}

void properties_sections(PageFile& out, int64_t id, int in_file) {
  const OperationProperties p = read_properties(id, in_file);
  const std::string change = in_file == 1 ? cell(link("edit.opd", "Change")) : std::string();
  auto row = [&](const std::string& label, const std::string& value) {
    out.line("<tr>");
    out.line(cell(label));
    out.line(cell(value));
    if (!change.empty()) out.line(change);
    out.line("</tr>");
  };

  out.line(section_heading("Training, Education and Advice (TEA)"));
  out.line(paragraph(
      "If Training, Education and Advice (TEA) is important to ensure successful practical "
      "implementation of the operation (and to achieve its potential benefits), then please "
      "adjust the TEA data below to reflect its relative importance (Note: if the TEA provided is "
      "insufficient, then select No and adjust the TEA factor accordingly):"));
  out.line(kTableOpen);
  row("Sufficient TEA provided", !p.tea_inc.is_empty() && p.tea_inc.as_int() == 1 ? "Yes" : "No");
  const std::string factor = field_text(p.tea_factor);
  row("TEA Reduction Factor", factor.empty() ? factor : factor + "%");
  row("TEA Cost (€)", display_figure(field_text(p.tea_cost), -1));
  out.line("</table>");

  out.line(section_heading("Operation properties"));
  out.line(paragraph(
      "The table below shows the properties of this operation with respect to scaling up "
      "techniques and costs. This data is used to scale up impacts within the region(s) selected "
      "and for undertaking a cost-benefit analysis (MAC curves). This data can be adjusted for the "
      "specific circumstances of your assessment."));
  out.line(kTableOpen);
  row("Scaling up technique", technique_label(p.technique));
  row("Type of land to which this operation applies:", p.land_type);
  row("Cost - annual area (per ha) (€)", display_figure(field_text(p.cost), -1));
  row("Cost - single investment (€)", display_figure(field_text(p.cost_single), -1));
  out.line("</table>");
}

}  // namespace
// ---- the report of one operation ----

void operation_specific_html_hub(Ui& ui, int in_file, int kind) {
  const ExplorerState& ex = explorer_state();
  const int64_t id = explorer_window().current_operation;
  const std::string ids = id_text(id);

  if (kind == 1) {
    wait_page("summary.htm", "Retrieving data...");
    ui.navigate("explorer", "summary.htm");
  }
  const std::string name = html_escape(report_operation_name(id, in_file));
  const bool has_ghg = ex.ghg_activity_table.rows() > 1;
  const bool has_adaptation = ex.adaptation_activity_table.rows() > 1;
  const bool has_production = ex.production_activity_table.rows() > 1;
  const char* file = kind == 1 ? "summary_report.htm" : "detailed_report.htm";

  PageFile out(file);
  page_header(out, 1);
  if (has_ghg)
    chart_impact_columns(out, ex.ghg_summary_table, 1, true,
                         {"Carbon balance by time horizon: " + report_operation_name(id, in_file),
                          "Region: " + regions_text(), "carbon-balance-" + id_text(id)});
  out.line("</head>");
  out.line("<body>");

  // Head: name, quality, actions.
  if (kind == 1) {
    out.line("<table border=\"0\" width=\"100%\">");
    out.line("<tr>");
    out.line("<td valign=\"top\"><font face=\"Arial\" size=\"4\"><strong>" + name +
             "</strong></font></td>");
    out.line("<td valign=\"top\">" + data_quality_bar_large(quality_text(ex.dq_overall)) + "</td>");
    for (const std::string& c : icon_cells(id, in_file)) out.line(c);
    out.line("</tr>");
    out.line("</table>");
  } else {
    out.line(big_heading(name));
  }
  out.line("<hr>");
  if (kind == 1)
    out.line(paragraph(
        "The report below provides an overview of the potential impact of this operation in the "
        "region(s) currently selected. " +
        link(ids + ".det", "View the detailed report")));
  else
    out.line(paragraph(
        "The report below provides details on the potential impact of this operation in the "
        "region(s) currently selected."));
  // Figures that are all zero because nothing is treated say why. A chosen
  // operation's treated area is the one stored with its figures.
  if (has_ghg || has_adaptation || has_production) {
    const OperationProperties p = read_properties(id, in_file);
    const bool stored = in_file == 1 && !p.tarea.is_empty();
    const bool known = stored || in_file != 1;
    if (known && (stored ? p.tarea.as_double() : ex.op_total_area) == 0)
      out.line(paragraph(
          "<b>The area treated by this operation in the region(s) currently selected is 0 "
          "ha</b>: they hold no land of the type it applies to" +
          (p.land_type.empty() ? std::string() : " (" + p.land_type + ")") +
          ", or its scaling or uptake is 0. Its figures are therefore 0."));
  }

  // Summary.
  out.line(section_heading("Summary"));
  out.line(kTableOpen);
  table_row(out, {head_cell("Criterion"), head_cell("Data"),
                  head_cell("Data Quality", " width=\"20%\"")});
  auto summary_row = [&](const char* criterion, bool has, const std::string& data, double dq) {
    table_row(out, {cell(criterion), cell(has ? data : kNoData),
                    cell(has ? data_quality_bar(quality_text(dq)) : "&nbsp;")});
  };
  std::string ghg_range;
  if (auto range = horizon_range(ex.ghg_summary_table, 1))
    ghg_range =
        format_display(range->first, 0) + " to " + format_display(range->second, 0) + " tCO2e";
  summary_row("Mitigation (1 year to 250 years)", has_ghg && !ghg_range.empty(), ghg_range,
              ex.dq_ghg);
  summary_row("Adaptation (regional risk reduction)", has_adaptation,
              format_display(ex.risk_reduction_sum, 1), ex.dq_adaptation);
  summary_row("Production (total per annum)", has_production,
              euro(summary_cell(ex.production_summary_table, 1, 1), 0), ex.dq_production);
  out.line("</table>");

  // Mitigation.
  out.line(section_heading("Mitigation"));
  if (has_ghg) {
    out.line(paragraph(
        "The chart and table below show the carbon balance for this operation for the region(s) "
        "currently selected over different time horizons."));
    out.line(R"(<div id="container" style="width: 100%; height: 300px; margin: 0 auto"></div>)");
    out.line(paragraph(
        "To view how this carbon balance varies with different regions (within those selected), "
        "click on 'Regional breakdown' for a specific time horizon."));
    grid_table_horizons(ex.ghg_summary_table, out, 1, id, kind, 1);
    if (kind == 2) {
      out.line(paragraph("Detailed GHG emission and carbon sequestration data:"));
      out.line(paragraph("Total:"));
      const GridTable ghg =
          with_reference_numbers(ex.ghg_activity_table, ghg_refs_column(), report_references());
      grid_table_detail(ghg, out, 1, 1);
      out.line(paragraph("Per hectare:"));
      grid_table_detail(ghg, out, 1, 2);
    }
  } else {
    out.line(paragraph(kNoData));
  }

  // Adaptation.
  out.line(section_heading("Adaptation"));
  if (has_adaptation) {
    out.line(paragraph(
        "The table below shows the potential risk reduction for this operation for the region(s) "
        "currently selected. The risk reduction figure is an indicator score (it has no units) "
        "which reflects the relative potential impact of the operation on reducing (or "
        "increasing) the risk to the adaptive capacity (from climate change) of one or more "
        "ecosystem services."));
    if (kind == 2)
      out.line(
          paragraph("To view how this risk reduction varies with different regions (within those "
                    "selected), click on 'Regional breakdown'."));
    out.line(kTableOpen);
    table_row(out, {cell("Risk reduction:"), cell(format_display(ex.risk_reduction_sum, 1))});
    if (kind == 2) table_row(out, {cell("&nbsp;"), cell(link(ids + ".rea", "Regional breakdown"))});
    out.line("</table>");
    if (kind == 1) {
      out.line(paragraph("View the " + link(ids + ".det", "detailed report") +
                         " to see which ecosystem services the risk reduction applies to."));
    } else {
      out.line(
          paragraph("The table below shows the potential risk reduction for this operation for the "
                    "region(s) currently selected for different ecosystem services."));
      // A calculated table holds RVC keys and its quality in column 6, a
      // loaded one the risk statements and its quality in column 4.
      grid_table_adaptation(with_reference_numbers(ex.adaptation_activity_table,
                                                   adaptation_refs_column(), report_references()),
                            out, 1, ex.adaptation_shape == AdaptationShape::loaded ? 2 : 1);
    }
  } else {
    out.line(paragraph(kNoData));
  }

  // Production.
  out.line(section_heading("Production"));
  if (has_production) {
    out.line(paragraph(
        "The table below shows the potential impacts on production for this operation for the "
        "region(s) currently selected."));
    if (kind == 2)
      out.line(paragraph(
          "To view how this impact varies with different regions (within those selected), click "
          "on 'Regional breakdown'."));
    out.line(kTableOpen);
    table_row(out, {cell("Production impact (total) per annum:"),
                    cell(euro(summary_cell(ex.production_summary_table, 1, 1), 0))});
    table_row(out, {cell("Production impact per hectare per annum:"),
                    cell(euro(summary_cell(ex.production_summary_table, 2, 1), 0))});
    if (kind == 2) table_row(out, {cell("&nbsp;"), cell(link(ids + ".rep", "Regional breakdown"))});
    out.line("</table>");
    if (kind == 2) {
      out.line(paragraph(
          "The table below shows the production impacts scaled up for different time horizons."));
      grid_table_horizons(ex.production_summary_table, out, 1, id, kind, 2);
      out.line(paragraph("Detailed production impact data:"));
      out.line(paragraph("Total:"));
      const GridTable production = with_reference_numbers(
          ex.production_activity_table, production_refs_column(), report_references());
      grid_table_detail_plain(production, out, 1, 1);
      out.line(paragraph("Per hectare:"));
      grid_table_detail_plain(production, out, 1, 2);
    }
  } else {
    out.line(paragraph(kNoData));
  }

  practicality_section(out, id);
  properties_sections(out, id, in_file);

  if (kind == 1) {
    out.line("<hr>");
    icon_row(out, id, in_file);
  } else {
    references_section(out);
  }
  page_footer(out);

  if (kind == 1) {
    ui.navigate("explorer", file);
  } else {
    ui.set_timer([&ui] {
      explorer_window().report_made_at = explorer_window().recalculations;
      ui.show_window("report");
      ui.navigate("report", "detailed_report.htm");
    });
  }
}

}  // namespace arven

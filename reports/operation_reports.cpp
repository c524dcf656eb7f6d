#include "reports/operation_reports.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "core/lookups.h"
#include "core/numbers.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "reports/charts.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/page_kit.h"
#include "stores/db.h"

namespace arven {

namespace {

constexpr std::string_view kTableOpen =
    R"(<table border="1" cellpadding="3" cellspacing="0" width="100%" bordercolor="#808080">)";
constexpr const char* kBoundaryLabel = "Boundary feature (average field size)";
constexpr const char* kNoData = "No data";

// ---- small writers ----

std::string paragraph(std::string_view text) {
  return "<p><font face=\"Verdana\"><small>" + std::string(text) + "</small></font></p>";
}

// A page's heading: Arial size 4, bold.
std::string big_heading(std::string_view text) {
  return "<p><font face=\"Arial\" size=\"4\"><strong>" + std::string(text) + "</strong></font></p>";
}

// A section's or a list page's heading: Arial, bold.
std::string section_heading(std::string_view text) {
  return "<p><font face=\"Arial\"><strong>" + std::string(text) + "</strong></font></p>";
}

std::string cell(std::string_view content, std::string_view td_attrs = "") {
  std::string body = content.empty() ? std::string("&nbsp;") : std::string(content);
  return "<td valign=\"top\"" + std::string(td_attrs) + "><font face=\"Verdana\"><small>" + body +
         "</small></font></td>";
}

std::string head_cell(std::string_view content, std::string_view td_attrs = "") {
  return cell("<strong>" + std::string(content) + "</strong>", td_attrs);
}

void table_row(PageFile& out, std::initializer_list<std::string> cells) {
  out.line("<tr>");
  for (const std::string& c : cells) out.line(c);
  out.line("</tr>");
}

std::string link(const std::string& target, std::string_view text) {
  return "<a href=" + target + ">" + std::string(text) + "</a>";
}

std::string id_text(int64_t id) {
  return std::to_string(id);
}

// ---- values of stores ----

// A list cell of a stored figure: its cell text, "0" when the field is empty.
std::string figure_cell(const Value& v) {
  return v.is_empty() ? "0" : number_to_cell(v.as_double());
}

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

void head_list(GridTable& grid, std::initializer_list<const char*> titles) {
  grid.clear();
  grid.resize(1, static_cast<int>(titles.size()));
  int c = 0;
  for (const char* t : titles) grid.cell(0, c++) = t;
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
  return "<td align=\"center\" valign=\"top\"><a href=" + target + "><img src=\"" + image +
         "\" width=\"48\" height=\"48\" border=\"0\" alt=\"" + label +
         "\"></a><br><font face=\"Verdana\"><small><small>" + label +
         "</small></small></font></td>";
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

std::string euro(std::string_view cell_text) {
  auto v = parse_number(cell_text);
  return "€" + format_fixed_cell(v ? *v : 0, 0);
}

std::string quality_text(double q) {
  return number_to_cell(q);
}

void references_section(PageFile& out) {
  const ExplorerState& ex = explorer_state();
  std::vector<ListItem> refs;
  auto collect = [&refs](const GridTable& t, int col) {
    if (col >= t.cols()) return;
    for (int r = 1; r < t.rows(); ++r) add_refs_to_list(t.cell(r, col), refs, false);
  };
  collect(ex.ghg_activity_table, 18);
  collect(ex.adaptation_activity_table, ex.adaptation_shape == AdaptationShape::loaded ? 5 : 7);
  collect(ex.production_activity_table, 17);
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
  row("TEA Cost (€)", field_text(p.tea_cost));
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
  row("Cost - annual area (per ha) (€)", field_text(p.cost));
  row("Cost - single investment (€)", field_text(p.cost_single));
  out.line("</table>");
}

// ---- general page pieces ----

void operation_list_table(PageFile& out, const std::vector<std::pair<int64_t, std::string>>& ops) {
  out.line(kTableOpen);
  for (const auto& [id, name] : ops)
    table_row(out, {cell(link(id_text(id) + ".zzz", html_escape(name))),
                    cell(link(id_text(id) + ".xxx", "SELECT"))});
  out.line("</table>");
}

// The operations of a measure or type node, as the store lists them.
std::vector<std::pair<int64_t, std::string>> group_operations(int64_t group_id, TreeViewKind view) {
  std::vector<std::pair<int64_t, std::string>> ops;
  Db store = Db::open(session().ops_db_path);
  std::string sql;
  if (view == TreeViewKind::categories) {
    sql =
        "SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" WHERE \"Operation Type "
        "ID\" = ? ORDER BY rowid";
  } else {
    const char* link_table =
        view == TreeViewKind::measures ? "Operations_Measures" : "Operations_New_Measures";
    // Only operations with activity deltas, that is with data to report.
    sql = "SELECT m.\"Operation ID\", o.\"Operation Name\" FROM " + quote_name(link_table) +
          " m JOIN \"Operations\" o ON o.\"Operation ID\" = m.\"Operation ID\" WHERE m.\"Measure "
          "ID\" = ? AND EXISTS (SELECT 1 FROM \"Operation_Activity_Delta\" d WHERE d.\"Operation "
          "ID\" = m.\"Operation ID\") ORDER BY m.rowid";
  }
  auto q = store.query(sql, {Value(group_id)});
  while (q.next()) ops.emplace_back(q.get(0).as_int(), q.get(1).as_text());
  return ops;
}

struct ActivityRange {
  int64_t activity_id = 0;
  double min = 0, max = 0;
};

void ranges_sections(PageFile& out, const Db& store, int64_t id) {
  // The operation's activities in the order of their delta rows, with every
  // numeric delta; the marker row of a class-by-class delta is skipped, its
  // class rows carry the numbers.
  std::vector<int64_t> activities;
  std::map<int64_t, std::vector<double>> deltas;
  {
    auto q = store.query(
        "SELECT \"Activity ID\", \"Delta\" FROM \"Operation_Activity_Delta\" WHERE \"Operation "
        "ID\" = ? ORDER BY rowid",
        {Value(id)});
    while (q.next()) {
      const int64_t a = q.get(0).as_int();
      if (!deltas.count(a)) activities.push_back(a);
      auto& list = deltas[a];
      const Value d = q.get(1);
      if (d.is_int() || d.is_real()) {
        list.push_back(d.as_double());
      } else if (auto v = parse_number(d.as_text())) {
        // parse_number reads '.' as well as the locale's separator.
        list.push_back(*v);
      }
    }
  }

  out.line(section_heading("Mitigation"));
  std::vector<ActivityRange> ranges;
  {
    Statement st = store.prepare_statement(
        "SELECT \"tCO2e\" FROM \"Mitigation_Activity_Emission_Factors\" WHERE \"Activity ID\" = ? "
        "ORDER BY rowid");
    for (int64_t a : activities) {
      std::optional<ActivityRange> r;
      auto& q = st.query({Value(a)});
      std::vector<double> factors;
      while (q.next()) factors.push_back(q.get(0).as_double());
      for (double d : deltas[a])
        for (double f : factors) {
          const double v = d * f;
          if (!r)
            r = ActivityRange{a, v, v};
          else
            r->min = std::min(r->min, v), r->max = std::max(r->max, v);
        }
      if (r) ranges.push_back(*r);
    }
  }
  if (ranges.empty()) {
    out.line(paragraph(kNoData));
  } else {
    out.line(kTableOpen);
    table_row(out, {head_cell("Activity/feature"), head_cell("Range (tCO2e/ha)")});
    for (const ActivityRange& r : ranges)
      table_row(out, {cell(html_escape(activity_name(r.activity_id).as_text())),
                      cell(format_fixed_cell(r.min, 3) + " to " + format_fixed_cell(r.max, 3))});
    out.line("</table>");
  }

  out.line(section_heading("Adaptation"));
  std::vector<std::array<std::string, 3>> impacts;
  {
    Statement st = store.prepare_statement(
        "SELECT \"RVC ID\", \"Impact factor\" FROM \"Adaptation_Activity_Impact_Factors\" WHERE "
        "\"Activity ID\" = ? ORDER BY rowid");
    for (int64_t a : activities) {
      auto& q = st.query({Value(a)});
      std::vector<std::pair<int64_t, Value>> rows;
      while (q.next()) rows.emplace_back(q.get(0).as_int(), q.get(1));
      if (rows.empty()) continue;
      const std::string name = html_escape(activity_name(a).as_text());
      for (const auto& [rvc, factor] : rows) {
        std::string impact;
        try {
          impact = html_escape(rvc_field(rvc, 7).as_text());
        } catch (const StoreError&) {
          impact = "RVC " + id_text(rvc);
        }
        impacts.push_back({name, impact, field_text(factor)});
      }
    }
  }
  if (impacts.empty()) {
    out.line(paragraph(kNoData));
  } else {
    out.line(kTableOpen);
    table_row(out,
              {head_cell("Activity/feature"), head_cell("Impact"), head_cell("Impact factor")});
    for (const auto& i : impacts) table_row(out, {cell(i[0]), cell(i[1]), cell(i[2])});
    out.line("</table>");
  }

  out.line(section_heading("Productivity"));
  out.line(paragraph(kNoData));
  out.line(section_heading("Practicality"));
  out.line(paragraph(kNoData));
}

}  // namespace

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
  head_list(w.MSFlexGrid12, {"Operation ID", "Operation name", "Regional impact / ha",
                             "Regional impact (total)", "Data Quality"});
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
  const char* field = w.ranking_mode == 2 ? "Regional impact ha" : "Regional impact total";
  const char* adapt_field = "Regional risk reduction total";
  const std::string select =
      "SELECT \"Operation ID\", \"Impact type\", \"Regional impact ha\", \"Regional impact "
      "total\", \"Regional risk reduction total\", \"Data_Quality\" FROM \"Operation-Impact "
      "data\" ";

  std::vector<double> mitigation_values, adaptation_values, production_values;
  auto add_figures = [&](GridTable& grid, Rows& q) {
    const int r = grid.add_row();
    grid.cell(r, 0) = q.get("Operation ID").as_text();
    grid.cell(r, 1) = name_of(q.get("Operation ID").as_int());
    grid.cell(r, 2) = figure_cell(q.get("Regional impact ha"));
    grid.cell(r, 3) = figure_cell(q.get("Regional impact total"));
    grid.cell(r, 4) = figure_cell(q.get("Data_Quality"));
  };
  {
    auto q = db.query(select + "WHERE \"Time horizon\" = ? ORDER BY rowid", {Value(s.ranking_TH)});
    while (q.next()) {
      const int64_t type = q.get("Impact type").as_int();
      if (type == 1) {
        add_figures(w.MSFlexGrid3, q);
        mitigation_values.push_back(q.get(field).as_double());
      } else if (type == 4) {
        add_figures(w.MSFlexGrid12, q);
        production_values.push_back(q.get(field).as_double());
      }
    }
  }
  {
    // Adaptation has one time horizon only.
    auto q = db.query(select + "WHERE \"Time horizon\" = 1 ORDER BY rowid");
    while (q.next()) {
      if (q.get("Impact type").as_int() != 2) continue;
      GridTable& g = w.MSFlexGrid4;
      const int r = g.add_row();
      g.cell(r, 0) = q.get("Operation ID").as_text();
      g.cell(r, 1) = name_of(q.get("Operation ID").as_int());
      g.cell(r, 2) = figure_cell(q.get(adapt_field));
      g.cell(r, 3) = figure_cell(q.get("Data_Quality"));
      adaptation_values.push_back(q.get(adapt_field).as_double());
    }
  }
  const double mitigation_scale = largest_magnitude(mitigation_values);
  const double adaptation_scale = largest_magnitude(adaptation_values);
  const double production_scale = largest_magnitude(production_values);

  Statement horizon_row = db.prepare_statement(
      select +
      "WHERE \"Operation ID\" = ? AND \"Impact type\" = ? AND \"Time horizon\" = ? ORDER BY rowid "
      "LIMIT 1");
  Statement adaptation_row = db.prepare_statement(
      select + "WHERE \"Operation ID\" = ? AND \"Impact type\" = 2 ORDER BY rowid LIMIT 1");
  auto figure = [](Rows& q, const char* value_field) {
    ScoreFigure f;
    if (q.next()) {
      f.value = q.get(value_field).as_double();
      f.quality = q.get("Data_Quality").as_double();
    }
    return f;
  };
  for (const auto& [id, name] : operations) {
    const ScoreFigure mitigation =
        figure(horizon_row.query({Value(id), Value(1), Value(s.ranking_TH)}), field);
    const ScoreFigure adaptation = figure(adaptation_row.query({Value(id)}), adapt_field);
    const ScoreFigure production =
        figure(horizon_row.query({Value(id), Value(4), Value(s.ranking_TH)}), field);
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
  bool any = false;
  for (int i = 0; i < static_cast<int>(tree.nodes.size()); ++i) {
    if (!tree.is_operation(i)) continue;
    if (!any) out.line(kTableOpen);
    any = true;
    const std::string id = id_text(tree.operation_id(i));
    table_row(out, {cell(link(id + ".zzz", html_escape(tree.nodes[static_cast<size_t>(i)].text))),
                    cell(link(id + ".yyy", "REMOVE"))});
  }
  if (any) {
    out.line("</table>");
    out.line(paragraph(link("remove.rem", "REMOVE ALL")));
  }
  page_footer(out);
  ui.navigate("explorer", "oplist.htm");
}

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
  if (has_ghg) chart_impact_columns(out, ex.ghg_summary_table, 1, true);
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
    ghg_range = number_to_cell(range->first) + " to " + number_to_cell(range->second) + " tCO2e";
  summary_row("Mitigation (1 year to 250 years)", has_ghg && !ghg_range.empty(), ghg_range,
              ex.dq_ghg);
  summary_row("Adaptation (regional risk reduction)", has_adaptation,
              format_fixed_cell(ex.risk_reduction_sum, 1), ex.dq_adaptation);
  summary_row("Production (total per annum)", has_production,
              euro(summary_cell(ex.production_summary_table, 1, 1)), ex.dq_production);
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
      grid_table_detail(ex.ghg_activity_table, out, 1, 1);
      out.line(paragraph("Per hectare:"));
      grid_table_detail(ex.ghg_activity_table, out, 1, 2);
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
    table_row(out, {cell("Risk reduction:"), cell(format_fixed_cell(ex.risk_reduction_sum, 1))});
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
      grid_table_adaptation(ex.adaptation_activity_table, out, 1,
                            ex.adaptation_shape == AdaptationShape::loaded ? 2 : 1);
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
                    cell(euro(summary_cell(ex.production_summary_table, 1, 1)))});
    table_row(out, {cell("Production impact per hectare per annum:"),
                    cell(euro(summary_cell(ex.production_summary_table, 2, 1)))});
    if (kind == 2) table_row(out, {cell("&nbsp;"), cell(link(ids + ".rep", "Regional breakdown"))});
    out.line("</table>");
    if (kind == 2) {
      out.line(paragraph(
          "The table below shows the production impacts scaled up for different time horizons."));
      grid_table_horizons(ex.production_summary_table, out, 1, id, kind, 2);
      out.line(paragraph("Detailed production impact data:"));
      out.line(paragraph("Total:"));
      grid_table_detail_plain(ex.production_activity_table, out, 1, 1);
      out.line(paragraph("Per hectare:"));
      grid_table_detail_plain(ex.production_activity_table, out, 1, 2);
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
      ui.show_window("report");
      ui.navigate("report", "detailed_report.htm");
    });
  }
}

// ---- the page of a catalogue node ----

void operation_general_html_hub(Ui& ui, const Tree& tree, TreeViewKind view) {
  wait_page("summary.htm", "Retrieving data...");
  ui.navigate("explorer", "summary.htm");

  PageFile out("operation.htm");
  page_header_showhide(out);
  const int sel = tree.selected;
  if (sel >= 0 && sel < static_cast<int>(tree.nodes.size())) {
    const TreeNode& node = tree.nodes[static_cast<size_t>(sel)];
    if (tree.is_operation(sel)) {
      const int64_t id = tree.operation_id(sel);
      std::string name;
      try {
        name = operation_name(id).as_text();
      } catch (const StoreError&) {
        name = node.text;
      }
      out.line(big_heading(html_escape(name)));
      out.line(paragraph(
          "No region is currently selected, so a carbon balance cannot be calculated. A range of "
          "data is presented instead."));
      {
        Db store = Db::open(session().ops_db_path);
        ranges_sections(out, store, id);
      }
      if (!session().current_file.empty()) {
        const std::string ids = id_text(id);
        out.line(paragraph(operation_in_assessment(id) ? link(ids + ".yyy", "REMOVE")
                                                       : link(ids + ".xxx", "SELECT")));
      }
    } else {
      out.line(big_heading(html_escape(node.text)));
      const bool flat = view == TreeViewKind::a_to_z || node.text.rfind("A to Z", 0) == 0 ||
                        node.text.rfind("Search results", 0) == 0;
      std::vector<std::pair<int64_t, std::string>> ops;
      if (flat) {
        for (int i = 0; i < static_cast<int>(tree.nodes.size()); ++i)
          if (tree.is_operation(i))
            ops.emplace_back(tree.operation_id(i), tree.nodes[static_cast<size_t>(i)].text);
      } else {
        ops = group_operations(tree.group_id(sel), view);
      }
      operation_list_table(out, ops);
    }
  }
  page_footer(out);
  ui.navigate("explorer", "operation.htm");
}

}  // namespace arven

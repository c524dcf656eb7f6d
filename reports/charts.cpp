#include "reports/charts.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "base/numbers.h"
#include "core/session.h"
#include "stores/db.h"

namespace arven {
namespace {

// First column of the curve points in the cost-curve tables.
constexpr int kFirstCurveColumn = 4;

// Text for a single-quoted string of the chart script. The chart library
// renders titles, category labels and series names as HTML, so the text is
// HTML-escaped first; the result can then neither end the string literal
// nor the <script> element.
std::string js_text(std::string_view text) {
  std::string out;
  for (char ch : html_escape(text)) {
    switch (ch) {
      case '\\':
        out += "\\\\";
        break;
      case '\'':
        out += "\\'";
        break;
      case '<':
        out += "\\x3c";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += ch;
    }
  }
  return out;
}

void open_script(PageFile& out) {
  out.line(R"(<script type="text/javascript" src="javascript/jquery.Min.js"></script>)");
  out.line(R"(<script type="text/javascript" src="javascript/highcharts.js"></script>)");
  // Saving as PNG or SVG and printing the chart alone, made in the page;
  // the modules come once to a page of several charts.
  if (out.first("exporting")) {
    out.line(R"(<script type="text/javascript" src="javascript/exporting.js"></script>)");
    out.line(R"(<script type="text/javascript" src="javascript/offline-exporting.js"></script>)");
  }
  out.line(R"(<script type="text/javascript">)");
  out.line("var chart;");
  out.line("$(document).ready(function() {");
  // Axis labels and tips group thousands with a comma, as the page's tables do.
  out.line("Highcharts.setOptions({lang: {thousandsSep: ','}});");
  out.line("chart = new Highcharts.Chart({");
}

void close_script(PageFile& out) {
  out.line("}]");
  out.line("});");
  out.line("});");
  out.line("</script>");
}

// A block "<key>: {" ... "}," of the given lines.
void block(PageFile& out, std::string_view key, std::initializer_list<std::string_view> lines) {
  out.line(std::string(key) + ": {");
  for (std::string_view text : lines) out.line(text);
  out.line("},");
}

void tooltip(PageFile& out, std::string_view unit) {
  block(out, "tooltip",
        {"formatter: function() {", "return ''+",
         "this.series.name +': '+ this.y +' " + std::string(unit) + "';", "}"});
}

void no_credits(PageFile& out, const ChartCaption& caption) {
  block(out, "credits", {"enabled: false"});
  // The chart's menu saves and prints in the page; nothing goes to a server.
  // A saved or printed chart stands alone, so it carries what the page
  // around it says: its title, the operation or area, the region.
  out.line("exporting: {");
  out.line("fallbackToExportServer: false,");
  if (!caption.file_name.empty()) out.line("filename: '" + js_text(caption.file_name) + "',");
  std::string options;
  if (!caption.title.empty()) options += "title: {text: '" + js_text(caption.title) + "'}";
  if (!caption.subtitle.empty())
    options += std::string(options.empty() ? "" : ", ") + "subtitle: {text: '" +
               js_text(caption.subtitle) + "'}";
  if (!options.empty()) out.line("chartOptions: {" + options + "},");
  out.line(
      "buttons: { contextButton: { menuItems: ['printChart', 'downloadPNG', 'downloadSVG'] } }");
  out.line("},");
}
void no_legend(PageFile& out) {
  block(out, "legend", {"enabled: false"});
}

// A cell as a number of the script: always with '.', whatever the locale's
// decimal separator ("12,5" would be two array entries). "null", an empty
// cell or text that is no number leave a gap.
std::string script_number(std::string_view cell) {
  auto value = cell == "null" ? std::nullopt : parse_number(cell);
  return value ? number_to_text(*value) : "null";
}

// Cells [first, last] of row r joined by ", ", as script numbers.
std::string joined_cells(const GridTable& grid, int r, int first) {
  std::string text;
  for (int c = first; c < grid.cols(); ++c) {
    if (c > first) text += ", ";
    text += script_number(grid.cell(r, c));
  }
  return text;
}

// ---- Cost curves -----------------------------------------------------------

struct MacKind {
  std::string title;   // the whole title line
  std::string x_axis;  // the whole x axis title line
  std::string unit;    // of the y axis and the tooltip
  bool adapt;          // picks the label steps
};

// Label step for a table of `n` columns less one.
int label_step(int n, bool adapt) {
  // A short curve gets about ten labels rather than one or two.
  if (n < 100) return std::max(1, n / 10);
  if (adapt) {
    if (n <= 100) return 10;
    if (n <= 300) return 50;
    return 100;
  }
  if (n <= 300) return 10;
  if (n <= 600) return 50;
  return 100;
}

// One category per curve column; a null shows the library's running number,
// so a label appears once per step.
std::string categories_line(const GridTable& grid, bool adapt) {
  const int curve_columns = grid.cols() - kFirstCurveColumn;
  std::string text = "categories: [";
  if (curve_columns > 0) {
    const int step = label_step(grid.cols() - 1, adapt);
    text += "null";
    int counter = 0;
    for (int i = 1; i < curve_columns; ++i) {
      if (++counter == step) {
        text += ", null";
        counter = 0;
      } else {
        text += ", ' '";
      }
    }
    // A tick on every labelled column: the library's own spacing of the
    // ticks would miss most of them on a long curve.
    text += "],\ntickInterval: " + std::to_string(step) + ",";
    return text;
  }
  return text + "],";
}

std::string scale_axis_line(int64_t scale) {
  std::string_view label;
  switch (scale) {
    case 100000000:
      label = "x100 million";
      break;
    case 10000000:
      label = "x10 million";
      break;
    case 1000000:
      label = "x million";
      break;
    case 100000:
      label = "x100 thousand";
      break;
    case 10000:
      label = "x10 thousand";
      break;
    case 1000:
      label = "x thousand";
      break;
    case 100:
      label = "x hundred";
      break;
    case 10:
      label = "x ten";
      break;
    case 1:
      return "text: 'tCO2e'";
    default:
      throw std::invalid_argument("chart scale " + std::to_string(scale) +
                                  " is not a power of ten");
  }
  return "text: 'tCO2e (" + std::string(label) + ")'";
}

// The area chart of a cost curve: column 1 of each data row names a series,
// columns 4.. hold its points ("null" where the series is not drawn).
void mac_chart(PageFile& out, const GridTable& grid, const MacKind& kind,
               const ChartCaption& caption) {
  open_script(out);
  block(out, "chart", {"renderTo: 'container',", "type: 'area'"});
  block(out, "title", {kind.title});
  out.line("xAxis: {");
  out.line(categories_line(grid, kind.adapt));
  out.line("title: {");
  out.line(kind.x_axis);
  out.line("}");
  out.line("},");
  block(out, "yAxis", {"title: {", "text: '" + kind.unit + "',", "align: 'high'", "}"});
  tooltip(out, kind.unit);
  no_credits(out, caption);
  // A point per unit of risk reduction is too many markers to read the
  // curve by: the area alone shows it.
  if (kind.adapt) block(out, "plotOptions", {"area: { marker: { enabled: false } }"});
  // Many items make a long legend: it pages instead of taking the plot's room.
  block(out, "legend", {"maxHeight: 90"});
  out.line("series: [{");
  if (grid.cols() > kFirstCurveColumn) {
    for (int r = 1; r < grid.rows(); ++r) {
      if (r > 1) out.line("}, {");
      out.line("name: '" + js_text(grid.cell(r, 1)) + "',");
      out.line("data: [" + joined_cells(grid, r, kFirstCurveColumn) + "]");
    }
  }
  close_script(out);
}

std::string ghg_title(std::string_view items) {
  return "text: 'MAC (GHG) curve for RDP " + std::string(items) + " (" +
         std::to_string(session().ranking_TH) + " year time horizon)'";
}

// ---- Regional breakdown ------------------------------------------------------

struct RegionalKind {
  std::string subtitle;  // the whole subtitle line
  std::string unit;      // y axis title and series name
  std::string tooltip;   // tooltip unit
};

RegionalKind regional_kind(int impact_kind, int chart_kind) {
  if (chart_kind != 2 && chart_kind != 3)
    throw std::invalid_argument("regional chart kind " + std::to_string(chart_kind));
  const bool per_ha = chart_kind == 3;
  switch (impact_kind) {
    case 1: {
      const int years = session().cseq_years;
      return {std::string("text: 'Emissions ") + (per_ha ? "per hectare " : "") + "for " +
                  std::to_string(years) + (years == 1 ? " year'" : " years'"),
              per_ha ? "tCO2e/ha" : "tCO2e", per_ha ? "tCO2e/ha" : "tCO2e"};
    }
    case 2:
      return {per_ha ? "text: 'Risk Reduction per hectare'" : "text: 'Risk Reduction'",
              per_ha ? "Risk Reduction/ha" : "Risk Reduction",
              per_ha ? "risk reduction/ha" : "risk reduction"};
    case 4:
      return {per_ha ? "text: 'Production (€) per hectare'" : "text: 'Production (€)'",
              per_ha ? "€/ha" : "€", per_ha ? "€/ha" : "€"};
    default:
      throw std::invalid_argument("regional chart impact kind " + std::to_string(impact_kind));
  }
}

}  // namespace

void chart_mac_ghg_operations(PageFile& out, const GridTable& grid, int64_t scale,
                              const ChartCaption& caption) {
  mac_chart(out, grid, {ghg_title("Operations"), scale_axis_line(scale), "€/tCO2e", false},
            caption);
}

void chart_mac_ghg_measures(PageFile& out, const GridTable& grid, int64_t scale,
                            const ChartCaption& caption) {
  mac_chart(out, grid, {ghg_title("Measures"), scale_axis_line(scale), "€/tCO2e", false}, caption);
}

void chart_mac_adapt_operations(PageFile& out, const GridTable& grid, const ChartCaption& caption) {
  mac_chart(out, grid,
            {"text: 'MAC (ADAPT) curve for RDP Operations'", "text: 'Risk reduction'",
             "€/Risk reduction", true},
            caption);
}

void chart_mac_adapt_measures(PageFile& out, const GridTable& grid, const ChartCaption& caption) {
  mac_chart(out, grid,
            {"text: 'MAC (ADAPT) curve for RDP Measures'", "text: 'Risk reduction'",
             "€/Risk reduction", true},
            caption);
}

void chart_mac_example(PageFile& out) {
  open_script(out);
  block(out, "chart", {"renderTo: 'container',", "type: 'area'"});
  block(out, "title", {"text: 'MACC curve'"});
  block(out, "xAxis", {"categories: [null, null, null],", "title: {", "text: 'tCO2e'", "}"});
  block(out, "yAxis", {"title: {", "text: '£/tCO2e',", "align: 'high'", "}"});
  tooltip(out, "£/tCO2e");
  no_credits(out, {});
  out.line("series: [{");
  out.line("name: 'A',");
  out.line("data: [-5, -5, null, null, null, null, null, null]");
  out.line("}, {");
  out.line("name: 'B',");
  out.line("data: [null, 3, 3, 3, null, null, null, null]");
  out.line("}, {");
  out.line("name: 'C',");
  out.line("data: [null, null, null, 6, 6, 6, 6, null]");
  close_script(out);
}

void chart_regional_bar(PageFile& out, const GridTable& grid, const std::string& operation_name,
                        int impact_kind, int chart_kind, const ChartCaption& caption) {
  const RegionalKind kind = regional_kind(impact_kind, chart_kind);
  std::string categories;
  for (int r = 1; r < grid.rows(); ++r) {
    std::string name = grid.cell(r, 1);
    for (char& ch : name)
      if (ch == '\'') ch = ' ';
    if (r > 1) categories += ", ";
    categories += "'" + js_text(name) + "'";
  }
  std::string values;
  for (int r = 1; r < grid.rows(); ++r) {
    if (r > 1) values += ", ";
    values += script_number(grid.cell(r, chart_kind));
  }

  open_script(out);
  block(out, "chart", {"renderTo: 'container',", "defaultSeriesType: 'bar'"});
  block(out, "title",
        {"text: 'Regional breakdown for " +
         js_text(operation_name.empty() ? "Unknown farm" : operation_name) + "'"});
  block(out, "subtitle", {kind.subtitle});
  out.line("xAxis: {");
  if (impact_kind == 1) {
    out.line("title: {");
    out.line("text: 'Time horizon " + std::to_string(session().cseq_years) + " years'");
    out.line("},");
  }
  out.line("categories: [" + categories + "],");
  out.line("title: {");
  out.line("text: null");
  out.line("}");
  out.line("},");
  block(out, "yAxis", {"title: {", "text: '" + kind.unit + "',", "align: 'high'", "}"});
  tooltip(out, kind.tooltip);
  no_legend(out);
  no_credits(out, caption);
  out.line("series: [{");
  out.line("name: '" + kind.unit + "',");
  out.line("data: [" + values + "]");
  close_script(out);
}

namespace {

// Cells as script numbers joined by ", ".
std::string joined_numbers(const std::vector<std::string>& cells) {
  std::string text;
  for (size_t i = 0; i < cells.size(); ++i) text += (i ? ", " : "") + script_number(cells[i]);
  return text;
}

// The head of a chart of one bar or column per name, up to the opening of
// its first series, named after the unit.
void named_series_head(PageFile& out, const char* type, const std::string& title,
                       const std::string& subtitle, const std::vector<std::string>& names,
                       const std::string& unit, bool legend, const ChartCaption& caption) {
  std::string categories;
  for (size_t i = 0; i < names.size(); ++i)
    categories += (i ? ", '" : "'") + js_text(names[i]) + "'";
  open_script(out);
  block(out, "chart", {"renderTo: 'container',", "defaultSeriesType: '" + std::string(type) + "'"});
  block(out, "title", {"text: '" + js_text(title) + "'"});
  block(out, "subtitle", {"text: '" + js_text(subtitle) + "'"});
  block(out, "xAxis", {"categories: [" + categories + "],", "title: {", "text: null", "}"});
  block(out, "yAxis", {"title: {", "text: '" + js_text(unit) + "',", "align: 'high'", "}"});
  tooltip(out, js_text(unit));
  if (!legend) no_legend(out);
  no_credits(out, caption);
  out.line("series: [{");
  out.line("name: '" + js_text(unit) + "',");
}

}  // namespace

void chart_bars(PageFile& out, const std::string& title, const std::string& subtitle,
                const std::vector<std::string>& names, const std::vector<std::string>& values,
                const std::string& unit, const ChartCaption& caption) {
  named_series_head(out, "bar", title, subtitle, names, unit, false, caption);
  out.line("data: [" + joined_numbers(values) + "]");
  close_script(out);
}

void chart_columns_with_intervals(PageFile& out, const std::string& title,
                                  const std::string& subtitle,
                                  const std::vector<std::string>& names,
                                  const std::vector<std::string>& values,
                                  const std::vector<std::string>& lows,
                                  const std::vector<std::string>& highs, const std::string& unit,
                                  const ChartCaption& caption) {
  named_series_head(out, "column", title, subtitle, names, unit, true, caption);
  out.line("data: [" + joined_numbers(values) + "]");
  out.line("}, {");
  out.line("type: 'scatter', name: '5 %', marker: {symbol: 'triangle-down'},");
  out.line("data: [" + joined_numbers(lows) + "]");
  out.line("}, {");
  out.line("type: 'scatter', name: '95 %', marker: {symbol: 'triangle'},");
  out.line("data: [" + joined_numbers(highs) + "]");
  close_script(out);
}

void chart_impact_columns(PageFile& out, const GridTable& grid, int row, bool ghg,
                          const ChartCaption& caption) {
  std::string categories;
  for (int c = 1; c < grid.cols(); ++c) {
    if (c > 1) categories += ", ";
    categories += "'" + js_text(grid.cell(0, c)) + "'";
  }
  open_script(out);
  block(out, "chart", {"renderTo: 'container',", "defaultSeriesType: 'column'"});
  block(out, "title", {"text: null"});
  block(out, "xAxis",
        {"categories: [" + categories + "],", "title: {", "text: 'Time horizon (years)'", "}"});
  block(out, "yAxis",
        {"title: {", ghg ? "text: 'tCO2e'," : "text: 'Impact',", "align: 'high'", "}"});
  tooltip(out, ghg ? "tCO2e" : "impact");
  no_legend(out);
  no_credits(out, caption);
  out.line("series: [{");
  out.line("name: 'Emissions',");
  out.line("data: [" + joined_cells(grid, row, 1) + "]");
  close_script(out);
}

void chart_rvc_pie(PageFile& out, int64_t rvc_id, const std::string& short_name,
                   const std::vector<PieBand>& bands, const ChartCaption& caption) {
  std::string data;
  for (const PieBand& band : bands) {
    if (!data.empty()) data += ", ";
    data += "{name: '" + js_text(band.name) + "', y: " + script_number(band.percent) +
            ", color: '#" + js_text(band.colour) + "'}";
  }
  open_script(out);
  block(out, "chart",
        {"renderTo: 'container" + std::to_string(rvc_id) + "',", "plotBackgroundColor: null,",
         "plotBorderWidth: null,", "plotShadow: false"});
  block(out, "title", {"text: '" + js_text(short_name) + "'"});
  block(out, "tooltip",
        {"formatter: function() {", "return '<b>'+ this.point.name +'</b>: '+ this.y +' %';", "}"});
  block(out, "plotOptions",
        {"pie: {", "allowPointSelect: true,", "cursor: 'pointer',", "dataLabels: {",
         "enabled: false", "},", "showInLegend: false", "}"});
  no_credits(out, caption);
  out.line("series: [{");
  out.line("type: 'pie',");
  out.line("name: 'Value',");
  out.line("data: [");
  if (!data.empty()) out.line(data);
  out.line("]");
  close_script(out);
}

void chart_country_budget(PageFile& out) {
  static constexpr const char* kSeries[] = {"Axis 1",
                                            "Axis 2",
                                            "Axis 3",
                                            "Axis 4",
                                            "Technical assistance",
                                            "Compliments to direct payments"};
  // The budgets are the master store's: with an assessment open, the
  // operations store in use is its country's, which has none.
  std::string path = session().ops_db_path;
  if (!Db::open(path).has_table("Countries"))
    path = (session().app_folder / "dbases" / "arven_operations.mdb").string();
  Db db = Db::open(path);
  std::string categories;
  std::vector<std::string> data(std::size(kSeries));
  auto rows = db.query("SELECT * FROM " + quote_name("Countries"));
  bool first = true;
  while (rows.next()) {
    categories += (first ? "'" : ", '") + js_text(rows.get("Country name").as_text()) + "'";
    for (size_t i = 0; i < std::size(kSeries); ++i) {
      Value v = rows.get(kSeries[i]);
      data[i] += (first ? "" : ", ") +
                 (v.is_empty() ? std::string("null") : number_to_text(v.as_double()));
    }
    first = false;
  }
  open_script(out);
  block(out, "chart", {"renderTo: 'container',", "defaultSeriesType: 'bar'"});
  block(out, "title", {"text: 'EU Member States RDP Budget'"});
  block(out, "subtitle", {"text: '2007-2013'"});
  block(out, "xAxis", {"categories: [" + categories + "]"});
  block(out, "yAxis", {"min: 0,", "title: {", "text: 'Euros',", "}"});
  tooltip(out, "Euros");
  block(out, "legend", {"backgroundColor: '#FFFFFF',", "reversed: true"});
  out.line("plotOptions: {");
  block(out, "series", {"stacking: 'normal'"});
  out.line("},");
  out.line("series: [{");
  for (size_t i = 0; i < std::size(kSeries); ++i) {
    if (i) out.line("}, {");
    out.line("name: '" + js_text(kSeries[i]) + "',");
    out.line("data: [" + data[i] + "]");
  }
  close_script(out);
}

std::string country_budget_page() {
  PageFile out("country_budget.htm");
  page_header(out, 1);
  chart_country_budget(out);
  out.line("</head>");
  out.line("<body>");
  out.line(R"(<div id="container" style="width: 900px; height: 600px; margin: 0 auto"></div>)");
  page_footer(out);
  return "country_budget.htm";
}

}  // namespace arven

#include "reports/page_kit.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/numbers.h"
#include "base/utf8.h"
#include "core/lookups.h"
#include "core/session.h"
#include "core/version.h"
#include "engine/impact_context.h"
#include "reports/rvc_stores.h"
#include "stores/db.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kTableOpen =
    R"(<table border="1" cellpadding="3" cellspacing="0" width="100%" bordercolor="#808080">)";

// The text wrapper of a size code.
std::pair<std::string_view, std::string_view> size_wrap(int size) {
  if (size == 0) return {"<small><small>", "</small></small>"};
  if (size == 1) return {"<small>", "</small>"};
  return {"", ""};
}

// One table cell: `<td valign="top"` + attributes, the font, the size
// wrapper and the content. The content is written as it stands.
std::string cell_line(std::string_view content, int size, std::string_view td_attrs = "") {
  auto [open, close] = size_wrap(size);
  std::string out = "<td valign=\"top\"";
  out += td_attrs;
  out += "><font face=\"Verdana\">";
  out += open;
  out += content;
  out += close;
  out += "</font></td>";
  return out;
}

// Cell text with the head row in bold; an empty cell prints "&nbsp;".
std::string cell_text(std::string_view text, bool head) {
  std::string body = text.empty() ? std::string("&nbsp;") : std::string(text);
  return head ? "<strong>" + body + "</strong>" : body;
}

std::string grid_cell(const GridTable& grid, int r, int c, int size) {
  return cell_line(cell_text(grid.cell(r, c), r == 0), size);
}

// A body cell whose figure is shown with the decimals of its column's head.
std::string figure_cell(const GridTable& grid, int r, int c, int size) {
  if (r == 0) return grid_cell(grid, r, c, size);
  return cell_line(
      cell_text(display_figure(grid.cell(r, c), display_places(grid.cell(0, c))), false), size);
}

// Rows 0.. of the grid, columns [0, end). Figures keep the decimals of their
// cells when `by_head` is false (tables by horizon, already rounded), and
// take their column's when it is true.
void plain_rows(const GridTable& grid, PageFile& out, int size, int end, bool by_head) {
  for (int r = 0; r < grid.rows(); ++r) {
    // A row by horizon shows all its figures with the decimals of its most
    // precise cell, so -238 stands as -238.0 beside -4.5.
    int row_places = 0;
    for (int c = 1; c < end && !by_head && r > 0; ++c)
      if (parse_number(grid.cell(r, c)))
        row_places = std::max(row_places, cell_places(grid.cell(r, c)));
    out.line("<tr>");
    for (int c = 0; c < end; ++c) {
      if (r == 0 || c == 0)
        out.line(grid_cell(grid, r, c, size));
      else if (by_head)
        out.line(figure_cell(grid, r, c, size));
      else
        out.line(cell_line(cell_text(display_figure(grid.cell(r, c), row_places), false), size));
    }
    out.line("</tr>");
  }
}

// Which 0..4 bar a score falls in: at most 1, 2, 3, 4, or above.
int bar_number(double score) {
  if (score <= 1) return 1;
  if (score <= 2) return 2;
  if (score <= 3) return 3;
  if (score <= 4) return 4;
  return 5;
}

// Detail tables: columns 1 up to the one before the last, less the per
// hectare (mode 1) or total (mode 2) column of each horizon.
std::vector<int> detail_columns(const GridTable& grid, int mode) {
  std::vector<int> cols;
  for (int c = 1; c < grid.cols() - 1; ++c) {
    bool skip =
        (mode == 1 && c % 2 == 0 && c <= 14) || (mode == 2 && c % 2 == 1 && c >= 3 && c <= 15);
    if (!skip) cols.push_back(c);
  }
  return cols;
}

void detail_table(const GridTable& grid, PageFile& out, int size, int mode, bool with_notes) {
  std::vector<int> cols = detail_columns(grid, mode);
  bool any_marked = false;
  out.line(kTableOpen);
  for (int r = 0; r < grid.rows(); ++r) {
    bool marked = false;
    if (with_notes && r > 0 && grid.cols() >= 3) {
      const std::string& carbon = grid.cell(r, grid.cols() - 3);
      marked = !carbon.empty() && cell_to_number(carbon) > 0;
    }
    any_marked = any_marked || marked;
    // The figures of a row by horizon share the decimals of its most
    // precise cell, as the tables by horizon do: -0.440 beside -2.200. The
    // carbon column is a flag, not a figure.
    const int carbon_col = with_notes ? grid.cols() - 3 : -1;
    auto is_figure = [&](int c) { return c > 1 && c != cols.back() && c != carbon_col; };
    int row_places = 0;
    for (int c : cols)
      if (r > 0 && is_figure(c) && parse_number(grid.cell(r, c)))
        row_places = std::max(row_places, cell_places(grid.cell(r, c)));
    out.line("<tr>");
    for (int c : cols) {
      std::string text = grid.cell(r, c);
      if (r > 0 && c == cols.back()) {
        out.line(cell_line(data_quality_bar(text), size));
        continue;
      }
      if (r > 0 && c > 1) text = display_figure(text, is_figure(c) ? row_places : -1);
      if (marked && c == 1) text += " ¹";
      out.line(cell_line(cell_text(text, r == 0), size));
    }
    out.line("</tr>");
  }
  if (any_marked) {
    std::string note =
        session().cseq_included == 1
            ? "¹ Carbon sequestration is included in the carbon balance for the operation."
            : "¹ Carbon sequestration is excluded from the carbon balance for the operation.";
    out.line("<tr>");
    out.line(cell_line("<strong>Notes</strong><br>" + note, size, " colspan=\"17\""));
    out.line("</tr>");
  }
  out.line("</table>");
}

// One cell of the link table: the state a click selects, the arrow, the text.
struct SortLink {
  int target;
  bool up;
  const char* text;
};

constexpr const char* kLH = "Sort Low to High";
constexpr const char* kHL = "Sort High to Low";
constexpr const char* kAZ = "Sort A to Z";
constexpr const char* kZA = "Sort Z to A";
constexpr bool kUp = true;
constexpr bool kDown = false;

// Rows: current state 1..10; columns 1..5. States 7 and 9 share a row on
// purpose: either sort offers the descending click on columns 4 and 5.
// clang-format off
constexpr SortLink kSortLinks[10][5] = {
    /*  1 */ {{2, kUp, kZA}, {3, kDown, kLH}, {5, kDown, kLH}, {7, kDown, kLH}, {9, kDown, kLH}},
    /*  2 */ {{1, kDown, kAZ}, {3, kDown, kLH}, {5, kDown, kLH}, {7, kDown, kLH}, {9, kDown, kLH}},
    /*  3 */ {{1, kDown, kAZ}, {4, kUp, kHL}, {5, kDown, kLH}, {7, kDown, kLH}, {9, kDown, kLH}},
    /*  4 */ {{1, kDown, kAZ}, {3, kDown, kLH}, {5, kDown, kLH}, {7, kDown, kLH}, {9, kDown, kLH}},
    /*  5 */ {{1, kDown, kAZ}, {3, kDown, kLH}, {6, kUp, kHL}, {7, kDown, kLH}, {9, kDown, kLH}},
    /*  6 */ {{1, kDown, kAZ}, {3, kDown, kLH}, {5, kDown, kLH}, {7, kDown, kLH}, {9, kDown, kLH}},
    /*  7 */ {{1, kDown, kAZ}, {3, kDown, kLH}, {5, kDown, kLH}, {8, kUp, kHL}, {10, kUp, kHL}},
    /*  8 */ {{1, kDown, kAZ}, {3, kDown, kLH}, {5, kDown, kLH}, {7, kDown, kLH}, {9, kDown, kLH}},
    /*  9 */ {{1, kDown, kAZ}, {3, kDown, kLH}, {5, kDown, kLH}, {8, kUp, kHL}, {10, kUp, kHL}},
    /* 10 */ {{1, kDown, kAZ}, {3, kDown, kLH}, {5, kDown, kLH}, {7, kDown, kLH}, {9, kDown, kLH}},
};
// clang-format on

const SortLink& sort_link_of(int state, int column) {
  if (state < 1 || state > 10)
    throw std::out_of_range("sort state " + std::to_string(state) + " is not 1 to 10");
  return kSortLinks[state - 1][column - 1];
}

std::string sort_href(const SortLink& l, int grid_number) {
  return "sort." + std::to_string(l.target) + "s" + std::to_string(grid_number);
}

std::string sort_link(int state, int column, int grid_number) {
  const SortLink& l = sort_link_of(state, column);
  return "&nbsp;<a href=" + sort_href(l, grid_number) +
         "><img src=" + (l.up ? "graphics/sorted_up.gif" : "graphics/sorted_down.gif") + " alt=\"" +
         l.text + "\" title=\"" + l.text + "\" border=0></a>";
}

// A column's title, a link that sorts as its arrow does: the arrow alone is
// a small thing to hit.
std::string sort_title(std::string_view title, int state, int column, int grid_number) {
  const SortLink& l = sort_link_of(state, column);
  return "<a href=" + sort_href(l, grid_number) + " title=\"" + l.text + "\">" +
         cell_text(title, true) + "</a>";
}

}  // namespace

std::string page_paragraph(std::string_view text) {
  return "<p><font face=\"Verdana\"><small>" + std::string(text) + "</small></font></p>";
}

std::string page_heading(std::string_view text) {
  return "<p><font face=\"Arial\" size=\"4\"><strong>" + std::string(text) + "</strong></font></p>";
}

void no_ops_selected_html(Ui& ui) {
  PageFile out("summary.htm");
  page_header(out, 0);
  out.line(page_heading("No Operations Selected"));
  out.line(page_paragraph("Please select some operations from the 'All' tab."));
  page_footer(out);
  ui.navigate("explorer", "summary.htm");
}

// ---- figures ----

int cell_places(std::string_view cell) {
  auto sep = cell.find_first_of(".,");
  if (sep == std::string_view::npos) return 0;
  auto digits = cell.substr(sep + 1);
  if (digits.find_first_of("eE") != std::string_view::npos) return 3;
  auto end = digits.find_first_not_of("0123456789");
  return static_cast<int>(std::min<size_t>(3, end == std::string_view::npos ? digits.size() : end));
}

std::string display_figure(std::string_view cell, int places) {
  auto v = parse_number(cell);
  if (!v) return std::string(cell);
  return format_display(*v, places < 0 ? cell_places(cell) : places);
}

int display_places(std::string_view head) {
  auto has = [head](std::string_view part) { return head.find(part) != std::string_view::npos; };
  if (has("/ha") || has("/ ha") || has("per ha") || has("hectare")) return 3;
  if (has("€) /")) return 2;
  if (has("isk reduction") || has("Adaptive Capacity") || has("Data Quality")) return 1;
  return 0;
}

// ---- bars ----

std::string data_quality_bar(std::string_view score_text) {
  double score = score_text.empty() || score_text == "&nbsp;" ? 0 : cell_to_number(score_text);
  // The tip says in words what the bar shows.
  const std::string n = std::to_string(bar_number(score));
  return "<img src=graphics/bar" + n + ".gif title=\"Data quality: " + n + " of 5\">";
}

std::string data_quality_bar_large(std::string_view score_text) {
  // Only the empty score counts as 0 here, "&nbsp;" does not: intended.
  double score = cell_to_number(score_text);
  const std::string text =
      "Data Quality Score: " + number_to_cell(round_half_even(score, 1)) + "/5";
  return "<img src=graphics/48bar" + std::to_string(bar_number(score)) + ".gif alt=\"" + text +
         "\" title=\"" + text + "\">";
}

// ---- tables ----

void grid_table_plain(const GridTable& grid, PageFile& out, int size) {
  out.line(kTableOpen);
  plain_rows(grid, out, size, grid.cols(), true);
  out.line("</table>");
}

void grid_table_plain_less3(const GridTable& grid, PageFile& out, int size) {
  out.line(kTableOpen);
  plain_rows(grid, out, size, grid.cols() - 3, true);
  out.line("</table>");
}

void grid_table_horizons(const GridTable& grid, PageFile& out, int size, int64_t operation_id,
                         int breakdown, int mode) {
  out.line(kTableOpen);
  out.line("<tr>");
  out.line(cell_line(cell_text("", true), size));
  out.line(
      cell_line(cell_text("Time horizon (years)", true), size, " colspan=\"7\" align=\"center\""));
  out.line("</tr>");
  plain_rows(grid, out, size, grid.cols(), false);
  if (breakdown == 2 || mode == 2) {
    out.line("<tr>");
    out.line(cell_line("&nbsp;", size));
    for (int c = 1; c < grid.cols(); ++c)
      out.line(cell_line("<a href=" + std::to_string(operation_id) + ".rg" + std::to_string(c) +
                             ">Regional breakdown</a>",
                         size));
    out.line("</tr>");
  }
  if (mode == 1) {
    out.line("<tr>");
    out.line(cell_line("&nbsp;", size));
    out.line(cell_line(session().cseq_included == 1
                           ? "Note: Carbon sequestration is included in the carbon balance for "
                             "the operation."
                           : "Note: Carbon sequestration is excluded from the carbon balance for "
                             "the operation.",
                       size, " colspan=\"7\" align=\"left\""));
    out.line("</tr>");
  }
  out.line("</table>");
}

void grid_table_detail(const GridTable& grid, PageFile& out, int size, int mode) {
  detail_table(grid, out, size, mode, true);
}

void grid_table_detail_plain(const GridTable& grid, PageFile& out, int size, int mode) {
  detail_table(grid, out, size, mode, false);
}

void grid_table_adaptation(const GridTable& grid, PageFile& out, int size, int kind) {
  // The risk reductions share the decimals of the most precise one.
  int risk_places = 0;
  for (int r = 1; r < grid.rows() && grid.cols() > 3; ++r)
    if (parse_number(grid.cell(r, 3)))
      risk_places = std::max(risk_places, cell_places(grid.cell(r, 3)));
  out.line(kTableOpen);
  for (int r = 0; r < grid.rows(); ++r) {
    out.line("<tr>");
    for (int c = 1; c < grid.cols(); ++c) {
      if (kind == 1 && (c == 4 || c == 5)) continue;
      const std::string& text = grid.cell(r, c);
      if (r > 0 && kind == 1 && c == 2) {
        auto rvc_id = static_cast<int64_t>(cell_to_number(text));
        out.line(cell_line(cell_text(html_escape(rvc_field(rvc_id, 7).as_text()), false), size));
      } else if (r > 0 && ((kind == 1 && c == 6) || (kind != 1 && c == 4))) {
        out.line(cell_line(data_quality_bar(text), size));
      } else if (r > 0 && c == 3) {
        out.line(cell_line(cell_text(display_figure(text, risk_places), false), size));
      } else {
        out.line(grid_cell(grid, r, c, size));
      }
    }
    out.line("</tr>");
  }
  out.line("</table>");
}

void grid_table_sortable(const GridTable& grid, PageFile& out, int size, int sort_state,
                         int grid_number) {
  const int last = grid.cols() - 1;
  const bool regional = grid_number == 6;
  out.line(kTableOpen);
  if (grid.rows() > 0) {
    out.line("<tr>");
    for (int c = 1; c <= last; ++c) {
      if (!regional && c == last) {
        out.line(grid_cell(grid, 0, c, size));
      } else if (c <= 5) {
        out.line(cell_line(sort_title(grid.cell(0, c), sort_state, c, grid_number) +
                               sort_link(sort_state, c, grid_number),
                           size));
      }
      // Head cells of columns above 5 are left out, so the head row is
      // shorter than the data rows: intended.
    }
    out.line("</tr>");
  }
  auto [open, close] = size_wrap(size);
  const char* suffix = grid_number == 7 || grid_number == 8 ? ".mmm" : ".zzz";
  for (int r = 1; r < grid.rows(); ++r) {
    out.line("<tr>");
    for (int c = 1; c <= last; ++c) {
      const std::string& text = grid.cell(r, c);
      if (c == 1 && !regional) {
        // The link opens outside the font and closes inside it: intended.
        out.line("<td valign=\"top\"><a href=" + grid.cell(r, 0) + suffix +
                 "><font face=\"Verdana\">" + std::string(open) + cell_text(text, false) + "</a>" +
                 std::string(close) + "</font></td>");
      } else if (c == last && !regional) {
        out.line(cell_line(data_quality_bar(text), size));
      } else if (c >= 2) {
        out.line(figure_cell(grid, r, c, size));
      } else {
        out.line(grid_cell(grid, r, c, size));
      }
    }
    out.line("</tr>");
  }
  out.line("</table>");
  if (!regional && grid.rows() > 1)
    out.line(
        "<p><font face=\"Verdana\"><small><small>Data Quality: one bar (low) to five bars "
        "(high).</small></small></font></p>");
}

// ---- RVC tables -------------------------------------------------------------

namespace {

constexpr std::string_view kWhite = " bgcolor=\"#FFFFFF\"";

std::string bgcolor(std::string_view rrggbb) {
  return " bgcolor=\"#" + std::string(rrggbb) + "\"";
}

std::string area_cell(RvcStores& stores, const std::string& key, int level) {
  const RvcKey k = parse_rvc_key(key);
  const NutsArea area = stores.area(k.country, level, k.area);
  if (!area.found) return html_escape(key);
  const std::string target = code_target(area.code);
  return "<a href=" + target + ".htm>" + html_escape(area.name) + "</a>&nbsp;<a href=" + target +
         "_details.htm>[Details]</a>";
}

void rvc_table(const GridTable& values, const GridTable& keys, PageFile& out, int size, int level,
               bool percent) {
  RvcStores stores;
  out.line(kTableOpen);
  for (int r = 0; r < values.rows(); ++r) {
    out.line("<tr>");
    const RvcKey key = r > 0 && r < keys.rows() ? parse_rvc_key(keys.cell(r, 0)) : RvcKey{};
    for (int c = 0; c < values.cols(); ++c) {
      const std::string& text = values.cell(r, c);
      if (r == 0) {
        out.line(cell_line(cell_text(text, true), size, kWhite));
      } else if (c == 0) {
        const std::string name = r < keys.rows() ? area_cell(stores, keys.cell(r, 0), level) : "";
        out.line(cell_line(cell_text(name, false), size, kWhite));
      } else if (auto value = parse_number(text)) {
        const int64_t rvc_id = c < keys.cols() ? parse_rvc_key(keys.cell(0, c)).area : 0;
        const std::string colour =
            percent ? percent_gradient_colour(*value) : stores.colour(key.country, rvc_id, *value);
        out.line(cell_line(text, size, bgcolor(colour)));
      } else {
        out.line(cell_line(cell_text(text, false), size, kWhite));
      }
    }
    out.line("</tr>");
  }
  out.line("</table>");
}

}  // namespace

std::string code_target(std::string_view code) {
  static const char* const hex = "0123456789ABCDEF";
  std::string out;
  for (unsigned char ch : code) {
    if (std::isalnum(ch) || ch == '-' || ch == '_') {
      out += static_cast<char>(ch);
    } else {
      out += '%';
      out += hex[ch >> 4];
      out += hex[ch & 15];
    }
  }
  return out;
}

void rvc_table_coloured(const GridTable& values, const GridTable& keys, PageFile& out, int size,
                        int level) {
  rvc_table(values, keys, out, size, level, false);
}

void rvc_table_percent(const GridTable& values, const GridTable& keys, PageFile& out, int size,
                       int level) {
  rvc_table(values, keys, out, size, level, true);
}

void rvc_key(PageFile& out, int size, int64_t rvc_type) {
  GridTable list(3);
  list.resize(1, 3);
  list.cell(0, 0) = "Code";
  list.cell(0, 1) = "Short name";
  list.cell(0, 2) = "Description";
  for (const RvcInfo& rvc : rvcs_of_type(Db::open(session().rvc_db_path), rvc_type)) {
    const int r = list.rows();
    list.resize(r + 1, 3);
    list.cell(r, 0) = html_escape(rvc.letter);
    list.cell(r, 1) = html_escape(rvc.short_name);
    list.cell(r, 2) = html_escape(rvc.long_name);
  }
  out.line("<p>");
  grid_table_plain(list, out, size);
  out.line("<p><font face=\"Verdana\"><strong>Colour code key</strong></font></p>");
  out.line(kTableOpen);
  out.line("<tr>");
  // The scale runs from its lowest entry beside "Low" to its highest beside
  // "High", so that the key reads as the cells are painted.
  out.line(cell_line("Low", size));
  const auto& scale = gradient_scale();
  for (auto c = scale.rbegin(); c != scale.rend(); ++c)
    out.line(cell_line("&nbsp;", size, bgcolor(*c)));
  out.line(cell_line("High", size));
  out.line("</tr>");
  out.line("</table>");
}

}  // namespace arven

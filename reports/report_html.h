#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "core/grid_table.h"
#include "reports/page_kit.h"
#include "stores/db.h"

// The small HTML writers the operation reports and lists share.
namespace arven::report_html {

// What a report shows where a store has no figure.
inline constexpr const char* kNoData = "No data";

constexpr std::string_view kTableOpen =
    R"(<table border="1" cellpadding="3" cellspacing="0" width="100%" bordercolor="#808080">)";

// ---- small writers ----

inline std::string paragraph(std::string_view text) {
  return "<p><font face=\"Verdana\"><small>" + std::string(text) + "</small></font></p>";
}

// A page's heading: Arial size 4, bold.
inline std::string big_heading(std::string_view text) {
  return "<p><font face=\"Arial\" size=\"4\"><strong>" + std::string(text) + "</strong></font></p>";
}

// A section's or a list page's heading: Arial, bold.
inline std::string section_heading(std::string_view text) {
  return "<p><font face=\"Arial\"><strong>" + std::string(text) + "</strong></font></p>";
}

inline std::string cell(std::string_view content, std::string_view td_attrs = "") {
  std::string body = content.empty() ? std::string("&nbsp;") : std::string(content);
  return "<td valign=\"top\"" + std::string(td_attrs) + "><font face=\"Verdana\"><small>" + body +
         "</small></font></td>";
}

inline std::string head_cell(std::string_view content, std::string_view td_attrs = "") {
  return cell("<strong>" + std::string(content) + "</strong>", td_attrs);
}

inline void table_row(PageFile& out, std::initializer_list<std::string> cells) {
  out.line("<tr>");
  for (const std::string& c : cells) out.line(c);
  out.line("</tr>");
}

inline std::string link(const std::string& target, std::string_view text) {
  return "<a href=" + target + ">" + std::string(text) + "</a>";
}

inline std::string id_text(int64_t id) {
  return std::to_string(id);
}

// A list cell of a stored figure: its cell text, "0" when the field is empty.
std::string figure_cell(const Value& v);

void head_list(GridTable& grid, std::initializer_list<const char*> titles);

}  // namespace arven::report_html

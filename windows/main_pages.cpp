#include "windows/main_pages.h"

#include <string>
#include <vector>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/impact_context.h"
#include "reports/page_kit.h"
#include "settings/update_check.h"
#include "stores/db.h"

namespace arven {

namespace {

void write_welcome_page(Ui& ui) {
  Session& s = session();
  if (s.update_state == 0) {
    s.update_check_silent = 1;
    SilentCheckResult check = silent_update_check(ui);
    s.update_check_silent = 0;
    s.update_state = check.updates_available ? 1 : 2;
  }
  PageFile out("welcome.htm");
  page_header(out, 1);
  // The head is never closed on this page: intended.
  out.line(R"(<body background="graphics/bk1.jpg" bgproperties="fixed">)");
  out.line(page_heading("Welcome"));
  out.line(page_paragraph(
      "This software accompanies the manual of a research project on climate change policy for "
      "rural development, which looks at how rural development programmes can take climate "
      "change into account."));
  out.line(page_paragraph(
      "The manual and software are designed to support the development of holistic Rural "
      "Development Policy (RDP) measures and operations that not only tackle rural issues, but "
      "also address climate change objectives (mitigating greenhouse gas emissions and adapting "
      "to the effects of climate change)."));
  out.line(page_paragraph(
      "Please note that the ARVEN software is a prototype tool, so please take this into account "
      "when using the tool as it may contain bugs and some caution should be applied to the use "
      "any data displayed."));
  out.line(page_paragraph(s.update_state == 1
                              ? "<a href=update.uuu>Updates are available. Click here "
                                "to find out details and download.</a>"
                              : "<a href=update.uuu>Check for updates.</a>"));
  bool any_recent = false;
  for (int i = 1; i <= 4; ++i) any_recent = any_recent || !s.recent_files[i].empty();
  if (any_recent) {
    out.line(page_paragraph("Recent files..."));
    out.line("<ul>");
    for (int i = 1; i <= 4; ++i) {
      if (s.recent_files[i].empty()) continue;
      // The whole path when it fits a line, and always in the link's tip.
      const std::string& path = s.recent_files[i];
      const std::string shown = path.size() <= 90 ? path : shorten_path(path);
      out.line("<li><font face=\"Verdana\"><small><a href=file.ff" + std::to_string(i) +
               " title=\"" + html_escape(path) + "\">" + html_escape(shown) +
               "</a></small></font></li>");
    }
    out.line("</ul>");
  }
  page_footer(out);
}

// An image link of the main page with its words beside the image, inside
// the link, and the words again as the image's tip.
std::string image_link(std::string_view target, std::string_view image, std::string_view text) {
  const std::string t(text);
  return "<a href=" + std::string(target) + "><img src=" + std::string(image) + " alt=\"" + t +
         "\" title=\"" + t + "\" border=0 align=\"middle\">&nbsp;" + t + "</a>&nbsp;&nbsp;";
}

}  // namespace

void welcome_page(Ui& ui) {
  write_welcome_page(ui);
  ui.navigate("main", "welcome.htm");
}

void summary_page(Ui& ui) {
  Session& s = session();
  wait_page("summary.htm", "Opening file...");
  ui.navigate("main", "summary.htm");
  if (s.current_file.empty()) {
    welcome_page(ui);
    return;
  }
  wait_page("working.htm", "Opening file...");
  ui.navigate("main", "working.htm");

  // Everything is read before the page is opened, so that a damaged file
  // leaves no half-written page behind.
  GridTable regions(3);
  std::vector<std::string> operations;
  {
    Db db = Db::open(s.current_file);
    auto rows = db.query("SELECT * FROM " + quote_name("Regions"));
    while (rows.next()) {
      if (regions.rows() == 0) {
        regions.add_row();
        regions.cell(0, 0) = "NUTS";
        regions.cell(0, 1) = "Region Name";
        regions.cell(0, 2) = "Area (km2)";
      }
      int r = regions.add_row();
      regions.cell(r, 0) = html_escape(rows.get("NUTS Code").as_text());
      regions.cell(r, 1) = html_escape(rows.get("NUTS Name").as_text());
      // The region's country store becomes the current RVC store.
      s.rvc_db_path = s.country_db_path.at(rows.get("NUTS0_ID").as_int());
      // A level out of 0 to 3 is the region's fault, not the store's.
      const int64_t level = rows.get("NUTS Type ID").as_int();
      engine_detail::check_level({level, rows.get("NUTS Code").as_text(), 0, 0});
      double area =
          nuts_field(static_cast<int>(level), rows.get("NUTS ID").as_int(), 3).as_double();
      regions.cell(r, 2) = number_to_cell(round_half_even(area, 0));
    }
    auto ops = db.query("SELECT * FROM " + quote_name("Operations"));
    while (ops.next()) operations.push_back(html_escape(ops.get("Operation Name").as_text()));
  }

  PageFile out("summary_display.htm");
  page_header(out, 0);
  out.line("<p>");
  out.line(image_link("edit.xx2", "graphics/edit_gif.gif", "Edit current regional profile"));
  out.line(image_link("edit.xx1", "graphics/edit_rdp_gif.gif", "Edit RDP Operations"));
  if (regions.rows() > 0) out.line(image_link("hot.hot", "graphics/hotspot.gif", "Hotspot report"));
  out.line("</p>");
  out.line(
      page_paragraph("<strong>File: </strong>" + html_escape(file_name_of(s.current_file, 1)) +
                     (s.current_file_read_only ? " (read-only: in use by another ARVEN)" : "")));
  if (regions.rows() > 0) grid_table_plain(regions, out, 1);
  if (!operations.empty()) {
    out.line(page_paragraph("<strong>Operations: </strong>"));
    out.line("<ul>");
    for (const auto& name : operations)
      out.line("<li><font face=\"Verdana\" size=\"3\">" + name + "</font></li>");
    out.line("</ul>");
  }
  page_footer(out);

  // The welcome page is kept current (and the update check run once) even
  // when a file is shown.
  write_welcome_page(ui);
  ui.navigate("main", "summary_display.htm");
}

}  // namespace arven

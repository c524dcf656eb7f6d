#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "core/grid_table.h"
#include "core/ui.h"

namespace arven {

// The RVC browser (window "rvc"): an index of the installed countries, one
// page per NUTS area with the areas below it, a detail page per area with a
// pie of each RVC's classes, and the hotspot report's pages.
//
// Pages: "index.htm", "<code>.htm", "<code>_details.htm", and the wait page
// "working.htm". Every table cell carries the colour of its value.

// The RVC Type whose RVCs the browser and the hotspot report show: the
// impacts on a risk scale.
inline constexpr int64_t kBrowserRvcType = 1;

// What the window keeps: the last detail key, the report tab on show, and
// the tables of the page being written (row 0 the heads; see
// rvc_table_coloured for the shape of the key tables).
struct RvcBrowser {
  std::string current_area;
  int tab = 1;                // 1 "hotspot_rep1.htm", 2 "hotspot_rep2.htm"
  bool report_shown = false;  // a hotspot report was written this session
  bool hotspot_running = false;
  GridTable MSFlexGrid1{1}, MSFlexGrid2{1}, MSFlexGrid4{1}, MSFlexGrid5{1};
};
RvcBrowser& rvc_browser();
void reset_rvc_browser();
// Set from any thread (the "-CANCEL-" link, closing the window); the hotspot
// run checks it between cells.
std::atomic<bool>& hotspot_cancel();

// The window opens: on the hotspot report (tab 1), on the level page of
// `area_code` when one is given, or on the index. The work runs one timer
// tick later, behind a wait page.
void rvc_browser_open(Ui& ui, int tab, const std::string& area_code);

// Writes "index.htm": the installed countries and their RVC averages.
void top_index(Ui& ui);
// Writes "<code>.htm": the breadcrumb and the areas of the next level
// within the area (a NUTS3 area lists itself).
void nuts_index(Ui& ui, const std::string& code);
// Writes "<code>_details.htm": the area's figures and a pie per RVC.
void details(Ui& ui, const std::string& code);
// The wait page, then details() one timer tick later.
void details_load(Ui& ui, const std::string& code);
// The country table of the index (the current store's RVCs).
void nuts0_overview();
// The table of the NUTS<level> areas (1..3) within the area `parent_code`.
void nuts_overview(int level, const std::string& parent_code);

// How a link of the window's pages is taken: true when it is a page to
// show as it is (served from disk), false when the window handles it.
bool rvc_link_is_page(const std::string& target);
// Whether a link is the hotspot run's cancel ("hot.hcn").
bool rvc_link_cancels(const std::string& target);
// The window's link handler; returns true when it handled (cancelled) the
// navigation. "hcn" only sets hotspot_cancel(), which the server also does
// at once.
bool dispatch_rvc_navigation(Ui& ui, const std::string& target);

}  // namespace arven

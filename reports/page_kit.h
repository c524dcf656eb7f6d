#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "core/grid_table.h"
#include "core/replace_file.h"
#include "core/ui.h"

namespace arven {

// The shared kit of every report writer: page files in the program folder,
// the head and foot of a page, GridTables as HTML tables, data-quality bars,
// sort arrows, and the shell's summary and welcome pages.
//
// Escaping rule: text that comes from a store or a file (region, operation
// and file names, risk statements, recent-file paths) is passed through
// html_escape where it enters a page or a GridTable. Grid cells are written
// by the table writers exactly as they stand, because a cell may carry markup
// of its own (a link, an image); whoever fills a grid with store text escapes
// it on the way in.
//
// Size code of the table writers: 0 wraps cell text in "<small><small>",
// 1 in "<small>", 2 in nothing.

// Text with &, <, >, " and ' replaced by entities, safe inside an element or
// a quoted attribute.
std::string html_escape(std::string_view text);

// The page text of a grid cell: a number goes through format_display with
// `places` decimals, or, when `places` is negative, with the decimals the
// cell already has (at most three); any other text is left as it stands.
std::string display_figure(std::string_view cell, int places);
// The decimals written in a number cell's text, at most three.
int cell_places(std::string_view cell);
// Decimals shown for a column of figures, judged by its head: per hectare 3,
// cost per unit 2, risk reductions, capacity and quality scores 1, other
// totals 0.
int display_places(std::string_view head);

// One generated page: a file in session().app_folder, replaced by close()
// as core/replace_file.h replaces a file, so that a page is there whole or
// not changed at all. Lines end in "\n". A failure throws FileWriteError
// naming the page and the cause ("The disk is full", "The folder ... is
// read-only").
class PageFile {
 public:
  // Starts the new session().app_folder / name beside the old one.
  explicit PageFile(std::string_view name);
  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;
  // Puts the page in place if the writer did not close it (errors are not
  // reported here); left by an exception, it leaves the old page as it was.
  ~PageFile();

  // Writes the text and a line end. Throws std::logic_error once closed.
  void line(std::string_view text);
  // Puts the page in place; throws when it could not be written.
  void close();

  bool is_open() const { return file_ != nullptr; }
  const std::filesystem::path& path() const { return path_; }

  // True the first time the page asks for `part` (a script library that a
  // page loads once, whatever number of charts it holds), false after.
  bool first(std::string_view part) { return once_.insert(std::string(part)).second; }

 private:
  void flush();

  std::filesystem::path path_;
  std::unique_ptr<ReplacingFile> file_;
  std::string pending_;  // lines not yet written
  int exceptions_ = 0;   // uncaught when the page was started
  std::set<std::string> once_;
};

// While one lives, every PageFile is written into `folder` instead of the
// program folder (the static web export writes the program's own pages
// there); the one before it is in force again when it goes.
class PageFolder {
 public:
  explicit PageFolder(std::filesystem::path folder);
  ~PageFolder();
  PageFolder(const PageFolder&) = delete;
  PageFolder& operator=(const PageFolder&) = delete;

 private:
  std::filesystem::path previous_;
};

// Where page_footer takes today's date from. An empty function restores the
// local calendar date; tests install a fixed day.
using PageDateSource = std::function<std::chrono::year_month_day()>;
void set_page_date_source(PageDateSource source);
// Today's date in the short form of the footer, "dd/mm/yyyy".
std::string page_date_text();

// The head of a page up to "</style>"; mode 0 also writes "</head>" and
// "<body>", any other mode leaves the head open for chart scripts.
void page_header(PageFile& out, int mode);
// The head with the showhide(id) script, closed, and "<body>".
void page_header_showhide(PageFile& out);
// The version and date lines, "</body>", "</html>", and closes the file.
void page_footer(PageFile& out);

// A wait page: the centred bold heading and the loading image, closed.
void wait_page(std::string_view name, std::string_view heading);

// Writes "summary.htm" saying that no operation is chosen and shows it in
// the explorer.
void no_ops_selected_html(Ui& ui);

// The small data-quality bar for a score: "<img src=graphics/barN.gif>".
// Empty text and "&nbsp;" count as 0; other text that is no number throws
// NumberError.
std::string data_quality_bar(std::string_view score_text);
// The large bar with its alt text (score to one decimal). Only empty text
// counts as 0 here; "&nbsp;" throws NumberError like any non-number.
std::string data_quality_bar_large(std::string_view score_text);

// The whole grid, rows and columns from 0; row 0 in bold.
void grid_table_plain(const GridTable& grid, PageFile& out, int size);
// As grid_table_plain without the last three columns.
void grid_table_plain_less3(const GridTable& grid, PageFile& out, int size);
// Results by time horizon under a "Time horizon (years)" head; a row of
// "Regional breakdown" links (<operation_id>.rg<column>) when `breakdown` or
// `mode` is 2, and the carbon sequestration note row when `mode` is 1.
void grid_table_horizons(const GridTable& grid, PageFile& out, int size, int64_t operation_id,
                         int breakdown, int mode);
// One impact split by horizon: mode 1 the totals, mode 2 the per-hectare
// columns; the last column is left out and the last printed one shows bars.
// Rows with a carbon figure above 0 are marked "¹" and explained in a note.
void grid_table_detail(const GridTable& grid, PageFile& out, int size, int mode);
// As grid_table_detail with no mark and no note.
void grid_table_detail_plain(const GridTable& grid, PageFile& out, int size, int mode);
// Risk reductions by RVC. Kind 1 (summary) leaves out columns 4 and 5, shows
// the risk statement of the RVC in column 2 and a bar for column 6; another
// kind shows a bar for column 4. The statement is read from
// session().rvc_db_path.
void grid_table_adaptation(const GridTable& grid, PageFile& out, int size, int kind);
// A list with sort arrows in the head (states 1..10, columns 1..5) and name
// links: <id>.mmm in grids 7 and 8, <id>.zzz in the others, plain text in
// grid 6. Column 0 is the identifier and is not shown.
void grid_table_sortable(const GridTable& grid, PageFile& out, int size, int sort_state,
                         int grid_number);

// RVC tables. `values` holds what the cells print, row 0 the heads; `keys`
// has the same shape with the "RVC ID" of each column in row 0 and each
// row's area key ("<NUTS0_ID>:<area ID>", or a bare country index) in
// column 0. Column 0 prints the area's name (NUTS<level>) linked to
// "<code>.htm", then a "[Details]" link to "<code>_details.htm"; every cell
// has a bgcolor: white for the heads, column 0 and empty cells, otherwise the
// value's colour on the RVC's own scale (coloured) or on 0..100 (percent).
// The key's country selects the store of each row.
void rvc_table_coloured(const GridTable& values, const GridTable& keys, PageFile& out, int size,
                        int level);
void rvc_table_percent(const GridTable& values, const GridTable& keys, PageFile& out, int size,
                       int level);
// The RVCs of the type (RVC_List of session().rvc_db_path) with their codes
// and names, and the colour key of 50 cells between "Low" and "High".
void rvc_key(PageFile& out, int size, int64_t rvc_type);
// A NUTS code as the target of a link: characters other than letters,
// digits, '-' and '_' are percent-encoded.
std::string code_target(std::string_view code);

// The shell's main page: wait pages, then "summary_display.htm" for the open
// assessment file, or the welcome page with none; shows the result in the
// main window. Sets session().rvc_db_path to the country store of each
// region it lists. A damaged or foreign file throws StoreError.
void summary_page(Ui& ui);
// Writes "welcome.htm" (running the silent update check once per start) and
// shows it in the main window.
void welcome_page(Ui& ui);

}  // namespace arven

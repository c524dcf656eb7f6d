#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/html_text.h"
#include "core/grid_table.h"
#include "core/page_file.h"
#include "core/ui.h"

namespace arven {

// The shared kit of every report writer (the page file, its head and foot
// are core/page_file.h): GridTables as HTML tables, data-quality bars,
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

// A heading and a paragraph in the pages' own fonts.
std::string page_heading(std::string_view text);
std::string page_paragraph(std::string_view text);

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

}  // namespace arven

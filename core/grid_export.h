#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/html_text.h"
#include "core/grid_table.h"

namespace arven {

// A GridTable written as a file: every row (titles included) and every
// column, as CSV or as an .xlsx workbook of one sheet. Cells hold page text:
// the five entities html_escape produces are turned back into their
// characters; any other text, markup included, is written as it stands. A
// cell holding "null" (no value) is written empty.

// A file that could not be written; what() names the file and the reason.
class ExportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What an exported table was made from: label and text pairs (the file,
// its regions, the time horizon, where the units stand, the date).
using ExportContext = std::vector<std::pair<std::string, std::string>>;

// RFC 4180 CSV in UTF-8: fields separated by commas, a field holding a
// comma, a quote, a CR or an LF quoted with its quotes doubled, lines ended
// by CRLF. A context comes first, one "label,text" line per pair and an
// empty line after them, so that a spreadsheet shows it above the table;
// the table's rows follow unchanged. The file is replaced as
// base/replace_file.h does; throws FileWriteError when it cannot be written.
void write_csv(const GridTable& grid, const std::filesystem::path& file,
               const ExportContext& context = {});

// An Excel workbook with one sheet named `sheet_name` (made valid by
// excel_sheet_name): the head row bold, a cell that reads as a number
// (parse_number, either decimal separator) as a number, empty and "null"
// cells blank, everything else as text; columns sized to their text.
// Replaced as write_csv replaces its file; throws FileWriteError when it
// cannot be written, ExportError when the workbook cannot be made. Columns
// marked in `text_columns` are written as text exactly as they stand, so
// that a field such as "2, 1", "007" or "null" reads back as it was.
void write_xlsx(const GridTable& grid, const std::filesystem::path& file,
                const std::string& sheet_name, const ExportContext& context = {},
                const std::vector<bool>& text_columns = {});

// One sheet of a workbook: its name (made valid by excel_sheet_name), its
// table, and its columns written as text exactly as they stand.
struct WorkbookSheet {
  std::string name;
  const GridTable* grid = nullptr;
  std::vector<bool> text_columns = {};
};

// A workbook of the sheets, in their order, each written as write_xlsx
// writes its one sheet, then the About sheet of `context` (none when it is
// empty). Sheet names must differ once made valid. Replaced and failing as
// write_xlsx.
void write_xlsx_sheets(const std::vector<WorkbookSheet>& sheets, const std::filesystem::path& file,
                       const ExportContext& context = {});

// A sheet name Excel accepts: []:*?/\ replaced by '_', apostrophes at
// either end dropped, at most 31 characters (never splitting a UTF-8
// character), "Sheet1" when nothing is left.
std::string excel_sheet_name(std::string_view name);

}  // namespace arven

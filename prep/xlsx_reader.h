#pragma once

#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace arven {

// A workbook that cannot be read: not a zip, a part missing or not XML, a
// cell reference out of range. The message names what failed.
class XlsxError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One cell as the workbook stores it. Numbers keep the text of their
// stored value ("12.5", "1E-3"); shared and inline strings are resolved;
// booleans are "0"/"1"; errors keep their code ("#DIV/0!").
struct XlsxCell {
  enum class Kind { empty, number, text, boolean, error };
  Kind kind = Kind::empty;
  std::string text;
};

// A worksheet: rows from the first (row 1 at index 0), each as long as its
// last cell; rows and cells the sheet leaves out are empty.
struct XlsxSheet {
  std::string name;
  std::vector<std::vector<XlsxCell>> rows;
  // The cell at a 0-based row and column, empty outside the sheet.
  const XlsxCell& at(size_t row, size_t column) const;
};

// Reads every worksheet of an .xlsx workbook, in the workbook's order.
// Accepts any bytes: what is not a readable workbook throws XlsxError.
// Sheets are capped at 1,048,576 rows, 16,384 columns and 5,000,000 cells
// (the empty ones before a cell in its row included), and parts at 256 MiB
// unpacked.
std::vector<XlsxSheet> read_xlsx(std::string_view bytes);
std::vector<XlsxSheet> read_xlsx_file(const std::filesystem::path& path);

// The letters of a 0-based column as a workbook names it: 0 "A", 26 "AA".
std::string xlsx_column_letters(size_t column);

}  // namespace arven

#include "core/grid_export.h"

#include <xlsxwriter.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <sstream>
#include <system_error>
#include <vector>

#include "base/html_text.h"
#include "base/numbers.h"
#include "base/replace_file.h"
#include "base/utf8.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

// A cell as it is exported: plain text, "null" (no value) as empty, and
// valid UTF-8 whatever encoding a store gave a name.
std::string export_text(const std::string& cell) {
  if (cell == "null") return "";
  return valid_utf8(html_unescape(cell));
}

std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string out = "\"";
  for (char ch : text) {
    if (ch == '"') out += '"';
    out += ch;
  }
  out += '"';
  return out;
}

// Characters of UTF-8 text (continuation bytes not counted).
size_t utf8_length(std::string_view text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char ch) {
    return (static_cast<unsigned char>(ch) & 0xC0) != 0x80;
  }));
}

std::string failure(const fs::path& file, const std::string& reason) {
  return "The file " + file.string() + " could not be written: " + reason;
}

// The workbook is written by close() and then replaces the file; left
// without it (an error on the way), it is freed and nothing is written.
class Workbook {
 public:
  explicit Workbook(const fs::path& file) : file_(file), target_(file) {
    book_ = workbook_new(target_.for_library().c_str());
    if (!book_) throw ExportError(failure(file, "the workbook could not be started"));
  }
  ~Workbook() {
    if (book_) lxw_workbook_free(book_);
  }
  Workbook(const Workbook&) = delete;
  Workbook& operator=(const Workbook&) = delete;
  lxw_workbook* get() { return book_; }
  void close() {
    errno = 0;
    lxw_error err = workbook_close(book_);
    book_ = nullptr;
    if (err != LXW_NO_ERROR) {
      const int cause = errno;
      if (cause != 0 && write_fault_of(cause, file_.parent_path()) != WriteFault::other)
        throw write_error(file_, cause);
      target_.fail(lxw_strerror(err));
    }
    target_.commit();
  }

 private:
  fs::path file_;
  ReplacingFile target_;
  lxw_workbook* book_ = nullptr;
};

void check(lxw_error err, const fs::path& file) {
  if (err != LXW_NO_ERROR) throw ExportError(failure(file, lxw_strerror(err)));
}

}  // namespace

void write_csv(const GridTable& grid, const fs::path& file, const ExportContext& context) {
  std::ostringstream out;
  // The byte-order mark tells a spreadsheet that the text is UTF-8 (ø, æ).
  out << "\xEF\xBB\xBF";
  for (const auto& [label, text] : context)
    out << csv_field(valid_utf8(label)) << ',' << csv_field(valid_utf8(text)) << "\r\n";
  if (!context.empty()) out << "\r\n";
  for (int r = 0; r < grid.rows(); ++r) {
    for (int c = 0; c < grid.cols(); ++c) {
      if (c > 0) out << ',';
      out << csv_field(export_text(grid.cell(r, c)));
    }
    out << "\r\n";
  }
  replace_file(file, out.str());
}

std::string excel_sheet_name(std::string_view name) {
  std::string clean;
  for (char ch : name)
    clean += std::string_view("[]:*?/\\").find(ch) == std::string_view::npos ? ch : '_';
  // At most 31 characters, cut before a character's first byte.
  size_t chars = 0, end = 0;
  for (; end < clean.size(); ++end) {
    if ((static_cast<unsigned char>(clean[end]) & 0xC0) != 0x80 && ++chars > 31) break;
  }
  clean.resize(end);
  while (!clean.empty() && clean.front() == '\'') clean.erase(0, 1);
  while (!clean.empty() && clean.back() == '\'') clean.pop_back();
  return clean.empty() ? std::string("Sheet1") : clean;
}

void write_xlsx(const GridTable& grid, const fs::path& file, const std::string& sheet_name,
                const ExportContext& context, const std::vector<bool>& text_columns) {
  write_xlsx_sheets({{sheet_name, &grid, text_columns}}, file, context);
}

void write_xlsx_sheets(const std::vector<WorkbookSheet>& sheets, const fs::path& file,
                       const ExportContext& context) {
  Workbook book(file);
  lxw_format* bold = workbook_add_format(book.get());
  format_set_bold(bold);
  bool about_taken = false;
  for (const WorkbookSheet& one : sheets) {
    const std::string name = excel_sheet_name(one.name);
    about_taken = about_taken || name == "About";
    lxw_worksheet* sheet = workbook_add_worksheet(book.get(), name.c_str());
    if (!sheet) throw ExportError(failure(file, "the sheet " + name + " could not be added"));
    const GridTable& grid = *one.grid;
    const std::vector<bool>& text_columns = one.text_columns;
    std::vector<size_t> widths(static_cast<size_t>(grid.cols()), 0);
    for (int r = 0; r < grid.rows(); ++r) {
      for (int c = 0; c < grid.cols(); ++c) {
        const bool as_text = static_cast<size_t>(c) < text_columns.size() && text_columns[c];
        const std::string text =
            as_text ? valid_utf8(grid.cell(r, c)) : export_text(grid.cell(r, c));
        widths[c] = std::max(widths[c], utf8_length(text));
        if (text.empty()) continue;
        const auto row = static_cast<lxw_row_t>(r);
        const auto col = static_cast<lxw_col_t>(c);
        if (r == 0) {
          check(worksheet_write_string(sheet, row, col, text.c_str(), bold), file);
        } else if (auto v = parse_number(text); v && std::isfinite(*v) && !as_text) {
          check(worksheet_write_number(sheet, row, col, *v, nullptr), file);
        } else {
          check(worksheet_write_string(sheet, row, col, text.c_str(), nullptr), file);
        }
      }
    }
    for (int c = 0; c < grid.cols(); ++c) {
      double width = std::clamp(static_cast<double>(widths[c]) + 2, 8.0, 60.0);
      const auto col = static_cast<lxw_col_t>(c);
      check(worksheet_set_column(sheet, col, col, width, nullptr), file);
    }
  }
  // The context on a sheet of its own, so the table's sheet stays a table.
  if (!context.empty()) {
    const std::string about_name = about_taken ? "About this table" : "About";
    lxw_worksheet* about = workbook_add_worksheet(book.get(), about_name.c_str());
    if (!about) throw ExportError(failure(file, "the sheet could not be added"));
    for (size_t i = 0; i < context.size(); ++i) {
      const auto row = static_cast<lxw_row_t>(i);
      check(worksheet_write_string(about, row, 0, valid_utf8(context[i].first).c_str(), bold),
            file);
      check(worksheet_write_string(about, row, 1, valid_utf8(context[i].second).c_str(), nullptr),
            file);
    }
    check(worksheet_set_column(about, 0, 0, 22, nullptr), file);
    check(worksheet_set_column(about, 1, 1, 80, nullptr), file);
  }
  book.close();
}

}  // namespace arven

#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace arven {

// A text that is not well-formed CSV. line and column (1-based; the column
// counts fields, not characters) say where the reader gave up.
class CsvError : public std::runtime_error {
 public:
  CsvError(const std::string& what, size_t line, size_t column);
  size_t line() const { return line_; }
  size_t column() const { return column_; }

 private:
  size_t line_;
  size_t column_;
};

// One record: its fields, and the line on which each field starts (a quoted
// field may run over several lines, so later fields can start further down).
struct CsvRecord {
  std::vector<std::string> fields;
  std::vector<size_t> lines;
  size_t line() const { return lines.empty() ? 0 : lines.front(); }
};

// Reads RFC 4180 text: fields separated by commas, records by CRLF or LF;
// a quoted field may hold commas, line breaks and doubled quotes. A leading
// UTF-8 byte order mark and empty lines are skipped; the last record needs no
// line break. A quote inside an unquoted field, text after a closing quote
// or a quote left open throws CsvError, whose message starts with `source`
// (when given) and the line and column. Any bytes are accepted as input.
std::vector<CsvRecord> parse_csv(std::string_view text, std::string_view source = {});

}  // namespace arven

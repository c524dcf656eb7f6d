#include "prep/csv.h"

namespace arven {

CsvError::CsvError(const std::string& what, size_t line, size_t column)
    : std::runtime_error(what), line_(line), column_(column) {}

namespace {

[[noreturn]] void fail(std::string_view source, size_t line, size_t column,
                       const std::string& what) {
  std::string msg;
  if (!source.empty()) msg = std::string(source) + ": ";
  msg += "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + what;
  throw CsvError(msg, line, column);
}

}  // namespace

std::vector<CsvRecord> parse_csv(std::string_view text, std::string_view source) {
  std::vector<CsvRecord> out;
  size_t i = 0;
  const size_t n = text.size();
  if (text.substr(0, 3) == "\xEF\xBB\xBF") i = 3;
  size_t line = 1;

  auto at_line_end = [&](size_t p) { return p < n && (text[p] == '\n' || text[p] == '\r'); };
  // Consumes one line break (CRLF, LF or a lone CR) at p; returns the position after it.
  auto skip_break = [&](size_t p) {
    if (text[p] == '\r' && p + 1 < n && text[p + 1] == '\n') ++p;
    ++line;
    return p + 1;
  };

  while (i < n) {
    if (at_line_end(i)) {  // an empty line holds no record
      i = skip_break(i);
      continue;
    }
    CsvRecord rec;
    for (;;) {
      std::string field;
      const size_t field_line = line;
      const size_t column = rec.fields.size() + 1;
      if (i < n && text[i] == '"') {
        ++i;
        for (;;) {
          if (i >= n) fail(source, field_line, column, "a quoted field is not closed");
          char c = text[i];
          if (c == '"') {
            if (i + 1 < n && text[i + 1] == '"') {
              field += '"';
              i += 2;
              continue;
            }
            ++i;
            break;
          }
          if (c == '\n' || (c == '\r' && !(i + 1 < n && text[i + 1] == '\n'))) ++line;
          field += c;
          ++i;
        }
        if (i < n && text[i] != ',' && !at_line_end(i))
          fail(source, line, column, "text after the closing quote of a field");
      } else {
        while (i < n && text[i] != ',' && !at_line_end(i)) {
          if (text[i] == '"') fail(source, line, column, "a quote inside an unquoted field");
          field += text[i++];
        }
      }
      rec.fields.push_back(std::move(field));
      rec.lines.push_back(field_line);
      if (i < n && text[i] == ',') {
        ++i;
        continue;
      }
      break;  // end of line or of text
    }
    out.push_back(std::move(rec));
    if (i < n) i = skip_break(i);
  }
  return out;
}

}  // namespace arven

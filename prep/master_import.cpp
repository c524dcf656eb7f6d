#include "prep/master_import.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include "base/text.h"
#include "prep/csv.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {

namespace {

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

// Whole numbers of a Long column: 32-bit, no fraction, no exponent.
std::optional<int64_t> parse_long(std::string_view s) {
  s = trim(s);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  int32_t v = 0;
  auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (s.empty() || ec != std::errc() || p != s.data() + s.size()) return std::nullopt;
  return v;
}

// Real numbers of a Double column, '.' as the decimal point whatever the
// locale; infinities and NaN are refused.
std::optional<double> parse_real(std::string_view s) {
  s = trim(s);
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  double v = 0;
  auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (s.empty() || ec != std::errc() || p != s.data() + s.size() || !std::isfinite(v))
    return std::nullopt;
  return v;
}

// "YYYY-MM-DD" or "YYYY-MM-DD HH:MM:SS", digits where digits belong.
bool is_date_text(std::string_view s) {
  static constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd";
  if (s.size() != 10 && s.size() != kShape.size()) return false;
  for (size_t i = 0; i < s.size(); ++i) {
    bool digit = std::isdigit(static_cast<unsigned char>(s[i])) != 0;
    if (kShape[i] == 'd' ? !digit : s[i] != kShape[i]) return false;
  }
  return true;
}

bool is_utf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    auto c = static_cast<unsigned char>(s[i]);
    size_t len = c < 0x80           ? 1
                 : (c >> 5) == 0x6  ? 2
                 : (c >> 4) == 0xE  ? 3
                 : (c >> 3) == 0x1E ? 4
                                    : 0;
    if (len == 0 || i + len > s.size()) return false;
    uint32_t cp = len == 1 ? c : c & (0x7F >> len);
    for (size_t k = 1; k < len; ++k) {
      auto cc = static_cast<unsigned char>(s[i + k]);
      if ((cc >> 6) != 0x2) return false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    static constexpr uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += len;
  }
  return true;
}

std::string read_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(path.string() + ": the file cannot be read");
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

[[noreturn]] void fail_at(const std::filesystem::path& file, size_t line, size_t column,
                          std::string_view column_name, const std::string& what) {
  std::string msg =
      file.string() + ": line " + std::to_string(line) + ", column " + std::to_string(column);
  if (!column_name.empty()) msg += " (\"" + std::string(column_name) + "\")";
  throw std::runtime_error(msg + ": " + what);
}

Value typed_value(const std::string& text, const ColumnDef& col, const std::filesystem::path& file,
                  size_t line, size_t column) {
  try {
    return master_cell_value(text, col);
  } catch (const std::invalid_argument& e) {
    fail_at(file, line, column, col.name, e.what());
  }
}

void load_table(Db& db, const TableDef& table, const std::filesystem::path& file) {
  const std::string text = read_file(file);
  const std::vector<CsvRecord> records = parse_csv(text, file.string());
  if (records.empty()) fail_at(file, 1, 1, "", "the file has no header row");

  // Header: each name must be a column of the table, matched without regard
  // to case as the stores match names, and appear once.
  const CsvRecord& header = records.front();
  std::vector<const ColumnDef*> cols;
  std::vector<std::string> names;
  for (size_t i = 0; i < header.fields.size(); ++i) {
    const std::string& name = header.fields[i];
    auto it = std::find_if(table.columns.begin(), table.columns.end(), [&](const ColumnDef& c) {
      return lower_case(c.name) == lower_case(name);
    });
    if (it == table.columns.end())
      fail_at(file, header.lines[i], i + 1, name,
              "table \"" + table.name + "\" has no column of this name");
    if (std::find(names.begin(), names.end(), it->name) != names.end())
      fail_at(file, header.lines[i], i + 1, name, "the column is named twice");
    cols.push_back(&*it);
    names.push_back(it->name);
  }

  std::vector<Value> values(cols.size());
  for (size_t r = 1; r < records.size(); ++r) {
    const CsvRecord& rec = records[r];
    if (rec.fields.size() != cols.size()) {
      size_t column = std::min(rec.fields.size(), cols.size()) + 1;
      size_t line = rec.fields.size() > cols.size() ? rec.lines[cols.size()] : rec.lines.back();
      fail_at(file, line, column, "",
              "expected " + std::to_string(cols.size()) + " fields, found " +
                  std::to_string(rec.fields.size()));
    }
    for (size_t i = 0; i < cols.size(); ++i) {
      if (rec.fields[i].find('\0') != std::string::npos)
        fail_at(file, rec.lines[i], i + 1, cols[i]->name, "the field holds a NUL byte");
      values[i] = typed_value(rec.fields[i], *cols[i], file, rec.lines[i], i + 1);
    }
    db.insert(table.name, names, values);
  }
}

void load_store(Db& db, const std::vector<TableDef>& tables, const std::filesystem::path& csv_dir) {
  Transaction tx(db);
  for (const TableDef& table : tables) {
    std::filesystem::path file = csv_dir / (table.name + ".csv");
    std::error_code ec;
    if (!std::filesystem::is_regular_file(file, ec))
      throw std::runtime_error(file.string() + ": the file is missing; every table of the store " +
                               "needs one (a header row alone gives an empty table)");
    load_table(db, table, file);
  }
  tx.commit();
}

// A store being built beside its final path, removed unless renamed.
class StoreUnderConstruction {
 public:
  explicit StoreUnderConstruction(const std::filesystem::path& final_path)
      : final_(final_path), temp_(final_path) {
    temp_ += ".tmp." + std::to_string(::getpid());
    // What an import that was killed left behind.
    std::error_code ec;
    const std::string prefix = final_path.filename().string() + ".tmp.";
    for (const auto& e : std::filesystem::directory_iterator(final_path.parent_path(), ec))
      if (e.path().filename().string().rfind(prefix, 0) == 0) std::filesystem::remove(e.path(), ec);
  }
  ~StoreUnderConstruction() {
    std::error_code ec;
    if (!renamed_) std::filesystem::remove(temp_, ec);
  }
  const std::filesystem::path& temp() const { return temp_; }
  void rename_into_place() {
    durable_rename(temp_, final_);
    renamed_ = true;
  }

 private:
  std::filesystem::path final_, temp_;
  bool renamed_ = false;
};

}  // namespace

Value master_cell_value(const std::string& text, const ColumnDef& col) {
  if (text.empty()) return Value();
  switch (col.type) {
    case ColType::Long:
      if (auto v = parse_long(text)) return Value(*v);
      throw std::invalid_argument("\"" + text + "\" is not a whole number");
    case ColType::Double:
      if (auto v = parse_real(text)) return Value(*v);
      throw std::invalid_argument("\"" + text + "\" is not a number");
    case ColType::Date:
      if (!is_date_text(text))
        throw std::invalid_argument("\"" + text +
                                    "\" is not a date of the form YYYY-MM-DD HH:MM:SS");
      return Value(text);
    case ColType::Text:
    case ColType::Memo:
      break;
  }
  if (!is_utf8(text)) throw std::invalid_argument("the text is not valid UTF-8");
  if (text.find('\0') != std::string::npos)
    throw std::invalid_argument("the text holds a NUL byte");
  return Value(text);
}

void import_master_csv(const std::filesystem::path& csv_dir, const std::filesystem::path& ops_store,
                       const std::filesystem::path& rvc_store) {
  std::error_code ec;
  if (!std::filesystem::is_directory(csv_dir, ec))
    throw std::runtime_error(csv_dir.string() + ": the folder of master data does not exist");
  // Both stores are built under temporary names and replace the old ones
  // only when both loaded: a fault anywhere leaves the old stores as they were.
  StoreUnderConstruction ops_new(ops_store), rvc_new(rvc_store);
  {
    Db ops = create_operations_master(ops_new.temp());
    load_store(ops, operations_master_tables(), csv_dir);
    Db rvc = create_rvcs_master(rvc_new.temp());
    load_store(rvc, rvcs_master_tables(), csv_dir);
  }
  std::filesystem::create_directories(ops_store.parent_path(), ec);
  std::filesystem::create_directories(rvc_store.parent_path(), ec);
  ops_new.rename_into_place();
  rvc_new.rename_into_place();
}

}  // namespace arven

#include "prep/xlsx_reader.h"

#include <zip.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <pugixml.hpp>

namespace arven {

namespace {

constexpr size_t kMaxRows = 1048576;
constexpr size_t kMaxColumns = 16384;
constexpr zip_uint64_t kMaxPart = 256u << 20;
// Cells a sheet may hold, counting the empty ones before a cell in its row:
// a small part naming far-away cells must not claim gigabytes.
constexpr size_t kMaxCells = 5'000'000;

// The name of an element or attribute without its namespace prefix: writers
// differ in the prefixes they use for the same namespace.
std::string_view local_name(const char* name) {
  std::string_view s(name);
  size_t colon = s.find(':');
  return colon == std::string_view::npos ? s : s.substr(colon + 1);
}

pugi::xml_node child(pugi::xml_node node, std::string_view name) {
  for (pugi::xml_node c : node.children())
    if (c.type() == pugi::node_element && local_name(c.name()) == name) return c;
  return {};
}

template <class F>
void each_child(pugi::xml_node node, std::string_view name, F&& f) {
  for (pugi::xml_node c : node.children())
    if (c.type() == pugi::node_element && local_name(c.name()) == name) f(c);
}

pugi::xml_attribute attribute(pugi::xml_node node, std::string_view name) {
  for (pugi::xml_attribute a : node.attributes())
    if (local_name(a.name()) == name) return a;
  return {};
}

// The text of a string item (<si> or <is>): its <t>, or the <t> of each
// rich-text run; phonetic hints (<rPh>) are not part of the text.
std::string string_item(pugi::xml_node item) {
  std::string out;
  for (pugi::xml_node c : item.children()) {
    if (c.type() != pugi::node_element) continue;
    std::string_view n = local_name(c.name());
    if (n == "t") out += c.text().get();
    if (n == "r") out += child(c, "t").text().get();
  }
  return out;
}

class Archive {
 public:
  explicit Archive(std::string_view bytes) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* src = zip_source_buffer_create(bytes.data(), bytes.size(), 0, &error);
    if (src) {
      zip_ = zip_open_from_source(src, ZIP_RDONLY, &error);
      if (!zip_) zip_source_free(src);
    }
    zip_error_fini(&error);
    if (!zip_) throw XlsxError("the file is not an .xlsx workbook (not a zip archive)");
  }
  ~Archive() { zip_discard(zip_); }
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;

  bool has(const std::string& name) const {
    return zip_name_locate(zip_, name.c_str(), ZIP_FL_NOCASE) >= 0;
  }

  std::string read(const std::string& name) const {
    zip_int64_t index = zip_name_locate(zip_, name.c_str(), ZIP_FL_NOCASE);
    if (index < 0) throw XlsxError("the workbook has no part " + name);
    zip_file_t* f = zip_fopen_index(zip_, static_cast<zip_uint64_t>(index), 0);
    if (!f) throw XlsxError("the part " + name + " cannot be unpacked");
    std::string out;
    char buf[65536];
    for (;;) {
      zip_int64_t n = zip_fread(f, buf, sizeof buf);
      if (n < 0) {
        zip_fclose(f);
        throw XlsxError("the part " + name + " is damaged");
      }
      if (n == 0) break;
      out.append(buf, static_cast<size_t>(n));
      if (out.size() > kMaxPart) {
        zip_fclose(f);
        throw XlsxError("the part " + name + " is larger than 256 MiB unpacked");
      }
    }
    zip_fclose(f);
    return out;
  }

 private:
  zip_t* zip_ = nullptr;
};

pugi::xml_document parse_part(const Archive& zip, const std::string& name) {
  std::string text = zip.read(name);
  pugi::xml_document doc;
  auto result = doc.load_buffer(text.data(), text.size());
  if (!result)
    throw XlsxError("the part " + name + " is not well-formed XML: " + result.description());
  return doc;
}

// A relationship target made a part name: absolute ("/xl/x.xml") or
// relative to the folder of the part that refers to it.
std::string resolve(const std::string& base_folder, const std::string& target) {
  std::string path = target.rfind('/', 0) == 0 ? target.substr(1) : base_folder + target;
  std::vector<std::string> parts;
  size_t pos = 0;
  while (pos <= path.size()) {
    size_t end = path.find('/', pos);
    if (end == std::string::npos) end = path.size();
    std::string seg = path.substr(pos, end - pos);
    if (seg == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!seg.empty() && seg != ".") {
      parts.push_back(seg);
    }
    pos = end + 1;
  }
  std::string out;
  for (const auto& p : parts) out += (out.empty() ? "" : "/") + p;
  return out;
}

std::string folder_of(const std::string& part) {
  size_t slash = part.rfind('/');
  return slash == std::string::npos ? "" : part.substr(0, slash + 1);
}

// The relationships of a part: id -> target part name.
std::vector<std::pair<std::string, std::string>> relationships(const Archive& zip,
                                                               const std::string& part) {
  std::string folder = folder_of(part);
  std::string rels = folder + "_rels/" + part.substr(folder.size()) + ".rels";
  std::vector<std::pair<std::string, std::string>> out;
  if (!zip.has(rels)) return out;
  auto doc = parse_part(zip, rels);
  each_child(child(doc, "Relationships"), "Relationship", [&](pugi::xml_node r) {
    if (std::string_view(r.attribute("TargetMode").value()) == "External") return;
    out.emplace_back(r.attribute("Id").value(), resolve(folder, r.attribute("Target").value()));
  });
  return out;
}

// "BC12" -> 0-based row 11, column 54; false when it is not a reference.
bool parse_reference(std::string_view ref, size_t& row, size_t& column) {
  size_t i = 0, col = 0, r = 0;
  while (i < ref.size() && ref[i] >= 'A' && ref[i] <= 'Z' && i < 3)
    col = col * 26 + static_cast<size_t>(ref[i++] - 'A' + 1);
  if (i == 0 || i == ref.size()) return false;
  size_t digits = 0;
  for (; i < ref.size(); ++i, ++digits) {
    if (ref[i] < '0' || ref[i] > '9' || digits >= 7) return false;
    r = r * 10 + static_cast<size_t>(ref[i] - '0');
  }
  if (r == 0 || r > kMaxRows || col > kMaxColumns) return false;
  row = r - 1;
  column = col - 1;
  return true;
}

XlsxSheet read_sheet(const Archive& zip, const std::string& part, std::string name,
                     const std::vector<std::string>& shared) {
  auto doc = parse_part(zip, part);
  XlsxSheet sheet;
  sheet.name = std::move(name);
  pugi::xml_node data = child(child(doc, "worksheet"), "sheetData");
  size_t next_row = 0;
  size_t cells_held = 0;
  each_child(data, "row", [&](pugi::xml_node row_node) {
    size_t row = next_row;
    if (auto r = attribute(row_node, "r")) {
      long long n = r.as_llong(0);
      if (n < 1 || static_cast<size_t>(n) > kMaxRows)
        throw XlsxError(part + ": row number \"" + std::string(r.value()) + "\" is out of range");
      row = static_cast<size_t>(n - 1);
    }
    if (row >= kMaxRows) throw XlsxError(part + ": more than 1,048,576 rows");
    next_row = row + 1;
    size_t next_column = 0;
    each_child(row_node, "c", [&](pugi::xml_node c) {
      size_t r = row, col = next_column;
      if (auto ref = attribute(c, "r")) {
        if (!parse_reference(ref.value(), r, col))
          throw XlsxError(part + ": \"" + std::string(ref.value()) + "\" is not a cell reference");
      }
      if (col >= kMaxColumns) throw XlsxError(part + ": more than 16,384 columns");
      next_column = col + 1;
      XlsxCell cell;
      std::string_view type = attribute(c, "t").value();
      pugi::xml_node v = child(c, "v");
      if (type == "inlineStr") {
        cell.kind = XlsxCell::Kind::text;
        cell.text = string_item(child(c, "is"));
      } else if (!v) {
        // A cell with a style and no value is empty.
      } else if (type == "s") {
        unsigned long long index = v.text().as_ullong(~0ull);
        if (index >= shared.size())
          throw XlsxError(part + ": a cell refers to shared string " + v.text().get() +
                          ", which the workbook does not have");
        cell.kind = XlsxCell::Kind::text;
        cell.text = shared[index];
      } else if (type == "str" || type == "d") {
        cell.kind = XlsxCell::Kind::text;
        cell.text = v.text().get();
      } else if (type == "b") {
        cell.kind = XlsxCell::Kind::boolean;
        cell.text = v.text().get();
      } else if (type == "e") {
        cell.kind = XlsxCell::Kind::error;
        cell.text = v.text().get();
      } else {
        cell.kind = XlsxCell::Kind::number;
        cell.text = v.text().get();
      }
      if (r >= sheet.rows.size()) sheet.rows.resize(r + 1);
      auto& cells = sheet.rows[r];
      if (col >= cells.size()) {
        cells_held += col + 1 - cells.size();
        if (cells_held > kMaxCells)
          throw XlsxError(part + ": more than 5,000,000 cells, counting the empty ones between");
        cells.resize(col + 1);
      }
      cells[col] = std::move(cell);
    });
  });
  return sheet;
}

}  // namespace

const XlsxCell& XlsxSheet::at(size_t row, size_t column) const {
  static const XlsxCell empty;
  if (row >= rows.size() || column >= rows[row].size()) return empty;
  return rows[row][column];
}

std::vector<XlsxSheet> read_xlsx(std::string_view bytes) {
  Archive zip(bytes);
  // The workbook part is named by the package's relationships.
  std::string workbook = "xl/workbook.xml";
  for (const auto& [id, target] : relationships(zip, ""))
    if (target.size() >= 4 && zip.has(target) && target.find("workbook") != std::string::npos)
      workbook = target;
  auto rels = relationships(zip, workbook);
  auto target_of = [&](const std::string& id) -> std::string {
    for (const auto& [rid, target] : rels)
      if (rid == id) return target;
    return "";
  };

  std::vector<std::string> shared;
  for (const auto& [id, target] : rels)
    if (target.find("sharedStrings") != std::string::npos && zip.has(target)) {
      auto doc = parse_part(zip, target);
      each_child(child(doc, "sst"), "si",
                 [&](pugi::xml_node si) { shared.push_back(string_item(si)); });
    }

  auto doc = parse_part(zip, workbook);
  std::vector<XlsxSheet> out;
  each_child(child(child(doc, "workbook"), "sheets"), "sheet", [&](pugi::xml_node s) {
    std::string name = s.attribute("name").value();
    std::string part = target_of(attribute(s, "id").value());
    if (part.empty()) throw XlsxError("the workbook names no part for sheet \"" + name + "\"");
    out.push_back(read_sheet(zip, part, name, shared));
  });
  return out;
}

std::vector<XlsxSheet> read_xlsx_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw XlsxError(path.string() + ": the file cannot be read");
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  try {
    return read_xlsx(bytes);
  } catch (const XlsxError& e) {
    throw XlsxError(path.string() + ": " + e.what());
  }
}

std::string xlsx_column_letters(size_t column) {
  std::string s;
  for (size_t c = column + 1; c > 0; c = (c - 1) / 26)
    s.insert(s.begin(), static_cast<char>('A' + (c - 1) % 26));
  return s;
}

}  // namespace arven

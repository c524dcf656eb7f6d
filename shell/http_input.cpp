#include "shell/http_input.h"

#include <algorithm>
#include <map>

#include "base/text.h"

namespace arven::shell {

namespace fs = std::filesystem;

namespace {

// Kinds of file the report folder serves; stores and anything else stay put.
const std::map<std::string, std::string>& mime_types() {
  static const std::map<std::string, std::string> m = {
      {".htm", "text/html; charset=utf-8"},
      {".html", "text/html; charset=utf-8"},
      {".css", "text/css"},
      {".js", "text/javascript"},
      {".gif", "image/gif"},
      {".jpg", "image/jpeg"},
      {".jpeg", "image/jpeg"},
      {".png", "image/png"},
      {".svg", "image/svg+xml"},
      {".pdf", "application/pdf"},
      {".kmz", "application/vnd.google-earth.kmz"},
      {".csv", "text/csv; charset=utf-8"},
      {".xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
      {".txt", "text/plain; charset=utf-8"}};
  return m;
}

int hex_digit(char h) {
  if (h >= '0' && h <= '9') return h - '0';
  if (h >= 'a' && h <= 'f') return h - 'a' + 10;
  if (h >= 'A' && h <= 'F') return h - 'A' + 10;
  return -1;
}

// Percent-decoding shared by paths and form fields; `plus_space` turns "+"
// into a space as forms do.
std::optional<std::string> decode(std::string_view text, bool plus_space) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      if (i + 2 >= text.size()) return std::nullopt;
      const int hi = hex_digit(text[i + 1]), lo = hex_digit(text[i + 2]);
      if (hi < 0 || lo < 0) return std::nullopt;
      c = static_cast<char>(hi * 16 + lo);
      i += 2;
    } else if (c == '+' && plus_space) {
      c = ' ';
    }
    if (c == '\0') return std::nullopt;
    out += c;
  }
  return out;
}

// "http://127.0.0.1:PORT" or "http://localhost:PORT", with nothing after it
// or a path after it when `path_allowed`.
bool own_address(std::string_view text, int port, bool path_allowed) {
  const std::string p = std::to_string(port);
  for (const std::string& base : {"http://127.0.0.1:" + p, "http://localhost:" + p}) {
    if (text.size() < base.size() || lower_case(text.substr(0, base.size())) != base) continue;
    if (text.size() == base.size()) return true;
    if (path_allowed && text[base.size()] == '/') return true;
  }
  return false;
}

}  // namespace

std::optional<std::string> url_decode(std::string_view text) {
  return decode(text, false);
}

std::optional<Params> parse_form_body(std::string_view body) {
  Params out;
  size_t pos = 0;
  while (pos <= body.size()) {
    size_t end = body.find('&', pos);
    if (end == std::string_view::npos) end = body.size();
    const std::string_view field = body.substr(pos, end - pos);
    pos = end + 1;
    if (field.empty()) continue;
    const size_t eq = field.find('=');
    auto name = decode(field.substr(0, eq), true);
    auto value = decode(eq == std::string_view::npos ? "" : field.substr(eq + 1), true);
    if (!name || !value || name->empty() || name->size() > 64) return std::nullopt;
    out.emplace(std::move(*name), std::move(*value));
  }
  return out;
}

bool is_form_content_type(std::string_view content_type) {
  const std::string t = lower_case(content_type.substr(0, content_type.find(';')));
  const size_t b = t.find_first_not_of(" \t"), e = t.find_last_not_of(" \t");
  return b != std::string::npos && t.substr(b, e - b + 1) == "application/x-www-form-urlencoded";
}

std::string attachment_header(std::string name) {
  for (char& ch : name)
    if (ch == '"' || ch == '\\' || static_cast<unsigned char>(ch) < 0x20) ch = '_';
  return "attachment; filename=\"" + name + "\"";
}

std::string mime_type_of(const fs::path& file) {
  auto it = mime_types().find(lower_case(file.extension().string()));
  return it == mime_types().end() ? "" : it->second;
}

std::optional<fs::path> resolve_static(const fs::path& folder, std::string_view relative) {
  auto decoded = url_decode(relative);
  if (!decoded || decoded->empty()) return std::nullopt;
  // Decode once more: a doubly encoded "..%252f" must not slip through a
  // second decoding somewhere else.
  if (decoded->find('%') != std::string::npos) {
    auto twice = url_decode(*decoded);
    if (!twice || *twice != *decoded) return std::nullopt;
  }
  const std::string& rel = *decoded;
  if (rel.front() == '/' || rel.find('\\') != std::string::npos) return std::nullopt;
  fs::path p(rel);
  for (const auto& part : p)
    if (part == ".." || part == "." || part.empty()) return std::nullopt;
  if (mime_type_of(p).empty()) return std::nullopt;
  std::error_code ec;
  fs::path base = fs::weakly_canonical(folder, ec);
  if (ec) return std::nullopt;
  fs::path full = fs::weakly_canonical(base / p, ec);
  if (ec) return std::nullopt;
  // Symbolic links out of the folder are refused too, and so is a link to a
  // kind of file that is not served (a store under a page's name).
  auto [b, f] = std::mismatch(base.begin(), base.end(), full.begin(), full.end());
  if (b != base.end()) return std::nullopt;
  if (mime_type_of(full).empty()) return std::nullopt;
  if (!fs::is_regular_file(full, ec)) return std::nullopt;
  return full;
}

bool from_own_pages(const RequestSource& source, int port) {
  if (!source.sec_fetch_site.empty()) return lower_case(source.sec_fetch_site) == "same-origin";
  if (!source.origin.empty()) return own_address(source.origin, port, false);
  if (!source.referer.empty()) return own_address(source.referer, port, true);
  return false;
}

std::string cookie_value(std::string_view cookie_header, std::string_view name) {
  size_t pos = 0;
  while (pos < cookie_header.size()) {
    size_t end = cookie_header.find(';', pos);
    if (end == std::string_view::npos) end = cookie_header.size();
    std::string_view part = cookie_header.substr(pos, end - pos);
    size_t b = part.find_first_not_of(' ');
    if (b != std::string_view::npos) part = part.substr(b);
    if (part.size() > name.size() && part.starts_with(name) && part[name.size()] == '=')
      return std::string(part.substr(name.size() + 1));
    pos = end + 1;
  }
  return "";
}

bool same_token(std::string_view presented, std::string_view token) {
  if (presented.size() != token.size() || token.empty()) return false;
  unsigned char diff = 0;
  for (size_t i = 0; i < token.size(); ++i)
    diff |= static_cast<unsigned char>(presented[i] ^ token[i]);
  return diff == 0;
}

}  // namespace arven::shell

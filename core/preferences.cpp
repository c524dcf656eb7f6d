#include "core/preferences.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "base/numbers.h"
#include "base/replace_file.h"

namespace arven {

namespace {

std::filesystem::path& override_path() {
  static std::filesystem::path p;
  return p;
}

std::string trim(const std::string& s) {
  auto b = s.find_first_not_of(" \t\r");
  if (b == std::string::npos) return "";
  auto e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

bool same_name(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

std::vector<std::string> read_lines(const std::filesystem::path& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

// The section name of a "[name]" line, or nullopt.
std::optional<std::string> section_of(const std::string& line) {
  std::string t = trim(line);
  if (t.size() >= 2 && t.front() == '[' && t.back() == ']') return trim(t.substr(1, t.size() - 2));
  return std::nullopt;
}

// Splits "key = value"; nullopt for comments and lines without '='.
std::optional<std::pair<std::string, std::string>> entry_of(const std::string& line) {
  std::string t = trim(line);
  if (t.empty() || t[0] == ';' || t[0] == '#') return std::nullopt;
  auto eq = t.find('=');
  if (eq == std::string::npos) return std::nullopt;
  return std::make_pair(trim(t.substr(0, eq)), trim(t.substr(eq + 1)));
}

}  // namespace

std::filesystem::path preferences_path() {
  if (!override_path().empty()) return override_path();
  std::filesystem::path base;
  if (const char* x = std::getenv("XDG_CONFIG_HOME"); x && *x)
    base = x;
  else if (const char* h = std::getenv("HOME"); h && *h)
    base = std::filesystem::path(h) / ".config";
  else
    base = ".config";
  return base / "arven" / "ARVEN.ini";
}

void set_preferences_path(const std::filesystem::path& path) {
  override_path() = path;
}

std::string get_setting(const std::string& section, const std::string& key,
                        const std::string& fallback) {
  std::string current;
  for (const auto& line : read_lines(preferences_path())) {
    if (auto s = section_of(line)) {
      current = *s;
    } else if (same_name(current, section)) {
      if (auto e = entry_of(line); e && same_name(e->first, key)) return e->second;
    }
  }
  return fallback;
}

namespace {

// Sets the key in the lines of the file: in place when the section has it,
// otherwise at the end of the section, or in a new section at the end.
void set_key(std::vector<std::string>& lines, const std::string& section, const std::string& key,
             const std::string& value) {
  bool in_section = false;
  size_t section_end = lines.size();  // where to add the key in an existing section
  bool section_found = false;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (auto s = section_of(lines[i])) {
      if (in_section) section_end = i;
      in_section = same_name(*s, section);
      if (in_section) section_found = true;
      continue;
    }
    if (in_section) {
      if (auto e = entry_of(lines[i]); e && same_name(e->first, key)) {
        lines[i] = e->first + "=" + value;
        return;
      }
    }
  }
  if (!section_found) {
    if (!lines.empty() && !trim(lines.back()).empty()) lines.push_back("");
    lines.push_back("[" + section + "]");
    lines.push_back(key + "=" + value);
    return;
  }
  if (in_section) section_end = lines.size();
  // Keep blank lines that separate sections after the new key.
  while (section_end > 0 && trim(lines[section_end - 1]).empty()) --section_end;
  lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(section_end), key + "=" + value);
}

}  // namespace

void save_settings(const std::string& section, const SettingValues& values) {
  auto path = preferences_path();
  std::error_code ec;
  // A file that is there but cannot be read is not replaced by the new keys
  // alone.
  if (std::filesystem::exists(path, ec) && !std::ifstream(path))
    throw FileWriteError(path, WriteFault::other,
                         std::string("it cannot be read: ") + std::strerror(errno));
  auto lines = read_lines(path);
  for (const auto& [key, value] : values) set_key(lines, section, key, value);
  std::filesystem::create_directories(path.parent_path(), ec);
  if (ec) throw write_error(path, ec.value());
  std::string text;
  for (const auto& l : lines) text += l + '\n';
  replace_file(path, text);
}

bool save_settings(Ui& ui, const std::string& section, const SettingValues& values) {
  try {
    save_settings(section, values);
    return true;
  } catch (const FileWriteError& e) {
    ui.message_box(e.what(), kFileWriteTitle, MsgButtons::Ok, MsgIcon::Stop);
    return false;
  }
}

void save_setting(const std::string& section, const std::string& key, const std::string& value) {
  save_settings(section, {{key, value}});
}

int get_setting_int(const std::string& section, const std::string& key, int fallback) {
  auto v = parse_number(get_setting(section, key, ""));
  if (!v || !std::isfinite(*v)) return fallback;
  double r = round_half_even(*v, 0);
  if (r < -32768 || r > 32767) return fallback;
  return static_cast<int>(r);
}

float get_setting_float(const std::string& section, const std::string& key, float fallback) {
  auto v = parse_number(get_setting(section, key, ""));
  if (!v || !std::isfinite(*v) || std::fabs(*v) > 3.4e38) return fallback;
  return static_cast<float>(*v);
}

}  // namespace arven

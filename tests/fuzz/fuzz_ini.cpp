// The preferences file: any text read as the INI file, then a key written
// and read back.
#include <fuzzer/FuzzedDataProvider.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/preferences.h"

namespace {

// A name or value the program itself would write: printable, no line break,
// no bracket or '=' in names, no padding.
std::string plain(std::string s, bool name) {
  std::string out;
  for (char c : s) {
    const bool printable = c > ' ' && c < 0x7f;
    if (printable && !(name && (c == '=' || c == '[' || c == ']' || c == ';' || c == '#')))
      out += c;
  }
  return out.empty() ? "k" : out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::filesystem::path file =
      std::filesystem::temp_directory_path() / ("arven-fuzz-" + std::to_string(getpid()) + ".ini");
  arven::set_preferences_path(file);
  FuzzedDataProvider in(data, size);
  const std::string section = in.ConsumeRandomLengthString(16);
  const std::string key = in.ConsumeRandomLengthString(16);
  const std::string value = in.ConsumeRandomLengthString(32);
  {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << in.ConsumeRemainingBytesAsString();
  }
  arven::get_setting(section, key, "fallback");
  arven::get_setting_int(section, key, 7);
  arven::get_setting_float(section, key, 7.0f);

  const std::string s = plain(section, true), k = plain(key, true), v = plain(value, false);
  arven::save_setting(s, k, v);
  if (arven::get_setting(s, k, "") != v) std::abort();
  return 0;
}

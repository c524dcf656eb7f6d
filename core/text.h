#pragma once

#include <cctype>
#include <string>
#include <string_view>

namespace arven {

// The text with ASCII letters in lower case, for comparing names, suffixes
// and keys without regard to case; other bytes stay as they are.
inline std::string lower_case(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

}  // namespace arven

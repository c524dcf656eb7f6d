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

// The text without the blanks (spaces, tabs, line breaks) around it.
inline std::string trim_blanks(std::string_view text) {
  auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  return std::string(text);
}

}  // namespace arven

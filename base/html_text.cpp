#include "base/html_text.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/utf8.h"

namespace arven {

std::string html_escape(std::string_view text) {
  // Store and file text may carry bytes of another encoding; a page gets
  // valid UTF-8 only.
  std::string repaired;
  if (!is_valid_utf8(text)) {
    repaired = valid_utf8(text);
    text = repaired;
  }
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    switch (ch) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += ch;
    }
  }
  return out;
}

std::string html_unescape(std::string_view text) {
  static const std::array<std::pair<std::string_view, char>, 5> entities = {
      {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&#39;", '\''}}};
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '&') {
      auto it = std::find_if(entities.begin(), entities.end(),
                             [&](const auto& e) { return text.substr(i).starts_with(e.first); });
      if (it != entities.end()) {
        out += it->second;
        i += it->first.size() - 1;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

}  // namespace arven

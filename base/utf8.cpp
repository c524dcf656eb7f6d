#include "base/utf8.h"

namespace arven {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// The length of the well-formed sequence at text[i], or 0 when the bytes
// there are not one (the ranges of the Unicode standard's table of
// well-formed byte sequences).
size_t sequence_length(std::string_view text, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char b0 = byte(i);
  if (b0 < 0x80) return 1;
  size_t n = 0;
  unsigned char lo = 0x80, hi = 0xBF;  // the range of the second byte
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    n = 2;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    n = 3;
    if (b0 == 0xE0) lo = 0xA0;  // no overlong forms
    if (b0 == 0xED) hi = 0x9F;  // no surrogates
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    n = 4;
    if (b0 == 0xF0) lo = 0x90;  // no overlong forms
    if (b0 == 0xF4) hi = 0x8F;  // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (i + n > text.size()) return 0;
  if (byte(i + 1) < lo || byte(i + 1) > hi) return 0;
  for (size_t k = 2; k < n; ++k)
    if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return 0;
  return n;
}

}  // namespace

bool is_valid_utf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const size_t n = sequence_length(text, i);
    if (n == 0) return false;
    i += n;
  }
  return true;
}

std::string valid_utf8(std::string_view text) {
  if (is_valid_utf8(text)) return std::string(text);
  std::string out;
  out.reserve(text.size() + 8);
  for (size_t i = 0; i < text.size();) {
    const size_t n = sequence_length(text, i);
    if (n == 0) {
      out += kReplacement;
      ++i;
    } else {
      out.append(text.substr(i, n));
      i += n;
    }
  }
  return out;
}

}  // namespace arven

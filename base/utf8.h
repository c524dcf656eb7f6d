#pragma once

#include <string>
#include <string_view>

namespace arven {

// The text as valid UTF-8: every byte that does not begin a well-formed
// sequence (a Latin-1 letter, a stray continuation byte, an overlong or
// surrogate encoding, a sequence cut short) becomes U+FFFD. Valid text comes
// back unchanged. Every piece of store or file text passes here on its way
// into a page or a JSON answer.
std::string valid_utf8(std::string_view text);

// True when the text is valid UTF-8 already.
bool is_valid_utf8(std::string_view text);

}  // namespace arven

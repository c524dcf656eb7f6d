#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace arven {

// Text that should hold a number and does not.
class NumberError : public std::runtime_error {
 public:
  explicit NumberError(const std::string& text);
};

// Rounds to `places` decimals, half to even, deciding on the exact binary
// value of x: only an exact tie goes to the even digit, so 0.125 gives 0.12
// while 2.675 (held as 2.67499999...) gives 2.67.
double round_half_even(double x, int places);
// The value that the text of format_fixed(x, places) reads back as: x
// rounded to `places` decimals, an exact tie away from zero, and never -0.
// A value that is not finite comes back unchanged.
double round_half_away(double x, int places);

// Fixed-point text with `places` decimals ("0.000" for three): an exact tie
// of the binary value rounds away from zero; zero never prints as "-0.000".
// Uses '.'; the cell form with the locale's separator is format_fixed_cell.
std::string format_fixed(double x, int places);
std::string format_fixed_cell(double x, int places);

// A figure as a page shows it: `places` fixed decimals (rounded as
// format_fixed), digits grouped by three, the session's decimal separator.
// The group mark is "," beside a "." separator and "." beside a ",".
// Stored values, grid cells and exports keep full precision; only page text
// goes through here.
std::string format_display(double x, int places);
// Money on a page: the sign before the currency, "-€5,559,857".
std::string format_money(double x, int places);

// The locale's decimal separator, as the session knows it (default ".").
const std::string& decimal_separator();
void set_decimal_separator(std::string sep);
// The decimal separator of the user's locale (LC_NUMERIC from the
// environment), without touching the process's C locale.
std::string locale_decimal_separator();

// Number to cell text: the shortest text that reads back to the same
// double, with the session's decimal separator.
std::string number_to_cell(double x);
// The same text with '.' whatever the locale: the form for scripts and data.
std::string number_to_text(double x);
// A number as a text column of a store receives it: at most 15 significant
// digits, '.' as the decimal point, so 0.94 - 1 is kept as
// "-0.0600000000000001", as the master stores hold such differences.
std::string number_to_store_text(double x);

// Cell text to number: accepts '.' or the session's separator, leading and
// trailing blanks, a sign and an exponent. nullopt when the text is not a
// number (an empty text included).
std::optional<double> parse_number(std::string_view text);
// As parse_number, but an empty cell is 0; other non-numbers throw NumberError.
double cell_to_number(std::string_view text);

}  // namespace arven

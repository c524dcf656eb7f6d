#include "base/numbers.h"

#include <langinfo.h>
#include <locale.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace arven {

NumberError::NumberError(const std::string& text)
    : std::runtime_error("\"" + text + "\" is not a number") {}

namespace {

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

enum class TieRule { even, away };

// Decimal digits of |x| rounded to `places` (>= 0), as an integer digit
// string without leading zeros ("0" for zero); the last `places` digits
// belong after the point. Decides on the exact binary value of x: to_chars
// with a precision rounds the exact value correctly, and only an exact tie
// (where the rule matters) is told apart, without printing its expansion.
std::string rounded_digits(double ax, int places, TieRule rule) {
  // ax is a tie at `places` exactly when ax * 2^(places + 1) is an odd whole
  // number: ax * 10^places = k + 1/2 needs ax = odd / 2^(places + 1).
  bool tie = false;
  if (ax < 0x1p53) {
    double t = std::ldexp(ax, places + 1);
    tie = std::isfinite(t) && t == std::floor(t) && std::fmod(t, 2.0) == 1.0;
  }
  // A tie has exactly places + 1 decimals, so its text at that precision is
  // exact and ends in 5.
  const int precision = tie ? places + 1 : places;
  char stack_buf[400];
  std::string heap_buf;
  char* buf = stack_buf;
  size_t size = sizeof stack_buf;
  if (precision > 64) {
    heap_buf.resize(static_cast<size_t>(precision) + 340);
    buf = heap_buf.data();
    size = heap_buf.size();
  }
  auto res = std::to_chars(buf, buf + size, ax, std::chars_format::fixed, precision);
  std::string kept;
  kept.reserve(static_cast<size_t>(res.ptr - buf));
  for (const char* c = buf; c != res.ptr; ++c)
    if (*c != '.') kept.push_back(*c);
  if (tie) {
    kept.pop_back();  // the 5
    bool up = rule == TieRule::away || ((kept.back() - '0') % 2 == 1);
    if (up) {
      int i = static_cast<int>(kept.size()) - 1;
      while (i >= 0 && kept[static_cast<size_t>(i)] == '9') kept[static_cast<size_t>(i--)] = '0';
      if (i < 0)
        kept.insert(kept.begin(), '1');
      else
        kept[static_cast<size_t>(i)]++;
    }
  }
  auto nz = kept.find_first_not_of('0');
  return nz == std::string::npos ? "0" : kept.substr(nz);
}

// The double nearest to digits / 10^places: the value the decimal text reads
// back as.
double digits_value(const std::string& digits, int places) {
  if (digits.size() <= 15 && places <= 22) {
    // Both operands are exact, and the quotient is rounded once: the same
    // double as reading the decimal text.
    long long n = 0;
    for (char c : digits) n = n * 10 + (c - '0');
    return static_cast<double>(n) / kPow10[places];
  }
  std::string text = digits;
  if (places > 0) {
    auto p = static_cast<size_t>(places);
    if (text.size() <= p) text.insert(0, p + 1 - text.size(), '0');
    text.insert(text.size() - p, ".");
  }
  double v = 0;
  std::from_chars(text.data(), text.data() + text.size(), v);
  return v;
}

// Inserts the decimal point `places` digits from the right.
std::string with_point(std::string digits, int places, const std::string& sep) {
  if (places <= 0) return digits;
  auto p = static_cast<size_t>(places);
  if (digits.size() <= p) digits.insert(0, p + 1 - digits.size(), '0');
  return digits.substr(0, digits.size() - p) + sep + digits.substr(digits.size() - p);
}

std::string& separator_storage() {
  static std::string sep = ".";
  return sep;
}

}  // namespace

double round_half_even(double x, int places) {
  if (!std::isfinite(x)) return x;
  double v = digits_value(rounded_digits(std::fabs(x), places, TieRule::even), places);
  return x < 0 ? -v : v;
}

double round_half_away(double x, int places) {
  if (!std::isfinite(x)) return x;
  double v = digits_value(rounded_digits(std::fabs(x), places, TieRule::away), places);
  // format_fixed never shows "-0.000", so its text reads back as +0.
  return x < 0 && v != 0 ? -v : v;
}

std::string format_fixed(double x, int places) {
  if (!std::isfinite(x)) return number_to_cell(x);
  std::string digits = rounded_digits(std::fabs(x), places, TieRule::away);
  std::string text = with_point(digits, places, ".");
  bool zero = digits.find_first_not_of('0') == std::string::npos;
  return x < 0 && !zero ? "-" + text : text;
}

std::string format_fixed_cell(double x, int places) {
  std::string text = format_fixed(x, places);
  if (decimal_separator() != ".") {
    auto dot = text.find('.');
    if (dot != std::string::npos) text.replace(dot, 1, decimal_separator());
  }
  return text;
}

std::string format_display(double x, int places) {
  std::string text = format_fixed(x, places);
  if (!std::isfinite(x)) return text;
  const bool negative = !text.empty() && text[0] == '-';
  if (negative) text.erase(0, 1);
  auto dot = text.find('.');
  std::string whole = text.substr(0, dot);
  std::string frac = dot == std::string::npos ? std::string() : text.substr(dot + 1);
  const std::string& sep = decimal_separator();
  const char group = sep == "," ? '.' : ',';
  std::string grouped;
  for (size_t i = 0; i < whole.size(); ++i) {
    if (i > 0 && (whole.size() - i) % 3 == 0) grouped += group;
    grouped += whole[i];
  }
  std::string out = negative ? "-" : "";
  out += grouped;
  if (!frac.empty()) out += sep + frac;
  return out;
}

std::string format_money(double x, int places) {
  std::string text = format_display(x, places);
  if (!text.empty() && text[0] == '-') return "-€" + text.substr(1);
  return "€" + text;
}

const std::string& decimal_separator() {
  return separator_storage();
}

void set_decimal_separator(std::string sep) {
  separator_storage() = sep.empty() ? "." : std::move(sep);
}

std::string locale_decimal_separator() {
  locale_t loc = newlocale(LC_NUMERIC_MASK, "", static_cast<locale_t>(0));
  if (loc == static_cast<locale_t>(0)) return ".";
  std::string sep = nl_langinfo_l(RADIXCHAR, loc);
  freelocale(loc);
  return sep.empty() ? "." : sep;
}

std::string number_to_cell(double x) {
  std::string text = number_to_text(x);
  if (decimal_separator() != ".") {
    auto dot = text.find('.');
    if (dot != std::string::npos) text.replace(dot, 1, decimal_separator());
  }
  return text;
}

std::string number_to_text(double x) {
  if (std::isnan(x)) return "NaN";
  if (std::isinf(x)) return x < 0 ? "-Infinity" : "Infinity";
  if (x == 0) return "0";
  char buf[64];
  double ax = std::fabs(x);
  auto fmt = (ax >= 1e-5 && ax < 1e15) ? std::chars_format::fixed : std::chars_format::general;
  auto res = std::to_chars(buf, buf + sizeof buf, x, fmt);
  return std::string(buf, res.ptr);
}

std::string number_to_store_text(double x) {
  if (!std::isfinite(x)) return number_to_text(x);
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.15g", x);
  std::string text = buf;
  // The C locale's point, whatever LC_NUMERIC says.
  for (char& c : text)
    if (c == ',') c = '.';
  return text == "-0" ? "0" : text;
}

std::optional<double> parse_number(std::string_view text) {
  auto b = text.find_first_not_of(" \t\r\n");
  if (b == std::string_view::npos) return std::nullopt;
  auto e = text.find_last_not_of(" \t\r\n");
  std::string_view t = text.substr(b, e - b + 1);
  std::string replaced;
  const std::string& sep = decimal_separator();
  if (sep != "." && t.find(sep) != std::string_view::npos) {
    replaced = std::string(t);
    replaced.replace(replaced.find(sep), sep.size(), ".");
    t = replaced;
  }
  if (!t.empty() && t[0] == '+') t.remove_prefix(1);
  if (t.empty() || t.find_first_of("0123456789") == std::string_view::npos) return std::nullopt;
  if (t.find_first_of("nNiI") != std::string_view::npos) return std::nullopt;  // no inf/nan
  double v = 0;
  auto res = std::from_chars(t.data(), t.data() + t.size(), v);
  if (res.ec != std::errc() || res.ptr != t.data() + t.size()) return std::nullopt;
  return v;
}

double cell_to_number(std::string_view text) {
  if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) return 0;
  auto v = parse_number(text);
  if (!v) throw NumberError(std::string(text));
  return *v;
}

}  // namespace arven

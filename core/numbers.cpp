#include "core/numbers.h"

#include <langinfo.h>
#include <locale.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace arven {

NumberError::NumberError(const std::string& text)
    : std::runtime_error("\"" + text + "\" is not a number") {}

namespace {

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

enum class TieRule { even, away };

// Decimal digits of |x| rounded to `places`, as an integer digit string
// and the number of those digits that belong after the point (= places).
// Decides on the exact binary value of x.
std::string rounded_digits(double ax, int places, TieRule rule) {
  // Fast path: scale and decide when the scaled value is clearly not a tie.
  if (places >= 0 && places <= 22 && ax < 1e15) {
    double y = ax * kPow10[places];
    if (y < 4e15) {
      double fl = std::floor(y);
      double frac = y - fl;
      double margin = 4 * std::ldexp(1.0, std::ilogb(y > 1 ? y : 1) - 52);
      if (std::fabs(frac - 0.5) > margin) {
        auto n = static_cast<long long>(frac > 0.5 ? fl + 1 : fl);
        return std::to_string(n);
      }
    }
  }
  // Exact path: glibc prints the exact decimal expansion of a double.
  std::vector<char> buf(1500);
  int len = std::snprintf(buf.data(), buf.size(), "%.1080f", ax);
  std::string s(buf.data(), static_cast<size_t>(len));
  auto dot = s.find('.');
  std::string int_part = s.substr(0, dot);
  std::string frac = s.substr(dot + 1);
  std::string kept = int_part + frac.substr(0, static_cast<size_t>(places));
  char next = frac[static_cast<size_t>(places)];
  bool rest_zero =
      frac.find_first_not_of('0', static_cast<size_t>(places) + 1) == std::string::npos;
  bool up;
  if (next > '5') {
    up = true;
  } else if (next < '5') {
    up = false;
  } else if (!rest_zero) {
    up = true;
  } else {
    up = rule == TieRule::away || ((kept.back() - '0') % 2 == 1);
  }
  if (up) {
    int i = static_cast<int>(kept.size()) - 1;
    while (i >= 0 && kept[static_cast<size_t>(i)] == '9') kept[static_cast<size_t>(i--)] = '0';
    if (i < 0)
      kept.insert(kept.begin(), '1');
    else
      kept[static_cast<size_t>(i)]++;
  }
  auto nz = kept.find_first_not_of('0');
  return nz == std::string::npos ? "0" : kept.substr(nz);
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
  std::string digits = rounded_digits(std::fabs(x), places, TieRule::even);
  double v = std::strtod(with_point(digits, places, ".").c_str(), nullptr);
  return x < 0 ? -v : v;
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

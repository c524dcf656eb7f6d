// The exact rounding against a slow reference that prints the full decimal
// expansion of the double and rounds that text by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "base/numbers.h"

namespace arven {
namespace {

// Rounds the exact expansion of |x| to `places` decimals; `away` picks the
// tie rule. Returns the fixed text without sign.
std::string reference_digits(double ax, int places, bool away) {
  std::string s(1500, '\0');
  int len = std::snprintf(s.data(), s.size(), "%.1080f", ax);
  s.resize(static_cast<size_t>(len));
  auto dot = s.find('.');
  std::string kept = s.substr(0, dot) + s.substr(dot + 1, static_cast<size_t>(places));
  std::string rest = s.substr(dot + 1 + static_cast<size_t>(places));
  bool up;
  if (rest[0] != '5')
    up = rest[0] > '5';
  else if (rest.find_first_not_of('0', 1) != std::string::npos)
    up = true;
  else
    up = away || (kept.back() - '0') % 2 == 1;
  if (up) {
    int i = static_cast<int>(kept.size()) - 1;
    while (i >= 0 && kept[static_cast<size_t>(i)] == '9') kept[static_cast<size_t>(i--)] = '0';
    if (i < 0)
      kept.insert(kept.begin(), '1');
    else
      kept[static_cast<size_t>(i)]++;
  }
  auto p = kept.size() - static_cast<size_t>(places);
  std::string text = kept.substr(0, p);
  if (places > 0) text += "." + kept.substr(p);
  auto nz = text.find_first_not_of('0');
  if (nz == std::string::npos || text[nz] == '.')
    text = "0" + text.substr(nz == std::string::npos ? text.size() : nz);
  else
    text = text.substr(nz);
  return text;
}

std::string reference_fixed(double x, int places) {
  std::string t = reference_digits(std::fabs(x), places, true);
  bool zero = t.find_first_not_of("0.") == std::string::npos;
  return x < 0 && !zero ? "-" + t : t;
}

double reference_even(double x, int places) {
  double v = std::strtod(reference_digits(std::fabs(x), places, false).c_str(), nullptr);
  return x < 0 ? -v : v;
}

// Random doubles of every size, exact ties (odd multiples of 2^-(p+1)),
// their neighbours one ulp away, and decimals that look like ties.
std::vector<std::pair<double, int>> cases() {
  std::mt19937_64 rng(17);
  std::uniform_int_distribution<int> place(0, 6);
  std::uniform_real_distribution<double> unit(-1, 1);
  std::uniform_int_distribution<int> exp(-30, 60);
  std::uniform_int_distribution<long long> whole(0, 1LL << 40);
  std::vector<std::pair<double, int>> out;
  for (int i = 0; i < 12000; ++i) {
    int p = place(rng);
    double x = std::ldexp(unit(rng), exp(rng));
    out.emplace_back(x, p);
    double tie = std::ldexp(static_cast<double>(2 * whole(rng) + 1), -(p + 1));
    if (i % 2) tie = -tie;
    out.emplace_back(tie, p);
    out.emplace_back(std::nextafter(tie, 0.0), p);
    out.emplace_back(std::nextafter(tie, tie * 2), p);
    // k + 0.5 at p places written as decimal text, mostly not exact ties.
    double dec = (static_cast<double>(whole(rng) % 100000) + 0.5) / std::pow(10.0, p);
    out.emplace_back(dec, p);
  }
  for (double x : {0.0, -0.0, 0.5, 1.5, 2.5, 1e300, -1e300, 0x1p53 + 2, 4.9e-324, 9.9995, 1.9995})
    for (int p = 0; p <= 8; ++p) out.emplace_back(x, p);
  return out;
}

TEST(ExactRounding, AgreesWithTheFullExpansionOnTiesNearTiesAndRandomValues) {
  int checked = 0;
  for (auto [x, p] : cases()) {
    const std::string fixed = reference_fixed(x, p);
    ASSERT_EQ(format_fixed(x, p), fixed) << std::hexfloat << x << " at " << p;
    const double even = reference_even(x, p);
    const double got = round_half_even(x, p);
    ASSERT_EQ(std::signbit(got), std::signbit(even)) << std::hexfloat << x << " at " << p;
    ASSERT_EQ(got, even) << std::hexfloat << x << " at " << p;
    // round_half_away is the value of the fixed text, -0 never.
    const double away = round_half_away(x, p);
    ASSERT_EQ(away, std::strtod(fixed.c_str(), nullptr)) << std::hexfloat << x << " at " << p;
    ASSERT_FALSE(std::signbit(away) && away == 0) << std::hexfloat << x << " at " << p;
    ++checked;
  }
  EXPECT_GT(checked, 60000);
}

}  // namespace
}  // namespace arven

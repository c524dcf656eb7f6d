#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace arven::synth {

// What to generate: one country with the given number of NUTS3 areas (the
// coarser levels are sized from it), operations, activities and RVCs.
struct Options {
  std::filesystem::path out;
  std::string country = "SK";
  // Several countries in the same master stores, each with `nuts3` areas of
  // its own (ids numbered on across countries); empty: `country` alone.
  std::vector<std::string> countries;
  int nuts3 = 400;
  int operations = 300;
  int activities = 60;
  int rvcs = 40;
  uint32_t seed = 1;
};

// Limits the generator accepts. Each NUTS level adds one base-36 character
// to its parent's code, so a parent has at most 36 children.
inline constexpr int kMaxNuts3 = 36 * 36 * 36;
inline constexpr int kMaxOperations = 100000;
inline constexpr int kMaxCountries = 50;  // the registry's countries
// Five activities at least: every country has a class-by-class mitigation
// activity (1), an adaptation (2) and a production activity (3), a
// sequestration activity with an equilibrium (4) and a mitigation activity
// on the reserved generic RVC (5).
inline constexpr int kMinActivities = 5;
inline constexpr int kMaxActivities = 5000;
inline constexpr int kMinRvcs = 13;
inline constexpr int kMaxRvcs = 300;

// Reads the arguments of arven-synth (without the program name). Throws
// std::invalid_argument with a message for the user on anything it cannot
// accept, including out-of-range values.
Options parse_options(const std::vector<std::string>& args);

// The one-paragraph help text of arven-synth.
std::string usage();

// The countries to write: `countries`, or `country` alone.
std::vector<std::string> country_codes(const Options& options);

// Throws std::invalid_argument naming the first option out of range.
void validate(const Options& options);

// Rows per table of the two written stores, operations store first, tables
// in their creation order.
using TableCounts = std::vector<std::pair<std::string, int64_t>>;

// Writes arven_operations.mdb and arven_rvcs.mdb into options.out (created
// when missing; existing stores are replaced), each in one transaction.
// The same options give the same table contents on every platform.
TableCounts generate_country(const Options& options);

// "Operations=300 Activities=60 ..." on one line.
std::string summary_line(const TableCounts& counts);

}  // namespace arven::synth

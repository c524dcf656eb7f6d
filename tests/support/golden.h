#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "core/lookups.h"
#include "core/version.h"

namespace arven::testing {

// The lines of a text, without their line ends.
inline std::vector<std::string> text_lines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t start = 0; start < text.size();) {
    size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

// A unified diff from `before` to `after` (the hunks only, `context` lines
// around each change); empty when the texts are equal.
inline std::string unified_diff(const std::string& before, const std::string& after,
                                size_t context = 3) {
  const std::vector<std::string> a = text_lines(before), b = text_lines(after);
  // One op per line of the diff: ' ' in both, '-' only before, '+' only after.
  // The common head and tail are taken as they are; the middle is matched
  // by its longest common subsequence (when it is of a sensible size).
  size_t head = 0, tail = 0;
  while (head < a.size() && head < b.size() && a[head] == b[head]) ++head;
  while (tail < a.size() - head && tail < b.size() - head &&
         a[a.size() - 1 - tail] == b[b.size() - 1 - tail])
    ++tail;
  const size_t n = a.size() - head - tail, m = b.size() - head - tail;
  std::string ops(head, ' ');
  if (n * m <= 4'000'000) {
    std::vector<uint32_t> lcs((n + 1) * (m + 1), 0);
    auto at = [&](size_t i, size_t j) -> uint32_t& { return lcs[i * (m + 1) + j]; };
    for (size_t i = n; i-- > 0;)
      for (size_t j = m; j-- > 0;)
        at(i, j) = a[head + i] == b[head + j] ? at(i + 1, j + 1) + 1
                                              : std::max(at(i + 1, j), at(i, j + 1));
    for (size_t i = 0, j = 0; i < n || j < m;) {
      const bool same = i < n && j < m && a[head + i] == b[head + j];
      const bool removed = !same && i < n && (j == m || at(i + 1, j) >= at(i, j + 1));
      ops += same ? ' ' : removed ? '-' : '+';
      if (same || removed) ++i;
      if (!removed) ++j;
    }
  } else {
    ops += std::string(n, '-') + std::string(m, '+');
  }
  ops += std::string(tail, ' ');

  // Line numbers before each op, then the hunks: changes less than
  // 2 * context lines apart share one.
  std::vector<size_t> ai(ops.size() + 1), bi(ops.size() + 1);
  for (size_t k = 0; k < ops.size(); ++k) {
    ai[k + 1] = ai[k] + (ops[k] != '+');
    bi[k + 1] = bi[k] + (ops[k] != '-');
  }
  auto range = [](size_t from, size_t to) {
    return std::to_string(to > from ? from + 1 : from) + "," + std::to_string(to - from);
  };
  std::string out;
  for (size_t k = 0; k < ops.size();) {
    if (ops[k] == ' ') {
      ++k;
      continue;
    }
    const size_t begin = k > context ? k - context : 0;
    size_t end = k + 1;
    for (size_t q = end; q < ops.size() && q <= end + 2 * context; ++q)
      if (ops[q] != ' ') end = q + 1;
    const size_t stop = std::min(ops.size(), end + context);
    out += "@@ -" + range(ai[begin], ai[stop]) + " +" + range(bi[begin], bi[stop]) + " @@\n";
    for (size_t j = begin; j < stop; ++j)
      out += ops[j] + (ops[j] == '+' ? b[bi[j]] : a[ai[j]]) + "\n";
    k = stop;
  }
  if (out.empty() && before != after) out = "(only the line end of the last line differs)\n";
  return out;
}

// Compares a page or script with tests/golden/<name> and prints a unified
// diff when they differ; ARVEN_UPDATE_GOLDEN=1 rewrites the golden instead.
// The program version is kept out of the goldens.
inline void expect_golden(const std::string& name, std::string actual) {
  namespace fs = std::filesystem;
  actual = replace_all(actual, "Beta Version " + version_text(), "Beta Version @VERSION@");
  fs::path golden = fs::path(ARVEN_SOURCE_DIR) / "tests" / "golden" / name;
  const char* update = std::getenv("ARVEN_UPDATE_GOLDEN");
  if (update && std::string(update) == "1") {
    fs::create_directories(golden.parent_path());
    std::ofstream(golden, std::ios::binary) << actual;
    return;
  }
  ASSERT_TRUE(fs::exists(golden)) << golden << " is missing";
  std::ifstream in(golden, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  if (text.str() != actual)
    ADD_FAILURE() << name << " differs from its golden (ARVEN_UPDATE_GOLDEN=1 rewrites it)\n--- "
                  << golden.string() << "\n+++ the page made now\n"
                  << unified_diff(text.str(), actual);
}

}  // namespace arven::testing

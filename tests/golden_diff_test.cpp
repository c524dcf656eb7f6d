// The diff a golden mismatch prints: it has to point at the changed lines
// and only at them, or a failing page test is read wrongly.

#include <gtest/gtest.h>

#include <string>

#include "tests/support/golden.h"

namespace arven {
namespace {

using testing::unified_diff;

// "1\n2\n...\nn\n"
std::string numbered(int n) {
  std::string text;
  for (int i = 1; i <= n; ++i) text += std::to_string(i) + "\n";
  return text;
}

TEST(GoldenDiff, ShowsEachChangeWithItsContextAndLineNumbers) {
  EXPECT_EQ(unified_diff(numbered(20), numbered(20)), "");

  // One line changed: three lines of context each side.
  std::string changed = numbered(20);
  changed.replace(changed.find("\n10\n"), 4, "\nten\n");
  EXPECT_EQ(unified_diff(numbered(20), changed),
            "@@ -7,7 +7,7 @@\n 7\n 8\n 9\n-10\n+ten\n 11\n 12\n 13\n");

  // Changes far apart get a hunk each; a line added at the end, a line
  // removed at the start.
  std::string both = numbered(20).substr(2) + "21\n";
  EXPECT_EQ(unified_diff(numbered(20), both),
            "@@ -1,4 +1,3 @@\n-1\n 2\n 3\n 4\n"
            "@@ -18,3 +17,4 @@\n 18\n 19\n 20\n+21\n");

  // Changes five lines apart share one hunk; the lines between are matched
  // although they moved, not shown as removed and added.
  std::string near = numbered(12);
  near.replace(near.find("\n3\n"), 3, "\nthree\n");
  near.replace(near.find("\n9\n"), 3, "\n");
  EXPECT_EQ(unified_diff(numbered(12), near),
            "@@ -1,12 +1,11 @@\n 1\n 2\n-3\n+three\n 4\n 5\n 6\n 7\n 8\n-9\n 10\n 11\n 12\n");

  EXPECT_EQ(unified_diff("a\nb\n", "a\nb"), "(only the line end of the last line differs)\n");
  EXPECT_EQ(unified_diff("", "a\n"), "@@ -0,0 +1,1 @@\n+a\n");
}

}  // namespace
}  // namespace arven

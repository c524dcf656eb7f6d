#include "reports/uncertainty.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reports/explorer_window.h"
#include "support/store_fixture.h"
#include "windows/explorer.h"

namespace arven {
namespace {

// An operation whose point figures equal the sum of its activities'.
UncertainOperation operation(int64_t id, std::vector<UncertainActivity> activities) {
  UncertainOperation op;
  op.id = id;
  op.name = "Op " + std::to_string(id);
  op.activities = std::move(activities);
  for (const auto& a : op.activities)
    for (size_t h = 0; h < kHorizons; ++h) {
      op.total[h] += a.total[h];
      op.ha[h] += a.ha[h];
    }
  return op;
}

UncertainActivity activity(int group, int quality, double total) {
  UncertainActivity a;
  a.group = group;
  a.quality = quality;
  for (size_t h = 0; h < kHorizons; ++h) {
    a.total[h] = total * static_cast<double>(h + 1);
    a.ha[h] = total / 100 * static_cast<double>(h + 1);
  }
  return a;
}

double width(const Interval& i) {
  return i.high - i.low;
}

TEST(MonteCarloTest, IntervalsHoldThePointAndWidenAsQualityFalls) {
  // The same figures at every quality score, and one of two activities.
  std::vector<UncertainOperation> ops;
  for (int q = 1; q <= 5; ++q) ops.push_back(operation(q, {activity(0, q, -1000)}));
  ops.push_back(operation(6, {activity(0, 3, -600), activity(1, 5, -400)}));
  MonteCarloOptions options;
  const auto result = monte_carlo(ops, options);
  ASSERT_EQ(result.size(), ops.size());
  for (size_t o = 0; o < ops.size(); ++o)
    for (size_t h = 0; h < kHorizons; ++h)
      for (const Interval& i : {result[o].total[h], result[o].ha[h]}) {
        EXPECT_LE(i.low, i.point) << o << " " << h;
        EXPECT_GE(i.high, i.point) << o << " " << h;
      }
  for (int q = 1; q < 5; ++q)
    EXPECT_GT(width(result[static_cast<size_t>(q - 1)].total[4]),
              width(result[static_cast<size_t>(q)].total[4]))
        << "quality " << q;
  // Quality 3 at 40 %: a 90 % interval of a normal is 1.645 / 1.96 of the
  // 95 % one, so about ±33.6 % of the figure, within sampling error.
  EXPECT_NEAR(width(result[2].total[4]) / 2 / 5000, 0.40 * 1.645 / 1.96, 0.03);

  // The same seed gives the same intervals on any number of threads.
  options.threads = 1;
  const auto one = monte_carlo(ops, options);
  options.threads = 3;
  const auto three = monte_carlo(ops, options);
  for (size_t o = 0; o < ops.size(); ++o) {
    EXPECT_EQ(one[o].total[4].low, three[o].total[4].low);
    EXPECT_EQ(one[o].ha[6].high, three[o].ha[6].high);
    EXPECT_EQ(one[o].rank_stability, three[o].rank_stability);
  }
  // Another seed, other draws.
  options.seed += 1;
  EXPECT_NE(monte_carlo(ops, options)[0].total[4].low, one[0].total[4].low);
}

TEST(MonteCarloTest, NoUncertaintyNoWidthAndSeparateFiguresKeepTheirRanks) {
  std::vector<UncertainOperation> ops;
  for (int i = 1; i <= 8; ++i) ops.push_back(operation(i, {activity(0, 2, -100.0 * i)}));
  MonteCarloOptions options;
  options.top_k = 3;
  options.uncertainty = {0, 0, 0, 0, 0, 0};
  auto result = monte_carlo(ops, options);
  for (const auto& r : result) {
    EXPECT_EQ(width(r.total[4]), 0);
    EXPECT_EQ(width(r.ha[0]), 0);
    EXPECT_EQ(r.rank_stability, 1);
  }
  // The largest reduction ranks first.
  EXPECT_EQ(result[7].rank, 1);
  EXPECT_EQ(result[0].rank, 8);

  // 5 % uncertainty: intervals of about ±4 % that do not overlap, so each
  // operation stays in or out of the top 3 in every draw.
  options.uncertainty = {0, 5, 5, 5, 5, 5};
  result = monte_carlo(ops, options);
  for (size_t o = 0; o + 1 < ops.size(); ++o)
    ASSERT_LT(result[o + 1].total[4].high, result[o].total[4].low);
  for (const auto& r : result) EXPECT_EQ(r.rank_stability, 1);
  // Two operations of the same figure at the border of the top 3 swap
  // places: each keeps it in about half of the draws.
  ops[4] = operation(5, {activity(0, 2, -600)});
  result = monte_carlo(ops, options);
  EXPECT_NEAR(result[4].rank_stability, 0.5, 0.1);
  EXPECT_NEAR(result[5].rank_stability, 0.5, 0.1);
  EXPECT_EQ(result[7].rank_stability, 1);
}

class UncertaintyPageTest : public testing::StoreFixture {};

TEST_F(UncertaintyPageTest, ReadsActivitiesByGroupAndWritesThePage) {
  region("DK011", 1);
  file_db_->insert("Operations", {"Operation ID", "Operation Name"}, {4, "Ditches & <dams>"});
  const std::vector<std::string> op_cols = {"Operation ID", "Impact type", "Time horizon",
                                            "Regional impact ha", "Regional impact total"};
  file_db_->insert("Operation-Impact data", op_cols, {4, 1, 50, -1.5, -300.0});
  file_db_->insert("Operation-Impact data", op_cols, {4, 4, 50, 9.0, 900.0});  // production
  const std::vector<std::string> act_cols = {
      "Operation ID",       "Activity ID",           "Impact type", "Time horizon",
      "Regional impact ha", "Regional impact total", "Data_Quality"};
  // Activity 1 at two scores (one group), activity 2, and a production row.
  file_db_->insert("Activity-Impact data", act_cols, {4, 1, 1, 50, -1.0, -200.0, 2});
  file_db_->insert("Activity-Impact data", act_cols, {4, 1, 3, 50, -0.25, -50.0, 4});
  file_db_->insert("Activity-Impact data", act_cols, {4, 2, 1, 50, -0.25, -50.0, 4});
  file_db_->insert("Activity-Impact data", act_cols, {4, 3, 4, 50, 9.0, 900.0, 1});

  const auto ops = read_uncertain_operations(*file_db_);
  ASSERT_EQ(ops.size(), 1u);
  EXPECT_EQ(ops[0].total[4], -300);
  ASSERT_EQ(ops[0].activities.size(), 3u);
  EXPECT_EQ(ops[0].activities[0].group, ops[0].activities[1].group);
  EXPECT_NE(ops[0].activities[0].group, ops[0].activities[2].group);
  EXPECT_EQ(ops[0].activities[1].quality, 4);

  ASSERT_TRUE(dispatch_navigation(ui_, "10.unk"));
  ASSERT_TRUE(ui_.messages.empty()) << ui_.messages[0].text;
  EXPECT_EQ(ui_.log.back(), "navigate:explorer:uncertainty.htm");
  const std::string p = page("uncertainty.htm");
  EXPECT_NE(p.find("Ditches &amp; &lt;dams&gt;"), std::string::npos);
  EXPECT_NE(p.find("Rank stability (top 10)"), std::string::npos);
  EXPECT_NE(p.find("<a href=5.unk>5</a>"), std::string::npos);
  const GridTable& g = explorer_window().UncertaintyGrid;
  ASSERT_EQ(g.rows(), 1 + kHorizons);
  EXPECT_EQ(g.cell(5, 2), "50");
  EXPECT_EQ(g.cell(5, 3), "-300");
  EXPECT_EQ(g.cell(5, 9), "1");
  EXPECT_EQ(g.cell(4, 9), "");
}

}  // namespace
}  // namespace arven

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "core/ui.h"
#include "stores/db.h"

namespace arven {

// How sure the GHG figures of the chosen operations are: a seeded Monte
// Carlo run that varies each activity's figures within the relative
// uncertainty of its data-quality score, and the "Uncertainty" page.

inline constexpr int kHorizons = 7;  // 1, 5, 10, 25, 50, 100 and 250 years

// The GHG figures of one activity of an operation at each horizon, all of
// one data-quality score. Entries with the same `group` (the same activity)
// vary together in a draw.
struct UncertainActivity {
  int group = 0;
  int quality = 0;  // 1 (lowest) to 5; another score has the uncertainty of 1
  std::array<double, kHorizons> total{};
  std::array<double, kHorizons> ha{};
};

// One operation's stored GHG figures (the point figures) and its activities.
struct UncertainOperation {
  int64_t id = 0;
  std::string name;  // plain text
  std::array<double, kHorizons> total{};
  std::array<double, kHorizons> ha{};
  std::vector<UncertainActivity> activities;
};

struct MonteCarloOptions {
  int draws = 1000;
  uint64_t seed = 20240305;
  // Relative uncertainty (%) by score 1..5 (index 0 unused): the half-width
  // of a figure's 95 % interval as a share of the figure.
  std::array<int, 6> uncertainty{0, 100, 60, 40, 25, 10};
  int rank_horizon = 4;  // index into the horizons: 4 is 50 years
  int top_k = 5;
  int threads = 0;  // 0: one per core
};

// A point figure and its 90 % interval (the 5th and 95th percentiles).
struct Interval {
  double point = 0, low = 0, high = 0;
};

struct OperationUncertainty {
  std::array<Interval, kHorizons> total;
  std::array<Interval, kHorizons> ha;
  // The point rank (1 = the largest reduction, the most negative total, at
  // the rank horizon) and the share of draws in which the operation keeps
  // its place in the top k: inside it when its point figure is, outside it
  // when not.
  int rank = 0;
  double rank_stability = 0;
};

// In each draw every activity group gets one standard normal z, and each of
// its figures x adds x × (uncertainty / 100 / 1.96) × z to the operation's
// point figure; so an uncertainty of 0 leaves every draw at the point. The
// draws are split over the threads, each draw seeded from the seed and its
// number, so that the result does not depend on the number of threads.
// Results in the order of `operations`.
std::vector<OperationUncertainty> monte_carlo(const std::vector<UncertainOperation>& operations,
                                              const MonteCarloOptions& options);

// The chosen operations of an assessment file with their GHG figures (impact
// types other than adaptation and production) from `Operation-Impact data`
// and `Activity-Impact data`. Throws StoreError.
std::vector<UncertainOperation> read_uncertain_operations(const Db& file);

// Runs the draws for the open file with the session's uncertainty table and
// ranking horizon, writes "uncertainty.htm" (the intervals of every
// operation at the ranking horizon with rank stability in the top k, the
// GHG cost curve with each bar's interval, every horizon's intervals, the
// export links) and shows it in `window` (the explorer, or the report window
// beside it). A failure is shown to the user.
void uncertainty_html(Ui& ui, int top_k, const std::string& window = "explorer");

}  // namespace arven

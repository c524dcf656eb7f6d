#include "reports/uncertainty.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <thread>
#include <utility>

#include "base/utf8.h"
#include "engine/regional_impact.h"
#include "engine/stored_figures.h"

namespace arven {

namespace {

// The index of a horizon in years, -1 for another.
int horizon_at(int64_t years) {
  for (int h = 0; h < kHorizons; ++h)
    if (kHorizonYears[static_cast<size_t>(h)] == years) return h;
  return -1;
}

// The value at share p of sorted values, interpolated between neighbours.
double percentile(const std::vector<double>& sorted, double p) {
  if (sorted.empty()) return 0;
  const double at = p * static_cast<double>(sorted.size() - 1);
  const size_t below = static_cast<size_t>(at);
  const size_t above = std::min(below + 1, sorted.size() - 1);
  const double f = at - static_cast<double>(below);
  return sorted[below] + f * (sorted[above] - sorted[below]);
}

}  // namespace

std::vector<OperationUncertainty> monte_carlo(const std::vector<UncertainOperation>& operations,
                                              const MonteCarloOptions& options) {
  const size_t n = operations.size();
  const int draws = std::max(1, options.draws);
  const int rank_h = std::clamp(options.rank_horizon, 0, kHorizons - 1);
  const size_t k = static_cast<size_t>(std::max(0, options.top_k));
  // The spread a z of 1 gives each figure, and the groups' numbering.
  std::vector<std::vector<double>> factor(n);
  std::vector<int> groups(n, 0);
  for (size_t o = 0; o < n; ++o) {
    for (const UncertainActivity& a : operations[o].activities) {
      const int q = a.quality >= 1 && a.quality <= 5 ? a.quality : 1;
      factor[o].push_back(options.uncertainty[static_cast<size_t>(q)] / 100.0 / 1.96);
      groups[o] = std::max(groups[o], a.group + 1);
    }
  }
  // The point ranking: the most negative total first, ties in list order.
  std::vector<size_t> order(n);
  std::iota(order.begin(), order.end(), 0);
  auto ranked = [&](auto&& value_of) {
    std::vector<size_t> idx = order;
    std::stable_sort(idx.begin(), idx.end(),
                     [&](size_t a, size_t b) { return value_of(a) < value_of(b); });
    return idx;
  };
  const std::vector<size_t> point_rank =
      ranked([&](size_t o) { return operations[o].total[static_cast<size_t>(rank_h)]; });
  std::vector<char> in_point_top(n, 0);
  std::vector<int> rank_of(n, 0);
  for (size_t r = 0; r < n; ++r) {
    in_point_top[point_rank[r]] = r < k;
    rank_of[point_rank[r]] = static_cast<int>(r + 1);
  }

  // draws_of[o][h] and ha_of[o][h]: the draws of each figure.
  std::vector<std::array<std::vector<double>, kHorizons>> total_draws(n), ha_draws(n);
  for (size_t o = 0; o < n; ++o)
    for (int h = 0; h < kHorizons; ++h) {
      total_draws[o][static_cast<size_t>(h)].resize(static_cast<size_t>(draws));
      ha_draws[o][static_cast<size_t>(h)].resize(static_cast<size_t>(draws));
    }
  unsigned threads = options.threads > 0 ? static_cast<unsigned>(options.threads)
                                         : std::max(1u, std::thread::hardware_concurrency());
  threads = std::min<unsigned>(threads, static_cast<unsigned>(draws));
  std::vector<std::vector<int>> kept(threads, std::vector<int>(n, 0));

  auto run = [&](unsigned t, int from, int to) {
    std::vector<double> z, at_rank(n);
    std::vector<size_t> idx(n);
    for (int d = from; d < to; ++d) {
      std::mt19937_64 rng(options.seed ^ (0x9E3779B97F4A7C15ULL * static_cast<uint64_t>(d + 1)));
      std::normal_distribution<double> normal;
      for (size_t o = 0; o < n; ++o) {
        const UncertainOperation& op = operations[o];
        z.resize(static_cast<size_t>(groups[o]));
        for (double& v : z) v = normal(rng);
        std::array<double, kHorizons> total = op.total, ha = op.ha;
        for (size_t a = 0; a < op.activities.size(); ++a) {
          const UncertainActivity& act = op.activities[a];
          const double s = factor[o][a] * z[static_cast<size_t>(act.group)];
          for (size_t h = 0; h < kHorizons; ++h) {
            total[h] += act.total[h] * s;
            ha[h] += act.ha[h] * s;
          }
        }
        for (size_t h = 0; h < kHorizons; ++h) {
          total_draws[o][h][static_cast<size_t>(d)] = total[h];
          ha_draws[o][h][static_cast<size_t>(d)] = ha[h];
        }
        at_rank[o] = total[static_cast<size_t>(rank_h)];
      }
      std::iota(idx.begin(), idx.end(), 0);
      std::stable_sort(idx.begin(), idx.end(),
                       [&](size_t a, size_t b) { return at_rank[a] < at_rank[b]; });
      std::vector<char> in_top(n, 0);
      for (size_t r = 0; r < std::min(k, n); ++r) in_top[idx[r]] = 1;
      for (size_t o = 0; o < n; ++o) kept[t][o] += in_top[o] == in_point_top[o];
    }
  };
  std::vector<std::thread> pool;
  for (unsigned t = 0; t < threads; ++t) {
    const int from = static_cast<int>(static_cast<int64_t>(draws) * t / threads);
    const int to = static_cast<int>(static_cast<int64_t>(draws) * (t + 1) / threads);
    if (t + 1 == threads)
      run(t, from, to);
    else
      pool.emplace_back(run, t, from, to);
  }
  for (std::thread& th : pool) th.join();

  std::vector<OperationUncertainty> out(n);
  for (size_t o = 0; o < n; ++o) {
    for (size_t h = 0; h < kHorizons; ++h) {
      for (auto [draws_of, point, interval] :
           {std::tuple{&total_draws[o][h], operations[o].total[h], &out[o].total[h]},
            std::tuple{&ha_draws[o][h], operations[o].ha[h], &out[o].ha[h]}}) {
        std::sort(draws_of->begin(), draws_of->end());
        *interval = {point, percentile(*draws_of, 0.05), percentile(*draws_of, 0.95)};
      }
    }
    int sum = 0;
    for (const auto& counts : kept) sum += counts[o];
    out[o].rank = rank_of[o];
    out[o].rank_stability = static_cast<double>(sum) / draws;
  }
  return out;
}

std::vector<UncertainOperation> read_uncertain_operations(const Db& file) {
  std::vector<UncertainOperation> ops;
  std::map<int64_t, size_t> at;
  {
    auto q = file.query(
        "SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" ORDER BY rowid");
    while (q.next()) {
      const int64_t id = q.get(0).as_int();
      if (at.count(id)) continue;
      at.emplace(id, ops.size());
      ops.push_back({id, valid_utf8(q.get(1).as_text()), {}, {}, {}});
    }
  }
  const StoredFigures figures(file);
  for (UncertainOperation& op : ops)
    for (int h = 0; h < kHorizons; ++h)
      if (const auto* row = figures.first(op.id, 1, kHorizonYears[static_cast<size_t>(h)])) {
        op.total[static_cast<size_t>(h)] = row->total.as_double();
        op.ha[static_cast<size_t>(h)] = row->ha.as_double();
      }
  // Each operation's activities: one entry per activity and score, one group
  // per activity.
  std::map<std::pair<size_t, int64_t>, int> group_of;
  std::map<std::tuple<size_t, int64_t, int>, size_t> entry_of;
  auto q = file.query(
      "SELECT \"Operation ID\", \"Activity ID\", \"Impact type\", \"Time horizon\", \"Regional "
      "impact ha\", \"Regional impact total\", \"Data_Quality\" FROM \"Activity-Impact data\" "
      "ORDER BY rowid");
  while (q.next()) {
    auto op = at.find(q.get(0).as_int());
    const int64_t type = q.get(2).as_int();
    const int h = horizon_at(q.get(3).as_int());
    if (op == at.end() || type == 2 || type == 4 || h < 0) continue;
    UncertainOperation& o = ops[op->second];
    const int64_t activity = q.get(1).as_int();
    const int quality = static_cast<int>(q.get(6).as_int());
    auto g = group_of.try_emplace({op->second, activity}, static_cast<int>(group_of.size())).first;
    auto e = entry_of.find({op->second, activity, quality});
    if (e == entry_of.end()) {
      e = entry_of.emplace(std::tuple{op->second, activity, quality}, o.activities.size()).first;
      o.activities.push_back({g->second, quality, {}, {}});
    }
    UncertainActivity& a = o.activities[e->second];
    a.total[static_cast<size_t>(h)] += q.get(5).as_double();
    a.ha[static_cast<size_t>(h)] += q.get(4).as_double();
  }
  // Groups numbered from 0 within each operation.
  for (UncertainOperation& o : ops) {
    std::map<int, int> renumber;
    for (UncertainActivity& a : o.activities)
      a.group = renumber.try_emplace(a.group, static_cast<int>(renumber.size())).first->second;
  }
  return ops;
}

}  // namespace arven

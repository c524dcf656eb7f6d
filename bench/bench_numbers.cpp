#include <benchmark/benchmark.h>

#include "base/numbers.h"

// Formatting and rounding sit on the hot path of impact generation.
static void BM_format_fixed(benchmark::State& state) {
  double x = 0.1234567;
  for (auto _ : state) {
    benchmark::DoNotOptimize(arven::format_fixed(x, 3));
    x += 0.0001;
  }
}
BENCHMARK(BM_format_fixed);

static void BM_round_half_even(benchmark::State& state) {
  double x = 12.3456789;
  for (auto _ : state) {
    benchmark::DoNotOptimize(arven::round_half_even(x, 3));
    x += 0.0001;
  }
}
BENCHMARK(BM_round_half_even);

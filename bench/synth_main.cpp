// arven-synth: writes the two master stores of one synthetic country.
#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/synthetic_country.h"

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  for (const auto& a : args)
    if (a == "--help" || a == "-h") {
      std::printf("%s\n", arven::synth::usage().c_str());
      return 0;
    }
  arven::synth::Options options;
  try {
    options = arven::synth::parse_options(args);
  } catch (const std::invalid_argument& e) {
    std::fprintf(stderr, "arven-synth: %s\n%s\n", e.what(), arven::synth::usage().c_str());
    return 2;
  }
  try {
    const auto start = std::chrono::steady_clock::now();
    const auto counts = arven::synth::generate_country(options);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("arven-synth: %s in %s (%.2f s): %s\n", options.country.c_str(),
                options.out.string().c_str(), seconds, arven::synth::summary_line(counts).c_str());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "arven-synth: %s\n", e.what());
    return 1;
  }
  return 0;
}

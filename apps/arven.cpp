// The user build: start-up, then the windows served to the browser on
// 127.0.0.1.
#include <iostream>

#include "apps/app_options.h"
#include "apps/serve_windows.h"

int main(int argc, char** argv) {
  using namespace arven;
  AppOptions options;
  try {
    options = parse_app_options(argc, argv);
    if (!options.args.empty()) throw std::invalid_argument("unknown argument " + options.args[0]);
  } catch (const std::invalid_argument& e) {
    std::cerr << "arven: " << e.what() << "\nusage: arven [--app-dir DIR] [--port N] "
              << "[--no-browser] [--token T]\n";
    return 2;
  }
  return serve_windows(options, 0, "arven");
}

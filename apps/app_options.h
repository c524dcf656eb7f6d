#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace arven {

// Command-line options of the programs: only what stands in for the
// desktop platform (--app-dir, --port, --no-browser, --token) and the
// batch commands of the admin build.
struct AppOptions {
  std::filesystem::path app_dir;  // the program folder
  int port = 8118;
  bool port_given = false;
  bool no_browser = false;
  std::string token;
  std::vector<std::string> args;  // what is left: a batch command and its arguments
};

// Parses argv; throws std::invalid_argument with a message for the user.
AppOptions parse_app_options(int argc, char** argv);

// The program folder when none is given: "app" beside the executable, the
// folder that the set-up builds.
std::filesystem::path default_app_dir();

}  // namespace arven

#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace arven {

// Command-line options of the programs: only what stands in for the
// desktop platform (--app-dir, --port, --no-browser, --token), --help and
// --version, and the batch commands of the admin build.
struct AppOptions {
  std::filesystem::path app_dir;     // the program folder: stores, pages, exports
  std::filesystem::path assets_dir;  // graphics, scripts and help: app_dir, or share/arven
  int port = 8118;
  bool port_given = false;
  bool no_browser = false;
  bool help = false;
  bool version = false;
  std::string token;
  std::vector<std::string> args;  // what is left: a batch command and its arguments
};

// Parses argv; throws std::invalid_argument with a message for the user.
// The folders are left to find_folders, once the command line is known to
// be good: a wrong one makes no folder.
AppOptions parse_app_options(int argc, char** argv);

// Sets app_dir and assets_dir (see core/program_folders.h): an installed
// program's user folder is made ready here, `admin` adding the master
// stores. When it cannot be made, says why on stderr and returns false.
bool find_folders(AppOptions& options, std::string_view program, bool admin = false);

// "PROGRAM X.Y.Z", the line of --version.
std::string version_line(std::string_view program);

// The answer to --help or --version, printed to stdout: true when one was
// asked for and the program ends here.
bool print_help_or_version(const AppOptions& options, std::string_view program,
                           std::string_view usage);

// A command line that is not understood: one line naming the fault, then
// the usage, on stderr; returns the exit status 2.
int usage_error(std::string_view program, const std::string& problem, std::string_view usage);

}  // namespace arven

#include "apps/app_options.h"

#include <iostream>
#include <optional>
#include <stdexcept>

#include "base/replace_file.h"
#include "core/program_folders.h"

namespace arven {

namespace {

std::filesystem::path own_executable() {
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::filesystem::current_path() / "arven" : exe;
}

}  // namespace

AppOptions parse_app_options(int argc, char** argv) {
  AppOptions o;
  auto value = [&](int& i, const std::string& name) -> std::string {
    if (i + 1 >= argc) throw std::invalid_argument(name + " needs a value");
    return argv[++i];
  };
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--app-dir") {
      o.app_dir = value(i, a);
    } else if (a == "--port") {
      std::string v = value(i, a);
      size_t used = 0;
      int port = 0;
      try {
        port = std::stoi(v, &used);
      } catch (const std::exception&) {
        used = 0;
      }
      if (used != v.size() || port < 0 || port > 65535)
        throw std::invalid_argument(
            "--port needs a number from 0 (any free port) to 65535, not \"" + v + "\"");
      o.port = port;
      o.port_given = true;
    } else if (a == "--no-browser") {
      o.no_browser = true;
    } else if (a == "--token") {
      o.token = value(i, a);
    } else if (a == "--help" || a == "-h") {
      o.help = true;
    } else if (a == "--version") {
      o.version = true;
    } else {
      o.args.push_back(a);
    }
  }
  return o;
}

bool find_folders(AppOptions& options, std::string_view program, bool admin) {
  std::optional<std::filesystem::path> given;
  if (!options.app_dir.empty()) given = options.app_dir;
  try {
    ProgramFolders folders = program_folders(given, own_executable(), admin);
    options.app_dir = std::filesystem::absolute(folders.app);
    options.assets_dir = std::filesystem::absolute(folders.assets);
    return true;
  } catch (const FileWriteError& e) {
    std::cerr << program << ": " << e.what() << "\n";
    return false;
  }
}

std::string version_line(std::string_view program) {
  return std::string(program) + " " + std::to_string(ARVEN_VERSION_MAJOR) + "." +
         std::to_string(ARVEN_VERSION_MINOR) + "." + std::to_string(ARVEN_VERSION_REVISION);
}

bool print_help_or_version(const AppOptions& options, std::string_view program,
                           std::string_view usage) {
  if (options.help)
    std::cout << usage;
  else if (options.version)
    std::cout << version_line(program) << "\n";
  return options.help || options.version;
}

int usage_error(std::string_view program, const std::string& problem, std::string_view usage) {
  std::cerr << program << ": " << problem << "\n" << usage;
  return 2;
}

}  // namespace arven

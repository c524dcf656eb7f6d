#include "apps/app_options.h"

#include <stdexcept>

namespace arven {

std::filesystem::path default_app_dir() {
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return std::filesystem::current_path() / "app";
  return exe.parent_path() / "app";
}

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
    } else {
      o.args.push_back(a);
    }
  }
  if (o.app_dir.empty()) o.app_dir = default_app_dir();
  o.app_dir = std::filesystem::absolute(o.app_dir);
  return o;
}

}  // namespace arven

// The user build. Runs the start-up; the browser windows come with the
// web shell.
#include <iostream>

#include "apps/app_options.h"
#include "core/console_ui.h"
#include "core/session.h"
#include "core/startup.h"

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
  session().admin_mode = 0;
  session().app_folder = options.app_dir;
  ConsoleUi ui(std::cout);
  Main(ui, {});
  std::cout << "Program folder: " << options.app_dir.string() << "\n";
  for (int cc = 1; cc <= kCountryCount; ++cc)
    if (session().country_installed[static_cast<size_t>(cc)])
      std::cout << "Installed: " << session().country_name[static_cast<size_t>(cc)] << "\n";
  std::cout << "Default store: "
            << (session().ops_db_path.empty() ? "(none)" : session().ops_db_path) << "\n";
  return 0;
}

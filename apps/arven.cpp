// The user build: start-up, then the windows served to the browser on
// 127.0.0.1. `arven --check-updates` prints the update table as CSV
// instead, for scripts and for administrators checking their server.
#include <iostream>

#include "apps/app_options.h"
#include "apps/serve_windows.h"
#include "core/console_ui.h"
#include "core/session.h"
#include "core/startup.h"
#include "settings/update_check.h"
#include "stores/schema.h"

namespace {

int check_updates(const arven::AppOptions& options) {
  using namespace arven;
  Session& s = session();
  s.app_folder = options.app_dir;
  s.db_version = kDbVersion;
  ConsoleUi ui(std::cerr);  // messages go to stderr, the table to stdout
  detect_country_stores(&ui);
  UpdateTable table;
  load_update_table(table);
  checkforupdates(ui, table);
  std::cout << update_table_csv(table.table);
  return 0;
}

constexpr const char* kUsage =
    "usage: arven [--app-dir DIR] [--port N] [--no-browser] [--token T]\n"
    "       arven --check-updates [--app-dir DIR]\n"
    "       arven --help | --version\n"
    "Starts ARVEN and opens its main window in the browser.\n"
    "  --app-dir DIR    program folder (stores, pages, exports); default: app beside\n"
    "                   the program in its build tree, $XDG_DATA_HOME/arven when installed\n"
    "  --port N         port on 127.0.0.1 (0: any free port; default 8118)\n"
    "  --no-browser     print the address instead of opening the browser\n"
    "  --token T        the session token (default: a random one)\n"
    "  --check-updates  print the update table as CSV and end\n"
    "  --help           print this help and end\n"
    "  --version        print the version and end\n";

}  // namespace

int main(int argc, char** argv) {
  using namespace arven;
  AppOptions options;
  bool check = false;
  try {
    options = parse_app_options(argc, argv);
    check = options.args.size() == 1 && options.args[0] == "--check-updates";
    if (!check && !options.args.empty())
      throw std::invalid_argument("unknown argument " + options.args[0]);
  } catch (const std::invalid_argument& e) {
    return usage_error("arven", e.what(), kUsage);
  }
  if (print_help_or_version(options, "arven", kUsage)) return 0;
  if (!find_folders(options, "arven")) return 1;
  if (check) return check_updates(options);
  return serve_windows(options, 0, "arven");
}

// The admin build: everything of the user build plus data preparation.
//   arven-admin [--app-dir DIR]                       start-up of the admin build
//   arven-admin import-masters --from DIR [--app-dir DIR]
//                                                     load master stores from CSV text
#include <iostream>

#include "apps/app_options.h"
#include "core/console_ui.h"
#include "core/session.h"
#include "core/startup.h"
#include "prep/master_import.h"

namespace {

int usage(const std::string& problem) {
  std::cerr << "arven-admin: " << problem << "\n"
            << "usage: arven-admin [--app-dir DIR]\n"
            << "       arven-admin import-masters --from CSV_DIR [--app-dir DIR]\n";
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace arven;
  AppOptions options;
  try {
    options = parse_app_options(argc, argv);
  } catch (const std::invalid_argument& e) {
    return usage(e.what());
  }
  session().admin_mode = 1;
  session().app_folder = options.app_dir;
  const auto& args = options.args;
  try {
    if (!args.empty() && args[0] == "import-masters") {
      if (args.size() != 3 || args[1] != "--from") return usage("import-masters needs --from DIR");
      auto dbases = options.app_dir / "dbases";
      import_master_csv(args[2], dbases / "arven_operations.mdb", dbases / "arven_rvcs.mdb");
      std::cout << "Master stores written to " << dbases.string() << "\n";
      return 0;
    }
    if (!args.empty()) return usage("unknown command " + args[0]);
    ConsoleUi ui(std::cout);
    Main(ui, {});
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "arven-admin: " << e.what() << "\n";
    return 1;
  }
}

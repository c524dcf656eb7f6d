// The separate downloader program. It installs a published country store
// archive into the program folder's dbases/.
//   arven-downloader --install-archive ZIP [--app-dir DIR]
// Fetching from the update server comes with the update mechanism; until
// then the archive is given as a file.
#include <iostream>

#include "apps/app_options.h"
#include "settings/zip_files.h"

int main(int argc, char** argv) {
  using namespace arven;
  AppOptions options;
  try {
    options = parse_app_options(argc, argv);
  } catch (const std::invalid_argument& e) {
    std::cerr << "arven-downloader: " << e.what() << "\n";
    return 2;
  }
  const auto& args = options.args;
  if (args.size() != 2 || args[0] != "--install-archive") {
    std::cerr << "usage: arven-downloader --install-archive ZIP [--app-dir DIR]\n";
    return 2;
  }
  auto dbases = options.app_dir / "dbases";
  std::string message;
  int rc = unzip_to_folder(args[1], dbases, &message);
  if (rc != 0) {
    std::cerr << "arven-downloader: " << args[1] << ": " << message << "\n";
    return 1;
  }
  std::cout << "Installed " << args[1] << " into " << dbases.string() << "\n";
  return 0;
}

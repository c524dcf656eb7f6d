// The separate downloader program. It installs the item named by the
// preference "Item to download" ([Download]) from the update server, then
// starts the program again:
//   arven-downloader [--app-dir DIR] [--wait-pid PID] [-- PROGRAM ARGS...]
// and it installs an archive at hand, with the same checks:
//   arven-downloader [--app-dir DIR] --install-archive ZIP [--country CC]
// The outcome is printed and kept in [Download] for the program to show
// when it starts again: "Installed" (the country index) after an install,
// otherwise "Result", the reason.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <thread>

#include "apps/app_options.h"
#include "base/replace_file.h"
#include "core/preferences.h"
#include "core/registry.h"
#include "settings/store_install.h"
#include "settings/update_check.h"
#include "settings/update_server.h"
#include "shell/progress_page.h"

namespace {

namespace fs = std::filesystem;
using namespace arven;

constexpr const char* kUsage =
    "usage: arven-downloader [--app-dir DIR] [--wait-pid PID] [-- PROGRAM ARGS...]\n"
    "       arven-downloader [--app-dir DIR] --install-archive ZIP [--country CC]\n"
    "       arven-downloader --help | --version\n"
    "Installs the country store named in the preferences ([Download] \"Item to download\")\n"
    "from the update server, or the archive ZIP, into the program folder's dbases/, then\n"
    "starts PROGRAM ARGS... if given (after the program with PID has ended).\n"
    "  --app-dir DIR  program folder; default: app beside the program in its build tree,\n"
    "                 $XDG_DATA_HOME/arven when installed\n";

// Waits (at most 30 s) for the program that started us to end.
void wait_for(pid_t pid) {
  for (int i = 0; i < 600 && (::kill(pid, 0) == 0 || errno == EPERM); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

std::string install_local(const fs::path& zip, std::string code, const fs::path& app_dir) {
  if (code.empty()) {
    // arven_db_<CC>.zip, as the pre-processor names its archives.
    std::string name = zip.filename().string();
    if (name.size() == 15 && name.rfind("arven_db_", 0) == 0 && name.substr(11) == ".zip")
      code = name.substr(9, 2);
  }
  int cc = country_index_by_code(code);
  if (cc < 1) return "name the country with --country CC";
  std::string sha;
  fs::path sum = zip;
  sum += ".sha256";
  std::error_code ec;
  if (fs::exists(sum, ec)) {
    std::ifstream in(sum);
    std::string line;
    std::getline(in, line);
    sha = sha256_of_line(line);
    if (sha.empty()) return sum.string() + " is not a SHA-256 line";
  }
  return install_store_archive(zip, cc, app_dir / "dbases", sha);
}

// The value behind `flag` among the arguments of the program to restart.
std::string restart_value(const std::vector<char*>& restart, const char* flag) {
  for (size_t i = 0; i + 1 < restart.size(); ++i)
    if (std::strcmp(restart[i], flag) == 0) return restart[i + 1];
  return "";
}

// Says how far the install is, on stdout and to the page left open.
using Report = std::function<void(const std::string&)>;

// Installs the item named by "Item to download": "" on success, otherwise why not.
std::string install_item(const std::string& item, const fs::path& app_dir, const Report& report) {
  int cc = -1;
  try {
    size_t used = 0;
    cc = std::stoi(item, &used);
    if (used != item.size()) cc = -1;
  } catch (const std::exception&) {
    cc = -1;
  }
  if (cc == 0)
    return "A new version of the software cannot be installed by the downloader. Please fetch "
           "the new installer from the ARVEN website and install it by hand.";
  std::string code = country_code_by_index(cc);
  if (code.empty()) return "There is nothing to download (Item to download is \"" + item + "\").";
  UpdateServer server;
  int shown = -1;
  std::string why = download_store(server, cc, app_dir, [&](uint64_t done, uint64_t total) {
    int percent = total ? static_cast<int>(done * 100 / total) : 0;
    if (percent / 10 == shown / 10 && shown >= 0) return;
    shown = percent;
    report("Downloading arven_db_" + code + ".zip: " + std::to_string(percent) + "%");
  });
  if (!why.empty())
    return "The database for " + country_display_name(cc) + " could not be installed: " + why + ".";
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  // Everything after "--" is the program to start again, untouched.
  int own = argc;
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], "--") == 0) {
      own = i;
      break;
    }
  std::vector<char*> restart(argv + std::min(own + 1, argc), argv + argc);
  AppOptions options;
  try {
    options = parse_app_options(own, argv);
  } catch (const std::invalid_argument& e) {
    return usage_error("arven-downloader", e.what(), kUsage);
  }
  if (print_help_or_version(options, "arven-downloader", kUsage)) return 0;
  // Sockets and files of the program that started us stay with it.
  ::close_range(3, ~0U, 0);

  fs::path archive;
  std::string code;
  std::optional<pid_t> wait_pid;
  const auto& args = options.args;
  for (size_t i = 0; i < args.size(); ++i) {
    bool has_value = i + 1 < args.size();
    if (args[i] == "--wait-pid" && has_value) {
      wait_pid = static_cast<pid_t>(std::atol(args[++i].c_str()));
    } else if (args[i] == "--install-archive" && has_value) {
      archive = args[++i];
    } else if (args[i] == "--country" && has_value) {
      code = args[++i];
    } else {
      return usage_error("arven-downloader", "unknown argument " + args[i], kUsage);
    }
  }
  if (wait_pid) wait_for(*wait_pid);
  if (!find_folders(options, "arven-downloader")) return 1;

  std::string result;
  if (!archive.empty()) {
    result = install_local(archive, code, options.app_dir);
    if (result.empty()) std::cout << "Installed " << archive.string() << "\n";
  } else {
    // The page the program left open polls the program's address; until
    // the program is back it learns from here how far the install is.
    std::optional<shell::ProgressPage> page;
    int port = std::atoi(restart_value(restart, "--port").c_str());
    std::string token = restart_value(restart, "--token");
    if (port > 0 && !token.empty()) page.emplace(port, token);
    auto report = [&page](const std::string& text) {
      std::cout << text << std::endl;
      if (page) page->set(text);
    };
    report("Preparing the download");
    std::string item = get_setting("Download", "Item to download", "");
    result = install_item(item, options.app_dir, report);
    report(result.empty() ? "Installed; starting ARVEN again" : result);
    // The result is shown by the program at its next start: made plain text
    // first. A disk that cannot take it does not keep the program from
    // starting again.
    try {
      save_settings("Download", {{"Item to download", ""},
                                 {"Installed", result.empty() ? item : ""},
                                 {"Result", printable_ascii(result)}});
    } catch (const FileWriteError& e) {
      std::cerr << "arven-downloader: " << e.what() << "\n";
    }
  }
  if (!result.empty()) std::cerr << "arven-downloader: " << result << "\n";
  if (!restart.empty()) {
    std::cout << "arven-downloader: restarting " << restart[0] << " (pid " << ::getpid() << ")"
              << std::endl;
    restart.push_back(nullptr);
    ::execv(restart[0], restart.data());
    std::cerr << "arven-downloader: cannot start " << restart[0] << ": " << std::strerror(errno)
              << "\n";
    return 1;
  }
  return result.empty() ? 0 : 1;
}

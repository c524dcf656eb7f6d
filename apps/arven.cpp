// The user build: start-up, then the windows served to the browser on
// 127.0.0.1. `arven --check-updates` prints the update table as CSV
// instead, for scripts and for administrators checking their server, and
// `arven report FILE.arv --out DIR` writes the report pack of an assessment
// file without a browser.
#include <iostream>

#include "apps/app_options.h"
#include "apps/serve_windows.h"
#include "assessment/assessment_file.h"
#include "core/console_ui.h"
#include "core/session.h"
#include "core/startup.h"
#include "settings/update_check.h"
#include "stores/schema.h"
#include "windows/program_start.h"
#include "windows/report_pack.h"

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

// The Ui of the batch report: messages on stderr, no windows.
class BatchUi : public arven::ConsoleUi {
 public:
  BatchUi() : ConsoleUi(std::cerr) {}
  void show_modal(const std::string&, int) override {}
  void show_window(const std::string&) override {}
  void navigate(const std::string&, const std::string&) override {}
  void progress(int value, int max, const std::string& label) override {
    if (max > 0 && label != last_) std::cerr << label << " (" << value << "/" << max << ")\n";
    last_ = label;
  }

 private:
  std::string last_;
};

int report_pack(const arven::AppOptions& options, const std::string& file, const std::string& out) {
  using namespace arven;
  Session& s = session();
  s.app_folder = options.app_dir;
  report_pack_assets() = options.assets_dir;
  BatchUi ui;
  Main(ui, {});
  s.update_state = 2;  // no update check in a batch run
  const std::string path = std::filesystem::absolute(file).string();
  if (!std::filesystem::is_regular_file(path)) {
    std::cerr << "arven: no assessment file " << path << "\n";
    return 1;
  }
  if (!open_assessment_file(ui, path).file_open) {
    std::cerr << "arven: " << path << " could not be opened\n";
    return 1;
  }
  try {
    const ReportPack pack = write_report_pack(ui, out, find_chromium());
    std::cout << "Report pack written to " << pack.folder.string() << ": " << pack.sections.size()
              << " pages, " << kPackWorkbook;
    if (pack.pdf)
      std::cout << ", " << kPackPdf << "\n";
    else
      std::cout << "\nNo PDF: " << pack.pdf_note << "\n";
    return 0;
  } catch (const std::exception& e) {
    std::cerr << "arven: " << e.what() << "\n";
    return 1;
  }
}

constexpr const char* kUsage =
    "usage: arven [--app-dir DIR] [--port N] [--no-browser] [--token T]\n"
    "       arven --check-updates [--app-dir DIR]\n"
    "       arven report FILE.arv --out DIR [--app-dir DIR]\n"
    "       arven --help | --version\n"
    "Starts ARVEN and opens its main window in the browser.\n"
    "  --app-dir DIR    program folder (stores, pages, exports); default: app beside\n"
    "                   the program in its build tree, $XDG_DATA_HOME/arven when installed\n"
    "  --port N         port on 127.0.0.1 (0: any free port; default 8118)\n"
    "  --no-browser     print the address instead of opening the browser\n"
    "  --token T        the session token (default: a random one)\n"
    "  --check-updates  print the update table as CSV and end\n"
    "  report FILE.arv --out DIR\n"
    "                   write the report pack of the file into DIR (every page, a\n"
    "                   workbook of the lists, a PDF when Chromium is installed) and end\n"
    "  --help           print this help and end\n"
    "  --version        print the version and end\n";

}  // namespace

int main(int argc, char** argv) {
  using namespace arven;
  AppOptions options;
  bool check = false;
  std::string report_file, report_out;
  try {
    options = parse_app_options(argc, argv);
    const auto& args = options.args;
    check = args.size() == 1 && args[0] == "--check-updates";
    if (!args.empty() && args[0] == "report") {
      for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--out") {
          if (i + 1 >= args.size()) throw std::invalid_argument("--out needs a folder");
          report_out = args[++i];
        } else if (report_file.empty() && !args[i].starts_with("--")) {
          report_file = args[i];
        } else {
          throw std::invalid_argument("unknown argument " + args[i] + " for report");
        }
      }
      if (report_file.empty() || report_out.empty())
        throw std::invalid_argument("report needs an assessment file and --out DIR");
    } else if (!check && !args.empty()) {
      throw std::invalid_argument("unknown argument " + args[0]);
    }
  } catch (const std::invalid_argument& e) {
    return usage_error("arven", e.what(), kUsage);
  }
  if (print_help_or_version(options, "arven", kUsage)) return 0;
  if (!find_folders(options, "arven")) return 1;
  if (check) return check_updates(options);
  if (!report_file.empty()) return report_pack(options, report_file, report_out);
  return serve_windows(options, 0, "arven");
}

// The report pack's printing by Chromium, and the File menu's command.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <thread>

#include "base/utf8.h"
#include "core/session.h"
#include "reports/page_kit.h"
#include "reports/rvc_browser.h"
#include "windows/report_pack.h"

extern char** environ;

namespace arven {

namespace fs = std::filesystem;

namespace {

bool is_program(const fs::path& p) {
  std::error_code ec;
  return fs::is_regular_file(p, ec) && access(p.c_str(), X_OK) == 0;
}

// A folder of its own for the print's browser profile, removed with it.
class ProfileFolder {
 public:
  ProfileFolder() {
    static std::atomic<int> count{0};
    path_ = fs::temp_directory_path() /
            ("arven-print-" + std::to_string(getpid()) + "-" + std::to_string(count++));
    fs::remove_all(path_);
    fs::create_directories(path_);
  }
  ~ProfileFolder() {
    std::error_code ec;
    fs::remove_all(path_, ec);
  }
  ProfileFolder(const ProfileFolder&) = delete;
  ProfileFolder& operator=(const ProfileFolder&) = delete;
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

}  // namespace

void cancel_report_pack() {
  report_pack_cancel() = true;
  hotspot_cancel() = true;
}

fs::path find_chromium() {
  if (const char* given = std::getenv("ARVEN_CHROMIUM"); given != nullptr)
    return is_program(given) ? fs::path(given) : fs::path();
  if (is_program("/usr/bin/chromium")) return "/usr/bin/chromium";
  const char* path = std::getenv("PATH");
  std::string dirs = path ? path : "";
  for (const char* name : {"chromium", "chromium-browser"}) {
    size_t pos = 0;
    while (pos <= dirs.size()) {
      size_t end = dirs.find(':', pos);
      if (end == std::string::npos) end = dirs.size();
      if (end > pos) {
        const fs::path candidate = fs::path(dirs.substr(pos, end - pos)) / name;
        if (is_program(candidate)) return candidate;
      }
      pos = end + 1;
    }
  }
  return {};
}

std::string print_to_pdf(const fs::path& chromium, const fs::path& html, const fs::path& pdf,
                         int timeout_s) {
  ProfileFolder profile;
  std::error_code ec;
  fs::remove(pdf, ec);
  std::vector<std::string> args = {chromium.string(),
                                   "--headless",
                                   "--disable-gpu",
                                   "--no-first-run",
                                   "--disable-background-networking",
                                   "--disable-component-update",
                                   "--disable-sync",
                                   "--disable-extensions",
                                   "--no-pdf-header-footer",
                                   "--run-all-compositor-stages-before-draw",
                                   "--virtual-time-budget=20000",
                                   "--user-data-dir=" + profile.path().string(),
                                   "--print-to-pdf=" + pdf.string(),
                                   "file://" + fs::absolute(html).string()};
  // Chromium's sandbox refuses to start as root.
  if (geteuid() == 0) args.insert(args.begin() + 1, "--no-sandbox");
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const fs::path log = profile.path() / "print.log";
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attr, 0);  // its own group: a stop reaches its helpers too
  pid_t pid = 0;
  const int err = posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  if (err != 0)
    return "Chromium (" + chromium.string() +
           ") could not be started: " + std::system_category().message(err) + ".";

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout_s);
  int status = 0;
  for (;;) {
    const pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) break;
    if (done < 0) return "Chromium's print could not be followed.";
    const bool late = std::chrono::steady_clock::now() > deadline;
    if (report_pack_cancel() || late) {
      kill(-pid, SIGKILL);
      waitpid(pid, &status, 0);
      return late ? "Chromium did not finish the PDF within " + std::to_string(timeout_s) +
                        " seconds."
                  : "The PDF was cancelled.";
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  kill(-pid, SIGKILL);  // helpers it may have left behind
  if (fs::exists(pdf, ec) && fs::file_size(pdf, ec) > 0) return "";
  return "Chromium (" + chromium.string() + ") ended without writing the PDF (" +
         (WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                            : std::string("stopped by a signal")) +
         ").";
}

void report_pack_command(Ui& ui) {
  Session& s = session();
  if (s.current_file.empty()) return;
  std::string stem;
  for (char ch : fs::path(s.current_file).stem().string()) {
    const bool plain = (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') ||
                       (ch >= '0' && ch <= '9') || ch == '-' || ch == '_';
    stem += plain ? ch : '_';
  }
  const std::string name = stem + "_report_pack";
  const fs::path folder = s.app_folder / "exports" / name;
  const char* title = "Export report pack";
  try {
    std::error_code ec;
    fs::create_directories(folder.parent_path(), ec);
    {
      PageFile out("pack_working.htm");
      page_header(out, 0);
      out.line(
          "<p align=\"center\"><font face=\"Arial\"><strong>Writing the report pack...</strong>"
          "</font></p>");
      out.line("<p align=\"center\"><img src=graphics/loading.gif></p>");
      out.line("<p align=\"center\"><font face=\"Verdana\"><a href=" +
               std::string(kPackCancelLink) + ">-CANCEL-</a></font></p>");
      out.line("</body>");
      out.line("</html>");
      out.close();
    }
    ui.navigate("main", "pack_working.htm");
    const ReportPack pack = write_report_pack(ui, folder, find_chromium());
    ui.navigate("main", "summary_display.htm");
    if (pack.cancelled) {
      ui.message_box("The report pack was cancelled; nothing was written.", title, MsgButtons::Ok,
                     MsgIcon::Information);
      return;
    }
    std::string text = "The report pack is in " + folder.string() + ": " +
                       std::to_string(pack.sections.size()) + " pages, the workbook " +
                       kPackWorkbook;
    text += pack.pdf ? std::string(" and the PDF ") + kPackPdf + "." : ". No PDF: " + pack.pdf_note;
    ui.message_box(valid_utf8(text), title, MsgButtons::Ok,
                   pack.pdf ? MsgIcon::Information : MsgIcon::Exclamation);
    ui.open_document("exports/" + name + "/" + kPackIndex);
  } catch (const std::exception& e) {
    ui.navigate("main", "summary_display.htm");
    ui.message_box(valid_utf8(e.what()), title, MsgButtons::Ok, MsgIcon::Exclamation);
  }
}

}  // namespace arven

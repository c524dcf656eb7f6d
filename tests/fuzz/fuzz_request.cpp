// Request paths and page-command targets: what a page or another program
// puts after a window's prefix. The path checks must never let a path out
// of the report folder, and the explorer's page commands must take any
// target without failing.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "core/session.h"
#include "core/ui.h"
#include "shell/http_input.h"
#include "windows/explorer.h"

namespace {

namespace fs = std::filesystem;

// Answers every question with Cancel and shows nothing.
class QuietUi : public arven::Ui {
 public:
  arven::Answer message_box(const std::string&, const std::string&, arven::MsgButtons,
                            arven::MsgIcon) override {
    return arven::Answer::Cancel;
  }
  std::string file_dialog(const arven::FileDialogRequest&) override { return ""; }
  void show_modal(const std::string&, int) override {}
  void show_window(const std::string&) override {}
  void navigate(const std::string&, const std::string&) override {}
  void progress(int, int, const std::string&) override {}
};

const fs::path& report_folder() {
  static const fs::path folder = [] {
    fs::path f = fs::temp_directory_path() / ("arven-fuzz-request-" + std::to_string(getpid()));
    fs::create_directories(f / "graphics");
    std::ofstream(f / "summary.htm") << "page";
    std::ofstream(f / "graphics" / "bar.gif") << "gif";
    std::ofstream(f / "store.mdb") << "store";
    arven::reset_session();
    arven::session().app_folder = f.string();
    return fs::canonical(f);
  }();
  return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fs::path& folder = report_folder();
  const std::string text(reinterpret_cast<const char*>(data), size);

  if (auto file = arven::shell::resolve_static(folder, text)) {
    // Whatever is served lies inside the folder and is an allowed kind.
    auto [f, e] = std::mismatch(folder.begin(), folder.end(), file->begin(), file->end());
    if (f != folder.end() || arven::shell::mime_type_of(*file).empty()) std::abort();
  }
  if (auto decoded = arven::shell::url_decode(text)) {
    if (decoded->find('\0') != std::string::npos) std::abort();
    // A page command is one word with a suffix, as the server passes it on.
    if (!decoded->empty() && decoded->size() < 256 && decoded->find('/') == std::string::npos &&
        decoded->find('.') != std::string::npos) {
      static QuietUi ui;
      arven::dispatch_navigation(ui, *decoded);
    }
  }
  int grid = 0, state = 0;
  arven::parse_sort_target(text, grid, state);
  return 0;
}

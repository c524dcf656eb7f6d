#include "reports/static_export.h"
#include "shell/admin_controls.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kTitle = "Static Web Export";

std::string& status() {
  static std::string s;
  return s;
}

json controls() {
  return {{"title", kTitle},
          {"no_page", true},
          {"fill", true},
          {"caption", status()},
          {"html",
           "<p>Writes the RVC pages (the index, every installed country with its NUTS areas "
           "level by level, and each area's details with its pie charts) and the operation "
           "catalogue with each operation's range page as a folder of plain HTML, with its "
           "graphics and scripts, in exports/web of the program folder. Any web server can "
           "publish the folder as it is, and it opens from disk: its start page is "
           "index.html. An export replaces the previous one when it is whole.</p>"},
          {"buttons", {{{"id", "export"}, {"text", "Export"}}}}};
}

}  // namespace

void register_web_export_window(WebUi& ui) {
  WindowHandlers h;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    status().clear();
    if (param_text(p, "button") != "export") return;
    try {
      StaticExport done = export_static_web(ui);
      status() = "Exported " + std::to_string(done.pages) + " pages to " + done.folder.string() +
                 "; open index.html there.";
    } catch (const std::exception& e) {  // a store, a full disk, a folder not writable
      ui.message_box(e.what(), kTitle, MsgButtons::Ok, MsgIcon::Exclamation);
    }
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/webexport", h);
}

}  // namespace arven::shell

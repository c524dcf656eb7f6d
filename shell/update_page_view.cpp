#include "prep/update_page.h"
#include "reports/page_kit.h"
#include "shell/admin_controls.h"

namespace arven::shell {

using nlohmann::json;

namespace {

constexpr const char* kTitle = "Manual Update Page";

std::string& status() {
  static std::string s;
  return s;
}

json controls() {
  GridTable t(4);
  t.add_row();
  const char* titles[] = {"File", "Date", "Size (bytes)", "SHA-256"};
  for (int c = 0; c < 4; ++c) t.cell(0, c) = titles[c];
  for (const auto& f : published_files()) {
    int r = t.add_row();
    t.cell(r, 0) = f.name;
    t.cell(r, 1) = f.modified;
    t.cell(r, 2) = std::to_string(f.size);
    t.cell(r, 3) = f.sha256;
  }
  return {{"title", kTitle},
          {"no_page", true},
          {"fill", true},
          {"caption", status()},
          {"html",
           "<p>The archives and version files that the pre-processor published in "
           "dbases/prepro/zipped. \"Write the page\" puts manual_update.htm beside them: a "
           "plain page with these dates, sizes and checksums for those who install a country "
           "database by hand.</p>"},
          {"table", table_control("published", "Published files", t,
                                  "Nothing is published yet: run the pre-processor.")},
          {"buttons", {{{"id", "write"}, {"text", "Write the page"}}}}};
}

}  // namespace

void register_update_page_window(WebUi& ui) {
  WindowHandlers h;
  h.controls = controls;
  h.command = [&ui](const Params& p) {
    status().clear();
    if (param_text(p, "button") != "write") return;
    try {
      status() = "Written: " + write_manual_update_page().string() + ".";
    } catch (const std::exception& e) {
      ui.message_box(e.what(), kTitle, MsgButtons::Ok, MsgIcon::Exclamation);
    }
  };
  h.query_close = [] { return true; };
  ui.register_window("admin/updatepage", h);
}

}  // namespace arven::shell

#include "reports/static_export.h"

#include <set>
#include <string>
#include <vector>

#include "core/session.h"
#include "engine/catalogue.h"
#include "reports/operation_reports.h"
#include "reports/page_kit.h"
#include "reports/report_html.h"
#include "reports/rvc_browser.h"
#include "reports/rvc_stores.h"

namespace arven {

namespace fs = std::filesystem;
using namespace report_html;

namespace {

// The caller's Ui for questions and progress; the pages are written, never
// shown, so navigation and windows go nowhere.
class PagesOnlyUi : public Ui {
 public:
  explicit PagesOnlyUi(Ui& ui) : ui_(ui) {}
  Answer message_box(const std::string& text, const std::string& title, MsgButtons buttons,
                     MsgIcon icon) override {
    return ui_.message_box(text, title, buttons, icon);
  }
  std::string file_dialog(const FileDialogRequest& request) override {
    return ui_.file_dialog(request);
  }
  void show_modal(const std::string&, int) override {}
  void show_window(const std::string&) override {}
  void navigate(const std::string&, const std::string&) override {}
  void progress(int value, int max, const std::string& label) override {
    ui_.progress(value, max, label);
  }

 private:
  Ui& ui_;
};

// The NUTS codes of every installed country, each level's areas under
// their parent, depth first.
std::vector<std::string> area_codes() {
  std::vector<std::string> codes;
  RvcStores stores;
  const Session& s = session();
  for (int64_t country = 1; country <= kCountryCount; ++country) {
    if (s.country_installed[static_cast<size_t>(country)] == 0) continue;
    const NutsArea top = stores.area(country, 0, country);
    if (!top.found) continue;
    struct Step {
      int level;
      NutsArea area;
    };
    std::vector<Step> todo = {{0, top}};
    while (!todo.empty()) {
      Step step = todo.back();
      todo.pop_back();
      codes.push_back(step.area.code);
      if (step.level == 3) continue;
      std::vector<int64_t> below =
          stores.areas_within(country, step.level + 1, step.level, step.area.id);
      for (auto it = below.rbegin(); it != below.rend(); ++it) {
        NutsArea a = stores.area(country, step.level + 1, *it);
        if (a.found) todo.push_back({step.level + 1, a});
      }
    }
  }
  return codes;
}

std::string operation_page(int64_t id) {
  return "operation_" + id_text(id) + ".htm";
}

void write_catalogue(const Tree& tree) {
  PageFile out("catalogue.htm");
  page_header(out, 0);
  out.line(big_heading("RDP Operations"));
  out.line(
      paragraph("The catalogue of operations by category; each operation's page gives the "
                "range of its data. <a href=index.html>Start</a>"));
  bool open = false;
  for (int i = 0; i < static_cast<int>(tree.nodes.size()); ++i) {
    const std::string text = html_escape(tree.nodes[static_cast<size_t>(i)].text);
    if (!tree.is_operation(i)) {
      if (open) out.line("</table>");
      out.line(section_heading(text));
      out.line(kTableOpen);
      open = true;
    } else {
      table_row(out, {cell(link(operation_page(tree.operation_id(i)), text))});
    }
  }
  if (open) out.line("</table>");
  page_footer(out);
}

void write_start_page(int areas, int operations) {
  PageFile out("index.html");
  page_header(out, 0);
  out.line(big_heading("ARVEN"));
  out.line(paragraph(link("index.htm", "Regional Variation Categories (RVCs)") + ": " +
                     std::to_string(areas) + " NUTS areas of the installed countries."));
  out.line(paragraph(link("catalogue.htm", "RDP Operations") + ": " + std::to_string(operations) +
                     " operations with the range of their data."));
  page_footer(out);
}

void copy_assets(const fs::path& to) {
  for (const char* dir : {"graphics", "javascript"}) {
    const fs::path from = session().app_folder / dir;
    fs::create_directories(to / dir);
    if (!fs::is_directory(from)) continue;
    for (const auto& entry : fs::directory_iterator(from))
      if (entry.is_regular_file() && entry.path().extension() != ".py")
        fs::copy_file(entry.path(), to / dir / entry.path().filename(),
                      fs::copy_options::overwrite_existing);
  }
}

// Puts the new folder in place of the old: the old one is moved aside
// first, so that the export's name never holds half of either.
void replace_folder(const fs::path& built, const fs::path& folder) {
  const fs::path old = folder.parent_path() / ("." + folder.filename().string() + ".old");
  fs::remove_all(old);
  if (fs::exists(folder)) fs::rename(folder, old);
  fs::rename(built, folder);
  fs::remove_all(old);
}

}  // namespace

StaticExport export_static_web(Ui& caller, const fs::path& folder_wanted) {
  const fs::path folder =
      folder_wanted.empty() ? session().app_folder / "exports" / "web" : folder_wanted;
  fs::create_directories(folder.parent_path());
  const fs::path built = folder.parent_path() / ("." + folder.filename().string() + ".new");
  fs::remove_all(built);
  fs::create_directories(built);

  PagesOnlyUi ui(caller);
  // The RVC pages select each area's country store as the current one, as
  // browsing does; the program's own choice is put back afterwards.
  const std::string rvc_store = session().rvc_db_path;
  StaticExport result{folder, 0};
  try {
    PageFolder pages(built);
    const std::vector<std::string> codes = area_codes();
    Tree tree;
    category_tree(tree, 1);
    std::set<int64_t> operations;
    for (int i = 0; i < static_cast<int>(tree.nodes.size()); ++i)
      if (tree.is_operation(i)) operations.insert(tree.operation_id(i));
    const int total = 3 + 2 * static_cast<int>(codes.size()) + static_cast<int>(operations.size());
    const std::string label = "Writing the static web pages...";

    ui.progress(0, total, label);
    top_index(ui);
    result.pages = 1;
    for (const std::string& code : codes) {
      nuts_index(ui, code);
      details(ui, code);
      result.pages += 2;
      ui.progress(result.pages, total, label);
    }
    write_catalogue(tree);
    ++result.pages;
    for (int64_t id : operations) {
      PageFile out(operation_page(id));
      page_header_showhide(out);
      operation_range_body(out, id, "");
      out.line(paragraph("<a href=catalogue.htm>RDP Operations</a>"));
      page_footer(out);
      ui.progress(++result.pages, total, label);
    }
    write_start_page(static_cast<int>(codes.size()), static_cast<int>(operations.size()));
    ++result.pages;
    // The RVC browser's wait page is the program's, not the export's.
    fs::remove(built / "working.htm");
    copy_assets(built);
    replace_folder(built, folder);
  } catch (...) {
    session().rvc_db_path = rvc_store;
    ui.progress(0, 0, "");
    std::error_code ec;
    fs::remove_all(built, ec);
    throw;
  }
  session().rvc_db_path = rvc_store;
  ui.progress(0, 0, "");
  return result;
}

}  // namespace arven

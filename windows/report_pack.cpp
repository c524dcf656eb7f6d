#include "windows/report_pack.h"

#include <ctime>
#include <fstream>
#include <map>
#include <sstream>
#include <system_error>

#include "base/numbers.h"
#include "base/replace_file.h"
#include "base/utf8.h"
#include "core/session.h"
#include "engine/explorer_state.h"
#include "engine/impact_cache.h"
#include "reports/aggregation.h"
#include "reports/analyst_pages.h"
#include "reports/explorer_window.h"
#include "reports/export.h"
#include "reports/hotspot.h"
#include "reports/list_sorting.h"
#include "reports/mac_curves.h"
#include "reports/operation_reports.h"
#include "reports/page_kit.h"
#include "reports/rvc_browser.h"
#include "reports/uncertainty.h"
#include "stores/db.h"
#include "windows/main_pages.h"

namespace arven {

namespace fs = std::filesystem;

std::atomic<bool>& report_pack_cancel() {
  static std::atomic<bool> flag{false};
  return flag;
}

fs::path& report_pack_assets() {
  static fs::path folder;
  return folder;
}

namespace {

constexpr const char* kReadmeFirstLine = "ARVEN report pack";

struct Cancelled {};

// The writers of the pages move windows and report their own progress; in
// the pack only their messages reach the person, each once: the same note
// from the writers of several pages (costs left at zero) takes the first
// answer.
class PackUi : public Ui {
 public:
  explicit PackUi(Ui& outer) : outer_(outer) {}
  Answer message_box(const std::string& text, const std::string& title, MsgButtons buttons,
                     MsgIcon icon) override {
    const std::string key = title + "\n" + text;
    if (auto seen = answers_.find(key); seen != answers_.end()) return seen->second;
    return answers_[key] = outer_.message_box(text, title, buttons, icon);
  }
  std::string file_dialog(const FileDialogRequest&) override { return ""; }
  void show_modal(const std::string&, int) override {}
  void show_window(const std::string&) override {}
  void navigate(const std::string&, const std::string&) override {}
  void progress(int, int, const std::string&) override {}

 private:
  Ui& outer_;
  std::map<std::string, Answer> answers_;
};

// What the writers change of the session and the windows, put back when the
// pack is done, so that the explorer and the RVC browser show what they did.
class SavedState {
 public:
  SavedState()
      : app_(session().app_folder),
        rvc_(session().rvc_db_path),
        update_state_(session().update_state),
        window_(explorer_window()),
        state_(explorer_state()),
        browser_(rvc_browser()) {}
  ~SavedState() {
    Session& s = session();
    s.app_folder = app_;
    s.rvc_db_path = rvc_;
    s.update_state = update_state_;
    explorer_window() = window_;
    explorer_state() = state_;
    rvc_browser() = browser_;
  }
  SavedState(const SavedState&) = delete;
  SavedState& operator=(const SavedState&) = delete;

 private:
  fs::path app_;
  std::string rvc_;
  int update_state_;
  ExplorerWindow window_;
  ExplorerState state_;
  RvcBrowser browser_;
};

std::string read_text(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string today_text() {
  const std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M", &tm);
  return date;
}

// A folder the pack may replace: none yet, an empty one, or an earlier pack.
void check_target(const fs::path& folder) {
  std::error_code ec;
  if (!fs::exists(folder, ec)) return;
  if (!fs::is_directory(folder, ec))
    throw ReportPackRefused("The report pack cannot be written to " + folder.string() +
                            ": it is a file, not a folder.");
  if (fs::is_empty(folder, ec)) return;
  std::ifstream readme(folder / kPackReadme);
  std::string first;
  std::getline(readme, first);
  if (first != kReadmeFirstLine)
    throw ReportPackRefused("The folder " + folder.string() +
                            " holds other files; the report pack replaces only an empty folder "
                            "or an earlier report pack. Choose another folder.");
}

// The caption of a page and of its chart in the pack: what it shows, the
// operation or measures, and the region.
void add_captions(const fs::path& page, const PackSection& section, const std::string& regions) {
  std::string text = read_text(page);
  const std::string what = "<b>" + html_escape(section.title) + "</b><br>" +
                           html_escape(section.subject) + "<br>Region: " + html_escape(regions);
  const size_t chart = text.find("<div id=\"container");
  if (chart != std::string::npos)
    text.insert(chart, "<p class=\"pack-chart-caption\"><font face=\"Verdana\" size=\"2\">Chart: " +
                           what + "</font></p>\n");
  const size_t body = text.find("<body");
  const size_t open_end = body == std::string::npos ? body : text.find('>', body);
  if (open_end != std::string::npos)
    text.insert(open_end + 1, "\n<div class=\"pack-caption\"><p><font face=\"Verdana\">" + what +
                                  "</font></p><hr></div>");
  replace_file(page, text);
}

// Each chart of a page draws into "container..."; in the page of all pages
// those of page n become "p<n>_container...".
std::string own_containers(std::string text, size_t n) {
  const std::string prefix = "p" + std::to_string(n) + "_";
  for (const std::string key : {"id=\"container", "renderTo: 'container"}) {
    const size_t at = key.find("container");
    for (size_t p = text.find(key); p != std::string::npos; p = text.find(key, p + key.size()))
      text.insert(p + at, prefix);
  }
  return text;
}

// The inline scripts of a page's head (the library scripts are loaded once).
std::string inline_scripts(const std::string& head) {
  std::string out;
  for (size_t p = head.find("<script"); p != std::string::npos; p = head.find("<script", p + 1)) {
    const size_t tag_end = head.find('>', p);
    const size_t end = head.find("</script>", p);
    if (tag_end == std::string::npos || end == std::string::npos) break;
    if (head.substr(p, tag_end - p).find(" src=") == std::string::npos)
      out += head.substr(p, end + 9 - p) + "\n";
  }
  return out;
}

// One document of every page, each from a new sheet of paper, its charts
// drawn at once (no animation) and without their export buttons: what the
// PDF prints.
void write_all_pages(const fs::path& folder, const std::vector<PackSection>& sections) {
  std::string style, body;
  for (size_t n = 0; n < sections.size(); ++n) {
    const std::string text = own_containers(read_text(folder / sections[n].file), n + 1);
    const size_t body_at = text.find("<body");
    const size_t open_end = body_at == std::string::npos ? body_at : text.find('>', body_at);
    if (open_end == std::string::npos) continue;
    const std::string head = text.substr(0, body_at);
    if (style.empty()) {
      const size_t s = head.find("<style>"), e = head.find("</style>");
      if (s != std::string::npos && e != std::string::npos) style = head.substr(s, e + 8 - s);
    }
    size_t end = text.rfind("</body>");
    if (end == std::string::npos || end < open_end) end = text.size();
    body += std::string("<div class=\"pack-page\"") + (n ? " style=\"break-before: page\"" : "") +
            ">\n" + inline_scripts(head) + text.substr(open_end + 1, end - open_end - 1) +
            "</div>\n";
  }
  std::string page =
      "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=\"utf-8\">\n<title>Report pack</title>\n" +
      style +
      "\n<style>div[id*=\"container\"] { max-width: 100%; }</style>\n"
      "<script type=\"text/javascript\" src=\"javascript/jquery.Min.js\"></script>\n"
      "<script type=\"text/javascript\" src=\"javascript/highcharts.js\"></script>\n"
      "<script type=\"text/javascript\">\nHighcharts.setOptions({chart: {animation: false}, "
      "plotOptions: {series: {animation: false}}, exporting: {enabled: false}});\n</script>\n"
      "</head>\n<body>\n" +
      body + "</body>\n</html>\n";
  replace_file(folder / kPackAllPages, page);
}

void write_index(const fs::path& folder, const ReportPack& pack, const std::string& file,
                 const std::string& regions) {
  std::string page =
      "<!DOCTYPE html>\n<html>\n<head>\n<meta charset=\"utf-8\">\n<title>Report pack</title>\n"
      "</head>\n<body>\n<font face=\"Verdana\">\n<h2>Report pack</h2>\n<p>File: " +
      html_escape(file) + "<br>Region: " + html_escape(regions) + "<br>Written: " + today_text() +
      "</p>\n<p><a href=\"" + kPackWorkbook + "\">Workbook of every list (" + kPackWorkbook +
      ")</a><br>";
  page += pack.pdf ? "<a href=\"" + std::string(kPackPdf) + "\">All pages as one PDF (" + kPackPdf +
                         ")</a>"
                   : "No PDF: " + html_escape(pack.pdf_note);
  page += "</p>\n<ol>\n";
  for (const auto& s : pack.sections)
    page += "<li><a href=\"" + s.file + "\">" + html_escape(s.title) + "</a> (" +
            html_escape(s.subject) + ")</li>\n";
  page += "</ol>\n</font>\n</body>\n</html>\n";
  replace_file(folder / kPackIndex, page);
}

void write_readme(const fs::path& folder, const ReportPack& pack, const std::string& file,
                  const std::string& regions, const std::vector<std::string>& missing) {
  std::string text = std::string(kReadmeFirstLine) + "\n\nFile: " + file + "\nRegion: " + regions +
                     "\nWritten: " + today_text() + "\n\n";
  text += std::string(kPackIndex) + "  the contents, linking every page\n";
  text += std::string(kPackWorkbook) + "  every list, and an About sheet\n";
  text += pack.pdf ? std::string(kPackPdf) + "  every page, in the order below\n"
                   : "No PDF: " + pack.pdf_note + "\n";
  text +=
      "\nPages (open them from this folder; links to the program's commands act only in "
      "the program):\n";
  for (const auto& s : pack.sections)
    text += "  " + s.file + "  " + s.title + ", " + s.subject + "\n";
  for (const auto& m : missing) text += "Not written (its failure was shown): " + m + "\n";
  replace_file(folder / kPackReadme, text);
}

void copy_assets(const fs::path& folder) {
  const fs::path assets =
      report_pack_assets().empty() ? session().app_folder : report_pack_assets();
  for (const char* sub : {"graphics", "javascript"}) {
    std::error_code ec;
    if (!fs::is_directory(assets / sub, ec)) continue;
    fs::copy(assets / sub, folder / sub,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing, ec);
    if (ec) throw write_error(folder / sub, ec.value());
  }
}

// The first `cols` columns of a table (the cost curves' names and figures
// without their drawing steps).
GridTable first_columns(const GridTable& grid, int cols) {
  GridTable out(std::min(cols, grid.cols()));
  for (int r = 0; r < grid.rows(); ++r) {
    out.add_row();
    for (int c = 0; c < out.cols(); ++c) out.cell(r, c) = grid.cell(r, c);
  }
  return out;
}

std::string uncertainty_table_text() {
  std::string text;
  for (int q = 1; q <= 5; ++q)
    text += (q > 1 ? ", " : "") + std::to_string(q) + ": " +
            std::to_string(session().dq_uncertainty[static_cast<size_t>(q)]) + " %";
  return text;
}

// Puts the built folder in place of `folder`, whole.
void put_in_place(const fs::path& built, const fs::path& folder) {
  const fs::path old = folder.parent_path() / (folder.filename().string() + ".old");
  std::error_code ec;
  fs::remove_all(old, ec);
  if (fs::exists(folder, ec)) {
    fs::rename(folder, old, ec);
    if (ec) throw write_error(folder, ec.value());
  }
  fs::rename(built, folder, ec);
  if (ec) {
    const int cause = ec.value();
    fs::rename(old, folder, ec);
    throw write_error(folder, cause);
  }
  fs::remove_all(old, ec);
}

struct Writer {
  Ui& outer;
  PackUi ui;
  fs::path dir;
  ReportPack& pack;
  std::vector<std::string> missing;
  std::vector<WorkbookSheet> sheets;
  std::vector<GridTable> kept;  // tables of the sheets that the writers reuse
  int done = 0, steps = 1;

  void step(const std::string& what) {
    if (report_pack_cancel()) throw Cancelled{};
    outer.progress(done++, steps, "Report pack: " + what + "...");
  }
  // Takes the page the writers left under `written` as `name`, when there.
  // False when there is none (its writer said why).
  bool take(const std::string& written, const std::string& name, const std::string& title,
            const std::string& subject) {
    std::error_code ec;
    if (!fs::exists(dir / written, ec)) {
      missing.push_back(title + " (" + subject + ")");
      return false;
    }
    if (written != name) fs::rename(dir / written, dir / name);
    pack.sections.push_back({name, title, subject});
    return true;
  }
  void sheet(const std::string& name, const GridTable& grid) {
    if (grid.rows() == 0) return;
    kept.push_back(grid);
    sheets.push_back({name, nullptr});
  }
};

}  // namespace

ReportPack write_report_pack(Ui& outer, const fs::path& target, const fs::path& chromium) {
  Session& s = session();
  if (s.current_file.empty()) throw ReportPackRefused("No assessment file is open.");
  const fs::path folder = fs::absolute(target).lexically_normal();
  check_target(folder);
  const fs::path dir = folder.parent_path() / (folder.filename().string() + ".part");
  std::error_code ec;
  fs::remove_all(dir, ec);
  fs::create_directories(dir, ec);
  if (ec) throw write_error(dir, ec.value());

  ReportPack pack;
  pack.folder = folder;
  report_pack_cancel() = false;
  hotspot_cancel() = false;
  const std::string file = s.current_file;
  const std::string regions = regions_text();
  std::vector<std::pair<int64_t, std::string>> operations;
  {
    Db db = Db::open(file);
    auto q =
        db.query("SELECT \"Operation ID\", \"Operation Name\" FROM \"Operations\" ORDER BY rowid");
    while (q.next()) operations.emplace_back(q.get(0).as_int(), valid_utf8(q.get(1).as_text()));
  }
  Writer w{outer, PackUi(outer), dir, pack, {}, {}, {}, 0, 0};
  w.steps = 12 + 2 * static_cast<int>(operations.size());
  try {
    {
      SavedState saved;
      s.app_folder = dir;
      s.update_state = 2;  // the summary page's silent update check is not the pack's
      ExplorerWindow& ew = explorer_window();
      w.step("the summary");
      summary_page(w.ui);
      w.take("summary_display.htm", "summary.htm", "Summary of the assessment",
             "Chosen operations");
      for (const auto& [id, name] : operations) {
        w.step("the reports of " + name);
        ew.current_operation = id;
        explorer_state().current_operation_id = id;
        const std::string subject = "Operation: " + name;
        const std::string tag = "op" + std::to_string(id);
        if (load_impact_data(w.ui, id, explorer_state()) == ImpactStatus::done) {
          operation_specific_html_hub(w.ui, 1, 1);
          w.take("summary_report.htm", tag + "_summary.htm", "Operation summary", subject);
          w.step("the detailed report of " + name);
          operation_specific_html_hub(w.ui, 1, 2);
          w.take("detailed_report.htm", tag + "_detailed.htm", "Detailed report", subject);
        } else {
          w.missing.push_back("the reports of " + subject);
          w.step("the detailed report of " + name);
        }
      }
      ew.current_operation = 0;
      w.step("the lists");
      load_sorted_lists();
      my_operation_list_html();
      if (w.take("ranked.htm", "ranked.htm", "Ranked list", "Chosen operations"))
        w.sheet("Ranked", ew.MSFlexGrid5);
      if (w.take("mitigation.htm", "mitigation.htm", "Mitigation list", "Chosen operations"))
        w.sheet("Mitigation", ew.MSFlexGrid3);
      if (w.take("adaptation.htm", "adaptation.htm", "Adaptation list", "Chosen operations"))
        w.sheet("Adaptation", ew.MSFlexGrid4);
      if (w.take("production.htm", "production.htm", "Production list", "Chosen operations"))
        w.sheet("Production", ew.MSFlexGrid12);
      w.step("the totals");
      portfolio_totals_html(w.ui);
      if (w.take("totals.htm", "totals.htm", "Totals of the chosen operations",
                 "Chosen operations"))
        w.sheet("Totals", ew.TotalsGrid);
      w.step("the aggregation");
      aggregate_new_measure(w.ui);
      if (w.take("aggregate1.htm", "aggregate1.htm", "Aggregation by RDP measure", "Measures"))
        w.sheet("Aggregation", ew.AgGrid1);
      if (w.take("aggregate_ranked1.htm", "aggregate_ranked1.htm",
                 "Aggregation by RDP measure, ranked", "Measures"))
        w.sheet("Aggregation ranked", ew.AgGrid1_Ranked);
      w.step("the GHG cost curve");
      mac_curve_ghg_hub(w.ui);
      if (w.take("rep1.htm", "mac_ghg.htm", "Marginal abatement cost curve (GHG)",
                 "Chosen operations"))
        w.sheet("GHG cost curve", first_columns(ew.MACCGrid1, 4));
      w.step("the adaptation cost curve");
      mac_curve_adapt_hub(w.ui);
      if (w.take("rep1.htm", "mac_adaptation.htm", "Marginal abatement cost curve (adaptation)",
                 "Chosen operations"))
        w.sheet("Adaptation cost curve", first_columns(ew.MACCGrid1, 4));
      w.step("the uncertainty");
      uncertainty_html(w.ui, ew.uncertainty_top_k);
      if (w.take("uncertainty.htm", "uncertainty.htm", "Uncertainty", "Chosen operations"))
        w.sheet("Uncertainty", ew.UncertaintyGrid);
      w.step("the hotspot report");
      if (!hotspot_hub(w.ui, kBrowserRvcType)) throw Cancelled{};
      w.take("hotspot_rep1.htm", "hotspot_rep1.htm", "Hotspot report: share in the risky bands",
             "Areas of the region");
      w.take("hotspot_rep2.htm", "hotspot_rep2.htm", "Hotspot report: average class",
             "Areas of the region");
    }
    // What the writers left beside the pack's pages (wait pages and the like).
    for (const auto& e : fs::directory_iterator(dir)) {
      const std::string name = e.path().filename().string();
      bool kept = false;
      for (const auto& sec : pack.sections) kept = kept || sec.file == name;
      if (!kept) fs::remove_all(e.path());
    }
    for (const auto& sec : pack.sections) add_captions(dir / sec.file, sec, regions);
    copy_assets(dir);

    w.step("the workbook");
    for (size_t i = 0; i < w.sheets.size(); ++i) w.sheets[i].grid = &w.kept[i];
    ExportContext about = export_context();
    about.insert(about.end() - 1,
                 {{"Uncertainty by data quality", uncertainty_table_text()},
                  {"Uncertainty", "the half-width of a figure's 95 % interval as a share of it"}});
    write_xlsx_sheets(w.sheets, dir / kPackWorkbook, about);
    for (const auto& sh : w.sheets) pack.sheets.push_back(excel_sheet_name(sh.name));
    pack.sheets.push_back("About");

    w.step("the PDF");
    write_all_pages(dir, pack.sections);
    if (chromium.empty()) {
      pack.pdf_note =
          "Chromium was not found, so the pages were not printed. Install the chromium package "
          "(or set ARVEN_CHROMIUM to its program) and export the pack again for the PDF.";
    } else {
      pack.pdf_note = print_to_pdf(chromium, dir / kPackAllPages, dir / kPackPdf);
      if (report_pack_cancel()) throw Cancelled{};
      pack.pdf = pack.pdf_note.empty();
    }
    write_index(dir, pack, file, regions);
    write_readme(dir, pack, file, regions, w.missing);
    put_in_place(dir, folder);
  } catch (const Cancelled&) {
    fs::remove_all(dir, ec);
    outer.progress(0, 0, "");
    ReportPack none;
    none.folder = folder;
    none.cancelled = true;
    return none;
  } catch (...) {
    fs::remove_all(dir, ec);
    outer.progress(0, 0, "");
    throw;
  }
  outer.progress(0, 0, "");
  return pack;
}

}  // namespace arven

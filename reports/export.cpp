#include "reports/export.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <sstream>
#include <system_error>
#include <vector>

#include "base/numbers.h"
#include "base/replace_file.h"
#include "base/utf8.h"
#include "core/session.h"
#include "reports/explorer_window.h"
#include "stores/db.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

std::string safe_base_name(const std::string& base) {
  std::string out;
  for (char ch : base) {
    bool ok = (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9') ||
              ch == '-' || ch == '_';
    out += ok ? ch : '_';
  }
  return out.empty() ? std::string("table") : out;
}

}  // namespace

std::string regions_text() {
  return regions_text(session().current_file);
}

std::string regions_text(const std::string& file) {
  std::string regions;
  if (!file.empty()) {
    try {
      Db db = Db::open(file);
      auto rows = db.query("SELECT \"NUTS Code\", \"NUTS Name\" FROM \"Regions\" ORDER BY rowid");
      while (rows.next())
        regions +=
            (regions.empty() ? "" : "; ") + rows.get(0).as_text() + " " + rows.get(1).as_text();
    } catch (const std::exception&) {
      regions = "(the file could not be read)";
    }
  }
  return regions.empty() ? "(none)" : valid_utf8(regions);
}

ExportContext export_context() {
  const Session& s = session();
  ExportContext context;
  context.emplace_back("File", s.current_file.empty() ? "(none)" : s.current_file);
  context.emplace_back("Regions", regions_text());
  context.emplace_back("Time horizon (years)", std::to_string(s.ranking_TH));
  // What the ranked list's Combined column is made of, so that it can be
  // worked again from the exported scores.
  context.emplace_back("Ranking weights (%)", "mitigation " + std::to_string(s.miti_weight) +
                                                  ", adaptation " + std::to_string(s.adapt_weight) +
                                                  ", production " + std::to_string(s.prod_weight));
  context.emplace_back("Combined",
                       "(mitigation x weight + adaptation x weight + production x weight) / 3, "
                       "weights as fractions of 100, rounded half to even, at most 100");
  context.emplace_back("Scores ranked by", explorer_window().ranking_mode == 2
                                               ? "regional value per hectare"
                                               : "regional total");
  context.emplace_back("Units", "as in each column's head; figures at full precision");
  const std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M", &tm);
  context.emplace_back("Exported", date);
  return context;
}

std::string export_links_html(int grid_number) {
  const std::string n = std::to_string(grid_number);
  return "<p><font face=\"Verdana\"><small>Export this table: <a href=" + n +
         ".exc>CSV</a> | <a href=" + n + ".exx>Excel (.xlsx)</a></small></font></p>";
}

bool export_grid(Ui& ui, const GridTable& grid, const std::string& base_name, bool xlsx,
                 const ExportContext& more) {
  const std::string name = safe_base_name(base_name) + (xlsx ? ".xlsx" : ".csv");
  const fs::path folder = session().app_folder / "exports";
  const fs::path file = folder / name;
  try {
    std::error_code ec;
    fs::create_directories(folder, ec);
    if (ec) throw write_error(file, ec.value());
    ExportContext context = export_context();
    context.insert(context.end() - 1, more.begin(), more.end());
    if (xlsx) {
      write_xlsx(grid, file, base_name, context);
    } else {
      write_csv(grid, file, context);
    }
  } catch (const std::exception& e) {
    ui.message_box(e.what(), "Export", MsgButtons::Ok, MsgIcon::Exclamation);
    return false;
  }
  ui.open_document("exports/" + name);
  return true;
}

}  // namespace arven

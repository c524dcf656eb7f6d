#include "reports/rvc_browser.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <vector>

#include "base/numbers.h"
#include "base/text.h"
#include "core/session.h"
#include "reports/charts.h"
#include "reports/hotspot.h"
#include "reports/page_kit.h"
#include "reports/rvc_stores.h"

namespace arven {

namespace {

constexpr const char* kWindow = "rvc";

std::string heading(std::string_view text) {
  return "<p><font face=\"Arial\" size=\"4\"><strong>" + std::string(text) + "</strong></font></p>";
}

// A code from a link as valid UTF-8: each byte that starts no valid
// sequence becomes U+FFFD, so the page name can go into the window's state.
std::string valid_code(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    const size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    bool ok = n > 0 && i + n <= text.size() && !(n == 2 && c < 0xC2);
    for (size_t k = 1; ok && k < n; ++k) ok = (static_cast<unsigned char>(text[i + k]) >> 6) == 2;
    if (ok && n > 2) {  // no overlong forms, surrogates or values above U+10FFFF
      const auto d = static_cast<unsigned char>(text[i + 1]);
      ok = !(c == 0xE0 && d < 0xA0) && !(c == 0xED && d >= 0xA0) && !(c == 0xF0 && d < 0x90) &&
           !(c == 0xF4 && d >= 0x90) && c <= 0xF4;
    }
    if (ok) {
      out.append(text, i, n);
      i += n;
    } else {
      out += "\xEF\xBF\xBD";
      ++i;
    }
  }
  return out;
}

// Selects the store of a code's country as the current RVC store.
void select_country_store(int64_t country) {
  Session& s = session();
  if (country >= 1 && country <= kCountryCount &&
      s.country_installed[static_cast<size_t>(country)] != 0)
    s.rvc_db_path = s.country_db_path[static_cast<size_t>(country)];
}

// Heads of the two tables of a page: column 0 `first`, then one column per
// RVC (letter in the value table, RVC ID in the key table).
void head_tables(GridTable& values, GridTable& keys, const std::string& first,
                 const std::vector<RvcInfo>& rvcs) {
  const int cols = static_cast<int>(rvcs.size()) + 1;
  values = GridTable(cols);
  keys = GridTable(cols);
  values.add_row();
  keys.add_row();
  values.cell(0, 0) = first;
  keys.cell(0, 0) = first;
  for (int c = 1; c < cols; ++c) {
    values.cell(0, c) = html_escape(rvcs[static_cast<size_t>(c - 1)].letter);
    keys.cell(0, c) = std::to_string(rvcs[static_cast<size_t>(c - 1)].id);
  }
}

// One row per area: the key in the key table, each RVC's "Average" in the
// value table (an empty cell without a row).
void nuts_grid(RvcStores& stores, int level, int64_t country, const std::vector<int64_t>& areas,
               GridTable& values, GridTable& keys) {
  for (int64_t area : areas) {
    const int r = values.add_row();
    keys.add_row();
    keys.cell(r, 0) = level == 0 ? std::to_string(country) : rvc_key_text(country, area);
    for (int c = 1; c < values.cols(); ++c) {
      auto data = stores.data(country, level, area, parse_rvc_key(keys.cell(0, c)).area);
      if (data && !data->average.is_empty())
        values.cell(r, c) = number_to_cell(data->average.as_double());
    }
  }
}

std::vector<RvcInfo> browser_rvcs(RvcStores& stores, int64_t country) {
  Db* db = country ? stores.store(country) : nullptr;
  if (db) return rvcs_of_type(*db, kBrowserRvcType);
  if (session().rvc_db_path.empty()) return {};
  return rvcs_of_type(Db::open(session().rvc_db_path), kBrowserRvcType);
}

// "Index " alone for a country; below it the link to the index and a step
// per level, each a link to its page. Names that have no row show the code.
std::string breadcrumb(RvcStores& stores, const std::string& code) {
  const int level = nuts_level_of_code(code);
  std::string out = "<p><font face=\"Verdana\"><small>";
  if (level == 0) return out + "Index </small></font></p>";
  out += "<a href=index.htm>Index</a>";
  const int64_t country = country_of_code(code);
  for (int k = 1; k <= level; ++k) {
    const std::string step = k == level ? code : code.substr(0, static_cast<size_t>(k) + 2);
    NutsArea area = stores.area_by_code(country, k, step);
    out += " &gt; <a href=" + code_target(step) + ".htm>NUTS" + std::to_string(k) + ": " +
           html_escape(area.found ? area.name : step) + "</a>";
  }
  return out + "</small></font></p>";
}

void write_overview_page(const std::string& name, const std::string& top, int level,
                         int64_t rvc_type) {
  RvcBrowser& b = rvc_browser();
  PageFile out(name);
  page_header(out, 0);
  out.line(top);
  rvc_table_coloured(b.MSFlexGrid1, b.MSFlexGrid2, out, 1, level);
  rvc_key(out, 1, rvc_type);
  page_footer(out);
}

// The level of the table of a code's page: the next one, a NUTS3 area its own.
int table_level(const std::string& code) {
  return std::min(nuts_level_of_code(code) + 1, 3);
}

}  // namespace

RvcBrowser& rvc_browser() {
  static RvcBrowser b;
  return b;
}

void reset_rvc_browser() {
  rvc_browser() = RvcBrowser();
  hotspot_cancel() = false;
}

std::atomic<bool>& hotspot_cancel() {
  static std::atomic<bool> flag{false};
  return flag;
}

void rvc_browser_open(Ui& ui, int tab, const std::string& area_code) {
  if (tab == 1) {
    hotspot_load(ui, kBrowserRvcType);
    return;
  }
  rvc_browser().report_shown = false;  // browsing: no report tabs
  wait_page("working.htm", "Compiling index data...");
  ui.navigate(kWindow, "working.htm");
  ui.set_timer([&ui, area_code] {
    if (area_code.empty())
      top_index(ui);
    else
      nuts_index(ui, area_code);
  });
}

void nuts0_overview() {
  RvcStores stores;
  RvcBrowser& b = rvc_browser();
  head_tables(b.MSFlexGrid1, b.MSFlexGrid2, "Country", browser_rvcs(stores, 0));
  const Session& s = session();
  for (int64_t country = 1; country <= kCountryCount; ++country)
    if (s.country_installed[static_cast<size_t>(country)] != 0)
      nuts_grid(stores, 0, country, {country}, b.MSFlexGrid1, b.MSFlexGrid2);
}

void nuts_overview(int level, const std::string& parent_code) {
  RvcStores stores;
  RvcBrowser& b = rvc_browser();
  const int64_t country = country_of_code(parent_code);
  const int parent_level = nuts_level_of_code(parent_code);
  head_tables(b.MSFlexGrid1, b.MSFlexGrid2, "NUTS" + std::to_string(level),
              browser_rvcs(stores, country));
  const NutsArea parent = stores.area_by_code(country, parent_level, parent_code);
  if (!parent.found) return;
  nuts_grid(stores, level, country, stores.areas_within(country, level, parent_level, parent.id),
            b.MSFlexGrid1, b.MSFlexGrid2);
}

void top_index(Ui& ui) {
  wait_page("working.htm", "Compiling index data...");
  ui.navigate(kWindow, "working.htm");
  nuts0_overview();
  write_overview_page("index.htm", heading("Regional Variation Categories (RVCs)"), 0,
                      kBrowserRvcType);
  ui.navigate(kWindow, "index.htm");
}

void nuts_index(Ui& ui, const std::string& code) {
  select_country_store(country_of_code(code));
  RvcStores stores;
  const int level = table_level(code);
  nuts_overview(level, code);
  write_overview_page(code + ".htm", breadcrumb(stores, code), level, kBrowserRvcType);
  ui.navigate(kWindow, code + ".htm");
}

void details_load(Ui& ui, const std::string& code) {
  wait_page("working.htm", "Compiling data...");
  ui.navigate(kWindow, "working.htm");
  rvc_browser().current_area = code;
  ui.set_timer([&ui] { details(ui, rvc_browser().current_area); });
}

namespace {
// The shares of a pie in words, under it: the pie shows them only on hover.
std::string share_key(const std::vector<PieBand>& bands) {
  if (bands.empty())
    return "<p align=\"center\"><font face=\"Verdana\"><small>No class distribution is stored "
           "for this area.</small></font></p>";
  std::string row;
  for (const PieBand& band : bands)
    row += "<td bgcolor=\"#" + html_escape(band.colour) +
           "\">&nbsp;&nbsp;&nbsp;</td><td><font face=\"Verdana\"><small>" + html_escape(band.name) +
           ": " + number_to_cell(round_half_even(cell_to_number(band.percent), 1)) +
           "&nbsp;%&nbsp;&nbsp;</small></font></td>";
  return "<table border=\"0\" cellspacing=\"2\" align=\"center\"><tr>" + row + "</tr></table>";
}
}  // namespace

void details(Ui& ui, const std::string& code) {
  const int64_t country = country_of_code(code);
  select_country_store(country);
  const int level = nuts_level_of_code(code);
  RvcStores stores;
  const NutsArea area = stores.area_by_code(country, level, code);
  const std::vector<RvcInfo> rvcs =
      area.found ? browser_rvcs(stores, country) : std::vector<RvcInfo>{};
  const bool exclude_c0 = session().hotspot_exclude_C0 == 1;

  struct Block {
    const RvcInfo* rvc;
    std::optional<RvcStores::Data> data;
    std::vector<PieBand> bands;
    bool excluded;
  };
  std::vector<Block> blocks;
  for (const RvcInfo& rvc : rvcs) {
    Block b{&rvc,
            stores.data(country, level, area.id, rvc.id),
            {},
            exclude_c0 && rvc.exclude_class_zero};
    for (const auto& row : stores.dist(country, level, area.id, rvc.id)) {
      if (b.excluded && row.rvc_class == 0) continue;
      b.bands.push_back({"Class " + number_to_cell(row.rvc_class), number_to_cell(row.percent),
                         stores.colour(country, rvc.id, row.rvc_class)});
    }
    blocks.push_back(std::move(b));
  }

  PageFile out(code + "_details.htm");
  page_header(out, 1);
  const std::string area_text = (area.found ? area.name : code) + " (" + code + ")";
  for (const Block& b : blocks)
    chart_rvc_pie(out, b.rvc->id, b.rvc->short_name, b.bands,
                  {"", area_text, "rvc-" + code + "-" + std::to_string(b.rvc->id)});
  out.line("</head>");
  out.line("<body>");
  out.line(breadcrumb(stores, code));
  out.line(heading("NUTS" + std::to_string(level) + ": " +
                   html_escape(area.found ? area.name : code) + " (" + html_escape(code) + ")"));
  // The area's averages, by the impact their RVCs bear on.
  for (const char* impact : {"GHG Emissions", "Adaptive Capacity"}) {
    std::string figures;
    bool bearing = false;
    for (const Block& b : blocks) {
      if (b.rvc->impact.rfind(impact, 0) != 0) continue;
      bearing = true;
      if (!b.data || b.data->average.is_empty()) continue;
      if (!figures.empty()) figures += ", ";
      figures += html_escape(b.rvc->letter) + " " + number_to_cell(b.data->average.as_double());
    }
    // A dash alone reads as a fault: say why there is no figure.
    if (figures.empty())
      figures = bearing ? "- (the data store holds no average of this area for these categories)"
                        : "- (none of the categories shown here bears on this impact)";
    out.line("<p><font face=\"Verdana\"><small><strong>" + std::string(impact) + ": </strong>" +
             figures + "</small></font></p>");
  }
  for (const Block& b : blocks) {
    const RvcInfo& rvc = *b.rvc;
    auto text = [](const std::optional<RvcStores::Data>& d, bool max) {
      if (!d) return std::string();
      return (max ? d->max : d->min).as_text();
    };
    out.line("<hr>");
    out.line("<p><font face=\"Arial\"><strong>" + html_escape(rvc.short_name) + " (" +
             html_escape(rvc.letter) + ")</strong></font><br>");
    out.line("<font face=\"Verdana\"><small>" + html_escape(rvc.risk) + "</small></font></p>");
    out.line("<p><font face=\"Verdana\"><small>European range: " + number_to_cell(rvc.euro_min) +
             " - " + number_to_cell(rvc.euro_max) + "<br>Regional range: " + text(b.data, false) +
             " - " + text(b.data, true) + "</small></font></p>");
    const int height = std::clamp(200 + 20 * static_cast<int>(b.bands.size()), 250, 400);
    out.line("<div id=\"container" + std::to_string(rvc.id) + "\" style=\"width: 500px; height: " +
             std::to_string(height) + "px; margin: 0 auto\"></div>");
    out.line(share_key(b.bands));
    if (b.excluded)
      out.line(
          "<p><font face=\"Verdana\"><small>Percent of area displayed (distribution) excludes "
          "non-applicable areas, i.e. where class = 0 (adjust software settings if you would "
          "like to include class 0 areas).</small></font></p>");
  }
  rvc_key(out, 1, kBrowserRvcType);
  page_footer(out);
  ui.navigate(kWindow, code + "_details.htm");
}

bool rvc_link_cancels(const std::string& target) {
  return lower_case(target).ends_with("hcn");
}

bool rvc_link_is_page(const std::string& target) {
  const std::string t = lower_case(target);
  if (t.rfind("http", 0) == 0) return true;
  if (rvc_link_cancels(t)) return false;
  if (!t.ends_with("htm")) return true;
  return t == "working.htm" || t == "hotspot_rep1.htm" || t == "hotspot_rep2.htm" ||
         t == "index.htm";
}

bool dispatch_rvc_navigation(Ui& ui, const std::string& target) {
  const std::string t = lower_case(target);
  // A page reaches here only when it is not on disk: the index is written.
  if (t == "index.htm") {
    top_index(ui);
    return true;
  }
  if (rvc_link_is_page(target)) return false;
  if (rvc_link_cancels(t)) {
    hotspot_cancel() = true;
  } else if (t == "back.htm") {
    ui.navigate(kWindow, rvc_browser().tab == 2 ? "hotspot_rep2.htm" : "hotspot_rep1.htm");
  } else if (t.ends_with("details.htm")) {
    std::string code = target.substr(0, target.size() - std::string_view("details.htm").size());
    if (code.ends_with("_")) code.pop_back();
    details_load(ui, valid_code(code));
  } else {
    nuts_index(ui, valid_code(target.substr(0, target.size() - (t.ends_with(".htm") ? 4 : 3))));
  }
  return true;
}

}  // namespace arven

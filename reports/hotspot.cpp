#include "reports/hotspot.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "base/numbers.h"
#include "core/lookups.h"
#include "core/session.h"
#include "engine/impact_context.h"
#include "reports/page_kit.h"
#include "reports/rvc_browser.h"
#include "reports/rvc_stores.h"
#include "stores/db.h"

namespace arven {

namespace {

constexpr const char* kWindow = "rvc";

struct RunningFlag {
  RunningFlag() { rvc_browser().hotspot_running = true; }
  ~RunningFlag() { rvc_browser().hotspot_running = false; }
};

// A row of the run: the area's key halves.
struct RunRow {
  int64_t country = 0, area = 0;
};

void head(GridTable& grid, int cols) {
  grid = GridTable(cols);
  grid.add_row();
  grid.cell(0, 0) = "NUTS3";
}

// The progress bar by row; a region of many rows moves it 40 times in all
// (every report republishes the windows, about a millisecond).
void report_row(Ui& ui, int row, int rows) {
  if (row == 1 || row == rows || row * 40 / rows != (row - 1) * 40 / rows)
    ui.progress(row, rows, "Compiling data...");
}

double cell_value(const std::string& text) {
  return parse_number(text).value_or(0);
}

void write_report(const std::string& name, const std::string& lead, const GridTable& values,
                  const GridTable& keys, bool percent, int64_t rvc_type) {
  const Session& s = session();
  PageFile out(name);
  page_header(out, 0);
  out.line("<p><font face=\"Arial\"><strong>Hotspot Report: " +
           html_escape(std::filesystem::path(s.current_file).filename().string()) +
           "</strong></font></p>");
  out.line("<p><font face=\"Verdana\"><small>" + lead + "</small></font></p>");
  out.line(std::string("<p><font face=\"Verdana\"><small>Hotspots are relative to: ") +
           (s.hotspot_regional == 0 ? "the EU-27." : "the region(s) selected.") +
           "</small></font></p>");
  if (percent)
    rvc_table_percent(values, keys, out, 1, 3);
  else
    rvc_table_coloured(values, keys, out, 1, 3);
  rvc_key(out, 1, rvc_type);
  page_footer(out);
}

}  // namespace

bool hotspot_band(double euro_max, double rvc_class, double region_max) {
  return hotspot_at(session().hotspot_regional == 0 ? euro_max : region_max, rvc_class);
}

void hotspot_load(Ui& ui, int64_t rvc_type) {
  PageFile out("working.htm");
  page_header(out, 0);
  out.line(
      "<p align=\"center\"><font face=\"Arial\"><strong>Compiling data...</strong></font></p>");
  out.line("<p align=\"center\"><img src=graphics/loading.gif></p>");
  out.line("<p align=\"center\"><font face=\"Verdana\"><a href=hot.hcn>-CANCEL-</a></font></p>");
  out.line("</body>");
  out.line("</html>");
  out.close();
  ui.navigate(kWindow, "working.htm");
  hotspot_cancel() = false;
  // Timer2
  ui.set_timer([&ui, rvc_type] {
    ui.progress(0, 1, "Compiling data...");
    bool done = false;
    try {
      done = hotspot_hub(ui, rvc_type);
    } catch (...) {
      ui.progress(0, 0, "");
      throw;
    }
    ui.progress(0, 0, "");
    RvcBrowser& b = rvc_browser();
    if (done) {
      b.tab = 1;
      b.report_shown = true;
      ui.navigate(kWindow, "hotspot_rep1.htm");
    } else if (b.report_shown) {
      ui.navigate(kWindow, b.tab == 2 ? "hotspot_rep2.htm" : "hotspot_rep1.htm");
    } else {
      ui.close_window(kWindow);
    }
  });
}

bool hotspot_hub(Ui& ui, int64_t rvc_type) {
  RunningFlag running;
  Session& s = session();
  RvcBrowser& b = rvc_browser();
  Db file = Db::open(s.current_file);

  // The RVCs of the run's type, one column each.
  const std::vector<RvcInfo> rvcs = rvcs_of_type(Db::open(s.rvc_db_path), rvc_type);
  const int cols = static_cast<int>(rvcs.size()) + 1;
  for (GridTable* g : {&b.MSFlexGrid1, &b.MSFlexGrid2, &b.MSFlexGrid4, &b.MSFlexGrid5})
    head(*g, cols);
  for (int c = 1; c < cols; ++c) {
    const RvcInfo& rvc = rvcs[static_cast<size_t>(c - 1)];
    b.MSFlexGrid1.cell(0, c) = b.MSFlexGrid4.cell(0, c) = html_escape(rvc.letter);
    b.MSFlexGrid2.cell(0, c) = b.MSFlexGrid5.cell(0, c) = std::to_string(rvc.id);
  }

  // Every region row unfolds to its NUTS3 areas.
  RvcStores stores;
  std::vector<RunRow> rows;
  auto regions = file.query("SELECT * FROM \"Regions\" ORDER BY rowid");
  while (regions.next()) {
    const int64_t country = regions.get("NUTS0_ID").as_int();
    if (country >= 1 && country <= kCountryCount &&
        s.country_installed[static_cast<size_t>(country)] != 0)
      s.rvc_db_path = s.country_db_path[static_cast<size_t>(country)];
    const int64_t level = regions.get("NUTS Type ID").as_int();
    engine_detail::check_level({level, regions.get("NUTS Code").as_text(), 0, 0});
    for (int64_t area : stores.areas_within(country, 3, static_cast<int>(level),
                                            regions.get("NUTS ID").as_int())) {
      const int r = b.MSFlexGrid1.add_row();
      for (GridTable* g : {&b.MSFlexGrid2, &b.MSFlexGrid4, &b.MSFlexGrid5}) g->add_row();
      const std::string name = html_escape(stores.area(country, 3, area).name);
      const std::string key = rvc_key_text(country, area);
      b.MSFlexGrid1.cell(r, 0) = b.MSFlexGrid4.cell(r, 0) = name;
      b.MSFlexGrid2.cell(r, 0) = b.MSFlexGrid5.cell(r, 0) = key;
      rows.push_back({country, area});
    }
  }
  const int n = static_cast<int>(rows.size());
  std::map<int64_t, std::vector<int64_t>> areas_by_country;
  for (const RunRow& row : rows) areas_by_country[row.country].push_back(row.area);
  std::vector<int64_t> rvc_ids;
  for (const RvcInfo& rvc : rvcs) rvc_ids.push_back(rvc.id);
  for (const auto& [country, areas] : areas_by_country) stores.preload(country, 3, areas, rvc_ids);

  // List1: the region's largest "Max" of each RVC.
  std::vector<double> list1(rvcs.size(), 0.0);
  for (int r = 1; r <= n; ++r) {
    const RunRow& row = rows[static_cast<size_t>(r - 1)];
    report_row(ui, r, 2 * n);
    for (int c = 1; c < cols; ++c) {
      if (hotspot_cancel()) return false;
      const RvcInfo& rvc = rvcs[static_cast<size_t>(c - 1)];
      auto data = stores.data(row.country, 3, row.area, rvc.id);
      if (!data) continue;
      if (!data->average.is_empty())
        b.MSFlexGrid1.cell(r, c) = number_to_cell(data->average.as_double());
      double& max = list1[static_cast<size_t>(c - 1)];
      if (data->max.as_double() > max) max = data->max.as_double();
    }
  }

  // The percent of each area in the hot bands.
  const bool exclude_setting = s.hotspot_exclude_C0 == 1;
  for (int r = 1; r <= n; ++r) {
    const RunRow& row = rows[static_cast<size_t>(r - 1)];
    report_row(ui, n + r, 2 * n);
    for (int c = 1; c < cols; ++c) {
      const RvcInfo& rvc = rvcs[static_cast<size_t>(c - 1)];
      std::string& cell4 = b.MSFlexGrid4.cell(r, c);
      std::string& cell5 = b.MSFlexGrid5.cell(r, c);
      if (cell4.empty()) cell4 = "0";
      if (cell5.empty()) cell5 = "0";
      double c0 = 0;
      for (const auto& dist : stores.dist(row.country, 3, row.area, rvc.id)) {
        if (hotspot_cancel()) return false;
        if (dist.rvc_class == 0) c0 = dist.percent;
        if (hotspot_band(rvc.euro_max, dist.rvc_class, list1[static_cast<size_t>(c - 1)])) {
          cell4 = number_to_cell(cell_value(cell4) + dist.percent);
          cell5 = number_to_cell(cell_value(cell5) + dist.percent);
        }
      }
      if (rvc.exclude_class_zero && exclude_setting) {
        // The share of the area where the RVC applies at all.
        const double base = 100 - c0;
        double value = base == 0 ? 0 : 100 * cell_value(cell4) / base;
        value = std::clamp(value, 0.0, 100.0);
        cell4 = cell5 = number_to_cell(round_half_even(value, 0));
      }
    }
    if (hotspot_cancel()) return false;
  }

  const std::string band = s.hotspot_sens == 1 ? "high risk band" : "moderate and high risk bands";
  write_report("hotspot_rep1.htm",
               "The table below shows the percent of each NUTS3 area which falls into the " + band +
                   " for the criteria shown.",
               b.MSFlexGrid4, b.MSFlexGrid5, true, rvc_type);
  write_report("hotspot_rep2.htm",
               "The table below shows the average risk class for each NUTS3 area for the "
               "criteria shown.",
               b.MSFlexGrid1, b.MSFlexGrid2, false, rvc_type);
  return true;
}

}  // namespace arven

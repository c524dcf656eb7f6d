#include "shell/settings_view.h"

#include <algorithm>

#include "core/registry.h"
#include "core/session.h"
#include "reports/page_kit.h"
#include "windows/settings_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

json rows_of(const GridTable& t) {
  json rows = json::array();
  for (int r = 1; r < t.rows(); ++r) {
    json row = json::array();
    for (int c = 0; c < t.cols(); ++c) row.push_back(t.cell(r, c));
    rows.push_back(row);
  }
  return rows;
}

json header_of(const GridTable& t) {
  json h = json::array();
  for (int c = 0; c < t.cols(); ++c) h.push_back(t.rows() > 0 ? t.cell(0, c) : "");
  return h;
}

json check(const char* id, const char* text, bool checked) {
  return {{"id", id}, {"text", text}, {"checked", checked}};
}

json slider(const char* id, const char* label, int value, int max) {
  return {{"id", id}, {"label", label}, {"min", 0}, {"max", max}, {"value", value}};
}

// The colour of a row with something to fetch, as the page writes it.
std::string css_colour(int bgr) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "#%02X%02X%02X", bgr & 0xFF, (bgr >> 8) & 0xFF,
                (bgr >> 16) & 0xFF);
  return buf;
}

void country_tab(json& c, const SettingsDialog& d) {
  json items = json::array();
  for (size_t i = 0; i < d.countries.size(); ++i)
    items.push_back({{"text", country_display_name(d.countries[i])},
                     {"data", d.countries[i]},
                     {"selected", static_cast<int>(i) == d.country}});
  c["lists"] = {{{"id", "countries"}, {"label", "Country"}, {"items", items}}};
  c["grid"] = {{"id", "factors"},
               {"header", header_of(d.factors)},
               {"rows", rows_of(d.factors)},
               {"editable", {false, false, true}},
               {"kinds", {"readonly", "readonly", "number"}},
               {"decimal", session().decimal_separator},
               {"empty", "No data for this country."}};
  c["buttons"] = {{{"id", "save_factors"}, {"text", "Save values"}},
                  {{"id", "load_factors"}, {"text", "Load saved values"}}};
}

void hotspot_tab(json& c, const SettingsDialog& d) {
  c["radios"] = {
      {{"id", "hotspot_sens"},
       {"label", "Hotspot sensitivity"},
       {"items",
        {{{"id", 1}, {"text", "High risk only"}}, {{"id", 2}, {"text", "High and moderate risk"}}}},
       {"selected", d.hotspot_sens}}};
  c["checkboxes"] = {
      check("hotspot_regional", "Determine hotspots relative to selected region(s)",
            d.hotspot_regional),
      check("hotspot_exclude_C0",
            "For impacts affecting specific areas, calculate hotspot data for this area (not "
            "whole region)",
            d.hotspot_exclude_C0)};
}

void general_tab(json& c, const SettingsDialog& d) {
  c["checkboxes"] = {
      check("ShowSplash", "Show About dialog when software starts", d.ShowSplash),
      check("open_dialog", "Show open assessment dialog when software starts",
            d.open_dialog_at_start),
      check("cseq_included", "Include sequestration in carbon balance", d.cseq_included)};
  c["sliders"] = {slider("def_uptake", "Default uptake rate (%):", d.def_uptake, kUptakeMax)};
}

void ranking_tab(json& c, const SettingsDialog& d) {
  json items = json::array();
  for (int h : ranking_horizons())
    items.push_back({{"text", std::to_string(h)}, {"data", h}, {"selected", h == d.ranking_TH}});
  c["lists"] = {{{"id", "ranking_TH"},
                 {"label", "Time horizon to use for ranking operations:"},
                 {"items", items}}};
  c["sliders"] = {slider("miti_weight", "Mitigation:", d.miti_weight, kWeightMax),
                  slider("adapt_weight", "Adaptation:", d.adapt_weight, kWeightMax),
                  slider("prod_weight", "Productivity:", d.prod_weight, kWeightMax)};
  // The uncertainty of each data-quality score, for the Uncertainty page.
  static const char* const kScores[] = {"",
                                        "Relative uncertainty (%), data quality 1 (lowest):",
                                        "Data quality 2:",
                                        "Data quality 3:",
                                        "Data quality 4:",
                                        "Data quality 5 (highest):"};
  for (size_t q = 1; q <= 5; ++q)
    c["sliders"].push_back(slider(("dq_uncertainty_" + std::to_string(q)).c_str(), kScores[q],
                                  d.dq_uncertainty[q], kDqUncertaintyMax));
  c["buttons"] = {{{"id", "weight_defaults"}, {"text", "Default"}},
                  {{"id", "uncertainty_defaults"}, {"text", "Default uncertainties"}}};
}

void updates_tab(json& c, const SettingsDialog& d) {
  const UpdateTable& u = d.updates;
  json colours = json::array();
  for (int r = 1; r < u.table.rows(); ++r)
    colours.push_back(u.coloured[static_cast<size_t>(r)] ? json(css_colour(kUpdateRowColour))
                                                         : json(nullptr));
  if (!d.updates_hidden)
    c["table"] = {{"id", "updates"},
                  {"header", header_of(u.table)},
                  {"rows", rows_of(u.table)},
                  {"colours", colours},
                  {"selected", -1}};
  c["html"] = u.label_visible
                  ? std::string("<p id=\"download-label\">") + html_escape(kDownloadLabel) + "</p>"
                  : std::string("<p></p>");
  c["buttons"] = {{{"id", "check"}, {"text", "Check for updates"}},
                  {{"id", "website"}, {"text", "ARVEN website"}}};
}

json settings_controls() {
  const SettingsDialog& d = settings_dialog();
  json c = {{"title", "Settings"}, {"caption", "Settings"}, {"no_page", true}, {"fill", true}};
  c["tabs"] = {{"id", "settings"},
               {"items",
                {{{"id", kTabCountry}, {"text", "Country data"}},
                 {{"id", kTabHotspots}, {"text", "Hotspots"}},
                 {{"id", kTabGeneral}, {"text", "General"}},
                 {{"id", kTabRanking}, {"text", "Ranking"}},
                 {{"id", kTabUpdates}, {"text", "Updates"}}}},
               {"selected", d.tab}};
  c["buttons"] = json::array();
  switch (d.tab) {
    case kTabCountry:
      country_tab(c, d);
      break;
    case kTabHotspots:
      hotspot_tab(c, d);
      break;
    case kTabGeneral:
      general_tab(c, d);
      break;
    case kTabRanking:
      ranking_tab(c, d);
      break;
    default:
      updates_tab(c, d);
      break;
  }
  for (json b : {json{{"id", "ok"}, {"text", "OK"}}, json{{"id", "cancel"}, {"text", "Cancel"}},
                 json{{"id", "apply"}, {"text", "Apply"}}})
    c["buttons"].push_back(b);
  return c;
}

void settings_button(Ui& ui, const std::string& b) {
  if (b == "ok")
    settings_ok(ui);
  else if (b == "cancel")
    settings_cancel(ui);
  else if (b == "apply")
    apply(ui);
  else if (b == "weight_defaults")
    weight_defaults();
  else if (b == "uncertainty_defaults")
    uncertainty_defaults();
  else if (b == "save_factors")
    save_country_factors(ui);
  else if (b == "load_factors")
    load_country_factors(ui);
  else if (b == "check")
    manual_check(ui);
  else if (b == "website")
    gotoarvenweb(ui);
}

void settings_command(Ui& ui, const Params& p) {
  SettingsDialog& d = settings_dialog();
  auto value = [&](int fallback) { return param_int(p, "value", fallback); };
  if (p.count("tabs")) {
    d.tab = std::clamp(param_int(p, "tab", d.tab), 1, 5);
  } else if (p.count("button")) {
    settings_button(ui, p.at("button"));
  } else if (p.count("list")) {
    int index = param_int(p, "index", -1);
    if (p.at("list") == "countries") {
      choose_country(index);
    } else if (p.at("list") == "ranking_TH" && index >= 0 &&
               index < static_cast<int>(ranking_horizons().size())) {
      d.ranking_TH = ranking_horizons()[static_cast<size_t>(index)];
    }
  } else if (p.count("radio") && p.at("radio") == "hotspot_sens") {
    int v = value(d.hotspot_sens);
    if (v == 1 || v == 2) d.hotspot_sens = v;
  } else if (p.count("check")) {
    const std::string& id = p.at("check");
    bool on = value(0) == 1;
    if (id == "hotspot_regional") d.hotspot_regional = on;
    if (id == "hotspot_exclude_C0") d.hotspot_exclude_C0 = on;
    if (id == "ShowSplash") d.ShowSplash = on;
    if (id == "open_dialog") d.open_dialog_at_start = on;
    if (id == "cseq_included") d.cseq_included = on;
  } else if (p.count("slider")) {
    const std::string& id = p.at("slider");
    if (id == "def_uptake") d.def_uptake = std::clamp(value(d.def_uptake), 0, kUptakeMax);
    if (id == "miti_weight") d.miti_weight = std::clamp(value(d.miti_weight), 0, kWeightMax);
    if (id == "adapt_weight") d.adapt_weight = std::clamp(value(d.adapt_weight), 0, kWeightMax);
    if (id == "prod_weight") d.prod_weight = std::clamp(value(d.prod_weight), 0, kWeightMax);
    for (size_t q = 1; q <= 5; ++q)
      if (id == "dq_uncertainty_" + std::to_string(q))
        d.dq_uncertainty[q] = std::clamp(value(d.dq_uncertainty[q]), 0, kDqUncertaintyMax);
  } else if (p.count("grid") && p.at("grid") == "factors") {
    // Rows count from 0 in the page, from 1 (below the titles) in the table.
    if (param_text(p, "event") == "edit" && param_int(p, "col", -1) == 2)
      factor_cell_edit(param_int(p, "row", -1) + 1, param_text(p, "value"));
  } else if (p.count("table") && p.at("table") == "updates") {
    update_table_click(ui, param_int(p, "row", -1) + 1, param_int(p, "col", -1));
  }
}

}  // namespace

void register_settings_window(WebUi& ui) {
  WindowHandlers h;
  h.controls = settings_controls;
  h.load = [] {
    if (!settings_dialog().loaded) settings_load();
  };
  h.command = [&ui](const Params& p) { settings_command(ui, p); };
  h.query_close = [&ui] { return settings_query_close(ui); };
  ui.register_window("settings", h);
}

}  // namespace arven::shell

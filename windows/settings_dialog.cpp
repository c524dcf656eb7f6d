#include "windows/settings_dialog.h"

#include <cmath>
#include <filesystem>

#include "base/numbers.h"
#include "core/preferences.h"
#include "core/session.h"
#include "core/startup.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSection = "Settings";

SettingsDialog& storage() {
  static SettingsDialog d;
  return d;
}

int chosen_country() {
  const SettingsDialog& d = settings_dialog();
  if (d.country < 0 || d.country >= static_cast<int>(d.countries.size())) return 0;
  return d.countries[static_cast<size_t>(d.country)];
}

bool installed(int cc) {
  return cc >= 1 && cc <= kCountryCount && session().country_installed[static_cast<size_t>(cc)];
}

const std::string& store_of(int cc) {
  return session().country_db_path[static_cast<size_t>(cc)];
}

// The normalisation factors of the chosen country's store.
void load_factors() {
  SettingsDialog& d = settings_dialog();
  d.factors = GridTable(3);
  int h = d.factors.add_row();
  d.factors.cell(h, 0) = "ID";
  d.factors.cell(h, 1) = "Item";
  d.factors.cell(h, 2) = "Normalisation factor / value";
  int cc = chosen_country();
  if (!installed(cc)) return;
  Db db = Db::open(store_of(cc));
  auto rows = db.query("SELECT * FROM " + quote_name("Activities") + " WHERE " +
                       quote_name("Impact type") + " = 4 ORDER BY rowid");
  while (rows.next()) {
    int r = d.factors.add_row();
    d.factors.cell(r, 0) = rows.get("Activity ID").as_text();
    d.factors.cell(r, 1) = rows.get("Activity Name").as_text();
    Value f = rows.get("Norm_factor");
    d.factors.cell(r, 2) = f.is_null() ? "" : number_to_cell(f.as_double());
  }
}

void close_dialog(Ui& ui) {
  if (settings_query_close(ui)) ui.close_window("settings");
}

}  // namespace

SettingsDialog& settings_dialog() {
  return storage();
}

const std::vector<int>& ranking_horizons() {
  static const std::vector<int> h = {1, 5, 10, 25, 50, 100, 250};
  return h;
}

void settings_load() {
  SettingsDialog& d = settings_dialog();
  const Session& s = session();
  d = SettingsDialog();
  d.loaded = true;
  d.hotspot_sens = s.hotspot_sens == 2 ? 2 : 1;
  d.hotspot_regional = s.hotspot_regional != 0;
  d.hotspot_exclude_C0 = s.hotspot_exclude_C0 != 0;
  d.ShowSplash = s.ShowSplash == 1;
  d.cseq_included = s.cseq_included != 0;
  d.def_uptake = static_cast<int>(std::lround(s.def_uptake));
  d.ranking_TH = s.ranking_TH;
  d.miti_weight = s.miti_weight;
  d.adapt_weight = s.adapt_weight;
  d.prod_weight = s.prod_weight;
  d.dq_uncertainty = s.dq_uncertainty;
  d.countries = built_country_indices();
  for (size_t i = 0; i < d.countries.size(); ++i)
    if (installed(d.countries[i])) {
      d.country = static_cast<int>(i);
      break;
    }
  try {
    load_factors();
  } catch (const StoreError&) {
    d.factors.resize(1, 3);  // an unreadable store shows no factors
  }
  load_update_table(d.updates);
}

void show_settings(Ui& ui, int tab, bool check) {
  SettingsDialog& d = settings_dialog();
  if (!d.loaded) settings_load();
  if (tab >= kTabCountry && tab <= kTabUpdates) d.tab = tab;
  // The check runs once the dialog is on screen, so its rows fill in view.
  if (check) ui.set_timer([&ui] { checkforupdates(ui, settings_dialog().updates); });
  ui.show_modal("settings", d.tab);
  settings_dialog().loaded = false;
}

bool apply(Ui& ui) {
  SettingsDialog& d = settings_dialog();
  if (d.miti_weight == 0 && d.adapt_weight == 0) {
    d.tab = kTabRanking;
    ui.message_box(
        "The weightings for Mitigation and Adaptation cannot both be set to zero. Please adjust "
        "the weightings or restore the default values",
        "Ranking weightings", MsgButtons::Ok, MsgIcon::Stop);
    return false;
  }
  // What the controls show, in the fixed order of the keys; written in one
  // go, and taken into the session only once it is on disk.
  const int splash = d.ShowSplash ? 1 : 0, cseq = d.cseq_included ? 1 : 0,
            exclude = d.hotspot_exclude_C0 ? 1 : 0, regional = d.hotspot_regional ? 1 : 0;
  SettingValues values = {{"ShowSplash", std::to_string(splash)},
                          {"miti_weight", std::to_string(d.miti_weight)},
                          {"adapt_weight", std::to_string(d.adapt_weight)},
                          {"prod_weight", std::to_string(d.prod_weight)},
                          {"def_uptake", std::to_string(d.def_uptake)},
                          {"ranking_TH", std::to_string(d.ranking_TH)},
                          {"cseq_included", std::to_string(cseq)},
                          {"hotspot_exclude_C0", std::to_string(exclude)},
                          {"hotspot_sens", std::to_string(d.hotspot_sens)},
                          {"hotspot_regional", std::to_string(regional)}};
  for (size_t q = 1; q <= 5; ++q)
    values.emplace_back("dq_uncertainty_" + std::to_string(q), std::to_string(d.dq_uncertainty[q]));
  if (!save_settings(ui, kSection, values)) return false;
  Session& s = session();
  s.ShowSplash = splash;
  s.miti_weight = d.miti_weight;
  s.adapt_weight = d.adapt_weight;
  s.prod_weight = d.prod_weight;
  s.def_uptake = static_cast<float>(d.def_uptake);
  s.ranking_TH = d.ranking_TH;
  s.cseq_included = cseq;
  s.hotspot_exclude_C0 = exclude;
  s.hotspot_sens = d.hotspot_sens;
  s.hotspot_regional = regional;
  s.dq_uncertainty = d.dq_uncertainty;
  return true;
}

void settings_ok(Ui& ui) {
  if (apply(ui)) close_dialog(ui);
}

void settings_cancel(Ui& ui) {
  close_dialog(ui);
}

void uncertainty_defaults() {
  settings_dialog().dq_uncertainty = kDefaultDqUncertainty;
}

void weight_defaults() {
  SettingsDialog& d = settings_dialog();
  d.miti_weight = d.adapt_weight = d.prod_weight = 100;
}

bool settings_query_close(Ui& ui) {
  Session& s = session();
  if (!s.rvc_db_path.empty() && !s.ops_db_path.empty()) return true;
  // A store may just have been installed.
  detect_country_stores(&ui);
  if (!s.rvc_db_path.empty() || !s.ops_db_path.empty()) {
    try {
      load_rvc_n_factors();
    } catch (const StoreError& e) {
      ui.message_box(e.what(), "Data store problem", MsgButtons::Ok, MsgIcon::Exclamation);
    }
    return true;
  }
  // The title's spelling is kept as it stands.
  if (ui.message_box("No databases have been installed. You must download at least one database. "
                     "Select Yes to download databases. Select No to close the software.",
                     "No databases installled", MsgButtons::YesNo, MsgIcon::Stop) == Answer::No) {
    ui.quit();
    return true;
  }
  return false;
}

void choose_country(int index) {
  SettingsDialog& d = settings_dialog();
  if (index < 0 || index >= static_cast<int>(d.countries.size())) return;
  d.country = index;
  load_factors();
}

bool has_decimal_separator(const std::string& text) {
  return text.find(session().decimal_separator) != std::string::npos;
}

std::string filter_factor_key(const std::string& text, char key) {
  if (key >= '0' && key <= '9') return text + key;
  if (key == '\b') return text.empty() ? text : text.substr(0, text.size() - 1);
  const std::string& sep = session().decimal_separator;
  if (!sep.empty() && key == sep[0] && !has_decimal_separator(text)) return text + key;
  return text;  // any other key is dropped
}

void factor_cell_edit(int row, const std::string& typed) {
  SettingsDialog& d = settings_dialog();
  if (row < 1 || row >= d.factors.rows()) return;
  std::string text;
  for (char c : typed) text = filter_factor_key(text, c);
  d.factors.cell(row, 2) = text;
}

std::string settings_store_path() {
  return (fs::path(session().documents_folder) / "My ARVEN Files" / "arven_settings.avs").string();
}

void save_country_factors(Ui&) {
  SettingsDialog& d = settings_dialog();
  int cc = chosen_country();
  if (!installed(cc)) return;
  {
    Db db = Db::open(store_of(cc));
    Transaction tx(db);
    for (int r = 1; r < d.factors.rows(); ++r)
      db.exec("UPDATE " + quote_name("Activities") + " SET " + quote_name("Norm_factor") +
                  " = ? WHERE " + quote_name("Activity ID") + " = ?",
              {Value(cell_to_number(d.factors.cell(r, 2))),
               Value(static_cast<int64_t>(cell_to_number(d.factors.cell(r, 0))))});
    tx.commit();
  }
  std::string path = settings_store_path();
  if (!file_exists(path)) create_settings_store(path);
  Db settings = Db::open(path);
  Transaction tx(settings);
  settings.exec("DELETE FROM " + quote_name("Country Output Norm Factors") + " WHERE " +
                    quote_name("Country ID") + " = ?",
                {Value(cc)});
  for (int r = 1; r < d.factors.rows(); ++r)
    settings.insert("Country Output Norm Factors", {"Country ID", "Output ID", "Norm_factor"},
                    {Value(cc), Value(static_cast<int64_t>(cell_to_number(d.factors.cell(r, 0)))),
                     Value(cell_to_number(d.factors.cell(r, 2)))});
  tx.commit();
}

void load_country_factors(Ui& ui) {
  if (ui.message_box("This will load any previously saved values into the current country "
                     "database. Do you want to proceed?",
                     "Load previously saved data", MsgButtons::YesNo,
                     MsgIcon::Question) == Answer::No)
    return;
  apply_saved_factors(chosen_country());
  load_factors();
}

void apply_saved_factors(int cc) {
  std::string path = settings_store_path();
  if (!file_exists(path) || !installed(cc)) return;
  std::vector<std::pair<Value, Value>> saved;
  {
    Db settings = Db::open(path);
    auto rows = settings.query("SELECT * FROM " + quote_name("Country Output Norm Factors") +
                                   " WHERE " + quote_name("Country ID") + " = ?",
                               {Value(cc)});
    while (rows.next()) saved.emplace_back(rows.get("Output ID"), rows.get("Norm_factor"));
  }
  if (saved.empty()) return;
  Db db = Db::open(store_of(cc));
  Transaction tx(db);
  // Activities that have gone from the store are passed over.
  for (const auto& [id, factor] : saved)
    db.exec("UPDATE " + quote_name("Activities") + " SET " + quote_name("Norm_factor") +
                " = ? WHERE " + quote_name("Activity ID") + " = ?",
            {factor, id});
  tx.commit();
}

void manual_check(Ui& ui) {
  SettingsDialog& d = settings_dialog();
  d.updates_hidden = true;
  ui.progress(0, 0, "");
  checkforupdates(ui, d.updates);
  d.updates_hidden = false;
}

void update_table_click(Ui& ui, int row, int col) {
  const GridTable& t = settings_dialog().updates.table;
  if (col != 4 || row < 1 || row >= t.rows() || t.cell(row, 4).empty()) return;
  download_trigger(ui, std::stoi(t.cell(row, 5)));
}

OpenResult offer_store_download(Ui& ui, OpenResult result) {
  if (result.wants_download) show_settings(ui, kSettingsUpdateTab, true);
  return result;
}

}  // namespace arven

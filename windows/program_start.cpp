#include "windows/program_start.h"

#include <string>

#include "core/preferences.h"
#include "core/session.h"
#include "core/startup.h"
#include "settings/update_check.h"
#include "stores/db.h"
#include "stores/schema.h"
#include "windows/settings_dialog.h"

namespace arven {

namespace {

constexpr const char* kSection = "Settings";

std::string app_path(const char* relative) {
  return (session().app_folder / relative).string();
}

// A key whose value the settings dialog's control can show: a value out of
// [lo, hi] falls back to the default, so that the dialog never shows one
// value and writes back another.
int setting_within(const char* key, int fallback, int lo, int hi) {
  int v = get_setting_int(kSection, key, fallback);
  return v < lo || v > hi ? fallback : v;
}

// Reads the keys after Outlook_Frame, in their fixed order.
void read_remaining_preferences() {
  Session& s = session();
  s.ShowSplash = setting_within("ShowSplash", 1, 0, 1);
  s.miti_weight = setting_within("miti_weight", 100, 0, kWeightMax);
  s.adapt_weight = setting_within("adapt_weight", 100, 0, kWeightMax);
  s.prod_weight = setting_within("prod_weight", 100, 0, kWeightMax);
  s.cseq_years = get_setting_int(kSection, "cseq_years", 10);  // no control shows it
  s.cseq_included = setting_within("cseq_included", 1, 0, 1);
  s.hotspot_sens = setting_within("hotspot_sens", 1, 1, 2);
  s.hotspot_regional = setting_within("hotspot_regional", 0, 0, 1);
  s.ranking_TH = get_setting_int(kSection, "ranking_TH", 50);
  const auto& horizons = ranking_horizons();
  if (std::find(horizons.begin(), horizons.end(), s.ranking_TH) == horizons.end())
    s.ranking_TH = 50;
  s.def_uptake = get_setting_float(kSection, "def_uptake", 50);
  if (!(s.def_uptake >= 0 && s.def_uptake <= kUptakeMax)) s.def_uptake = 50;
  s.hotspot_exclude_C0 = setting_within("hotspot_exclude_C0", 1, 0, 1);
  for (size_t q = 1; q <= 5; ++q)
    s.dq_uncertainty[q] = setting_within(("dq_uncertainty_" + std::to_string(q)).c_str(),
                                         kDefaultDqUncertainty[q], 0, kDqUncertaintyMax);
}

void report_store_error(Ui& ui, const StoreError& e) {
  ui.message_box(e.what(), "Data store problem", MsgButtons::Ok, MsgIcon::Exclamation);
}

}  // namespace

void Main(Ui& ui, const StartupHooks& hooks) {
  Session& s = session();
  // 1. admin_mode is fixed by the program's main; the open panel first.
  s.Outlook_Frame = get_setting_int(kSection, "Outlook_Frame", 0);
  // 2. Structure constants.
  s.structure_version = kStructureVersion;
  s.db_version = kDbVersion;
  s.settings_structure_version = kSettingsStructureVersion;
  // 3. Installed country stores; the admin build reads the master stores.
  detect_country_stores(&ui);
  if (s.admin_mode == 1) {
    s.ops_db_path = app_path("dbases/arven_operations.mdb");
    s.rvc_db_path = app_path("dbases/arven_rvcs.mdb");
  }
  // 4. Recent-files store.
  s.files_db_path = app_path("dbases/ARVEN_Files.mdb");
  // 5. User folders, then the main window, which needs only the files
  // store and the open panel.
  s.desktop_folder = special_folder(0);
  s.documents_folder = special_folder(5);
  try {
    ensure_user_folders();
  } catch (const StoreError& e) {
    report_store_error(ui, e);
  }
  if (hooks.main_window_init) hooks.main_window_init(ui);
  // 6. The remaining preferences.
  read_remaining_preferences();
  // 7. Decimal separator of the user's locale.
  s.decimal_separator = locale_info(0, 14);
  s.decimal_char_code = static_cast<unsigned char>(s.decimal_separator[0]);
  set_decimal_separator(s.decimal_separator);
  // 8. About box, then the main window.
  if (s.ShowSplash == 1) ui.show_modal("about");
  ui.show_window("main");
  // 9. The admin console beside it in the admin build.
  if (s.admin_mode == 1) ui.show_window("admin");
  // What the downloader reports of the last update, once.
  report_download_result(ui);
  // 10./11. With a store: the main page, then a pending restart after an
  // update (the file that was open opened again); without: the update tab.
  if (!s.rvc_db_path.empty() || !s.ops_db_path.empty()) {
    try {
      load_rvc_n_factors();
    } catch (const StoreError& e) {
      report_store_error(ui, e);
    }
    if (hooks.build_main_page) hooks.build_main_page(ui);
    if (get_setting(kSection, "Restart_Flag", "0") == "1" &&
        save_settings(ui, kSection, {{"Restart_Flag", "0"}})) {
      std::string file = take_file_to_reopen();
      if (!file.empty() && hooks.reopen_file) hooks.reopen_file(ui, file);
      if (s.update_state == 1) show_settings(ui, kSettingsUpdateTab, true);
    }
    return;
  }
  ui.message_box(kNoDatabasesText, kNoDatabasesTitle, MsgButtons::Ok, MsgIcon::Stop);
  show_settings(ui, kSettingsUpdateTab, true);
}

}  // namespace arven

#include "core/startup.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "core/numbers.h"
#include "core/preferences.h"
#include "core/registry.h"
#include "core/session.h"
#include "settings/settings_dialog.h"
#include "stores/db.h"
#include "stores/schema.h"

extern char** environ;

namespace arven {

namespace fs = std::filesystem;

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

void report_store_error(Ui* ui, const StoreError& e) {
  if (ui) ui->message_box(e.what(), "Data store problem", MsgButtons::Ok, MsgIcon::Exclamation);
}

}  // namespace

Value store_version(int cc) {
  Db db = Db::open(session().country_db_path[static_cast<size_t>(cc)]);
  db.require_table("Version");
  auto rows = db.query("SELECT * FROM \"Version\"");
  if (!rows.next()) db.fail("its table \"Version\" has no row");
  Value db_version = rows.get("DB Version");
  if (db_version.is_null() || db_version.as_double() != session().db_version) return Value(-1);
  return rows.get("Version");
}

void detect_country_stores(Ui* ui) {
  Session& s = session();
  std::string default_date;
  bool have_default = false;
  for (int cc = 1; cc <= kCountryCount; ++cc) {
    auto i = static_cast<size_t>(cc);
    s.country_db_path[i] = country_store_path(s.app_folder, country_code_by_index(cc)).string();
    s.country_name[i] = country_display_name(cc);
    s.country_installed[i] = file_exists(s.country_db_path[i]) ? 1 : 0;
    if (!s.country_installed[i]) continue;
    Value version;
    try {
      version = store_version(cc);
    } catch (const StoreError& e) {
      s.country_installed[i] = 0;
      report_store_error(ui, e);
      continue;
    } catch (const std::exception& e) {
      s.country_installed[i] = 0;
      report_store_error(ui, StoreError(s.country_db_path[i], e.what()));
      continue;
    }
    if (version.is_int() && version.as_int() == -1) {
      s.country_installed[i] = 0;  // another DB Version counts as absent, silently
      continue;
    }
    // Dates are stored as "YYYY-MM-DD HH:MM:SS", so text order is date order.
    std::string date = version.as_text();
    if (date.size() == 10) date += " 00:00:00";
    if (!have_default || date > default_date) {
      s.ops_db_path = s.country_db_path[i];
      s.rvc_db_path = s.country_db_path[i];
      default_date = date;
      have_default = true;
    }
  }
}

void load_rvc_n_factors() {
  Session& s = session();
  Db db = Db::open(s.rvc_db_path);
  db.require_table("RVC_List");
  auto rows = db.query("SELECT * FROM \"RVC_List\"");
  while (rows.next()) {
    int64_t id = rows.get("RVC ID").as_int();
    if (id < 0 || id >= kRvcFactorCount)
      db.fail("RVC ID " + std::to_string(id) + " in RVC_List is outside 0 to 400");
    s.rvc_n_factor[static_cast<size_t>(id)] = rows.get("N factor").as_double();
  }
}

void about_box_closed(Ui& ui, bool show_splash) {
  if (save_settings(ui, kSection, {{"ShowSplash", show_splash ? "1" : "0"}}))
    session().ShowSplash = show_splash ? 1 : 0;
}

void save_outlook_frame(Ui& ui) {
  save_settings(ui, kSection, {{"Outlook_Frame", std::to_string(session().Outlook_Frame)}});
}

std::string special_folder(int id) {
  const char* xdg = std::getenv(id == 0 ? "XDG_DESKTOP_DIR" : "XDG_DOCUMENTS_DIR");
  if (xdg && *xdg) return xdg;
  const char* home = std::getenv("HOME");
  if (!home || !*home) return "";
  if (id == 0) return (fs::path(home) / "Desktop").string();
  if (id == 5) return (fs::path(home) / "Documents").string();
  return "";
}

std::string locale_info(int /*lcid*/, int item) {
  return item == 14 ? locale_decimal_separator() : "";
}

bool file_exists(const std::string& path) {
  std::error_code ec;
  return !path.empty() && fs::exists(path, ec);
}

bool shell_open(const std::string& verb, const std::string& target) {
  if (verb != "Open" && verb != "open") return false;
  pid_t pid = 0;
  const char* argv[] = {"xdg-open", target.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  int rc =
      posix_spawnp(&pid, "xdg-open", &actions, nullptr, const_cast<char* const*>(argv), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return false;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void ensure_user_folders() {
  Session& s = session();
  std::error_code ec;
  if (!s.documents_folder.empty())
    fs::create_directories(fs::path(s.documents_folder) / "My ARVEN Files", ec);
  if (!s.files_db_path.empty() && !file_exists(s.files_db_path)) {
    fs::create_directories(fs::path(s.files_db_path).parent_path(), ec);
    create_files_store(s.files_db_path);
  }
}

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
    report_store_error(&ui, e);
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
      report_store_error(&ui, e);
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

#include "core/startup.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "base/numbers.h"
#include "core/preferences.h"
#include "core/registry.h"
#include "core/session.h"
#include "stores/db.h"
#include "stores/schema.h"

extern char** environ;

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSection = "Settings";

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

}  // namespace arven

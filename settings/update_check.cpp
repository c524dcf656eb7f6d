#include "settings/update_check.h"

#include <spawn.h>
#include <unistd.h>

#include <cstring>

#include "core/preferences.h"
#include "core/registry.h"
#include "core/session.h"
#include "core/startup.h"
#include "core/version.h"
#include "settings/update_server.h"
#include "stores/db.h"

extern char** environ;

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr const char* kCannotConnect =
    "Cannot connect to the update server. Please check that your internet connection is active.";
constexpr const char* kUpdateTitle = "Update software";
constexpr const char* kSoftwareByHand =
    "A new version of the software cannot be installed by the downloader: if you go on, it will "
    "only tell you to fetch the new installer from the ARVEN website and install it by hand.";
constexpr const char* kReopenKey = "File to reopen";
constexpr const char* kInstalledKey = "Installed";
constexpr const char* kNewInstaller =
    "You need to download a new installer from the ARVEN website to update the software. Would "
    "you like to open the ARVEN website now?";

// Server text as it may go into the table: outer blanks and line ends
// dropped, and anything but printable ASCII replaced, so the table stays
// valid UTF-8 whatever the server sent.
std::string clean_server_text(const std::string& raw) {
  size_t b = raw.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = raw.find_last_not_of(" \t\r\n");
  return printable_ascii(raw.substr(b, e - b + 1));
}

std::string fetch(UpdateServer& server, const std::string& path) {
  // Version files are a few bytes; a larger answer is not one of them.
  auto text = server.fetch_text(path, 1024);
  return text ? clean_server_text(*text) : "";
}

void offer(UpdateTable& t, int r, const std::string& version, bool colour) {
  t.table.cell(r, 2) = "YES";
  t.table.cell(r, 3) = version;
  t.table.cell(r, 4) = "Download";
  t.label_visible = true;
  t.coloured[static_cast<size_t>(r)] = colour;
}

void current(UpdateTable& t, int r) {
  t.table.cell(r, 2) = "NO";
  t.table.cell(r, 3) = "";
  t.table.cell(r, 4) = "";
  t.coloured[static_cast<size_t>(r)] = false;
}

void unknown(UpdateTable& t, int r) {
  t.table.cell(r, 2) = "Unknown";
  t.table.cell(r, 3) = "Unknown";
  t.table.cell(r, 4) = "Download";
}

bool is_digits(const std::string& s) {
  return !s.empty() && s.size() <= 9 && s.find_first_not_of("0123456789") == std::string::npos;
}

// "" when the update server has the archive of country `cc`; otherwise
// why it cannot be downloaded, naming the country and the address.
std::string archive_unavailable(int cc) {
  std::string code = country_code_by_index(cc);
  if (code.empty()) return "There is no country with the index " + std::to_string(cc) + ".";
  UpdateServer server;
  std::string url = server.address() + server_archive_path(code);
  long status = server.head(server_archive_path(code));
  if (status == 200) return "";  // what the downloader needs
  std::string why = server.address().empty()
                        ? "no update server is set (Update_Server in [Settings] of ARVEN.ini)"
                    : status == 0 ? "the update server " + server.address() + " does not answer"
                                  : "the update server has no file " + url + " (HTTP " +
                                        std::to_string(status) + ")";
  return "The database for " + country_display_name(cc) + " cannot be downloaded: " + why +
         ". ARVEN stays open.";
}

// Checks the software row (row 1) against the server's text.
void check_software(Ui& ui, UpdateTable& t, const std::string& text, bool silent) {
  auto parts = text.empty() || text.size() > 10 ? std::nullopt : split_version(text);
  if (!parts) {
    if (!silent) ui.message_box(kCannotConnect, "Cannot proceed", MsgButtons::Ok, MsgIcon::Stop);
    t.table.cell(1, 2) = "Unknown";
    t.table.cell(1, 3) = "Unknown";
    t.table.cell(1, 4) = "Download";
    t.label_visible = true;
    t.coloured[1] = true;
    return;
  }
  const auto& p = *parts;
  // Each part is compared by itself, with no carrying between parts, so
  // 1.2.0 counts as newer than 2.0.0: intended.
  if (p[0] <= kVersionMajor && p[1] <= kVersionMinor && p[2] <= kVersionRevision)
    current(t, 1);
  else
    offer(t, 1, text, true);
}

void check_store(UpdateTable& t, int r, const std::string& text, bool silent) {
  int cc = std::stoi(t.table.cell(r, 5));
  if (t.table.cell(r, 1) != kNotInstalled) {
    std::string installed = store_date_text(cc);
    if (!installed.empty()) t.table.cell(r, 1) = installed;
    std::string server_date = text.substr(0, 10);
    auto theirs = parse_day_month_year(server_date);
    auto ours = parse_day_month_year(t.table.cell(r, 1));
    if (!theirs || !ours) {
      // Nothing readable came back: a user-run check says so; the silent
      // check leaves the row as it was.
      if (!silent) {
        unknown(t, r);
        t.coloured[static_cast<size_t>(r)] = false;
      }
      return;
    }
    if (*ours >= *theirs)
      current(t, r);
    else
      offer(t, r, server_date, true);
    return;
  }
  if (!text.empty() && text.size() < 16) {
    offer(t, r, text.substr(0, 10), false);
  } else if (!silent) {
    unknown(t, r);
  }
}

}  // namespace

std::string server_version_path(const std::string& code) {
  return "/downloads/arven_db_version_" + code + ".csv";
}

std::string server_archive_path(const std::string& code) {
  return "/downloads/arven_db_" + code + ".zip";
}

const std::vector<int>& built_country_indices() {
  static const std::vector<int> indices = [] {
    // Countries of the registry for which no stores are built.
    const int skipped[] = {1,  2,  4,  5,  8,  9,  18, 19, 21, 24, 26, 27,
                           31, 32, 33, 34, 37, 41, 42, 46, 47, 48, 50};
    std::vector<int> out;
    for (int cc = 1; cc <= kCountryCount; ++cc)
      if (std::find(std::begin(skipped), std::end(skipped), cc) == std::end(skipped))
        out.push_back(cc);
    return out;
  }();
  return indices;
}

std::string store_date_text(int cc) {
  try {
    Value v = store_version(cc);
    if (v.is_int() && v.as_int() == -1) return "";
    std::string d = v.as_text();  // "YYYY-MM-DD[ HH:MM:SS]"
    if (d.size() < 10 || d[4] != '-' || d[7] != '-') return "";
    return d.substr(8, 2) + "/" + d.substr(5, 2) + "/" + d.substr(0, 4);
  } catch (const std::exception&) {
    return "";
  }
}

void load_update_table(UpdateTable& t) {
  t.table = GridTable(6);
  int h = t.table.add_row();
  const char* titles[] = {
      "Item", "Installed version", "New version available", "Version for download", "Download",
      "ID"};
  for (int c = 0; c < 6; ++c) t.table.cell(h, c) = titles[c];
  int r = t.table.add_row();
  t.table.cell(r, 0) = "Software Core";
  t.table.cell(r, 1) = version_text();
  t.table.cell(r, 5) = "0";
  for (int cc : built_country_indices()) {
    r = t.table.add_row();
    t.table.cell(r, 0) = "Database: " + country_display_name(cc);
    std::string date =
        session().country_installed[static_cast<size_t>(cc)] ? store_date_text(cc) : "";
    t.table.cell(r, 1) = date.empty() ? kNotInstalled : date;
    t.table.cell(r, 5) = std::to_string(cc);
  }
  t.coloured.assign(static_cast<size_t>(t.table.rows()), false);
  t.label_visible = false;
  t.flag_label.clear();
}

bool internet_state(UpdateServer& server, std::string& type) {
  bool up = server.answers();
  type = up ? "LAN" : "Offline";
  return up;
}

std::optional<std::vector<long>> split_version(const std::string& text) {
  std::vector<long> parts;
  size_t start = 0;
  while (parts.size() < 3) {
    size_t dot = text.find('.', start);
    std::string part = text.substr(start, dot == std::string::npos ? dot : dot - start);
    if (!is_digits(part)) return std::nullopt;
    parts.push_back(std::stol(part));
    if (dot == std::string::npos) break;
    start = dot + 1;
  }
  if (parts.size() != 3) return std::nullopt;
  return parts;
}

std::optional<long> parse_day_month_year(const std::string& text) {
  if (text.size() != 10) return std::nullopt;
  std::string d = text.substr(0, 2), m = text.substr(3, 2), y = text.substr(6, 4);
  if (!is_digits(d) || !is_digits(m) || !is_digits(y)) return std::nullopt;
  long day = std::stol(d), month = std::stol(m), year = std::stol(y);
  if (day < 1 || day > 31 || month < 1 || month > 12) return std::nullopt;
  return year * 10000 + month * 100 + day;
}

void checkforupdates(Ui& ui, UpdateTable& t, UpdateServer& server) {
  bool silent = session().update_check_silent == 1;
  if (t.table.rows() < 2) load_update_table(t);
  // 1.-3. The download label hidden; a first look at the software version,
  // where 0.0.0 says that only a new installer will do.
  t.label_visible = false;
  std::string type;
  bool online = internet_state(server, type);
  if (online) {
    std::string text = fetch(server, kSoftwareVersionPath);
    t.flag_label.clear();
    auto parts = split_version(text);
    if (parts && (*parts)[0] == 0 && (*parts)[1] == 0 && (*parts)[2] == 0) {
      if (silent) {
        t.flag_label = "YES";
      } else if (ui.message_box(kNewInstaller, "New installation required", MsgButtons::YesNo,
                                MsgIcon::Question) == Answer::Yes) {
        gotoarvenweb(ui);
      }
      return;
    }
  }
  // 4. No connection: said once, and the check goes on.
  if (!online && !silent)
    ui.message_box(kCannotConnect, "Cannot proceed", MsgButtons::Ok, MsgIcon::Stop);
  int rows = t.table.rows();
  // 5.-7. The software row.
  t.table.cell(1, 1) = version_text();
  ui.progress(1, rows - 1, "Checking for updates...");
  check_software(ui, t, fetch(server, kSoftwareVersionPath), silent);
  // 8. One row per country store.
  for (int r = 2; r < rows; ++r) {
    ui.progress(r, rows - 1, "Checking for updates...");
    std::string code = country_code_by_index(std::stoi(t.table.cell(r, 5)));
    check_store(t, r, fetch(server, server_version_path(code)), silent);
  }
  ui.progress(0, 0, "");
}

void checkforupdates(Ui& ui, UpdateTable& t) {
  UpdateServer server;
  checkforupdates(ui, t, server);
}

int update_state_of(const UpdateTable& t) {
  for (int r = 1; r < t.table.rows(); ++r)
    if (t.table.cell(r, 2) == "YES" && t.table.cell(r, 1) != kNotInstalled) return 1;
  return t.flag_label == "YES" ? 1 : 2;
}

SilentCheckResult silent_update_check(Ui& ui) {
  UpdateTable t;
  load_update_table(t);
  checkforupdates(ui, t);
  return {update_state_of(t) == 1};
}

std::string printable_ascii(std::string text) {
  for (auto& c : text)
    if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7E) c = '?';
  return text;
}

std::string update_table_csv(const GridTable& table) {
  auto field = [](const std::string& s) {
    if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
    std::string q = "\"";
    for (char c : s) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
  };
  std::string out;
  for (int r = 0; r < table.rows(); ++r) {
    for (int c = 0; c < table.cols(); ++c) out += (c ? "," : "") + field(table.cell(r, c));
    out += "\n";
  }
  return out;
}

UpdateLaunch& update_launch() {
  static UpdateLaunch launch;
  return launch;
}

void gotoarvenweb(Ui& ui) {
  ui.open_document(get_setting("Settings", "Website", "help/ARVEN_Manual.htm"));
}

void download_trigger(Ui& ui, int id) {
  // The downloader cannot install the software, and can install a store
  // only from an archive that the server has: both are said before the
  // program ends, and a missing archive keeps it open.
  if (id == 0) {
    ui.message_box(kSoftwareByHand, kUpdateTitle, MsgButtons::Ok, MsgIcon::Information);
  } else if (std::string why = archive_unavailable(id); !why.empty()) {
    ui.message_box(why, kUpdateTitle, MsgButtons::Ok, MsgIcon::Exclamation);
    return;
  }
  if (ui.message_box("This will close the software. Do you want to proceed?", kUpdateTitle,
                     MsgButtons::YesNo, MsgIcon::Question) == Answer::No)
    return;
  // Nothing is launched unless both keys are on disk; the item alone
  // starts nothing.
  if (!save_settings(ui, "Download",
                     {{"Item to download", std::to_string(id)},
                      {kReopenKey, session().current_file}}) ||
      !save_settings(ui, "Settings", {{"Restart_Flag", "1"}}))
    return;

  const UpdateLaunch& launch = update_launch();
  fs::path downloader = launch.downloader;
  if (downloader.empty()) {
    std::error_code ec;
    downloader = fs::read_symlink("/proc/self/exe", ec).parent_path() / "arven-downloader";
  }
  // arven-downloader --app-dir DIR --wait-pid PID -- PROGRAM ARGS...: it
  // waits for this process to end, installs, and starts PROGRAM again.
  std::vector<std::string> args = {downloader.string(),           "--app-dir",
                                   session().app_folder.string(), "--wait-pid",
                                   std::to_string(getpid()),      "--"};
  args.insert(args.end(), launch.restart.begin(), launch.restart.end());
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  int rc = posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ);
  if (rc != 0) {
    // Nothing to resume at the next start; a disk that cannot take even
    // that is said in a box of its own.
    if (save_settings(ui, "Settings", {{"Restart_Flag", "0"}}))
      save_settings(ui, "Download", {{kReopenKey, ""}});
    ui.message_box(
        "The downloader " + downloader.string() + " could not be started: " + std::strerror(rc),
        kUpdateTitle, MsgButtons::Ok, MsgIcon::Stop);
    return;
  }
  ui.quit();
}

void report_download_result(Ui& ui) {
  // Each report is shown once: only when its key could be cleared.
  std::string failed = get_setting("Download", "Result", "");
  if (!failed.empty() && save_settings(ui, "Download", {{"Result", ""}}))
    ui.message_box(failed, kUpdateTitle, MsgButtons::Ok, MsgIcon::Exclamation);
  std::string item = get_setting("Download", kInstalledKey, "");
  if (item.empty() || !save_settings(ui, "Download", {{kInstalledKey, ""}})) return;
  int cc = std::atoi(item.c_str());
  if (country_code_by_index(cc).empty()) return;
  std::string date = store_date_text(cc);
  ui.message_box("The database for " + country_display_name(cc) + " has been installed." +
                     (date.empty() ? "" : " Installed version: " + date + "."),
                 kUpdateTitle, MsgButtons::Ok, MsgIcon::Information);
}

std::string take_file_to_reopen() {
  std::string file = get_setting("Download", kReopenKey, "");
  if (!file.empty()) {
    try {
      save_settings("Download", {{kReopenKey, ""}});
    } catch (const std::exception&) {
      // Opened again at the next start too: nothing is lost.
    }
  }
  return file;
}

}  // namespace arven

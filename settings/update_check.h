#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/ui.h"

namespace arven {

class UpdateServer;

// Paths on the update server.
inline constexpr const char* kSoftwareVersionPath = "/downloads/arven_version118.csv";
std::string server_version_path(const std::string& code);  // /downloads/arven_db_version_CC.csv
std::string server_archive_path(const std::string& code);  // /downloads/arven_db_CC.zip

// The colour of a row with something to fetch (blue-green-red order).
inline constexpr int kUpdateRowColour = 0x8080FF;
inline constexpr const char* kDownloadLabel = "Click 'download' column to download an update";
inline constexpr const char* kNotInstalled = "Not installed";

// The update table and the controls around it: one header row, the
// software row (row 1), then one row per country for which stores are
// built. Columns: Item, Installed version, New version available, Version
// for download, Download, ID.
struct UpdateTable {
  GridTable table{6};
  std::vector<bool> coloured;  // per row: shown in kUpdateRowColour
  bool label_visible = false;  // kDownloadLabel
  std::string flag_label;      // hidden: "YES" when a new installer is needed
};

// The registry indices for which country stores are built, in order.
const std::vector<int>& built_country_indices();

// A store's Version date as "dd/mm/yyyy", or "" when it has none.
std::string store_date_text(int cc);

// Fills the table: header, the software row and one row per built country,
// its installed version or "Not installed"; nothing checked yet.
void load_update_table(UpdateTable& t);

// Whether the update server answers; `type` becomes "LAN" or "Offline".
bool internet_state(UpdateServer& server, std::string& type);

// The major, minor and revision of a version text: its first three
// dot-separated parts, each a whole number ("1.1.8.0000" gives 1, 1, 8).
// Parts after the third are not read. nullopt when one of the three is
// missing or is not a whole number.
std::optional<std::vector<long>> split_version(const std::string& text);
// A store date of 10 characters as yyyymmdd, read by position: the day
// from the first two characters, the month from the fourth and fifth, the
// year from the last four; the separators are not read, so "06/03/2014"
// and "06-03-2014" are the same date. nullopt when a piece is not a number
// or the day or month is out of range.
std::optional<long> parse_day_month_year(const std::string& text);

// Compares local versions with the server's files and fills the table. In
// silent mode (session().update_check_silent) it shows no message. Never
// stops on a failure: an unreadable file gives "Unknown".
void checkforupdates(Ui& ui, UpdateTable& t, UpdateServer& server);
void checkforupdates(Ui& ui, UpdateTable& t);  // against the configured server

// 1 when a row offers an update for something installed (or a new
// installer is needed), otherwise 2.
int update_state_of(const UpdateTable& t);

// The outcome of the silent check that the welcome page runs once per start.
struct SilentCheckResult {
  bool updates_available = false;  // a newer program or store for an installed country
};
SilentCheckResult silent_update_check(Ui& ui);

// Text from outside (a server's answer, an archive's entry name) as it may
// go into a table or a message: every byte that is not printable ASCII
// becomes '?', so the text is valid UTF-8 whatever came in.
std::string printable_ascii(std::string text);

// The table as CSV text, header first.
std::string update_table_csv(const GridTable& table);

// Where the downloader is and how the program is started again after it.
struct UpdateLaunch {
  std::filesystem::path downloader;  // empty: arven-downloader beside this program
  std::vector<std::string> restart;  // the program and its arguments
};
UpdateLaunch& update_launch();

// Asks, then records the item to download and the open assessment file,
// starts the downloader and ends the program. `id` is 0 for the software
// (the user is told first that the downloader cannot install it),
// otherwise a country index: when the update server does not have that
// country's archive, the user is told so and the program stays open.
void download_trigger(Ui& ui, int id);
// At the start after an update: says once what the downloader reported,
// the store it installed (country and installed version) or why it failed.
void report_download_result(Ui& ui);
// The assessment file that was open when the program ended for an update,
// once; "" when there was none.
std::string take_file_to_reopen();
// Opens the software page of the project's website.
void gotoarvenweb(Ui& ui);

}  // namespace arven

#pragma once

#include <array>
#include <filesystem>
#include <string>

namespace arven {

inline constexpr int kCountryCount = 50;
inline constexpr int kRvcFactorCount = 401;  // rvc_n_factor indices 0..400

// The defaults of Session::dq_uncertainty (index 0 unused).
inline constexpr std::array<int, 6> kDefaultDqUncertainty = {0, 100, 60, 40, 25, 10};
// The largest relative uncertainty a score may be given (%).
inline constexpr int kDqUncertaintyMax = 200;

// The process-wide session state. One instance, shared by every module,
// written by the modules that own each value and read everywhere.
struct Session {
  // Fixed per program: 1 in the admin build, 0 in the user build.
  int admin_mode = 0;

  // The program folder (`<app>`): dbases/, graphics/, javascript/, help/
  // and the generated pages live under it.
  std::filesystem::path app_folder;

  std::string ops_db_path;
  std::string rvc_db_path;
  std::array<int, kCountryCount + 1> country_installed{};
  std::array<std::string, kCountryCount + 1> country_db_path{};
  std::array<std::string, kCountryCount + 1> country_name{};
  std::string files_db_path;
  std::array<std::string, 5> recent_files{};  // indices 1..4 used

  int structure_version = 0;
  int db_version = 0;
  int settings_structure_version = 0;

  std::string current_file;
  // Set when another program held the open file and it was opened
  // read-only: every write to it fails, saying that it is in use.
  bool current_file_read_only = false;
  // Set while the operation manager is open, and while it edits the
  // operations of the open assessment file.
  bool operation_manager_open = false;
  bool edit_from_assessment = false;
  std::array<double, kRvcFactorCount> rvc_n_factor{};

  std::string decimal_separator = ".";
  int decimal_char_code = '.';
  std::string documents_folder;
  std::string desktop_folder;

  int update_state = 0;
  int update_check_silent = 0;

  // Preferences, section Settings (defaults as on a first run).
  int Outlook_Frame = 0;
  int ShowSplash = 1;
  int miti_weight = 100;
  int adapt_weight = 100;
  int prod_weight = 100;
  int cseq_years = 10;
  int cseq_included = 1;
  int hotspot_sens = 1;
  int hotspot_regional = 0;
  int ranking_TH = 50;
  float def_uptake = 50;
  int hotspot_exclude_C0 = 1;
  // The relative uncertainty (%) of a figure of each data-quality score 1
  // (lowest) to 5: the half-width of its 95 % interval as a share of the
  // figure. Keys dq_uncertainty_1 ... dq_uncertainty_5.
  std::array<int, 6> dq_uncertainty = kDefaultDqUncertainty;
};

// The session of this process.
Session& session();
// Puts every value back to its first-run state (tests, a fresh start).
void reset_session();

}  // namespace arven

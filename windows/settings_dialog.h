#pragma once

#include <array>
#include <string>
#include <vector>

#include "assessment/assessment_file.h"
#include "core/grid_table.h"
#include "core/session.h"
#include "core/ui.h"
#include "settings/update_check.h"

namespace arven {

// The tabs of the settings dialog, in their order.
enum SettingsTab { kTabCountry = 1, kTabHotspots, kTabGeneral, kTabRanking, kTabUpdates };

// The settings dialog's controls: the preferences as shown, not yet
// applied, the country data tab and the update table.
struct SettingsDialog {
  bool loaded = false;
  int tab = kTabCountry;
  // Hotspots.
  int hotspot_sens = 1;  // 1 high risk only, 2 high and moderate risk
  bool hotspot_regional = false;
  bool hotspot_exclude_C0 = true;
  // General. The open-assessment box has no key: nothing reads it.
  bool ShowSplash = true;
  bool open_dialog_at_start = false;
  bool cseq_included = true;
  int def_uptake = 50;
  // Ranking.
  int ranking_TH = 50;
  int miti_weight = 100, adapt_weight = 100, prod_weight = 100;
  // The relative uncertainty (%) of data-quality scores 1 to 5.
  std::array<int, 6> dq_uncertainty = kDefaultDqUncertainty;
  // Country data: the built countries, the chosen one (an index into
  // `countries`, -1 for none) and its normalisation factors.
  std::vector<int> countries;
  int country = -1;
  GridTable factors{3};
  // Updates.
  UpdateTable updates;
  bool updates_hidden = false;
};

SettingsDialog& settings_dialog();

// The horizons the ranking list offers.
const std::vector<int>& ranking_horizons();
// The dialog's update tab.
inline constexpr int kSettingsUpdateTab = 5;
// Slider bounds.
inline constexpr int kWeightMax = 100;
inline constexpr int kUptakeMax = 100;

// Fills the controls from the session, the country list (the first
// installed country chosen) with its factors, and the update table.
void settings_load();
// Shows the dialog modally on `tab` (0 keeps the first); with `check` the
// update check runs once the dialog is up. Every command that opens the
// dialog comes through here.
void show_settings(Ui& ui, int tab = 0, bool check = false);
// What a file command reports, after the update tab was shown when the
// file's country store is missing and the person asked to download it.
OpenResult offer_store_download(Ui& ui, OpenResult result);

// "Apply": false (and nothing saved) when both the mitigation and the
// adaptation weight are 0; otherwise every value goes to the preferences in
// one write, in a fixed order, and then to the session. False as well, after
// one message, when the preferences cannot be written: the session and the
// file stay as they were.
bool apply(Ui& ui);
// OK: apply, then close unless refused. Cancel: close without writing.
void settings_ok(Ui& ui);
void settings_cancel(Ui& ui);
// The weights' default button: all three sliders to 100.
void weight_defaults();
// The uncertainty table's default button: every score to its default.
void uncertainty_defaults();
// The closing rules: a store must be installed. False keeps the dialog.
bool settings_query_close(Ui& ui);

// Country data tab.
void choose_country(int index);
// The key filter of the factor cells: digits, and the decimal separator
// once. Returns `text` with `key` typed at its end, or unchanged.
bool has_decimal_separator(const std::string& text);
std::string filter_factor_key(const std::string& text, char key);
// A factor cell's new text, typed key by key through the filter.
void factor_cell_edit(int row, const std::string& typed);
void save_country_factors(Ui& ui);
void load_country_factors(Ui& ui);
// Copies the saved factors of a country from the settings store into its
// country store; nothing happens without a settings store, an installed
// store or saved rows.
void apply_saved_factors(int cc);
// The settings store, "My ARVEN Files/arven_settings.avs" under the
// documents folder.
std::string settings_store_path();

// Updates tab.
void manual_check(Ui& ui);
// A click on the update table: column 4 with a non-empty cell downloads
// that row's item.
void update_table_click(Ui& ui, int row, int col);

}  // namespace arven

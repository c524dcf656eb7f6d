#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/grid_table.h"
#include "core/lookups.h"
#include "core/ui.h"
#include "windows/main_window.h"

namespace arven {

// The regional profile builder: the user picks NUTS areas of one country,
// of any mix of levels 0 to 3, that do not overlap. Every change is written
// to the Regions table of the open assessment file at once, so the dialog has
// nothing to cancel. Area queries go to session().rvc_db_path, which follows
// the country chosen in the first list.

// Columns of the selection table; row 0 holds the titles.
enum RegionColumn : int {
  kRegionCountry = 0,  // "NUTS0_ID"
  kRegionLevel = 1,    // "NUTS TYPE", "0".."3"
  kRegionCode = 2,     // "NUTS Code"
  kRegionName = 3,     // "Name"
  kRegionId = 4,       // "ID", NUTS<k>_ID of the area
  kRegionArea = 5,     // "Area", SQKM
};

// One of the four cascading area lists.
struct AreaList {
  std::vector<ListItem> items;
  int selected = -1;  // index into items, -1 for none
};

// The dialog's state: what its controls show. Cells hold plain text (the
// view escapes it).
struct RegionsState {
  // Levels 0 to 3. Lists 1 to 3 start with "000 - ALL" (data 0) once filled.
  std::array<AreaList, 4> lists;
  GridTable table{6};
  // The table's current row, 1.. when it has areas, 0 otherwise.
  int current_row = 0;
  // NUTS code of the area last chosen; the RVC browser reads it.
  std::string chosen_code;
  std::string caption = "NUTS regions";
  // The map layers page is shown instead of the lists.
  bool show_map = false;
  // Level of the list last right-clicked (the context menu acts on it).
  int context_level = 0;
};

RegionsState& regions();

// The dialog opens: fills the country list, sets up the table with its
// titles and, with a file open, loads its region.
void regions_load();

// List fillers. nuts0 lists every NUTS0 row of every installed country
// store. nuts1..nuts3 read rvc_db_path, filter on the keys that are not 0,
// leave out rows whose EU-27 is "N" and start with "000 - ALL".
void nuts0();
void nuts1(int64_t nuts0_id);
void nuts2(int64_t nuts0_id, int64_t nuts1_id);
void nuts3(int64_t nuts0_id, int64_t nuts1_id, int64_t nuts2_id);

// A single click on entry `index` of list `level`: moves rvc_db_path to the
// chosen country, refills the lists below (their "ALL" entry selected) and,
// for a real area, sets the chosen code and caption. Out-of-range clicks are
// ignored.
void list_click(int level, int index);
// A double click: the click, then the add command of that level.
void list_double_click(Ui& ui, int level, int index);
// A right click: selects the entry as a click does when it is not selected
// yet, remembers its code; the view then offers regions_context_menu().
void list_right_click(int level, int index);
// The right-click menu of the lists (munExplore) and its entries.
Menu regions_context_menu();
void regions_menu_command(Ui& ui, const std::string& name);

// The add command of a level: refuses without a file, refuses "ALL" of
// Europe, and for an "ALL" entry at levels 1..3 offers the area selected one
// level up (repeating upwards while that is "ALL" too).
void add_command(Ui& ui, int level);
// Adds an area of level k unless it overlaps the selection or lies in
// another country; each refusal is a message and changes nothing. True when
// the area was added and saved.
bool add_nuts0(Ui& ui, int64_t id);
bool add_nuts(Ui& ui, int level, int64_t id);

// Makes a table row (1..) current; other rows are ignored.
void select_region_row(int row);
// Removes the current row (the last area empties the table) and saves.
// Nothing happens without areas.
void remove_region();

// Rewrites Regions of the open file from the table in one transaction; with
// operations in the file it marks the regional data as changed.
void save_data();
// Replaces the table's rows by the Regions rows of the open file.
void load_data();

// The preferences key that holds the address of the map layer server, and
// the address used when it is not set.
inline constexpr const char* kMapServerKey = "Map_Server";
inline constexpr const char* kDefaultMapServer = "http://127.0.0.1:8118";
std::string map_server();
// Writes "google_earth.htm" (the map layers page) and shows it in the dialog.
void GE_html(Ui& ui);

// One button of the dialog's toolbar.
struct ToolbarButton {
  std::string key, text, tip;
  bool enabled = true;
};
std::vector<ToolbarButton> regions_toolbar();
// A toolbar key: "New", "Open", "SaveAs", "GE", "RVC", "Remove", "Info",
// "Hotspot", "AddCountry". Unknown keys do nothing.
void regions_toolbar_command(Ui& ui, std::string_view key);
// A link of the dialog's page: "http" addresses are left to the browser
// (false); other addresses ending in "kmz" go to the desktop (true).
bool regions_navigation(Ui& ui, const std::string& target);

}  // namespace arven

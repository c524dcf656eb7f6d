#pragma once

#include <array>
#include <string>
#include <vector>

#include "core/ui.h"

namespace arven {

// One item of a fold-out panel: the command pair it sends, its text and tip.
struct PanelItem {
  int group = 0;
  int tool = 0;
  std::string text;
  std::string tip;
  bool enabled = true;
};

// One entry of a menu: its name (mnuFileNew, ...) and text.
struct MenuEntry {
  std::string name;
  std::string text;
  bool visible = true;
  bool separator = false;
  // The whole text when `text` is cut short (a recent file's path).
  std::string tip{};
};

struct Menu {
  std::string text;
  std::vector<MenuEntry> entries;
};

// The main window's own state: it holds no data, only what its controls show.
struct MainWindowState {
  std::string title;
  // Panels 1 (Toolbox), 2 (Measures & Operations), 3 (Regional Profile).
  std::array<std::string, 4> panel_titles;
  std::array<std::vector<PanelItem>, 4> panels;
  // The command pair stored for the dispatch timer, and whether it is set.
  int pending_group = 0;
  int pending_tool = 0;
  bool timer_enabled = false;
  // The pointer shows as busy while a page is rebuilt.
  bool busy_pointer = false;
};

MainWindowState& main_window();

// Fills the three panels; items 4 and 5 of the Regional Profile start disabled.
void lvsetup();
// Sets up the window at start-up: title, panels, recent files, open panel.
void main_window_init(Ui& ui);
// The item of a pair, or nullptr.
PanelItem* panel_item(int group, int tool);
// The tip shown for a panel item while the pointer rests on it.
std::string tooldesc(int tool, int group);
// The window's menus and the panel area's right-click menu, with the
// recent-file entries of the moment.
std::vector<Menu> main_menus();
Menu panel_context_menu();

// Stores the pair and sets the dispatch timer; the action runs after the
// click's own event has finished.
void fireexe(Ui& ui, int group, int tool);
// The timer's tick: runs the action of the stored pair.
void dispatch_tick(Ui& ui);
// A menu entry by name.
void menu_command(Ui& ui, const std::string& name);
// A link of the main page. True when the navigation was a command (and so
// cancelled); "http" addresses and unknown suffixes are left alone.
bool dispatch_navigation_main(Ui& ui, const std::string& target);
// A click on a panel's caption: opens it (closing any other) or closes it;
// the open one is remembered in the preferences (a failure told once).
void panel_click(Ui& ui, int panel);

// Writes and shows the main page: the summary of the open file, or the
// welcome page without one.
void build_main_page(Ui& ui);
// Opens the assessment file at `path` as the file commands do, then writes
// and shows the main page.
void open_file_and_show(Ui& ui, const std::string& path);
// With a file open, enables "Hotspot report" exactly when it has a region.
void region_check();

// Ends the program; mode 1 asks first.
void exit_program(Ui& ui, int mode);

// The About box: its check box, and what closing it writes.
struct AboutBoxState {
  bool show_splash = true;
};
AboutBoxState& about_box();
void about_box_load();
void about_box_close(Ui& ui);

}  // namespace arven

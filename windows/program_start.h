#pragma once

#include <functional>
#include <string>

#include "core/ui.h"

namespace arven {

// The pieces of start-up that other modules provide. An empty hook does
// nothing, so a program (or a test) wires only what it has.
struct StartupHooks {
  // Creates the main window: title, recent-file list, the open panel.
  std::function<void(Ui&)> main_window_init;
  // Writes the main page (and runs the first, silent update check).
  std::function<void(Ui&)> build_main_page;
  // Opens an assessment file and shows it on the main page.
  std::function<void(Ui&, const std::string&)> reopen_file;
};

// The title, text and icon of the start-up message when no store is installed.
inline constexpr const char* kNoDatabasesText =
    "You need to install some databases before you can proceed. Please download one or more "
    "databases.";
inline constexpr const char* kNoDatabasesTitle = "No Databases Installed";

// The program's entry point: reads the preferences, finds the installed
// country stores, picks the default one, and shows the main window (or
// the update tab of the settings dialog when no store is installed).
// session().app_folder and session().admin_mode are set by the caller.
void Main(Ui& ui, const StartupHooks& hooks);

}  // namespace arven

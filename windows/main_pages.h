#pragma once

#include "core/ui.h"

namespace arven {

// The main window's pages.

// The shell's main page: wait pages, then "summary_display.htm" for the open
// assessment file, or the welcome page with none; shows the result in the
// main window. Sets session().rvc_db_path to the country store of each
// region it lists. A damaged or foreign file throws StoreError.
void summary_page(Ui& ui);
// Writes "welcome.htm" (running the silent update check once per start) and
// shows it in the main window.
void welcome_page(Ui& ui);

}  // namespace arven

#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// Registers the main window and the About box with the web Ui.
void register_main_windows(WebUi& ui);

}  // namespace arven::shell

#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// The settings dialog (/settings/): preferences, country factors, updates.
void register_settings_window(WebUi& ui);

}  // namespace arven::shell

#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// Registers the regional profile builder ("regions") with the web Ui.
void register_regions_window(WebUi& ui);

}  // namespace arven::shell

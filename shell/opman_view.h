#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// Registers the operation manager ("opman") with the web Ui.
void register_opman_window(WebUi& ui);

}  // namespace arven::shell

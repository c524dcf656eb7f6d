#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// Registers the admin console and its "Data Pre-processor" dialog.
void register_admin_windows(WebUi& ui);

}  // namespace arven::shell

#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// The admin console's "RVC Data Import" dialog (/admin/rvcimport/) and
// "Master Store Backups" (/admin/backups/).
void register_rvc_import_windows(WebUi& ui);

// The console's entries that open them: {button id, text}, and the click.
std::vector<std::pair<std::string, std::string>> rvc_import_console_entries();
bool rvc_import_console_click(WebUi& ui, const std::string& button);

}  // namespace arven::shell

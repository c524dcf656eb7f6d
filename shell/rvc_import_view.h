#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// The admin console's "RVC Data Import" dialog (/admin/rvcimport/) and
// "Master Store Backups" (/admin/backups/).
void register_rvc_import_windows(WebUi& ui);

}  // namespace arven::shell

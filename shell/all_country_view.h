#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// The "All-country store" window of the Data Pre-processor
// (/admin/allcountry/): the buttons that maintain
// dbases/prepro/new_arven_operations.mdb.
void register_all_country_window(WebUi& ui);

}  // namespace arven::shell

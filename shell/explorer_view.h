#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// The explorer at /explorer/ (trees, tabs, toolbar, its pages) and the report
// window at /report/ that shows a page beside it.
void register_explorer_window(WebUi& ui);

}  // namespace arven::shell

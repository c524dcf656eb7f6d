#pragma once

#include "shell/web_ui.h"

namespace arven::shell {

// The RVC browser at /rvc/ (index, level and detail pages, the hotspot
// report with its tab strip).
void register_rvc_window(WebUi& ui);

}  // namespace arven::shell

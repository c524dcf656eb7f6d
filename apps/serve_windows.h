#pragma once

#include <functional>

#include "apps/app_options.h"
#include "shell/web_ui.h"

namespace arven {

// Runs the start-up on the worker and serves the program's windows on
// 127.0.0.1 until the program ends; `register_more` adds the windows of
// one build (the admin console). Returns the process's exit code.
int serve_windows(const AppOptions& options, int admin_mode, const char* program,
                  const std::function<void(shell::WebUi&)>& register_more = {});

}  // namespace arven

#pragma once

#include <filesystem>

#include "core/ui.h"

namespace arven {

// The static web export: the RVC browser's pages and the operation
// catalogue with each operation's range page, written by the same code that
// writes them for the program, as a folder of plain HTML with its graphics
// and scripts that any web server can publish. Its links are relative, and
// it holds no link that the program would answer.
//
// Pages: "index.html" (the start page, linking the two), the RVC browser's
// "index.htm", "<code>.htm" and "<code>_details.htm" for every NUTS area of
// every installed country, "catalogue.htm" (the catalogue by category) and
// "operation_<id>.htm" per operation; the folders "graphics/" and
// "javascript/".

struct StaticExport {
  std::filesystem::path folder;
  int pages = 0;
};

// Writes the export into `folder` (default <app>/exports/web), built beside
// it under a temporary name and put in its place when whole, so that a
// failed run leaves the previous export as it was. Progress goes to
// ui.progress; nothing is shown in a window.
StaticExport export_static_web(Ui& ui, const std::filesystem::path& folder = {});

}  // namespace arven

#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/grid_export.h"
#include "core/grid_table.h"
#include "core/ui.h"

namespace arven {

// Export of the explorer's tables: the written file (core/grid_export.h)
// with the context of the open assessment file, put where the browser
// downloads it.

// The regions of the open assessment file, "code name; code name", or
// "(none)"; read from the file.
std::string regions_text();
// The same of another assessment file.
std::string regions_text(const std::string& file);

// The context of the open assessment file, read from it; a file that
// cannot be read gives what is known without it.
ExportContext export_context();

// The line under a table that offers it for export: page commands
// "<grid_number>.exc" (CSV) and "<grid_number>.exx" (.xlsx).
std::string export_links_html(int grid_number);

// Writes the table to session().app_folder/exports/<base_name>.csv or .xlsx
// (the folder made when missing) and has the browser download it. The base
// name keeps letters, digits, '-' and '_' only; others become '_'. A
// failure is shown in a message box titled "Export" naming the file and the
// reason, and gives false. `more` adds to the context, before the date.
bool export_grid(Ui& ui, const GridTable& grid, const std::string& base_name, bool xlsx,
                 const ExportContext& more = {});

}  // namespace arven

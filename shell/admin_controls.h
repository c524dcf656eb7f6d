#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/grid_table.h"
#include "core/lookups.h"
#include "shell/web_ui.h"

namespace arven::shell {

// Controls that the admin editors share, as the page draws them.

// A list box of items; `selected` marks entries (by index).
nlohmann::json list_control(const std::string& id, const std::string& label,
                            const std::vector<std::string>& texts,
                            const std::vector<bool>& selected);
// An editable grid from a table: `kinds` per column ("text", "number",
// "toggle", "readonly").
nlohmann::json grid_control(const std::string& id, const GridTable& table,
                            const std::vector<std::string>& kinds, const std::string& empty);
// A read-only table.
nlohmann::json table_control(const std::string& id, const std::string& label,
                             const GridTable& table, const std::string& empty);
// One text box per field, ids "f:<field>".
nlohmann::json field_inputs(const std::vector<std::string>& fields,
                            const std::function<std::string(const std::string&)>& value);

// Runs an editor's action; a refused edit or a store failure becomes a
// message under `title`, and the action ends with nothing changed.
void guarded(Ui& ui, const std::string& title, const std::function<void()>& action);

// Registers the admin editors: "Operation Activity Details" (admin/details),
// "Activity Factors" (admin/factors), "Comp Man" (admin/compman), the "RVC
// Manager" (admin/rvcman) and the EU budget chart (admin/budget); the data
// tools "Spreadsheet Import and Export" (admin/sheets), "References"
// (admin/references), "Data Drill-down" (admin/drill), "Operation Lists
// and Practicality" (admin/lists), "Manual Update Page" (admin/updatepage)
// and "Static Web Export" (admin/webexport).
void register_details_window(WebUi& ui);
void register_factors_window(WebUi& ui);
void register_compman_windows(WebUi& ui);
void register_sheets_window(WebUi& ui);
void register_references_window(WebUi& ui);
void register_drill_window(WebUi& ui);
void register_lists_window(WebUi& ui);
void register_update_page_window(WebUi& ui);
void register_web_export_window(WebUi& ui);

}  // namespace arven::shell

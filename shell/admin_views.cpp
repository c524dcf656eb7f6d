#include "shell/admin_views.h"

#include "prep/packaging.h"
#include "prep/working_copies.h"
#include "reports/page_kit.h"
#include "shell/admin_controls.h"
#include "shell/all_country_view.h"
#include "shell/control_json.h"
#include "shell/rvc_import_view.h"
#include "windows/prepro_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

std::string progress_line(const std::string& label, int value, int max) {
  return "<p>" + html_escape(label) + "</p><progress value=\"" + std::to_string(value) +
         "\" max=\"" + std::to_string(max > 0 ? max : 1) + "\"></progress>";
}

json prepro_controls() {
  auto& d = prepro_dialog();
  RunProgress p = d.control.snapshot();
  json c = {{"title", "Data Pre-processor"}, {"no_page", true}, {"fill", true}};
  if (p.running) {
    // The progress panel: country, area and operation, and the halt button.
    c["html"] = "<div class=\"run-progress\">" +
                progress_line("Country " + std::to_string(p.country_index) + " of " +
                                  std::to_string(p.country_count) + ": " + p.country,
                              p.country_index, p.country_count) +
                progress_line(p.area, p.area_index, p.area_count) +
                progress_line(p.operation, p.operation_index, p.operation_count) + "<p>" +
                html_escape(p.processed) +
                "</p><p>Area-operation pairs: " + std::to_string(p.pairs) +
                ", rows written: " + std::to_string(p.rows) + "</p></div>";
    c["buttons"] = {{{"id", "halt"}, {"text", "Halt"}}};
    return c;
  }
  std::vector<std::pair<std::string, bool>> countries, levels, modes, ops;
  for (size_t i = 0; i < d.countries.size(); ++i)
    countries.push_back({d.countries[i].text, d.country_selected[i]});
  for (int k = 0; k <= 3; ++k) levels.push_back({std::to_string(k), d.level == k});
  for (size_t i = 0; i < run_mode_texts().size(); ++i)
    modes.push_back({run_mode_texts()[i], static_cast<int>(d.mode) == static_cast<int>(i)});
  int selected = 0;
  for (const auto& op : d.operations) {
    ops.push_back({std::to_string(op.id) + " - " + op.name, op.selected});
    selected += op.selected ? 1 : 0;
  }
  std::vector<WorkingCopy> copies = working_copies();
  c["html"] = "<p>" + html_escape(prepro_region_counts()) + "</p><p>" +
              std::to_string(d.operations.size()) + " operations with activity deltas, " +
              std::to_string(selected) + " selected.</p><p id=\"run-scope\">" +
              html_escape(prepro_run_scope()) + "</p><p id=\"working-copies\"" +
              (working_copies_outdated(copies) ? " class=\"warning\"" : "") + ">" +
              html_escape(working_copies_line(copies)) + "</p>";
  c["caption"] = d.status;
  c["lists"] = {list_json("countries", "Countries", countries),
                list_json("level", "NUTS Level:", levels), list_json("mode", "Run mode", modes),
                list_json("operations", "Operations", ops)};
  c["inputs"] = {{{"id", "search"},
                  {"label", "Search operations:"},
                  {"value", d.search},
                  {"placeholder", "Search..."}}};
  c["checkboxes"] = {{{"id", "existing"}, {"text", "Existing DB"}, {"checked", d.existing_db}},
                     {{"id", "dqrefs"}, {"text", "DQ and Refs"}, {"checked", d.dq_refs}}};
  c["buttons"] = {{{"id", "start"}, {"text", "Start"}},
                  {{"id", "all"}, {"text", "Select all operations"}},
                  {{"id", "none"}, {"text", "Clear selection"}},
                  {{"id", "howmany"}, {"text", "How many need updating?"}},
                  {{"id", "copydbs"}, {"text", "Copy DBs"}},
                  {{"id", "basefile"}, {"text", "New Basefile"}}};
  // The all-country store has a window of its own.
  c["buttons"].push_back({{"id", "allcountry"}, {"text", "All-country store..."}});
  return c;
}

// The version typed into the console, for "Publish software version".
std::string& publish_version() {
  static std::string v;
  return v;
}

}  // namespace

namespace {

// The console's tools, in the order it lists them: each opens its window.
// A new tool is one more entry here.
struct AdminTool {
  const char* id;
  const char* text;
  const char* window;
};
const std::vector<AdminTool>& admin_tools() {
  static const std::vector<AdminTool> tools = {
      {"prepro", "Data Pre-processor", "admin/prepro"},
      {"details", "Operation Activity Details", "admin/details"},
      {"factors", "Activity Factors", "admin/factors"},
      {"compman", "Comp Man", "admin/compman"},
      {"rvcman", "RVC Manager", "admin/rvcman"},
      {"budget", "EU Member States RDP Budget", "admin/budget"},
      {"rvcimport", "RVC Data Import", "admin/rvcimport"},
      {"backups", "Master Store Backups", "admin/backups"},
      {"sheets", "Spreadsheet Import and Export", "admin/sheets"},
      {"references", "References", "admin/references"},
      {"drill", "Data Drill-down", "admin/drill"},
      {"lists", "Operation Lists and Practicality", "admin/lists"},
      {"updatepage", "Manual Update Page", "admin/updatepage"},
      {"webexport", "Static Web Export", "admin/webexport"},
  };
  return tools;
}

}  // namespace

void register_admin_windows(WebUi& ui) {
  WindowHandlers console;
  console.controls = [] {
    json buttons = json::array();
    for (const auto& tool : admin_tools())
      buttons.push_back({{"id", tool.id}, {"text", tool.text}});
    buttons.push_back({{"id", "publish"}, {"text", "Publish software version"}});
    return json{{"title", "ARVEN Admin Console"},
                {"no_page", true},
                {"fill", true},
                {"html",
                 "<p>Maintain the master data (operations, activities, baselines, their details, "
                 "deltas and factors, and the RVCs), then fill each country store from the master "
                 "stores, generate the impact rows of every operation for every NUTS area, "
                 "stamp the version and publish the archive.</p>"},
                {"inputs",
                 {{{"id", "version"},
                   {"label", "Software version to publish:"},
                   {"value", publish_version()},
                   {"placeholder", "1.1.9"}}}},
                {"buttons", buttons}};
  };
  console.command = [&ui](const Params& p) {
    std::string button = param_text(p, "button");
    for (const auto& tool : admin_tools())
      if (button == tool.id) {
        ui.show_window(tool.window);
        return;
      }
    if (p.count("input") && p.at("input") == "version") {
      publish_version() = param_text(p, "value");
    } else if (button == "publish") {
      try {
        publish_software_version(publish_version());
        ui.message_box("Software version " + publish_version() + " written to " +
                           software_version_file_path().string(),
                       "Publish", MsgButtons::Ok, MsgIcon::Information);
      } catch (const std::exception& e) {
        ui.message_box(e.what(), "Publish", MsgButtons::Ok, MsgIcon::Exclamation);
      }
    }
  };
  ui.register_window("admin", console);

  WindowHandlers prepro;
  prepro.load = [&ui] { prepro_dialog_load(ui); };
  prepro.controls = prepro_controls;
  prepro.immediate = [](const Params& p) {
    // The halt, and a close while a run goes on, must reach the run at once.
    bool running = prepro_dialog().control.snapshot().running;
    if (param_text(p, "button") == "halt" || (running && p.count("close"))) {
      prepro_halt();
      return true;
    }
    return false;
  };
  prepro.command = [&ui](const Params& p) {
    auto& d = prepro_dialog();
    d.status.clear();
    std::string button = param_text(p, "button");
    if (p.count("list")) {
      std::string list = param_text(p, "list");
      int index = param_int(p, "index", -1);
      if (list == "countries") prepro_toggle_country(index);
      if (list == "operations") prepro_toggle_operation(index);
      if (list == "level" && index >= 0 && index <= 3) d.level = index;
      if (list == "mode" && index >= 0 && index < 6) d.mode = static_cast<RunMode>(index);
    } else if (p.count("input")) {
      prepro_search(ui, param_text(p, "value"));
    } else if (p.count("check")) {
      bool on = param_text(p, "value") == "1";
      if (param_text(p, "check") == "existing") d.existing_db = on;
      if (param_text(p, "check") == "dqrefs") d.dq_refs = on;
    } else if (button == "start") {
      prepro_start(ui);
    } else if (button == "all" || button == "none") {
      prepro_select_all_operations(button == "all");
    } else if (button == "howmany") {
      prepro_how_many(ui);
    } else if (button == "copydbs") {
      prepro_copy_dbs(ui);
    } else if (button == "basefile") {
      prepro_new_basefile(ui);
    } else if (button == "allcountry") {
      ui.show_window("admin/allcountry");
    }
  };
  ui.register_window("admin/prepro", prepro);
  register_rvc_import_windows(ui);
  register_all_country_window(ui);
  register_details_window(ui);
  register_factors_window(ui);
  register_compman_windows(ui);
  register_sheets_window(ui);
  register_references_window(ui);
  register_drill_window(ui);
  register_lists_window(ui);
  register_update_page_window(ui);
  register_web_export_window(ui);
}

}  // namespace arven::shell

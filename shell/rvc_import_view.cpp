#include "shell/rvc_import_view.h"

#include "prep/master_backup.h"
#include "reports/page_kit.h"
#include "shell/control_json.h"
#include "windows/rvc_import_dialog.h"

namespace arven::shell {

using nlohmann::json;

namespace {

std::string results_html(const std::vector<std::string>& lines) {
  std::string html = "<ul class=\"results\">";
  for (const auto& l : lines) html += "<li>" + html_escape(l) + "</li>";
  return html + "</ul>";
}

json rvc_import_controls() {
  auto& d = rvc_import_dialog();
  std::vector<std::pair<std::string, bool>> rvcs, levels;
  for (size_t i = 0; i < d.rvcs.size(); ++i)
    rvcs.push_back(
        {std::to_string(d.rvcs[i].data) + " - " + d.rvcs[i].text, static_cast<int>(i) == d.rvc});
  for (int k = 0; k <= 3; ++k)
    levels.push_back({"NUTS" + std::to_string(k), d.levels[static_cast<size_t>(k)]});
  return {{"title", "RVC Data Import"},
          {"no_page", true},
          {"fill", true},
          {"html",
           "<p>Import a GIS export of an RVC into its NUTS3 table, then aggregate the NUTS3 "
           "tables up the chosen levels.</p>" +
               results_html(d.results)},
          {"lists", {list_json("rvc", "RVC", rvcs), list_json("levels", "NUTS levels", levels)}},
          {"checkboxes", {{{"id", "all"}, {"text", "All RVCs"}, {"checked", d.all_rvcs}}}},
          {"buttons",
           {{{"id", "import"}, {"text", "Import from NUTS3_Import.mdb"}},
            {{"id", "excel"}, {"text", "Import from Export_Output.xlsx"}},
            {{"id", "aggregate"}, {"text", d.all_rvcs ? "Do All" : "Aggregate"}},
            {{"id", "update"}, {"text", "Update operations"}},
            {{"id", "setup"}, {"text", "NUTS Setup"}},
            {{"id", "eu27"}, {"text", "EU-27 process"}}}}};
}

// The backup chosen in the list of /admin/backups/.
std::string& chosen_backup() {
  static std::string name;
  return name;
}

json backup_controls() {
  std::vector<std::pair<std::string, bool>> items;
  for (const auto& b : list_backups()) items.push_back({b, b == chosen_backup()});
  return {
      {"title", "Master Store Backups"},
      {"no_page", true},
      {"fill", true},
      {"html", "<p>Backups of arven_operations.mdb and arven_rvcs.mdb in " +
                   html_escape(backups_folder().string()) + ".</p>"},
      {"lists", {list_json("backups", "Backups, newest first", items)}},
      {"buttons",
       {{{"id", "backup"}, {"text", "Back up now"}}, {{"id", "restore"}, {"text", "Restore"}}}}};
}

}  // namespace

void register_rvc_import_windows(WebUi& ui) {
  WindowHandlers rvc;
  rvc.load = [&ui] { rvc_dialog_load(ui); };
  rvc.controls = rvc_import_controls;
  rvc.command = [&ui](const Params& p) {
    auto& d = rvc_import_dialog();
    std::string button = param_text(p, "button");
    if (p.count("list")) {
      int index = param_int(p, "index", -1);
      if (param_text(p, "list") == "rvc" && index >= 0 && index < static_cast<int>(d.rvcs.size()))
        d.rvc = index;
      if (param_text(p, "list") == "levels" && index >= 0 && index <= 3)
        d.levels[static_cast<size_t>(index)] = !d.levels[static_cast<size_t>(index)];
    } else if (param_text(p, "check") == "all") {
      d.all_rvcs = param_text(p, "value") == "1";
    } else if (button == "import" || button == "excel") {
      rvc_dialog_import(ui, button == "excel");
    } else if (button == "aggregate") {
      rvc_dialog_aggregate(ui);
    } else if (button == "update") {
      rvc_dialog_update_operations(ui);
    } else if (button == "setup") {
      rvc_dialog_nuts_setup(ui);
    } else if (button == "eu27") {
      rvc_dialog_eu27(ui);
    }
  };
  ui.register_window("admin/rvcimport", rvc);

  WindowHandlers backups;
  backups.controls = backup_controls;
  backups.command = [&ui](const Params& p) {
    std::string button = param_text(p, "button");
    if (param_text(p, "list") == "backups") {
      auto all = list_backups();
      int index = param_int(p, "index", -1);
      if (index >= 0 && index < static_cast<int>(all.size()))
        chosen_backup() = all[static_cast<size_t>(index)];
    } else if (button == "backup") {
      backup_dialog_backup(ui);
    } else if (button == "restore") {
      backup_dialog_restore(ui, chosen_backup());
    }
  };
  ui.register_window("admin/backups", backups);
}

}  // namespace arven::shell

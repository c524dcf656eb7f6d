#include "windows/rvc_import_dialog.h"

#include <optional>

#include "prep/master_backup.h"
#include "prep/rvc_import.h"

namespace arven {

namespace {

constexpr const char* kTitle = "RVC Data Import";

// Runs a button's work: its result lines go to the list, then "Done"; a
// failure is shown as it is and the stores keep what they had.
template <typename F>
void button(Ui& ui, const char* title, F&& work) {
  auto& d = rvc_import_dialog();
  try {
    d.results = work();
    ui.message_box("Done", title, MsgButtons::Ok, MsgIcon::Information);
  } catch (const std::exception& e) {
    d.results = {std::string("Stopped: ") + e.what()};
    ui.message_box(e.what(), title, MsgButtons::Ok, MsgIcon::Exclamation);
  }
}

std::optional<int64_t> chosen_rvc() {
  auto& d = rvc_import_dialog();
  if (d.rvc < 0 || d.rvc >= static_cast<int>(d.rvcs.size()))
    throw std::runtime_error("Please choose an RVC first.");
  return d.rvcs[static_cast<size_t>(d.rvc)].data;
}

std::vector<int> chosen_levels() {
  std::vector<int> out;
  for (int k = 0; k <= 3; ++k)
    if (rvc_import_dialog().levels[static_cast<size_t>(k)]) out.push_back(k);
  if (out.empty()) throw std::runtime_error("Please choose a NUTS level first.");
  return out;
}

}  // namespace

RvcImportDialogState& rvc_import_dialog() {
  static RvcImportDialogState s;
  return s;
}

void rvc_dialog_load(Ui& ui) {
  auto& d = rvc_import_dialog();
  try {
    d.rvcs = rvc_choice_list();
    if (d.rvc >= static_cast<int>(d.rvcs.size())) d.rvc = 0;
  } catch (const std::exception& e) {
    d.rvcs.clear();
    ui.message_box(e.what(), kTitle, MsgButtons::Ok, MsgIcon::Exclamation);
  }
}

void rvc_dialog_import(Ui& ui, bool excel) {
  button(ui, kTitle, [&] {
    auto& d = rvc_import_dialog();
    return rvc_import_run(d.all_rvcs ? std::nullopt : chosen_rvc(), excel, &ui);
  });
}

void rvc_dialog_aggregate(Ui& ui) {
  button(ui, kTitle, [&] {
    auto& d = rvc_import_dialog();
    auto r = rvc_aggregate(chosen_levels(), d.all_rvcs ? std::nullopt : chosen_rvc(), &ui);
    return std::vector<std::string>{
        std::to_string(r.areas) + " areas: " + std::to_string(r.data_rows) +
        " NUTS<k>_RVC_Data rows, " + std::to_string(r.dist_rows) + " NUTS<k>_RVC_Data_Dist rows"};
  });
}

void rvc_dialog_update_operations(Ui& ui) {
  button(ui, kTitle, [&] {
    int n = update_op_from_rvc(*chosen_rvc(), &ui);
    return std::vector<std::string>{std::to_string(n) + " operations marked as updated"};
  });
}

void rvc_dialog_nuts_setup(Ui& ui) {
  button(ui, "NUTS Setup", [&] {
    return std::vector<std::string>{"NUTS1_ID set on " + std::to_string(nuts_setup()) +
                                    " NUTS3 areas"};
  });
}

void rvc_dialog_eu27(Ui& ui) {
  button(ui, "EU-27 process", [&] {
    std::vector<std::string> lines;
    for (int k : chosen_levels())
      lines.push_back("NUTS" + std::to_string(k) + ": EU-27 set on " +
                      std::to_string(eu27_process(k)) + " areas");
    return lines;
  });
}

void backup_dialog_backup(Ui& ui) {
  try {
    std::string name = backup_master_stores();
    ui.message_box("The master stores were backed up to " + (backups_folder() / name).string(),
                   "Backup", MsgButtons::Ok, MsgIcon::Information);
  } catch (const std::exception& e) {
    ui.message_box(e.what(), "Backup", MsgButtons::Ok, MsgIcon::Exclamation);
  }
}

void backup_dialog_restore(Ui& ui, const std::string& name) {
  if (name.empty()) {
    ui.message_box("Please choose a backup first.", "Restore", MsgButtons::Ok,
                   MsgIcon::Information);
    return;
  }
  if (ui.message_box("Replace both master stores by the backup " + name +
                         "? Whatever changed in them since is lost.",
                     "Restore", MsgButtons::YesNo, MsgIcon::Question) != Answer::Yes)
    return;
  try {
    restore_backup(name);
    ui.message_box("The master stores were restored from " + name, "Restore", MsgButtons::Ok,
                   MsgIcon::Information);
  } catch (const std::exception& e) {
    ui.message_box(e.what(), "Restore", MsgButtons::Ok, MsgIcon::Exclamation);
  }
}

}  // namespace arven

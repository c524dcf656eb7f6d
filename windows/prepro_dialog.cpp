#include "windows/prepro_dialog.h"

#include <algorithm>
#include <stdexcept>

#include "core/session.h"
#include "prep/packaging.h"
#include "prep/working_copies.h"
#include "stores/db.h"

namespace arven {

namespace {

// Runs a button's work, turning a store failure into a message.
template <typename F>
void reported(Ui& ui, F&& work) {
  try {
    work();
  } catch (const std::exception& e) {
    ui.message_box(e.what(), "Data Pre-processor", MsgButtons::Ok, MsgIcon::Exclamation);
  }
}

int first_selected_country() {
  auto& d = prepro_dialog();
  for (size_t i = 0; i < d.countries.size(); ++i)
    if (d.country_selected[i]) return static_cast<int>(i);
  return -1;
}

}  // namespace

PreproDialogState& prepro_dialog() {
  static PreproDialogState s;
  return s;
}

void prepro_dialog_load(Ui& ui) {
  auto& d = prepro_dialog();
  reported(ui, [&] {
    d.countries = prepro_country_list();
    d.country_selected.assign(d.countries.size(), false);
  });
  prepro_search(ui, d.search);
}

void prepro_search(Ui& ui, const std::string& text) {
  auto& d = prepro_dialog();
  d.search = text;
  reported(ui, [&] {
    d.operations.clear();
    for (const auto& item : prepro_operation_search(text))
      d.operations.push_back({item.data, item.text, false});
  });
}

void prepro_toggle_country(int index) {
  auto& d = prepro_dialog();
  if (index >= 0 && index < static_cast<int>(d.countries.size()))
    d.country_selected[static_cast<size_t>(index)] =
        !d.country_selected[static_cast<size_t>(index)];
}

void prepro_toggle_operation(int index) {
  auto& d = prepro_dialog();
  if (index >= 0 && index < static_cast<int>(d.operations.size()))
    d.operations[static_cast<size_t>(index)].selected =
        !d.operations[static_cast<size_t>(index)].selected;
}

void prepro_select_all_operations(bool selected) {
  for (auto& op : prepro_dialog().operations) op.selected = selected;
}

void prepro_start(Ui& ui) {
  auto& d = prepro_dialog();
  if (d.control.snapshot().running) return;
  RunParams params;
  for (size_t i = 0; i < d.countries.size(); ++i)
    if (d.country_selected[i]) params.countries.push_back(d.countries[i].data);
  // The run keeps to the working copies; the administrator hears when the
  // masters have moved on since "Copy DBs" (without countries it does nothing).
  std::string warning;
  if (!params.countries.empty())
    reported(ui, [&] { warning = working_copies_warning(working_copies(true)); });
  if (!warning.empty() && ui.message_box(warning, "Pre-processing", MsgButtons::YesNo,
                                         MsgIcon::Exclamation) != Answer::Yes) {
    d.status = "The run was not started: press \"Copy DBs\" to take the masters' changes.";
    return;
  }
  params.level = d.level;
  params.mode = d.mode;
  params.operations = d.operations;
  params.existing_db = d.existing_db;
  params.dq_refs = d.dq_refs;
  process_start2(ui, params, d.control);
}

void prepro_halt() {
  prepro_dialog().control.halted = true;
}

void prepro_how_many(Ui& ui) {
  auto& d = prepro_dialog();
  int i = first_selected_country();
  if (i < 0) {
    ui.message_box("Please select a country first.", "ARVEN Operation Update", MsgButtons::Ok,
                   MsgIcon::Information);
    return;
  }
  reported(ui, [&] {
    how_many_need_updating(ui, d.countries[static_cast<size_t>(i)].data, d.operations);
  });
}

void prepro_copy_dbs(Ui& ui) {
  reported(ui, [&] {
    copy_dbs();
    ui.message_box("Done", "Copy DBs", MsgButtons::Ok, MsgIcon::Information);
  });
}

void prepro_new_basefile(Ui& ui) {
  reported(ui, [&] {
    new_basefile();
    ui.message_box("Done", "New Basefile", MsgButtons::Ok, MsgIcon::Information);
  });
}

const std::vector<std::pair<std::string, std::string>>& prepro_all_country_buttons() {
  static const std::vector<std::pair<std::string, std::string>> b = {
      {"codegen", "Code Gen"},
      {"copyprep", "Copy pre-process tables to new ARVEN DB"},
      {"copydb", "Copy ARVEN DB"},
      {"copyrdp", "Copy RDP Tables to New ARVEN DB"},
      {"copyrvc", "Copy RVC Tables to New ARVEN DB"},
      {"copyrvclist", "Copy RVC List and look up tables"},
      {"delrdp", "Delete old tables (RDP)"},
      {"delrvc", "Delete old tables (RVC)"},
      {"delrvclist", "Delete old tables (RVC List)"},
      {"datatrans", "Temp - data trans"},
      {"impactmax", "Add new field to existing db"}};
  return b;
}

bool prepro_all_country(Ui& ui, const std::string& id) {
  const auto& all = prepro_all_country_buttons();
  auto it = std::find_if(all.begin(), all.end(), [&](const auto& b) { return b.first == id; });
  if (it == all.end()) return false;
  reported(ui, [&] {
    auto store = [&] {
      const std::string& name = prepro_dialog().store;
      if (name.empty()) throw std::runtime_error("Please name the store to work from first.");
      std::filesystem::path p = name;
      return p.is_absolute() ? p : prepro_folder() / p;
    };
    bool done = true;  // buttons without a message of their own end with "Done"
    if (id == "codegen") code_gen();
    if (id == "copyprep") copy_preprocess_tables(ui, store());
    if (id == "copydb") copy_arven_db(store());
    if (id == "copyrdp") copy_rdp_tables_to_all(ui);
    if (id == "copyrvc") copy_rvc_tables_to_all(ui);
    if (id == "copyrvclist") copy_rvc_list_tables_to_all(ui), done = false;
    if (id == "delrdp") delete_old_tables(ui, store(), OldTables::Rdp), done = false;
    if (id == "delrvc") delete_old_tables(ui, store(), OldTables::Rvc), done = false;
    if (id == "delrvclist") delete_old_tables(ui, store(), OldTables::RvcList), done = false;
    if (id == "datatrans") temp_data_trans(ui, store()), done = false;
    if (id == "impactmax") add_impact_max_field();
    if (done) ui.message_box("Done", it->second, MsgButtons::Ok, MsgIcon::Information);
  });
  return true;
}

std::string prepro_region_counts() {
  int i = first_selected_country();
  if (i < 0) return "";
  try {
    auto n = num_nuts(prepro_dialog().countries[static_cast<size_t>(i)].data);
    return "No. regions: NUTS1 " + std::to_string(n[0]) + ", NUTS2 " + std::to_string(n[1]) +
           ", NUTS3 " + std::to_string(n[2]);
  } catch (const std::exception&) {
    return "";
  }
}

std::string prepro_run_scope() {
  auto& d = prepro_dialog();
  std::string names;
  int n = 0;
  for (size_t i = 0; i < d.countries.size(); ++i)
    if (d.country_selected[i]) names += (n++ ? ", " : "") + d.countries[i].text;
  if (n == 0) return "No country chosen: a run does nothing and reports \"Done\".";
  return "A run covers " + std::to_string(n) + (n == 1 ? " country: " : " countries: ") + names +
         "; NUTS levels 0 to " + std::to_string(d.level) + ".";
}

}  // namespace arven

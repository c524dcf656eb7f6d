// The admin build: everything of the user build plus data preparation.
//   arven-admin [--app-dir DIR] [--port N] [--no-browser] [--token T]
//                                                     the admin build's windows
//   arven-admin import-masters --from DIR [--app-dir DIR]
//                                                     load master stores from CSV text
//   arven-admin preprocess --countries DK,IE --level 3 --mode MODE [--operations 1,2,3]
//                          [--existing-db] [--dq-refs] [--app-dir DIR]
//                                                     a pre-processing run in batch
//   arven-admin rvc-import | rvc-aggregate | backup | all-country ...
//                                                     the RVC import, the aggregation, backups
//                                                     of the master stores, the all-country store
//   arven-admin calculate-delta --all | --operation N --baseline B [--app-dir DIR]
//                                                     recalculate activity deltas
#include <algorithm>
#include <iostream>
#include <map>
#include <optional>
#include <set>

#include "apps/app_options.h"
#include "apps/serve_windows.h"
#include "core/console_ui.h"
#include "core/registry.h"
#include "core/session.h"
#include "core/startup.h"
#include "prep/activity_delta.h"
#include "prep/master_backup.h"
#include "prep/master_import.h"
#include "prep/packaging.h"
#include "prep/preprocess.h"
#include "prep/rvc_import.h"
#include "prep/xlsx_reader.h"
#include "shell/admin_views.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: arven-admin [--app-dir DIR]\n"
    "       arven-admin import-masters --from CSV_DIR [--app-dir DIR]\n"
    "       arven-admin publish-version X.Y.Z [--app-dir DIR]\n"
    "       arven-admin preprocess --countries DK,IE --level 0-3 --mode MODE\n"
    "                  [--operations 1,2,3] [--existing-db] [--dq-refs] [--app-dir DIR]\n"
    "         MODE: by-date, new, new-and-selected, existing, selected, all\n"
    "         --operations selects operations within the list of all of them\n"
    "       arven-admin rvc-import (--all | --rvc ID) [--excel] [--app-dir DIR]\n"
    "       arven-admin rvc-aggregate --levels 0,1,2,3 (--all | --rvc ID) [--app-dir DIR]\n"
    "       arven-admin backup [--list | --restore NAME] [--app-dir DIR]\n"
    "       arven-admin all-country ACTION [--store FILE] [--group rdp|rvc|rvc-list]\n"
    "         ACTION: code-gen, copy-preprocess-tables, copy-arven-db, copy-rdp-tables,\n"
    "                 copy-rvc-tables, copy-rvc-list-tables, delete-old-tables,\n"
    "                 temp-data-trans, add-impact-max-field\n"
    "       arven-admin calculate-delta --all | --operation N --baseline B [--app-dir DIR]\n"
    "       arven-admin --help | --version\n"
    "Starts the admin build of ARVEN, or runs one batch command on its program folder.\n"
    "  --app-dir DIR  program folder; default: app beside the program in its build tree,\n"
    "                 $XDG_DATA_HOME/arven when installed\n"
    "  --port N, --no-browser, --token T: as for arven (see arven --help)\n";

int usage(const std::string& problem) {
  return arven::usage_error("arven-admin", problem, kUsage);
}

std::vector<std::string> split_list(const std::string& text) {
  std::vector<std::string> out;
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t end = text.find(',', pos);
    if (end == std::string::npos) end = text.size();
    if (end > pos) out.push_back(text.substr(pos, end - pos));
    pos = end + 1;
  }
  return out;
}

// The session of a batch command: the program folder and the master stores.
void admin_session(const arven::AppOptions& options) {
  using namespace arven;
  Session& s = session();
  s.admin_mode = 1;
  s.app_folder = options.app_dir;
  s.db_version = kDbVersion;
  s.structure_version = kStructureVersion;
  s.ops_db_path = (s.app_folder / "dbases" / "arven_operations.mdb").string();
  s.rvc_db_path = (s.app_folder / "dbases" / "arven_rvcs.mdb").string();
}

int64_t whole_number(const std::string& text, const std::string& what) {
  size_t used = 0;
  long long n = 0;
  try {
    n = std::stoll(text, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != text.size())
    throw std::invalid_argument("\"" + text + "\" is not " + what);
  return n;
}

// The options of a batch command: --flag or --flag VALUE, each once.
struct Flags {
  std::map<std::string, std::string> values;
  Flags(const std::vector<std::string>& args, const std::set<std::string>& with_value,
        const std::set<std::string>& bare) {
    for (size_t i = 1; i < args.size(); ++i) {
      const std::string& a = args[i];
      if (with_value.count(a)) {
        if (i + 1 >= args.size()) throw std::invalid_argument(a + " needs a value");
        values[a] = args[++i];
      } else if (bare.count(a)) {
        values[a] = "";
      } else {
        throw std::invalid_argument("unknown argument " + a + " for " + args[0]);
      }
    }
  }
  bool has(const std::string& f) const { return values.count(f) > 0; }
  const std::string& get(const std::string& f) const { return values.at(f); }
};

// rvc-import and rvc-aggregate: one RVC (--rvc ID) or all (--all).
std::optional<int64_t> chosen_rvc(const Flags& f) {
  if (f.has("--all") == f.has("--rvc"))
    throw std::invalid_argument("give either --all or --rvc ID");
  if (f.has("--all")) return std::nullopt;
  return whole_number(f.get("--rvc"), "an RVC ID");
}

int rvc_import(const arven::AppOptions& options) {
  using namespace arven;
  Flags f(options.args, {"--rvc"}, {"--all", "--excel"});
  auto rvc = chosen_rvc(f);
  admin_session(options);
  for (const auto& line : rvc_import_run(rvc, f.has("--excel"))) std::cout << line << "\n";
  std::cout << "Done\n";
  return 0;
}

int rvc_aggregate_command(const arven::AppOptions& options) {
  using namespace arven;
  Flags f(options.args, {"--levels", "--rvc"}, {"--all"});
  auto rvc = chosen_rvc(f);
  if (!f.has("--levels")) throw std::invalid_argument("rvc-aggregate needs --levels, e.g. 0,1,2,3");
  std::vector<int> levels;
  for (const auto& l : split_list(f.get("--levels"))) {
    if (l.size() != 1 || l[0] < '0' || l[0] > '3')
      throw std::invalid_argument("--levels takes levels 0 to 3, not \"" + l + "\"");
    levels.push_back(l[0] - '0');
  }
  admin_session(options);
  ConsoleUi ui(std::cout);
  auto r = rvc_aggregate(levels, rvc, &ui);
  std::cout << "Areas: " << r.areas << ", NUTS<k>_RVC_Data rows: " << r.data_rows
            << ", NUTS<k>_RVC_Data_Dist rows: " << r.dist_rows << "\nDone\n";
  return 0;
}

int backup_command(const arven::AppOptions& options) {
  using namespace arven;
  Flags f(options.args, {"--restore"}, {"--list"});
  admin_session(options);
  if (f.has("--list")) {
    for (const auto& b : list_backups()) std::cout << b << "\n";
  } else if (f.has("--restore")) {
    restore_backup(f.get("--restore"));
    std::cout << "Master stores restored from " << (backups_folder() / f.get("--restore")).string()
              << "\n";
  } else {
    std::string name = backup_master_stores();
    std::cout << "Master stores backed up to " << (backups_folder() / name).string() << "\n";
  }
  return 0;
}

// The all-country store buttons of the "Data Pre-processor" dialog.
int all_country_command(const arven::AppOptions& options) {
  using namespace arven;
  const auto& args = options.args;
  if (args.size() < 2) throw std::invalid_argument("all-country needs an action");
  std::vector<std::string> rest(args.begin() + 1, args.end());
  Flags f(rest, {"--store", "--group"}, {});
  admin_session(options);
  ConsoleUi ui(std::cout);
  const std::string& action = args[1];
  auto store = [&]() -> fs::path {
    if (!f.has("--store")) throw std::invalid_argument(action + " needs --store FILE");
    fs::path p = f.get("--store");
    return p.is_absolute() ? p : prepro_folder() / p;
  };
  if (action == "code-gen") {
    code_gen();
  } else if (action == "copy-preprocess-tables") {
    copy_preprocess_tables(ui, store());
  } else if (action == "copy-arven-db") {
    copy_arven_db(store());
  } else if (action == "copy-rdp-tables") {
    copy_rdp_tables_to_all(ui);
  } else if (action == "copy-rvc-tables") {
    copy_rvc_tables_to_all(ui);
  } else if (action == "copy-rvc-list-tables") {
    copy_rvc_list_tables_to_all(ui);
  } else if (action == "delete-old-tables") {
    static const std::map<std::string, OldTables> groups = {
        {"rdp", OldTables::Rdp}, {"rvc", OldTables::Rvc}, {"rvc-list", OldTables::RvcList}};
    if (!f.has("--group") || !groups.count(f.get("--group")))
      throw std::invalid_argument("delete-old-tables needs --group rdp, rvc or rvc-list");
    delete_old_tables(ui, store(), groups.at(f.get("--group")));
  } else if (action == "temp-data-trans") {
    temp_data_trans(ui, store());
  } else if (action == "add-impact-max-field") {
    add_impact_max_field();
  } else {
    throw std::invalid_argument("unknown all-country action " + action);
  }
  std::cout << "Done\n";
  return 0;
}

// The pre-processing run of the "Data Pre-processor" dialog, from the
// command line: Copy DBs, the base store when missing, then the run.
int preprocess(const arven::AppOptions& options) {
  using namespace arven;
  const auto& args = options.args;
  RunParams params;
  std::vector<std::string> codes;
  std::vector<int64_t> chosen;
  bool have_level = false, have_mode = false;
  for (size_t i = 1; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= args.size()) throw std::invalid_argument(a + " needs a value");
      return args[++i];
    };
    if (a == "--countries") {
      codes = split_list(value());
    } else if (a == "--level") {
      std::string v = value();
      if (v.size() != 1 || v[0] < '0' || v[0] > '3')
        throw std::invalid_argument("--level is 0, 1, 2 or 3, not \"" + v + "\"");
      params.level = v[0] - '0';
      have_level = true;
    } else if (a == "--mode") {
      std::string v = value();
      auto mode = run_mode_by_name(v);
      if (!mode) throw std::invalid_argument("unknown mode \"" + v + "\"");
      params.mode = *mode;
      have_mode = true;
    } else if (a == "--operations") {
      for (const auto& id : split_list(value()))
        chosen.push_back(whole_number(id, "an operation id"));
    } else if (a == "--existing-db") {
      params.existing_db = true;
    } else if (a == "--dq-refs") {
      params.dq_refs = true;
    } else {
      throw std::invalid_argument("unknown argument " + a);
    }
  }
  if (codes.empty() || !have_level || !have_mode)
    throw std::invalid_argument("preprocess needs --countries, --level and --mode");

  admin_session(options);
  copy_dbs();
  if (!std::filesystem::exists(prepro_base_path())) new_basefile();

  // List0 and List3 as the dialog fills them.
  auto countries = prepro_country_list();
  for (const auto& code : codes) {
    auto it = std::find_if(countries.begin(), countries.end(),
                           [&](const ListItem& c) { return c.text.rfind(code + " - ", 0) == 0; });
    if (it == countries.end())
      throw std::invalid_argument(code + " is not a country of the RVC master store");
    params.countries.push_back(it->data);
  }
  // List3 holds every operation with deltas, as in the dialog; --operations
  // selects within it, which the modes "selected" and "new-and-selected" read.
  for (const auto& item : prepro_operation_search("")) {
    bool selected = std::find(chosen.begin(), chosen.end(), item.data) != chosen.end();
    params.operations.push_back({item.data, item.text, selected});
  }
  for (int64_t id : chosen)
    if (std::none_of(params.operations.begin(), params.operations.end(),
                     [&](const RunOperation& op) { return op.id == id; }))
      throw std::invalid_argument("operation " + std::to_string(id) +
                                  " has no activity deltas, or does not exist");
  ConsoleUi ui(std::cout);
  RunControl control;
  bool ok = process_start2(ui, params, control);
  auto p = control.snapshot();
  std::cout << "Area-operation pairs generated: " << p.pairs << ", rows written: " << p.rows
            << "\n";
  return ok ? 0 : 1;
}

// The deltas of the "Operation Activity Details" dialog from the command
// line: all listed operations against their first baseline, or one pair.
int calculate_delta_batch(const arven::AppOptions& options) {
  using namespace arven;
  const auto& args = options.args;
  Session& s = session();
  s.admin_mode = 1;
  s.app_folder = options.app_dir;
  s.ops_db_path = (s.app_folder / "dbases" / "arven_operations.mdb").string();
  s.rvc_db_path = (s.app_folder / "dbases" / "arven_rvcs.mdb").string();
  if (args.size() == 2 && args[1] == "--all") {
    ConsoleUi ui(std::cout);
    int n = delta_calc_all(ui, delta_operation_list(""));
    std::cout << "Deltas calculated for " << n << " operations\n";
    return 0;
  }
  if (args.size() != 5 || args[1] != "--operation" || args[3] != "--baseline")
    throw std::invalid_argument("calculate-delta needs --all, or --operation N --baseline B");
  int64_t op = whole_number(args[2], "an operation id"),
          base = whole_number(args[4], "a baseline id");
  try {
    calculate_delta(op, base);
  } catch (const EditError& e) {
    std::cerr << "arven-admin: " << e.what() << "\n";
    return 1;
  }
  std::cout << "Delta calculated for operation " << op << " against baseline " << base << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace arven;
  AppOptions options;
  try {
    options = parse_app_options(argc, argv);
  } catch (const std::invalid_argument& e) {
    return usage(e.what());
  }
  if (print_help_or_version(options, "arven-admin", kUsage)) return 0;
  const auto& args = options.args;
  if (!args.empty() && args[0].rfind('-', 0) == 0) return usage("unknown argument " + args[0]);
  if (!find_folders(options, "arven-admin", true)) return 1;
  try {
    if (!args.empty() && args[0] == "import-masters") {
      if (args.size() != 3 || args[1] != "--from") return usage("import-masters needs --from DIR");
      session().app_folder = options.app_dir;
      auto dbases = options.app_dir / "dbases";
      import_master_csv(args[2], dbases / "arven_operations.mdb", dbases / "arven_rvcs.mdb");
      std::cout << "Master stores written to " << dbases.string() << "\n";
      return 0;
    }
    if (!args.empty() && args[0] == "publish-version") {
      if (args.size() != 2) return usage("publish-version needs a version, e.g. 1.1.9");
      session().app_folder = options.app_dir;
      try {
        publish_software_version(args[1]);
      } catch (const std::invalid_argument& e) {
        return usage(e.what());
      }
      std::cout << "Software version " << args[1] << " written to "
                << software_version_file_path().string() << "\n";
      return 0;
    }
    static const std::map<std::string, int (*)(const AppOptions&)> batch = {
        {"preprocess", preprocess},
        {"rvc-import", rvc_import},
        {"rvc-aggregate", rvc_aggregate_command},
        {"backup", backup_command},
        {"all-country", all_country_command}};
    if (!args.empty() && batch.count(args[0])) {
      try {
        return batch.at(args[0])(options);
      } catch (const std::invalid_argument& e) {
        return usage(e.what());
      }
    }
    if (!args.empty() && args[0] == "calculate-delta") {
      try {
        return calculate_delta_batch(options);
      } catch (const std::invalid_argument& e) {
        return usage(e.what());
      }
    }
    if (!args.empty()) return usage("unknown command " + args[0]);
    return serve_windows(options, 1, "arven-admin", shell::register_admin_windows);
  } catch (const std::exception& e) {
    std::cerr << "arven-admin: " << e.what() << "\n";
    return 1;
  }
}

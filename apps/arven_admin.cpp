// The admin build: everything of the user build plus data preparation.
//   arven-admin [--app-dir DIR] [--port N] [--no-browser] [--token T]
//                                                     the admin build's windows
//   arven-admin import-masters --from DIR [--app-dir DIR]
//                                                     load master stores from CSV text
//   arven-admin preprocess --countries DK,IE --level 3 --mode MODE [--operations 1,2,3]
//                          [--existing-db] [--dq-refs] [--app-dir DIR]
//                                                     a pre-processing run in batch
//   arven-admin calculate-delta --all | --operation N --baseline B [--app-dir DIR]
//                                                     recalculate activity deltas
#include <algorithm>
#include <iostream>

#include "apps/app_options.h"
#include "apps/serve_windows.h"
#include "core/console_ui.h"
#include "core/registry.h"
#include "core/session.h"
#include "core/startup.h"
#include "prep/activity_delta.h"
#include "prep/master_import.h"
#include "prep/packaging.h"
#include "prep/preprocess.h"
#include "shell/admin_views.h"
#include "stores/schema.h"

namespace {

int usage(const std::string& problem) {
  std::cerr
      << "arven-admin: " << problem << "\n"
      << "usage: arven-admin [--app-dir DIR]\n"
      << "       arven-admin import-masters --from CSV_DIR [--app-dir DIR]\n"
      << "       arven-admin publish-version X.Y.Z [--app-dir DIR]\n"
      << "       arven-admin preprocess --countries DK,IE --level 0-3 --mode MODE\n"
      << "                  [--operations 1,2,3] [--existing-db] [--dq-refs] [--app-dir DIR]\n"
      << "         MODE: by-date, new, new-and-selected, existing, selected, all\n"
      << "       arven-admin calculate-delta --all | --operation N --baseline B [--app-dir DIR]\n";
  return 2;
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

// The pre-processing run of the "Data Pre-processor" dialog, from the
// command line: Copy DBs, the base store when missing, then the run.
int preprocess(const arven::AppOptions& options) {
  using namespace arven;
  const auto& args = options.args;
  session().admin_mode = 1;
  session().app_folder = options.app_dir;
  RunParams params;
  std::vector<std::string> codes;
  std::vector<int64_t> chosen;
  bool have_level = false, have_mode = false, have_ops = false;
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
      for (const auto& id : split_list(value())) {
        size_t used = 0;
        long long n = 0;
        try {
          n = std::stoll(id, &used);
        } catch (const std::exception&) {
          used = 0;
        }
        if (used != id.size()) throw std::invalid_argument("\"" + id + "\" is not an operation id");
        chosen.push_back(n);
      }
      have_ops = true;
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

  Session& s = session();
  s.db_version = kDbVersion;
  s.structure_version = kStructureVersion;
  s.ops_db_path = (s.app_folder / "dbases" / "arven_operations.mdb").string();
  s.rvc_db_path = (s.app_folder / "dbases" / "arven_rvcs.mdb").string();
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
  auto search = prepro_operation_search("");
  for (const auto& item : search) {
    bool wanted = !have_ops || std::find(chosen.begin(), chosen.end(), item.data) != chosen.end();
    if (wanted) params.operations.push_back({item.data, item.text, true});
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

int64_t whole_number(const std::string& flag, const std::string& text) {
  size_t used = 0;
  long long n = 0;
  try {
    n = std::stoll(text, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used != text.size() || text.empty())
    throw std::invalid_argument(flag + " needs a whole number, not \"" + text + "\"");
  return n;
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
  int64_t op = whole_number("--operation", args[2]), base = whole_number("--baseline", args[4]);
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
  const auto& args = options.args;
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
    if (!args.empty() && args[0] == "preprocess") {
      try {
        return preprocess(options);
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

#include "prep/master_backup.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "core/session.h"
#include "prep/packaging.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

const char* const kStores[] = {"arven_operations.mdb", "arven_rvcs.mdb"};

fs::path dbases() {
  return session().app_folder / "dbases";
}

bool is_backup(const fs::path& folder) {
  std::error_code ec;
  for (const char* s : kStores)
    if (!fs::is_regular_file(folder / s, ec)) return false;
  return true;
}

}  // namespace

fs::path backups_folder() {
  return dbases() / "backups";
}

std::string backup_master_stores() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d_%H-%M-%S", &local);
  std::string name = stamp;
  // A second backup within the same second gets a counter.
  for (int n = 2; fs::exists(backups_folder() / name); ++n)
    name = std::string(stamp) + "_" + std::to_string(n);
  fs::path temp = backups_folder() / (name + ".tmp");
  std::error_code ec;
  fs::remove_all(temp, ec);
  fs::create_directories(temp);
  try {
    for (const char* s : kStores) copy_store_file(dbases() / s, temp / s);
    fs::rename(temp, backups_folder() / name);
  } catch (...) {
    fs::remove_all(temp, ec);
    throw;
  }
  return name;
}

std::vector<std::string> list_backups() {
  std::vector<std::string> out;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(backups_folder(), ec)) {
    std::string name = entry.path().filename().string();
    if (entry.is_directory(ec) && name.find(".tmp") == std::string::npos && is_backup(entry.path()))
      out.push_back(name);
  }
  std::sort(out.rbegin(), out.rend());
  return out;
}

void restore_backup(const std::string& name) {
  auto all = list_backups();
  if (std::find(all.begin(), all.end(), name) == all.end())
    throw std::runtime_error("\"" + name + "\" is not a backup of the master stores in " +
                             backups_folder().string());
  for (const char* s : kStores) copy_store_file(backups_folder() / name / s, dbases() / s);
}

}  // namespace arven

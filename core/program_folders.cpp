#include "core/program_folders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "base/replace_file.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

fs::path home_folder() {
  const char* home = std::getenv("HOME");
  if (home && *home) return home;
  if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return fs::current_path();
}

// Copies `from` to `to` under a temporary name, flushed and renamed into place.
void copy_durably(const fs::path& from, const fs::path& to) {
  fs::path temp = to.parent_path() / ("." + to.filename().string() + ".tmp");
  std::error_code ec;
  fs::copy_file(from, temp, fs::copy_options::overwrite_existing, ec);
  if (ec) {
    fs::remove(temp, ec);
    throw write_error(to, ec.value());
  }
  durable_rename(temp, to, ec);
  if (ec) {
    fs::remove(temp);
    throw write_error(to, ec.value());
  }
}

void make_folder(const fs::path& folder) {
  std::error_code ec;
  fs::create_directories(folder, ec);
  if (ec) throw write_error(folder, ec.value());
}

bool is_country_store(const fs::path& file) {
  const std::string name = file.filename().string();
  return name.rfind("new_arven_operations_", 0) == 0 && file.extension() == ".mdb";
}

}  // namespace

std::optional<fs::path> installed_assets_folder(const fs::path& exe) {
  fs::path bin = exe.parent_path();
  if (bin.filename() != "bin") return std::nullopt;
  fs::path share = bin.parent_path() / "share" / "arven";
  std::error_code ec;
  if (!fs::is_directory(share / "graphics", ec)) return std::nullopt;
  return share;
}

fs::path user_program_folder() {
  const char* data = std::getenv("XDG_DATA_HOME");
  if (data && fs::path(data).is_absolute()) return fs::path(data) / "arven";
  return home_folder() / ".local" / "share" / "arven";
}

void prepare_user_folder(const fs::path& app, const fs::path& assets, bool admin) {
  const fs::path dbases = app / "dbases";
  const fs::path demo = assets / "dbases";
  std::error_code ec;
  if (!fs::is_directory(dbases, ec)) {
    // Seeded beside its place and renamed into it when complete.
    make_folder(app);
    const fs::path seeding = app / ".dbases.seeding";
    fs::remove_all(seeding, ec);
    make_folder(seeding);
    std::vector<fs::path> stores;
    for (const auto& entry : fs::directory_iterator(demo, ec))
      if (entry.is_regular_file() && is_country_store(entry.path())) stores.push_back(entry.path());
    for (const auto& store : stores) copy_durably(store, seeding / store.filename());
    durable_rename(seeding, dbases);
  }
  if (admin) {
    for (const char* master : {"arven_operations.mdb", "arven_rvcs.mdb"})
      if (!fs::exists(dbases / master, ec) && fs::exists(demo / master, ec))
        copy_durably(demo / master, dbases / master);
  }
}

ProgramFolders program_folders(const std::optional<fs::path>& app_dir, const fs::path& exe,
                               bool admin) {
  auto installed = installed_assets_folder(exe);
  if (app_dir) {
    fs::path app = fs::absolute(*app_dir);
    // A folder of the build's making holds its own assets.
    std::error_code ec;
    bool own_assets = fs::is_directory(app / "graphics", ec);
    return {app, installed && !own_assets ? *installed : app};
  }
  if (!installed) return {exe.parent_path() / "app", exe.parent_path() / "app"};
  fs::path app = user_program_folder();
  prepare_user_folder(app, *installed, admin);
  return {app, *installed};
}

}  // namespace arven

// Where an installed program and a program in its build tree keep their
// files, and the user's program folder made on the first start.
#include "core/program_folders.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/temp_dir.h"

namespace arven {
namespace {

namespace fs = std::filesystem;

void write(const fs::path& file, const std::string& text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

std::string read(const fs::path& file) {
  std::ifstream in(file);
  return {std::istreambuf_iterator<char>(in), {}};
}

// An installed tree: <prefix>/bin and <prefix>/share/arven with its demo stores.
struct Installed {
  testing::TempDir dir;
  fs::path prefix = dir / "usr";
  fs::path exe = prefix / "bin" / "arven";
  fs::path share = prefix / "share" / "arven";
  Installed() {
    write(exe, "");
    fs::create_directories(share / "graphics");
    write(share / "dbases" / "new_arven_operations_DK.mdb", "DK store");
    write(share / "dbases" / "new_arven_operations_LU.mdb", "LU store");
    write(share / "dbases" / "arven_operations.mdb", "operations master");
    write(share / "dbases" / "arven_rvcs.mdb", "RVC master");
  }
};

struct Env {
  std::string name;
  std::optional<std::string> old;
  Env(std::string n, const char* value) : name(std::move(n)) {
    if (const char* v = std::getenv(name.c_str())) old = v;
    value ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
  }
  ~Env() { old ? setenv(name.c_str(), old->c_str(), 1) : unsetenv(name.c_str()); }
};

TEST(ProgramFolders, BuildTreeAndInstalledTreeAreToldApart) {
  Installed tree;
  EXPECT_EQ(installed_assets_folder(tree.exe), tree.share);
  // A build tree: the executable beside app/, no share/arven above it.
  testing::TempDir build;
  write(build / "arven", "");
  fs::create_directories(build / "app" / "graphics");
  EXPECT_FALSE(installed_assets_folder(build / "arven"));
  auto f = program_folders(std::nullopt, build / "arven", false);
  EXPECT_EQ(f.app, build / "app");
  EXPECT_EQ(f.assets, build / "app");
  // A bin/ without the assets is no installed tree either.
  fs::remove_all(tree.share / "graphics");
  EXPECT_FALSE(installed_assets_folder(tree.exe));
}

TEST(ProgramFolders, UserFolderFollowsXdgDataHome) {
  Env home("HOME", "/home/ann");
  {
    Env data("XDG_DATA_HOME", "/data/ann");
    EXPECT_EQ(user_program_folder(), fs::path("/data/ann/arven"));
  }
  // Unset, or not absolute (which the XDG rules ignore): the default.
  Env unset("XDG_DATA_HOME", nullptr);
  EXPECT_EQ(user_program_folder(), fs::path("/home/ann/.local/share/arven"));
  Env relative("XDG_DATA_HOME", "data");
  EXPECT_EQ(user_program_folder(), fs::path("/home/ann/.local/share/arven"));
}

TEST(ProgramFolders, FirstStartSeedsTheUserFolderOnce) {
  Installed tree;
  testing::TempDir data;
  Env xdg("XDG_DATA_HOME", data.path().c_str());
  auto f = program_folders(std::nullopt, tree.exe, false);
  EXPECT_EQ(f.app, data / "arven");
  EXPECT_EQ(f.assets, tree.share);
  const fs::path dbases = f.app / "dbases";
  EXPECT_EQ(read(dbases / "new_arven_operations_DK.mdb"), "DK store");
  EXPECT_EQ(read(dbases / "new_arven_operations_LU.mdb"), "LU store");
  // The user build gets no master stores, and nothing is left beside.
  EXPECT_FALSE(fs::exists(dbases / "arven_operations.mdb"));
  size_t entries = std::distance(fs::directory_iterator(f.app), fs::directory_iterator());
  EXPECT_EQ(entries, 1u);

  // A store the user removed stays removed: dbases/ is there.
  fs::remove(dbases / "new_arven_operations_LU.mdb");
  program_folders(std::nullopt, tree.exe, false);
  EXPECT_FALSE(fs::exists(dbases / "new_arven_operations_LU.mdb"));

  // The admin build adds the master stores it lacks, and keeps its own.
  write(dbases / "arven_rvcs.mdb", "edited RVC master");
  program_folders(std::nullopt, tree.exe, true);
  EXPECT_EQ(read(dbases / "arven_operations.mdb"), "operations master");
  EXPECT_EQ(read(dbases / "arven_rvcs.mdb"), "edited RVC master");
}

TEST(ProgramFolders, InterruptedSeedingStartsAgainAndEmptyAssetsLeaveAnEmptyFolder) {
  Installed tree;
  testing::TempDir data;
  const fs::path app = data / "arven";
  write(app / ".dbases.seeding" / "new_arven_operations_DK.mdb", "half");
  prepare_user_folder(app, tree.share, false);
  EXPECT_EQ(read(app / "dbases" / "new_arven_operations_DK.mdb"), "DK store");
  EXPECT_FALSE(fs::exists(app / ".dbases.seeding"));

  // No demo stores shipped: an empty dbases/ for the updates tab to fill.
  fs::remove_all(tree.share / "dbases");
  const fs::path other = data / "other";
  prepare_user_folder(other, tree.share, true);
  EXPECT_TRUE(fs::is_directory(other / "dbases"));
  EXPECT_TRUE(fs::is_empty(other / "dbases"));
}

TEST(ProgramFolders, AppDirOptionKeepsItsFolder) {
  Installed tree;
  testing::TempDir data;
  Env xdg("XDG_DATA_HOME", (data / "xdg").c_str());
  // A folder without assets of its own, as the downloader passes the user
  // folder back: graphics and scripts from share/arven.
  auto f = program_folders(data / "mine", tree.exe, false);
  EXPECT_EQ(f.app, data / "mine");
  EXPECT_EQ(f.assets, tree.share);
  // A folder that the build prepared serves its own assets.
  fs::create_directories(data / "built" / "graphics");
  f = program_folders(data / "built", tree.exe, false);
  EXPECT_EQ(f.assets, data / "built");
  // Neither touches the user folder, nor seeds the given one.
  EXPECT_FALSE(fs::exists(data / "xdg"));
  EXPECT_FALSE(fs::exists(data / "mine" / "dbases"));
}

}  // namespace
}  // namespace arven

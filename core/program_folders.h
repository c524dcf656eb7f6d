#pragma once

#include <filesystem>
#include <optional>

namespace arven {

// Where the program's files live. Run from its build tree, everything is in
// one program folder: `app` beside the executable, or the one --app-dir
// names. Installed (the executable in <prefix>/bin beside
// <prefix>/share/arven), the read-only assets (graphics, scripts, help and
// the demo stores) stay in share/arven, and each user has a program folder
// of their own, $XDG_DATA_HOME/arven, for the stores, the generated pages
// and the exports.
struct ProgramFolders {
  std::filesystem::path app;     // written: dbases/, pages, exports/
  std::filesystem::path assets;  // read: graphics/, javascript/, help/ (may be `app`)
};

// <prefix>/share/arven for an executable in <prefix>/bin, when it is there.
std::optional<std::filesystem::path> installed_assets_folder(const std::filesystem::path& exe);

// $XDG_DATA_HOME/arven; without an absolute XDG_DATA_HOME,
// ~/.local/share/arven.
std::filesystem::path user_program_folder();

// The folders of a program run from `exe`, with the --app-dir value if one
// was given. An installed program without --app-dir gets the user's
// program folder, made ready by prepare_user_folder.
ProgramFolders program_folders(const std::optional<std::filesystem::path>& app_dir,
                               const std::filesystem::path& exe, bool admin);

// Makes the user's program folder ready. Its dbases/ is made on the first
// start, seeded with the country stores of `assets`/dbases (none there: it
// stays empty for the updates tab to fill); a start killed half-way seeds
// it anew. The admin build also gets the master stores when they are
// missing. Throws FileWriteError naming what could not be written.
void prepare_user_folder(const std::filesystem::path& app, const std::filesystem::path& assets,
                         bool admin);

}  // namespace arven

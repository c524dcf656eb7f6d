#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/ui.h"

namespace arven {

// Per-user preferences: an INI file with sections ([Settings], [Download]),
// values kept as text. The file is read on each access and replaced whole on
// each save, so two programs (the main program and the downloader) see each
// other's changes.

// The preferences file: $XDG_CONFIG_HOME/arven/ARVEN.ini, or
// ~/.config/arven/ARVEN.ini.
std::filesystem::path preferences_path();
// Overrides the file (tests, a scripted run); empty restores the default.
void set_preferences_path(const std::filesystem::path& path);

// The stored text of a key, or `fallback` when the section or key is absent.
std::string get_setting(const std::string& section, const std::string& key,
                        const std::string& fallback);
// Keys and their values, in the order they are written.
using SettingValues = std::vector<std::pair<std::string, std::string>>;
// Stores the keys of a section in one write of the file; creates the file,
// its folder and the section as needed. The file is replaced as a whole
// (base/replace_file.h): when it cannot be written, FileWriteError says why
// and the file stays as it was.
void save_settings(const std::string& section, const SettingValues& values);
// save_settings, telling the user of a failure in one message box (titled
// kFileWriteTitle); false then.
bool save_settings(Ui& ui, const std::string& section, const SettingValues& values);
// One key, as save_settings.
void save_setting(const std::string& section, const std::string& key, const std::string& value);

// A key read as a 16-bit integer or a 32-bit float; text that is not such
// a number gives the fallback.
int get_setting_int(const std::string& section, const std::string& key, int fallback);
float get_setting_float(const std::string& section, const std::string& key, float fallback);

}  // namespace arven

#pragma once

#include <filesystem>

#include "core/preferences.h"
#include "core/session.h"

namespace arven::testing {

// Keeps the process-wide session as it was when the guard was made: the
// copy is put back when the guard goes, however the test ended.
class SessionGuard {
 public:
  SessionGuard() : saved_(session()) {}
  ~SessionGuard() { session() = saved_; }
  SessionGuard(const SessionGuard&) = delete;
  SessionGuard& operator=(const SessionGuard&) = delete;

 private:
  Session saved_;
};

// Points the preferences at `file` for as long as the guard lives, then
// back at the default file.
class PreferencesGuard {
 public:
  explicit PreferencesGuard(const std::filesystem::path& file) { set_preferences_path(file); }
  ~PreferencesGuard() { set_preferences_path(""); }
  PreferencesGuard(const PreferencesGuard&) = delete;
  PreferencesGuard& operator=(const PreferencesGuard&) = delete;
};

}  // namespace arven::testing

#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "core/lookups.h"
#include "core/version.h"

namespace arven::testing {

// Compares a page with tests/golden/<name>; ARVEN_UPDATE_GOLDEN=1 rewrites
// the golden instead. The program version is kept out of the goldens.
inline void expect_golden(const std::string& name, std::string actual) {
  namespace fs = std::filesystem;
  actual = replace_all(actual, "Beta Version " + version_text(), "Beta Version @VERSION@");
  fs::path golden = fs::path(ARVEN_SOURCE_DIR) / "tests" / "golden" / name;
  const char* update = std::getenv("ARVEN_UPDATE_GOLDEN");
  if (update && std::string(update) == "1") {
    fs::create_directories(golden.parent_path());
    std::ofstream(golden, std::ios::binary) << actual;
    return;
  }
  ASSERT_TRUE(fs::exists(golden)) << golden << " is missing";
  std::ifstream in(golden, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(), actual) << "differs from " << golden;
}

}  // namespace arven::testing

#pragma once

#include <string>

namespace arven {

// The program's own version: major, minor and revision.
inline constexpr int kVersionMajor = ARVEN_VERSION_MAJOR;
inline constexpr int kVersionMinor = ARVEN_VERSION_MINOR;
inline constexpr int kVersionRevision = ARVEN_VERSION_REVISION;

// "1.1.8": the three parts joined with dots.
inline std::string version_text() {
  return std::to_string(kVersionMajor) + "." + std::to_string(kVersionMinor) + "." +
         std::to_string(kVersionRevision);
}

}  // namespace arven

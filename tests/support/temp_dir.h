#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>

namespace arven::testing {

// A fresh folder under the system's temporary folder, removed afterwards.
class TempDir {
 public:
  TempDir() {
    std::string templ = (std::filesystem::temp_directory_path() / "arven-test-XXXXXX").string();
    path_ = mkdtemp(templ.data());
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

}  // namespace arven::testing

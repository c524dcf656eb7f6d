#pragma once

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

namespace arven::testing {

// A small file system (tmpfs) mounted on a folder of its own, for tests of a
// disk that fills up. Mounting needs root (CI runs as root); elsewhere
// mounted() is false and why() says so, for the test to skip with.
class SmallDisk {
 public:
  SmallDisk(std::filesystem::path folder, uint64_t bytes) : folder_(std::move(folder)) {
    std::filesystem::create_directories(folder_);
    if (::geteuid() != 0) {
      why_ = "mounting a small file system for a full disk needs root";
      return;
    }
    const std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
    if (::mount("tmpfs", folder_.c_str(), "tmpfs", 0, options.c_str()) != 0)
      why_ = std::string("a tmpfs could not be mounted: ") + std::strerror(errno);
    else
      mounted_ = true;
  }
  ~SmallDisk() {
    if (mounted_) ::umount2(folder_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool mounted() const { return mounted_; }
  const std::string& why() const { return why_; }
  const std::filesystem::path& folder() const { return folder_; }

  // Fills the disk to the brim with one file: not one more byte fits.
  void fill() {
    const std::filesystem::path filler = folder_ / ".filler";
    int fd = ::open(filler.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return;
    static const char block[65536] = {};
    for (size_t size : {sizeof block, size_t{4096}, size_t{1}})
      while (::write(fd, block, size) == static_cast<ssize_t>(size)) {
      }
    ::close(fd);
  }
  // Frees what fill() took.
  void empty() { std::filesystem::remove(folder_ / ".filler"); }

 private:
  std::filesystem::path folder_;
  bool mounted_ = false;
  std::string why_;
};

// A folder made read-only for the length of a test: mounted read-only over
// itself as root (whom permissions do not stop), its write permission taken
// away otherwise.
class ReadOnlyFolder {
 public:
  explicit ReadOnlyFolder(std::filesystem::path folder) : folder_(std::move(folder)) {
    if (::geteuid() == 0) {
      bound_ = ::mount(folder_.c_str(), folder_.c_str(), nullptr, MS_BIND, nullptr) == 0;
      if (bound_)
        ::mount(nullptr, folder_.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr);
    } else {
      ::chmod(folder_.c_str(), 0555);
    }
  }
  ~ReadOnlyFolder() {
    if (bound_)
      ::umount2(folder_.c_str(), MNT_DETACH);
    else
      ::chmod(folder_.c_str(), 0755);
  }
  ReadOnlyFolder(const ReadOnlyFolder&) = delete;
  ReadOnlyFolder& operator=(const ReadOnlyFolder&) = delete;
  // False when the folder could not be made read-only (no mount as root).
  bool ok() const { return ::access(folder_.c_str(), W_OK) != 0; }

 private:
  std::filesystem::path folder_;
  bool bound_ = false;
};

}  // namespace arven::testing

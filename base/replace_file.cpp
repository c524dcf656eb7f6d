#include "base/replace_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace arven {

namespace fs = std::filesystem;

namespace {

// Below this much free room, a write that failed without saying why failed
// for want of room.
constexpr uint64_t kNearlyFull = uint64_t{1} << 20;

fs::path folder_of(const fs::path& file) {
  return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

bool folder_writable(const fs::path& folder) {
  struct statvfs vfs {};
  if (::statvfs(folder.c_str(), &vfs) == 0 && (vfs.f_flag & ST_RDONLY)) return false;
  return ::access(folder.c_str(), W_OK) == 0;
}

std::string quoted(const fs::path& p) {
  return "\"" + p.string() + "\"";
}

// Flushes a file or folder by name; the errno value of a failure, else 0.
int sync_path(const fs::path& p, int flags) {
  int fd = ::open(p.c_str(), flags | O_CLOEXEC);
  if (fd < 0) return errno;
  int err = ::fsync(fd) == 0 ? 0 : errno;
  ::close(fd);
  return err;
}

void sync_folder(const fs::path& file) {
  // Best effort: the rename has happened, and some file systems cannot
  // flush a folder at all.
  (void)sync_path(folder_of(file), O_RDONLY | O_DIRECTORY);
}

// Writes all of the bytes at the offset (or appended when offset < 0).
int write_all(int fd, std::string_view data, int64_t offset) {
  const char* p = data.data();
  size_t left = data.size();
  while (left > 0) {
    ssize_t n = offset < 0 ? ::write(fd, p, left) : ::pwrite(fd, p, left, offset);
    if (n < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (n == 0) return ENOSPC;
    p += n;
    left -= static_cast<size_t>(n);
    if (offset >= 0) offset += n;
  }
  return 0;
}

}  // namespace

WriteFault write_fault_of(int err, const fs::path& folder) {
  switch (err) {
    case ENOSPC:
    case EDQUOT:
      return WriteFault::disk_full;
    case EROFS:
      return WriteFault::read_only_folder;
    case EACCES:
    case EPERM:
      return folder_writable(folder) ? WriteFault::read_only_file : WriteFault::read_only_folder;
    case EBUSY:
    case ETXTBSY:
    case EAGAIN:
      return WriteFault::in_use;
    default:
      return WriteFault::other;
  }
}

std::string write_failure_text(const fs::path& file, WriteFault fault, const std::string& detail) {
  switch (fault) {
    case WriteFault::disk_full:
      return "The disk is full: " + quoted(file) + " could not be written.";
    case WriteFault::read_only_folder:
      return "The folder " + quoted(folder_of(file)) + " is read-only: " + quoted(file) +
             " could not be written.";
    case WriteFault::read_only_file:
      return quoted(file) + " is read-only: it could not be written.";
    case WriteFault::in_use:
      return quoted(file) + " is in use by another program: it could not be written.";
    case WriteFault::other:
      break;
  }
  return quoted(file) + " could not be written" + (detail.empty() ? "." : ": " + detail + ".");
}

FileWriteError::FileWriteError(fs::path file, WriteFault fault, const std::string& detail)
    : std::runtime_error(write_failure_text(file, fault, detail)),
      file_(std::move(file)),
      fault_(fault) {}

FileWriteError write_error(const fs::path& file, int err) {
  return FileWriteError(file, write_fault_of(err, folder_of(file)), std::strerror(err));
}

FileWriteError diagnosed_write_error(const fs::path& file, const std::string& reason) {
  const fs::path folder = folder_of(file);
  struct statvfs vfs {};
  if (::statvfs(folder.c_str(), &vfs) == 0) {
    if (vfs.f_flag & ST_RDONLY) return FileWriteError(file, WriteFault::read_only_folder);
    if (static_cast<uint64_t>(vfs.f_bavail) * vfs.f_frsize < kNearlyFull)
      return FileWriteError(file, WriteFault::disk_full);
  }
  if (::access(folder.c_str(), W_OK) != 0)
    return FileWriteError(file, WriteFault::read_only_folder);
  return FileWriteError(file, WriteFault::other, reason);
}

// ---- ReplacingFile ----

ReplacingFile::ReplacingFile(fs::path target) : target_(std::move(target)) {
  static std::atomic<unsigned> serial{0};
  const fs::path folder = folder_of(target_);
  // The new file takes the old one's permissions; a new file those of any
  // file the program makes.
  struct stat old {};
  const bool had = ::stat(target_.c_str(), &old) == 0 && S_ISREG(old.st_mode);
  for (int attempt = 0;; ++attempt) {
    temp_ = folder / ("." + target_.filename().string() + "." + std::to_string(::getpid()) + "-" +
                      std::to_string(++serial) + ".tmp");
    fd_ = ::open(temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ >= 0) break;
    if (errno != EEXIST || attempt > 100) {
      const int err = errno;
      done_ = true;  // nothing to remove
      throw write_error(target_, err);
    }
  }
  if (had) (void)::fchmod(fd_, old.st_mode & 07777);
}

ReplacingFile::~ReplacingFile() {
  if (!done_) discard();
}

void ReplacingFile::discard() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  ::unlink(temp_.c_str());
  done_ = true;
}

void ReplacingFile::fail_errno(int err) {
  discard();
  throw write_error(target_, err);
}

void ReplacingFile::write(std::string_view data) {
  if (fd_ < 0) throw std::logic_error("the file " + temp_.string() + " is closed");
  if (int err = write_all(fd_, data, -1)) fail_errno(err);
}

void ReplacingFile::write_at(uint64_t offset, std::string_view data) {
  if (fd_ < 0) throw std::logic_error("the file " + temp_.string() + " is closed");
  if (int err = write_all(fd_, data, static_cast<int64_t>(offset))) fail_errno(err);
}

void ReplacingFile::close_checked() {
  if (fd_ < 0) return;
  int fd = fd_;
  fd_ = -1;
  if (::fsync(fd) != 0 && errno != EINVAL) {
    const int err = errno;
    ::close(fd);
    fail_errno(err);
  }
  if (::close(fd) != 0) fail_errno(errno);
}

const fs::path& ReplacingFile::for_library() {
  close_checked();
  return temp_;
}

void ReplacingFile::fail(const std::string& reason) {
  discard();
  throw diagnosed_write_error(target_, reason);
}

void ReplacingFile::commit() {
  if (done_) throw std::logic_error("the file " + target_.string() + " is already written");
  if (fd_ >= 0) {
    close_checked();
  } else if (int err = sync_path(temp_, O_RDONLY); err != 0 && err != EINVAL) {
    // What a library wrote by name.
    fail_errno(err);
  }
  if (::rename(temp_.c_str(), target_.c_str()) != 0) fail_errno(errno);
  done_ = true;
  sync_folder(target_);
}

void replace_file(const fs::path& target, std::string_view content) {
  ReplacingFile file(target);
  file.write(content);
  file.commit();
}

void durable_rename(const fs::path& from, const fs::path& to, std::error_code& ec) {
  ec.clear();
  if (int err = sync_path(from, O_RDONLY); err != 0 && err != EINVAL) {
    ec = std::error_code(err, std::generic_category());
    return;
  }
  if (::rename(from.c_str(), to.c_str()) != 0) {
    ec = std::error_code(errno, std::generic_category());
    return;
  }
  sync_folder(to);
}

void durable_rename(const fs::path& from, const fs::path& to) {
  std::error_code ec;
  durable_rename(from, to, ec);
  if (ec) throw write_error(to, ec.value());
}

}  // namespace arven

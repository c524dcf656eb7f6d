#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace arven {

// Writing a file that replaces another, so that nothing is lost when the
// disk fills up, the folder is read-only or the file is in use: the new
// content goes to a temporary file beside the target, every write and the
// close are checked, the file is flushed to disk and renamed into place, and
// the folder is flushed after it. On any failure the temporary file goes,
// the old file stays as it was, and a FileWriteError says why in words.

// Why a file could not be written.
enum class WriteFault {
  disk_full,         // "The disk is full"
  read_only_folder,  // "The folder ... is read-only"
  read_only_file,    // the file itself may not be written
  in_use,            // another program holds it
  other,
};

// The fault an errno value stands for, for a file in `folder`.
WriteFault write_fault_of(int err, const std::filesystem::path& folder);

// The message for a file that could not be written: it names the file and
// the cause in words ("The disk is full: ..."); `detail` is used only for
// a fault without words of its own.
std::string write_failure_text(const std::filesystem::path& file, WriteFault fault,
                               const std::string& detail = "");

// A file that could not be written, for a cause the user can act on; what()
// is write_failure_text.
class FileWriteError : public std::runtime_error {
 public:
  FileWriteError(std::filesystem::path file, WriteFault fault, const std::string& detail = "");
  const std::filesystem::path& file() const { return file_; }
  WriteFault fault() const { return fault_; }

 private:
  std::filesystem::path file_;
  WriteFault fault_;
};

// The error for a failed write of `file` with errno `err`.
FileWriteError write_error(const std::filesystem::path& file, int err);
// The error for a write of `file` that a library reported without an errno
// value: the folder is examined (no room left, mounted read-only, not
// writable); `reason` is the library's text, used when nothing is found.
FileWriteError diagnosed_write_error(const std::filesystem::path& file, const std::string& reason);

// The title of the message box that reports a FileWriteError.
inline constexpr const char* kFileWriteTitle = "File not saved";

// One replacement of `target`. The temporary file is made when this is
// constructed; commit() puts it into place. Destroyed without a commit (an
// exception on the way), it removes the temporary file and the target stays
// as it was. Every failure throws FileWriteError naming the target.
class ReplacingFile {
 public:
  explicit ReplacingFile(std::filesystem::path target);
  ~ReplacingFile();
  ReplacingFile(const ReplacingFile&) = delete;
  ReplacingFile& operator=(const ReplacingFile&) = delete;

  const std::filesystem::path& target() const { return target_; }
  // The temporary file, hidden (its name starts with a dot).
  const std::filesystem::path& temp() const { return temp_; }

  // Appends the bytes.
  void write(std::string_view data);
  // Writes the bytes at an offset (a header filled in once sizes are known).
  void write_at(uint64_t offset, std::string_view data);

  // For a library that writes the temporary file by its name: closes this
  // handle (checked) and returns the name. The library's own failure goes to
  // fail(); commit() follows its success.
  const std::filesystem::path& for_library();
  // The library failed: throws the diagnosed error (see diagnosed_write_error).
  [[noreturn]] void fail(const std::string& reason);

  // Flushes the file to disk, closes it, renames it over the target and
  // flushes the folder.
  void commit();

 private:
  void close_checked();
  void discard() noexcept;
  [[noreturn]] void fail_errno(int err);

  std::filesystem::path target_;
  std::filesystem::path temp_;
  int fd_ = -1;
  bool done_ = false;
};

// The whole content of `target`, replaced as ReplacingFile does.
void replace_file(const std::filesystem::path& target, std::string_view content);

// Puts a file built under another name in the same folder (a store built by
// the database library, an unpacked download) into place: it is flushed to
// disk, renamed, and the folder flushed, so that a crash leaves the old file
// or the whole new one. Throws FileWriteError naming `to`; `from` is then
// left for the caller.
void durable_rename(const std::filesystem::path& from, const std::filesystem::path& to);
// The same, reporting the failure in `ec` instead of throwing.
void durable_rename(const std::filesystem::path& from, const std::filesystem::path& to,
                    std::error_code& ec);

}  // namespace arven

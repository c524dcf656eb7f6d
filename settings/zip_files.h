#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace arven {

class ReplacingFile;
class Ui;

// An error raised by a zip wrapper: the text the user sees and the routine
// that raised it, e.g. "File is already in Zip List" from "CGZip::AddFile".
class ZipError : public std::runtime_error {
 public:
  ZipError(std::string source, const std::string& text)
      : std::runtime_error(text), source_(std::move(source)) {}
  const std::string& source() const { return source_; }

 private:
  std::string source_;
};

// Result codes of MakeZipFile.
inline constexpr int kZipOk = 0;
inline constexpr int kZipNothingToDo = 12;  // no file in the list
inline constexpr int kZipWriteError = 14;   // the archive could not be written
inline constexpr int kZipCreateError = 15;  // the archive could not be opened or created
inline constexpr int kZipBadOption = 16;    // an option this build does not offer
inline constexpr int kZipReadError = 18;    // a listed file could not be read

// Result codes of Unzip.
inline constexpr int kUnzipOk = 0;
inline constexpr int kUnzipBadEntry = 2;     // an entry failed its check (CRC, read)
inline constexpr int kUnzipUnsafePath = 3;   // an entry would leave the extract folder
inline constexpr int kUnzipNoArchive = 9;    // missing file or not an archive
inline constexpr int kUnzipBadOption = 10;   // contradictory options
inline constexpr int kUnzipWriteError = 50;  // a file could not be written

// Makes an archive from a list of files. Names in the list are taken
// relative to RootDirectory unless absolute; each entry is stored under the
// name as listed (no leading '/'), or relative to RootDirectory when the
// file lies inside it.
class CGZipFiles {
 public:
  CGZipFiles();

  // Whether a listed folder is added with everything below it (otherwise
  // only the folder's own entry).
  bool RecurseFolders() const { return recurse_folders_; }
  void SetRecurseFolders(bool v) { recurse_folders_ = v; }
  // The archive to write.
  const std::string& ZipFileName() const { return zip_file_name_; }
  void SetZipFileName(const std::string& v) { zip_file_name_ = v; }
  // Encrypted archives are not made by this build: MakeZipFile then returns
  // kZipBadOption without writing anything.
  bool Encrypted() const { return encrypted_; }
  void SetEncrypted(bool v) { encrypted_ = v; }
  // Whether hidden files (names starting with '.') found while recursing
  // are added; files named in the list are always added.
  bool IncludeSystemFiles() const { return include_system_files_; }
  void SetIncludeSystemFiles(bool v) { include_system_files_ = v; }
  // The number of files in the list.
  int ZipFileCount() const { return static_cast<int>(files_.size()); }
  // The base folder; "\" (a new object's value) and "/" stand for the file
  // system's root.
  const std::string& RootDirectory() const { return root_directory_; }
  void SetRootDirectory(const std::string& v) { root_directory_ = v; }
  // Set: an existing archive is kept and a listed file replaces its entry
  // only when the file is newer. Clear: the archive is written anew.
  bool UpdatingZip() const { return updating_zip_; }
  void SetUpdatingZip(bool v) { updating_zip_ = v; }

  // Adds a file to the list; throws ZipError("CGZip::AddFile", "File is
  // already in Zip List") when it is there already.
  void AddFile(const std::string& file);
  // Removes a file from the list; throws ZipError("CGZip::RemoveFile", "File
  // is not in Zip List") when it is not there.
  void RemoveFile(const std::string& file);
  // The list, in the order the files were added.
  const std::vector<std::string>& Files() const { return files_; }
  // Writes the archive from the first 100 files of the list; returns 0 on
  // success or one of the kZip* codes, the reason in GetLastMessage().
  int MakeZipFile();
  // The last message of the most recent zip operation in this process.
  std::string GetLastMessage() const;

 private:
  bool recurse_folders_ = false;
  std::string zip_file_name_;
  bool encrypted_ = false;
  bool include_system_files_ = false;
  std::string root_directory_ = "\\";
  bool updating_zip_ = false;
  std::vector<std::string> files_;
};

// Extracts an archive. An entry whose name is absolute or holds a ".."
// part, or that would end up outside ExtractDir through a link, makes the
// whole extraction fail before anything is written.
class CGUnzipFiles {
 public:
  // Extract only entries newer than the file on disk or not on disk yet.
  bool ExtractNewer() const { return extract_newer_; }
  void SetExtractNewer(bool v) { extract_newer_ = v; }
  // Spaces in entry names become underscores.
  bool SpaceToUnderScore() const { return space_to_underscore_; }
  void SetSpaceToUnderScore(bool v) { space_to_underscore_ = v; }
  // There is no one to ask: with this set and OverWriteFiles clear, an
  // existing file is kept, as if the question had been answered "No".
  bool PromptOverwrite() const { return prompt_overwrite_; }
  void SetPromptOverwrite(bool v) { prompt_overwrite_ = v; }
  // 0 reports errors only, 1 also each file, 2 and above as Verbose.
  int MessageLevel() const { return message_level_; }
  void SetMessageLevel(int v) { message_level_ = v; }
  // Entries are written to standard output instead of files.
  bool WriteToStdOut() const { return write_to_stdout_; }
  void SetWriteToStdOut(bool v) { write_to_stdout_ = v; }
  // Reads and checks every entry, writes nothing.
  bool TestZip() const { return test_zip_; }
  void SetTestZip(bool v) { test_zip_ = v; }
  // Reports each entry's name and size, writes nothing.
  bool ExtractList() const { return extract_list_; }
  void SetExtractList(bool v) { extract_list_ = v; }
  // Extract only entries whose file exists and is older (freshen).
  bool ExtractOnlyNewer() const { return extract_only_newer_; }
  void SetExtractOnlyNewer(bool v) { extract_only_newer_ = v; }
  // Reports the archive's comment.
  bool DisplayComment() const { return display_comment_; }
  void SetDisplayComment(bool v) { display_comment_ = v; }
  // Set: folders of entry names are recreated; clear: every file lands
  // directly in ExtractDir.
  bool HonorDirectories() const { return honor_directories_; }
  void SetHonorDirectories(bool v) { honor_directories_ = v; }
  // Existing files are replaced without asking.
  bool OverWriteFiles() const { return overwrite_files_; }
  void SetOverWriteFiles(bool v) { overwrite_files_ = v; }
  // Line ends of text entries (entries without a NUL byte) are converted to
  // the local convention, "\n".
  bool ConvertCRtoCRLF() const { return convert_line_ends_; }
  void SetConvertCRtoCRLF(bool v) { convert_line_ends_ = v; }
  bool Verbose() const { return verbose_; }
  void SetVerbose(bool v) { verbose_ = v; }
  // Kept for callers; the whole archive is always extracted, so no name is
  // matched against a pattern.
  bool CaseSensitive() const { return case_sensitive_; }
  void SetCaseSensitive(bool v) { case_sensitive_ = v; }
  // Restores the permission bits stored with each entry (never set-id bits).
  bool Privilege() const { return privilege_; }
  void SetPrivilege(bool v) { privilege_ = v; }
  const std::string& ZipFileName() const { return zip_file_name_; }
  void SetZipFileName(const std::string& v) { zip_file_name_ = v; }
  const std::string& ExtractDir() const { return extract_dir_; }
  void SetExtractDir(const std::string& v) { extract_dir_ = v; }

  // Extracts ZipFileName into ExtractDir; a non-empty argument replaces the
  // property first. Returns 0 or one of the kUnzip* codes.
  int Unzip(const std::string& zip = "", const std::string& dir = "");
  // The last message of the most recent unzip operation in this process.
  std::string GetLastMessage() const;

 private:
  bool extract_newer_ = false;
  bool space_to_underscore_ = false;
  bool prompt_overwrite_ = false;
  int message_level_ = 0;
  bool write_to_stdout_ = false;
  bool test_zip_ = false;
  bool extract_list_ = false;
  bool extract_only_newer_ = false;
  bool display_comment_ = false;
  bool honor_directories_ = true;
  bool overwrite_files_ = false;
  bool convert_line_ends_ = false;
  bool verbose_ = false;
  bool case_sensitive_ = false;
  bool privilege_ = false;
  std::string zip_file_name_;
  std::string extract_dir_;
};

// Zips one file into a new archive, stored under its own file name. A
// failure is shown to the user with the zip's last message; returns the
// result code.
int zip_single_file(Ui& ui, const std::string& file, const std::string& zip);

// The check of a country store archive's entry: its name must be exactly
// the expected store file (no folder, no other file) and its unpacked size
// at most `max_size`. Returns "" when it passes, otherwise the reason.
std::string check_store_entry(std::string_view name, uint64_t size, std::string_view expected,
                              uint64_t max_size);

// Unpacks the one entry of a country store archive into `dest` after
// check_store_entry; the archive must hold nothing else. The CRC is
// checked, and no more than the stated size (and `max_size`) is written.
// Returns "" on success, otherwise the reason (a disk that could not take
// the file in the words of base/replace_file.h); `dest` then stays as it
// was.
std::string extract_store_entry(const std::filesystem::path& zip, const std::string& expected,
                                const std::filesystem::path& dest, uint64_t max_size);
// The same into a replacement that the caller puts into place.
std::string extract_store_entry(const std::filesystem::path& zip, const std::string& expected,
                                ReplacingFile& dest, uint64_t max_size);

// Extracts a whole archive into a folder (created when missing), folders
// kept and existing files replaced: what the downloader installs with.
// Returns 0 or a kUnzip* code; `message` gets the reason of a failure.
int unzip_to_folder(const std::filesystem::path& zip, const std::filesystem::path& folder,
                    std::string* message = nullptr);

}  // namespace arven

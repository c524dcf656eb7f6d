#include "settings/zip_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>

#include "base/replace_file.h"
#include "core/ui.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxZipFiles = 100;

// The last message of each side, shared by every object of the process as
// the print callbacks of a zip library would leave it.
std::mutex g_message_mutex;
std::string g_zip_message;
std::string g_unzip_message;

void set_message(std::string& slot, const std::string& text) {
  std::lock_guard<std::mutex> lock(g_message_mutex);
  slot = text;
}

std::string get_message(const std::string& slot) {
  std::lock_guard<std::mutex> lock(g_message_mutex);
  return slot;
}

std::string slashes(std::string s) {
  std::replace(s.begin(), s.end(), '\\', '/');
  return s;
}

bool is_hidden(const fs::path& relative) {
  for (const auto& part : relative) {
    std::string s = part.string();
    if (s.size() > 1 && s[0] == '.' && s != "..") return true;
  }
  return false;
}

// Modification time of a file in seconds, -1 when it cannot be read.
time_t file_mtime(const fs::path& p) {
  struct stat st {};
  if (::stat(p.c_str(), &st) != 0) return -1;
  return st.st_mtime;
}

// ---- zipping ------------------------------------------------------------------

struct ZipItem {
  fs::path file;      // on disk
  std::string entry;  // name in the archive, "x/" for a folder
  bool folder = false;
};

fs::path root_of(const std::string& root_directory) {
  std::string r = slashes(root_directory);
  if (r.empty()) return "/";
  return fs::path(r).lexically_normal();
}

// The entry name of a file: relative to the root when inside it, otherwise
// the path without its leading '/'.
std::string entry_name(const fs::path& file, const fs::path& root) {
  fs::path rel = file.lexically_relative(root);
  if (rel.empty() || *rel.begin() == "..") rel = file.relative_path();
  return rel.lexically_normal().generic_string();
}

// Expands the list into archive items; false (with the message set) when a
// listed file cannot be found.
bool collect_items(const std::vector<std::string>& list, const fs::path& root, bool recurse,
                   bool include_hidden, std::vector<ZipItem>& items) {
  for (const auto& name : list) {
    fs::path p = fs::path(slashes(name));
    if (p.is_relative()) p = root / p;
    p = p.lexically_normal();
    std::error_code ec;
    if (fs::is_regular_file(p, ec)) {
      items.push_back({p, entry_name(p, root), false});
      continue;
    }
    if (!fs::is_directory(p, ec)) {
      set_message(g_zip_message, "zip error: cannot find or read " + name);
      return false;
    }
    std::string base = entry_name(p, root);
    if (!base.empty() && base != ".") items.push_back({p, base + "/", true});
    if (!recurse) continue;
    std::vector<ZipItem> below;
    for (auto it = fs::recursive_directory_iterator(p, ec); !ec && it != fs::end(it);
         it.increment(ec)) {
      fs::path rel = it->path().lexically_relative(p);
      if (!include_hidden && is_hidden(rel)) {
        if (it->is_directory()) it.disable_recursion_pending();
        continue;
      }
      std::string e = entry_name(it->path(), root);
      if (it->is_directory())
        below.push_back({it->path(), e + "/", true});
      else if (it->is_regular_file())
        below.push_back({it->path(), e, false});
    }
    if (ec) {
      set_message(g_zip_message, "zip error: cannot read folder " + name + ": " + ec.message());
      return false;
    }
    std::sort(below.begin(), below.end(),
              [](const ZipItem& a, const ZipItem& b) { return a.entry < b.entry; });
    items.insert(items.end(), below.begin(), below.end());
  }
  return true;
}

struct ZipOptions {
  std::string archive;
  fs::path root;
  bool encrypted, recurse, include_hidden, updating;
};

int zip_run(const std::vector<std::string>& list, const ZipOptions& o) {
  set_message(g_zip_message, "");
  if (o.encrypted) {
    set_message(g_zip_message, "zip error: encrypted archives are not supported");
    return kZipBadOption;
  }
  if (o.archive.empty()) {
    set_message(g_zip_message, "zip error: no archive name given");
    return kZipCreateError;
  }
  std::vector<ZipItem> items;
  if (!collect_items(list, o.root, o.recurse, o.include_hidden, items)) return kZipReadError;
  if (items.empty()) {
    set_message(g_zip_message, "zip error: nothing to do");
    return kZipNothingToDo;
  }

  // The archive is made beside the old one, which it replaces only once
  // whole; an update starts from a copy of the old one.
  std::optional<ReplacingFile> target;
  try {
    target.emplace(o.archive);
    std::error_code ec;
    if (o.updating && fs::is_regular_file(o.archive, ec)) {
      fs::copy_file(o.archive, target->for_library(), fs::copy_options::overwrite_existing, ec);
      if (ec) throw write_error(o.archive, ec.value());
    }
  } catch (const FileWriteError& e) {
    set_message(g_zip_message, e.what());
    return kZipCreateError;
  }
  int err = 0;
  int flags = ZIP_CREATE | (o.updating ? 0 : ZIP_TRUNCATE);
  zip_t* za = zip_open(target->for_library().c_str(), flags, &err);
  if (!za) {
    zip_error_t ze;
    zip_error_init_with_code(&ze, err);
    set_message(g_zip_message,
                "zip error: cannot open " + o.archive + ": " + zip_error_strerror(&ze));
    zip_error_fini(&ze);
    return kZipCreateError;
  }
  auto fail = [&](int code, const std::string& text) {
    set_message(g_zip_message, text);
    zip_discard(za);
    return code;
  };

  for (const auto& item : items) {
    zip_int64_t existing = zip_name_locate(za, item.entry.c_str(), 0);
    if (item.folder) {
      if (existing < 0 && zip_dir_add(za, item.entry.c_str(), ZIP_FL_ENC_UTF_8) < 0)
        return fail(kZipWriteError, "zip error: " + std::string(zip_strerror(za)));
      continue;
    }
    time_t mtime = file_mtime(item.file);
    if (o.updating && existing >= 0) {
      zip_stat_t st;
      if (zip_stat_index(za, static_cast<zip_uint64_t>(existing), 0, &st) == 0 &&
          (st.valid & ZIP_STAT_MTIME) && st.mtime >= mtime)
        continue;  // the archive's copy is as new as the file
    }
    zip_source_t* src = zip_source_file(za, item.file.c_str(), 0, 0);
    if (!src)
      return fail(kZipReadError,
                  "zip error: cannot read " + item.file.string() + ": " + zip_strerror(za));
    zip_int64_t index =
        zip_file_add(za, item.entry.c_str(), src, ZIP_FL_OVERWRITE | ZIP_FL_ENC_UTF_8);
    if (index < 0) {
      zip_source_free(src);
      return fail(kZipWriteError, "zip error: " + std::string(zip_strerror(za)));
    }
    // The fastest deflate level: stores are large and compress well at any
    // level, and publishing should not take longer than building them.
    zip_set_file_compression(za, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE, 1);
    struct stat st {};
    if (::stat(item.file.c_str(), &st) == 0)
      zip_file_set_external_attributes(za, static_cast<zip_uint64_t>(index), 0, ZIP_OPSYS_UNIX,
                                       static_cast<zip_uint32_t>(st.st_mode) << 16);
    set_message(g_zip_message, "  adding: " + item.entry);
  }
  if (zip_close(za) != 0) {
    const zip_error_t* ze = zip_get_error(za);
    const int cause = zip_error_system_type(ze) == ZIP_ET_SYS ? zip_error_code_system(ze) : 0;
    return fail(kZipWriteError, cause != 0
                                    ? write_error(o.archive, cause).what()
                                    : diagnosed_write_error(o.archive, zip_strerror(za)).what());
  }
  try {
    target->commit();
  } catch (const FileWriteError& e) {
    set_message(g_zip_message, e.what());
    return kZipWriteError;
  }
  return kZipOk;
}

// ---- unzipping -----------------------------------------------------------------

// The entry's path below the extract folder, or nullopt when it is absolute
// or climbs out with "..". Empty for a name that is only "." parts.
std::optional<fs::path> safe_relative(const std::string& name) {
  std::string n = slashes(name);
  if (n.empty() || n[0] == '/') return std::nullopt;
  if (n.size() >= 2 && n[1] == ':') return std::nullopt;  // a drive letter
  fs::path out;
  size_t start = 0;
  while (start <= n.size()) {
    size_t end = n.find('/', start);
    if (end == std::string::npos) end = n.size();
    std::string part = n.substr(start, end - start);
    if (part == "..") return std::nullopt;
    if (!part.empty() && part != ".") out /= part;
    start = end + 1;
  }
  return out;
}

bool inside(const fs::path& p, const fs::path& folder) {
  auto rel = p.lexically_relative(folder);
  return !rel.empty() && *rel.begin() != "..";
}

struct Entry {
  zip_uint64_t index;
  std::string name;
  fs::path target;  // empty: written nowhere (a folder when folders are dropped)
  bool folder;
  time_t mtime;
  zip_uint32_t mode;  // permission bits, 0 when unknown
};

// Reads entry `index` to the end, handing each chunk to `sink`; false on a
// read or CRC failure, with the entry's own error in `error` (the
// archive's error says nothing about it).
template <typename Sink>
bool read_entry_index(zip_t* za, zip_uint64_t index, Sink sink, std::string* error = nullptr) {
  // Closed however the reading ends: a sink may throw (a full disk).
  std::unique_ptr<zip_file_t, decltype(&zip_fclose)> zf(zip_fopen_index(za, index, 0), zip_fclose);
  if (!zf) {
    if (error) *error = zip_strerror(za);
    return false;
  }
  char buf[65536];
  zip_int64_t n;
  bool ok = true;
  while ((n = zip_fread(zf.get(), buf, sizeof buf)) > 0)
    if (!sink(buf, static_cast<size_t>(n))) {
      ok = false;
      break;
    }
  if (n < 0) {
    ok = false;
    if (error) *error = zip_file_strerror(zf.get());
  }
  return ok;
}

template <typename Sink>
bool read_entry(zip_t* za, const Entry& e, Sink sink, std::string* error = nullptr) {
  return read_entry_index(za, e.index, sink, error);
}

std::string to_local_line_ends(const std::string& s) {
  if (s.find('\0') != std::string::npos) return s;  // not text
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i)
    if (!(s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n')) out += s[i];
  return out;
}

void set_file_time(const fs::path& p, time_t mtime) {
  struct timespec times[2];
  times[0].tv_sec = mtime;
  times[0].tv_nsec = 0;
  times[1] = times[0];
  utimensat(AT_FDCWD, p.c_str(), times, 0);
}

}  // namespace

// ---- CGZipFiles -------------------------------------------------------------------

CGZipFiles::CGZipFiles() = default;

void CGZipFiles::AddFile(const std::string& file) {
  // Names are compared exactly: file names are case-sensitive here.
  if (std::find(files_.begin(), files_.end(), file) != files_.end())
    throw ZipError("CGZip::AddFile", "File is already in Zip List");
  files_.push_back(file);
}

void CGZipFiles::RemoveFile(const std::string& file) {
  auto it = std::find(files_.begin(), files_.end(), file);
  if (it == files_.end()) throw ZipError("CGZip::RemoveFile", "File is not in Zip List");
  files_.erase(it);
}

int CGZipFiles::MakeZipFile() {
  // A longer list is cut at 100 names, intended: the zip takes a fixed array.
  std::vector<std::string> list(
      files_.begin(),
      files_.begin() + static_cast<std::ptrdiff_t>(std::min(files_.size(), kMaxZipFiles)));
  // The archive name is used as given: file names are case-sensitive here,
  // so it is not upper-cased.
  return zip_run(list, {zip_file_name_, root_of(root_directory_), encrypted_, recurse_folders_,
                        include_system_files_, updating_zip_});
}

std::string CGZipFiles::GetLastMessage() const {
  return get_message(g_zip_message);
}

// ---- CGUnzipFiles -------------------------------------------------------------------

std::string CGUnzipFiles::GetLastMessage() const {
  return get_message(g_unzip_message);
}

int CGUnzipFiles::Unzip(const std::string& zip, const std::string& dir) {
  if (!zip.empty()) zip_file_name_ = zip;
  if (!dir.empty()) extract_dir_ = dir;
  set_message(g_unzip_message, "");
  auto report = [&](int level, const std::string& text) {
    if (message_level_ >= level || (verbose_ && level <= 2)) set_message(g_unzip_message, text);
  };
  if (zip_file_name_.empty()) {
    set_message(g_unzip_message, "unzip: no archive named");
    return kUnzipBadOption;
  }
  int err = 0;
  zip_t* za = zip_open(zip_file_name_.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &err);
  if (!za) {
    zip_error_t ze;
    zip_error_init_with_code(&ze, err);
    set_message(g_unzip_message,
                "unzip: cannot open " + zip_file_name_ + ": " + zip_error_strerror(&ze));
    zip_error_fini(&ze);
    return kUnzipNoArchive;
  }
  struct Closer {
    zip_t* za;
    ~Closer() { zip_discard(za); }
  } closer{za};

  if (display_comment_) {
    int len = 0;
    const char* c = zip_get_archive_comment(za, &len, 0);
    if (c && len > 0) set_message(g_unzip_message, std::string(c, static_cast<size_t>(len)));
  }

  fs::path folder = fs::path(extract_dir_.empty() ? "." : slashes(extract_dir_));
  std::error_code ec;
  fs::path real_folder = fs::weakly_canonical(fs::absolute(folder, ec), ec);

  // Every name is checked before anything is written.
  std::vector<Entry> entries;
  zip_int64_t count = zip_get_num_entries(za, 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    zip_stat_t st;
    if (zip_stat_index(za, static_cast<zip_uint64_t>(i), 0, &st) != 0 ||
        !(st.valid & ZIP_STAT_NAME)) {
      set_message(g_unzip_message, "unzip: entry " + std::to_string(i) + " cannot be read");
      return kUnzipBadEntry;
    }
    std::string name = st.name;
    auto rel = safe_relative(name);
    if (!rel) {
      set_message(g_unzip_message, "unzip: refusing an entry outside the folder: " + name);
      return kUnzipUnsafePath;
    }
    bool is_folder = !name.empty() && (name.back() == '/' || name.back() == '\\');
    if (space_to_underscore_) {
      std::string s = rel->generic_string();
      std::replace(s.begin(), s.end(), ' ', '_');
      *rel = s;
    }
    fs::path target;
    if (honor_directories_)
      target = rel->empty() ? fs::path() : real_folder / *rel;
    else if (!is_folder && !rel->empty())
      target = real_folder / rel->filename();
    if (!target.empty()) {
      // A link already in the folder must not carry a file outside it.
      fs::path resolved = fs::weakly_canonical(target, ec);
      if (ec || !inside(resolved, real_folder)) {
        set_message(g_unzip_message, "unzip: refusing an entry outside the folder: " + name);
        return kUnzipUnsafePath;
      }
    }
    zip_uint8_t opsys = 0;
    zip_uint32_t attributes = 0;
    zip_uint32_t mode = 0;
    if (zip_file_get_external_attributes(za, static_cast<zip_uint64_t>(i), 0, &opsys,
                                         &attributes) == 0 &&
        opsys == ZIP_OPSYS_UNIX)
      mode = (attributes >> 16) & 0777;
    entries.push_back({static_cast<zip_uint64_t>(i), name, target, is_folder,
                       (st.valid & ZIP_STAT_MTIME) ? st.mtime : 0, mode});
  }

  if (extract_list_) {
    for (const auto& e : entries) {
      zip_stat_t st;
      zip_stat_index(za, e.index, 0, &st);
      set_message(g_unzip_message, e.name + " " + std::to_string(st.size));
    }
    return kUnzipOk;
  }

  if (test_zip_) {
    int result = kUnzipOk;
    for (const auto& e : entries) {
      if (e.folder) continue;
      std::string why;
      bool ok = read_entry(
          za, e, [](const char*, size_t) { return true; }, &why);
      report(1, "testing: " + e.name + (ok ? "   OK" : "   bad"));
      if (!ok) {
        set_message(g_unzip_message, "unzip: error in " + e.name + ": " + why);
        result = kUnzipBadEntry;
      }
    }
    if (result == kUnzipOk) report(1, "No errors detected in " + zip_file_name_);
    return result;
  }

  if (!write_to_stdout_) {
    fs::create_directories(real_folder, ec);
    if (ec) {
      set_message(g_unzip_message, "unzip: cannot create " + real_folder.string());
      return kUnzipWriteError;
    }
  }
  for (const auto& e : entries) {
    if (e.folder) {
      if (!write_to_stdout_ && !e.target.empty()) fs::create_directories(e.target, ec);
      continue;
    }
    if (write_to_stdout_) {
      if (!read_entry(za, e, [](const char* p, size_t n) {
            std::cout.write(p, static_cast<std::streamsize>(n));
            return static_cast<bool>(std::cout);
          })) {
        set_message(g_unzip_message, "unzip: error in " + e.name);
        return kUnzipBadEntry;
      }
      continue;
    }
    if (e.target.empty()) continue;
    bool exists = fs::exists(e.target, ec);
    bool by_date = extract_newer_ || extract_only_newer_;
    if (extract_only_newer_ && !exists) continue;
    if (by_date && exists && e.mtime <= file_mtime(e.target)) continue;
    if (exists && !by_date && !overwrite_files_) {
      report(1, "skipping: " + e.name + " (file exists)");
      continue;
    }
    fs::create_directories(e.target.parent_path(), ec);
    bool ok = false;
    std::string why;
    try {
      ReplacingFile out(e.target);
      if (convert_line_ends_) {
        std::string all;
        ok = read_entry(
            za, e,
            [&](const char* p, size_t n) {
              all.append(p, n);
              return true;
            },
            &why);
        if (ok) out.write(to_local_line_ends(all));
      } else {
        ok = read_entry(
            za, e,
            [&](const char* p, size_t n) {
              out.write(std::string_view(p, n));
              return true;
            },
            &why);
      }
      if (ok) {
        if (privilege_ && e.mode) ::chmod(out.temp().c_str(), static_cast<mode_t>(e.mode));
        if (e.mtime > 0) set_file_time(out.temp(), e.mtime);
        out.commit();
      }
    } catch (const FileWriteError& failure) {
      set_message(g_unzip_message, std::string("unzip: ") + failure.what());
      return kUnzipWriteError;
    }
    if (!ok) {
      set_message(g_unzip_message, "unzip: error in " + e.name + ": " + why);
      return kUnzipBadEntry;
    }
    report(1, "  inflating: " + e.target.string());
  }
  return kUnzipOk;
}

// ---- the system's entry points ---------------------------------------------------------

int zip_single_file(Ui& ui, const std::string& file, const std::string& zip) {
  CGZipFiles z;
  z.SetZipFileName(zip);
  z.SetUpdatingZip(false);
  // The store goes in at the archive's top level, where the downloader
  // finds it, so the name is taken relative to the file's own folder.
  fs::path p(file);
  if (p.has_parent_path()) z.SetRootDirectory(p.parent_path().string());
  z.AddFile(p.has_parent_path() ? p.filename().string() : file);
  int result = z.MakeZipFile();
  if (result != kZipOk) ui.message_box(z.GetLastMessage(), "ARVEN", MsgButtons::Ok, MsgIcon::None);
  return result;
}

std::string check_store_entry(std::string_view name, uint64_t size, std::string_view expected,
                              uint64_t max_size) {
  if (name != expected)
    return "the archive holds \"" + std::string(name) + "\"; only \"" + std::string(expected) +
           "\" is accepted";
  if (size > max_size)
    return "\"" + std::string(name) + "\" would unpack to " + std::to_string(size) +
           " bytes, more than the " + std::to_string(max_size) + " allowed";
  return "";
}

std::string extract_store_entry(const fs::path& zip, const std::string& expected,
                                ReplacingFile& dest, uint64_t max_size) {
  int err = 0;
  zip_t* za = zip_open(zip.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &err);
  if (!za) {
    zip_error_t ze;
    zip_error_init_with_code(&ze, err);
    std::string why = zip_error_strerror(&ze);
    zip_error_fini(&ze);
    return "the archive cannot be read: " + why;
  }
  struct Closer {
    zip_t* za;
    ~Closer() { zip_discard(za); }
  } closer{za};
  zip_int64_t count = zip_get_num_entries(za, 0);
  if (count != 1)
    return "the archive holds " + std::to_string(count) + " entries; only \"" + expected +
           "\" is accepted";
  zip_stat_t st;
  if (zip_stat_index(za, 0, 0, &st) != 0 || !(st.valid & ZIP_STAT_NAME) ||
      !(st.valid & ZIP_STAT_SIZE))
    return "the archive's entry cannot be read";
  std::string why = check_store_entry(st.name, st.size, expected, max_size);
  if (!why.empty()) return why;
  if ((st.valid & ZIP_STAT_ENCRYPTION_METHOD) && st.encryption_method != ZIP_EM_NONE)
    return "the archive's entry is encrypted";
  uint64_t written = 0;
  bool too_big = false;
  try {
    bool ok = read_entry_index(
        za, 0,
        [&](const char* p, size_t n) {
          // The sizes in the archive's directory may lie; the bytes do not.
          written += n;
          if (written > max_size || written > st.size) {
            too_big = true;
            return false;
          }
          dest.write(std::string_view(p, n));
          return true;
        },
        &why);
    if (too_big) return "\"" + expected + "\" unpacks to more than its stated size";
    if (!ok) return "\"" + expected + "\" is damaged: " + (why.empty() ? "read error" : why);
  } catch (const FileWriteError& e) {
    return e.what();
  }
  if (written != st.size) return "\"" + expected + "\" is shorter than its stated size";
  return "";
}

std::string extract_store_entry(const fs::path& zip, const std::string& expected,
                                const fs::path& dest, uint64_t max_size) {
  try {
    ReplacingFile file(dest);
    std::string why = extract_store_entry(zip, expected, file, max_size);
    if (why.empty()) file.commit();
    return why;
  } catch (const FileWriteError& e) {
    return e.what();
  }
}

int unzip_to_folder(const fs::path& zip, const fs::path& folder, std::string* message) {
  CGUnzipFiles u;
  u.SetHonorDirectories(true);
  u.SetOverWriteFiles(true);
  int result = u.Unzip(zip.string(), folder.string());
  if (message) *message = result == kUnzipOk ? "" : u.GetLastMessage();
  return result;
}

}  // namespace arven

#include "assessment/assessment_file.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"
#include "core/lookups.h"
#include "core/session.h"
#include "core/startup.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr const char* kIncompatibleTitle = "Incompatible file version";
constexpr const char* kIncompatibleText =
    "The file you are attempting to open has an old ARVEN file structure. Unfortunately, it "
    "cannot be opened with this version of ARVEN.";
constexpr const char* kNotInstalledTitle = "Database not installed";
// The missing word after "trying to" is intended; the text stays as users know it.
constexpr const char* kNotInstalledText =
    "The file you are trying to requires a database that you do not have installed: ";
constexpr const char* kDownloadQuestion = "Would you like to download this database now?";
constexpr const char* kCannotOpenTitle = "Cannot open file";
constexpr const char* kCannotCreateTitle = "Cannot create file";
constexpr const char* kCannotSaveTitle = "Cannot save file";
constexpr const char* kSaveTitle = "Save ARVEN File As...";
constexpr const char* kOpenTitle = "Open ARVEN File...";
constexpr const char* kInUseTitle = "File in use";

// ---- the lock on the open file ----
//
// While a file is the current one, this program holds an exclusive flock()
// on it, so that a second program opening it learns that it is in use. Such
// locks and the database library's byte-range locks do not meet. The lock's
// handle stays open until another file becomes current or none is: closing
// a handle of the file would also drop the library's own locks, so it is
// never closed while a command is at work on the file.

struct HeldLock {
  int fd = -1;
  dev_t dev = 0;
  ino_t ino = 0;
};

HeldLock& held_lock() {
  static HeldLock held;
  return held;
}

// True when this program holds the lock on the file at `path`.
bool holds_lock(const std::string& path) {
  const HeldLock& h = held_lock();
  struct stat st {};
  return h.fd >= 0 && ::stat(path.c_str(), &st) == 0 && st.st_dev == h.dev && st.st_ino == h.ino;
}

// A lock taken on a file, released when destroyed unless kept.
class FileLock {
 public:
  // Takes the lock; in_use() when another program holds it. A file that
  // cannot be opened at all gets no lock (its open fails later, and says why).
  explicit FileLock(const std::string& path) {
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return;
    if (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
      in_use_ = errno == EWOULDBLOCK;
      ::close(fd_);
      fd_ = -1;
    }
  }
  ~FileLock() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  bool in_use() const { return in_use_; }
  // Makes this the lock of the current file, in place of the one held.
  void keep() {
    HeldLock& h = held_lock();
    if (h.fd >= 0) ::close(h.fd);
    h = HeldLock{};
    struct stat st {};
    if (fd_ >= 0 && ::fstat(fd_, &st) == 0)
      h = HeldLock{fd_, st.st_dev, st.st_ino};
    else if (fd_ >= 0)
      ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
  bool in_use_ = false;
};

// No file is current: the lock and the read-only mark go.
void release_current_file() {
  HeldLock& h = held_lock();
  if (h.fd >= 0) ::close(h.fd);
  h = HeldLock{};
  session().current_file_read_only = false;
  set_read_only_file({});
}

// True (after telling the user) when another program holds the file, so
// that it may not be replaced.
bool refuse_in_use(Ui& ui, const std::string& path) {
  if (holds_lock(path) || !FileLock(path).in_use()) return false;
  ui.message_box(write_failure_text(path, WriteFault::in_use), kInUseTitle, MsgButtons::Ok,
                 MsgIcon::Exclamation);
  return true;
}

// A file time with its nanoseconds, ordered.
using Stamp = std::pair<int64_t, int64_t>;

struct FileTimes {
  Stamp created, accessed, modified;
  int64_t size = 0;
};

std::optional<FileTimes> file_times(const std::string& path) {
  struct statx sx {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0)
    return std::nullopt;
  auto stamp = [](const struct statx_timestamp& t) { return Stamp{t.tv_sec, t.tv_nsec}; };
  FileTimes t;
  t.accessed = stamp(sx.stx_atime);
  t.modified = stamp(sx.stx_mtime);
  t.created = (sx.stx_mask & STATX_BTIME) ? stamp(sx.stx_btime)
                                          : std::min({t.accessed, t.modified, stamp(sx.stx_ctime)});
  t.size = static_cast<int64_t>(sx.stx_size);
  return t;
}

// The later of the access and modification times: see the header.
std::optional<Stamp> date_last_used(const std::string& path) {
  auto t = file_times(path);
  if (!t) return std::nullopt;
  return std::max(t->accessed, t->modified);
}

// Marks the file as used now, for file systems that do not record reads.
void stamp_access_time(const std::string& path) {
  const struct timespec times[2] = {{0, UTIME_NOW}, {0, UTIME_OMIT}};
  utimensat(AT_FDCWD, path.c_str(), times, 0);  // best effort: the order then rests on the touch
}

bool country_is_installed(int64_t cc) {
  return cc >= 1 && cc <= kCountryCount && session().country_installed[static_cast<size_t>(cc)];
}

std::string country_label(int64_t cc) {
  if (cc >= 1 && cc <= kCountryCount) {
    const std::string& name = session().country_name[static_cast<size_t>(cc)];
    if (!name.empty()) return name;
  }
  return "country number " + std::to_string(cc);
}

// Adds a row, reads it back and deletes it, so that the file's modification
// time moves. The write is intended: the recent list relies on it. A file
// that cannot be written is left alone.
void touch_regions(Db& db) {
  if (sqlite3_db_readonly(db.handle(), "main") == 1) return;
  try {
    Transaction tx(db);
    db.insert("Regions", {"NUTS Name"}, {"Z1"});
    Value rowid;
    {
      auto rows = db.query("SELECT rowid FROM " + quote_name("Regions") + " WHERE " +
                               quote_name("NUTS Name") + " = ? ORDER BY rowid DESC LIMIT 1",
                           {Value("Z1")});
      if (rows.next()) rowid = rows.get(0);
    }
    if (!rowid.is_null())
      db.exec("DELETE FROM " + quote_name("Regions") + " WHERE rowid = ?", {rowid});
    tx.commit();
  } catch (const StoreError&) {
    // A folder without write access, a locked file: opening goes on, and the
    // stamped access time keeps the recent order.
  }
}

void report_cannot_open(Ui& ui, const std::string& path, const std::string& detail) {
  ui.message_box("The file " + path +
                     " cannot be opened: it is not an ARVEN file, or it is damaged.\n\n" + detail,
                 kCannotOpenTitle, MsgButtons::Ok, MsgIcon::Exclamation);
}

std::string files_folder() {
  return (fs::path(session().documents_folder) / "My ARVEN Files").string();
}

FileDialogRequest dialog(bool save, const char* title) {
  FileDialogRequest request;
  request.save = save;
  request.title = title;
  request.filter = "*.arv";
  request.initial_dir = files_folder();
  return request;
}

bool same_file(const std::string& a, const std::string& b) {
  if (a == b) return true;
  std::error_code ec;
  if (fs::equivalent(a, b, ec)) return true;
  return fs::absolute(a, ec).lexically_normal() == fs::absolute(b, ec).lexically_normal();
}

// Opens the files store, creating it when it is missing.
Db open_files_store() {
  const std::string& path = session().files_db_path;
  if (!file_exists(path)) return create_files_store(path);
  Db db = Db::open(path);
  db.require_table("Files");
  return db;
}

}  // namespace

void create_assessment_file(const std::string& path) {
  // Built under a temporary name beside the target and renamed into place:
  // a failure leaves no half-made file, and a file being replaced stays
  // whole until the new one is.
  static int serial = 0;
  const fs::path target(path);
  const fs::path temp = target.parent_path() / (".arven-new-" + std::to_string(getpid()) + "-" +
                                                std::to_string(++serial) + ".arv");
  try {
    create_assessment_store(temp);
    durable_rename(temp, target);
  } catch (...) {
    std::error_code ec;
    fs::remove(temp, ec);
    fs::remove(temp.string() + "-journal", ec);
    throw;
  }
}

OpenResult open_assessment_file(Ui& ui, const std::string& path) {
  Session& s = session();
  OpenResult closed;
  closed.changed = true;
  if (!file_exists(path)) {
    s.current_file.clear();
    release_current_file();
    return closed;
  }

  // A file that another program has open is shown read-only, or not at all.
  const bool ours = holds_lock(path);
  FileLock lock(ours ? std::string() : path);
  const bool read_only = ours ? s.current_file_read_only : lock.in_use();
  if (read_only && !ours &&
      ui.message_box("The file " + path +
                         " is in use: another ARVEN has it open.\n\nSelect OK to open it "
                         "read-only, or Cancel to leave it closed.",
                     kInUseTitle, MsgButtons::OkCancel, MsgIcon::Exclamation) != Answer::Ok)
    return OpenResult{};
  // The checks read the file as it will be opened; a refusal puts the mark
  // of the file open before back.
  const std::string before = s.current_file_read_only ? s.current_file : std::string();
  set_read_only_file(read_only ? path : std::string());
  struct Restore {
    const std::string& before;
    bool armed = true;
    ~Restore() {
      if (armed) set_read_only_file(before);
    }
  } restore{before};

  int64_t country = 0;  // the country whose store the file chooses, 0 for none
  bool missing = false;
  int64_t missing_country = 0;
  bool region = false;
  try {
    Db db = Db::open(path);
    db.require_intact();  // a damaged file is not mistaken for an old one
    db.require_table("Version");
    Value structure;
    {
      auto rows = db.query("SELECT * FROM " + quote_name("Version"));
      if (!rows.next()) db.fail("its table \"Version\" has no row");
      structure = rows.get("Structure Version");
    }
    // Older and newer structures alike are refused; there is no conversion.
    if (structure.is_empty() || structure.as_double() != kStructureVersion) {
      s.current_file.clear();
      restore.armed = false;
      release_current_file();
      ui.message_box(kIncompatibleText, kIncompatibleTitle, MsgButtons::Ok, MsgIcon::Stop);
      return closed;
    }
    require_assessment_schema(db);
    {
      // Every row holds the same country; the last row decides.
      auto rows = db.query("SELECT * FROM " + quote_name("Regions") + " ORDER BY rowid");
      while (rows.next()) {
        region = true;
        Value id = rows.get("NUTS0_ID");
        int64_t cc = id.is_empty() ? 0 : id.as_int();
        if (!country_is_installed(cc)) {
          missing = true;
          missing_country = cc;
          break;
        }
        country = cc;
      }
    }
    if (!missing) touch_regions(db);
  } catch (const std::exception& e) {
    report_cannot_open(ui, path, e.what());
    return OpenResult{};
  }

  if (missing) {
    s.current_file.clear();
    restore.armed = false;
    release_current_file();
    std::string text = std::string(kNotInstalledText) + country_label(missing_country) + ".\n\n" +
                       kDownloadQuestion;
    closed.wants_download = ui.message_box(text, kNotInstalledTitle, MsgButtons::YesNo,
                                           MsgIcon::Question) != Answer::No;
    return closed;
  }

  if (country != 0) {
    s.rvc_db_path = s.country_db_path[static_cast<size_t>(country)];
    s.ops_db_path = s.rvc_db_path;
  }
  s.current_file = path;
  restore.armed = false;
  if (!ours) lock.keep();
  s.current_file_read_only = read_only;
  stamp_access_time(path);
  add_recent_file("", "", path);
  refresh_recent_files();

  OpenResult result;
  result.changed = true;
  result.file_open = true;
  result.edit_region_enabled = true;
  result.hotspot_enabled = region;  // has_region() of the file just read
  return result;
}

OpenResult file_new(Ui& ui) {
  std::string path = ui.file_dialog(dialog(true, kSaveTitle));
  if (path.empty() || refuse_in_use(ui, path)) return {};
  try {
    create_assessment_file(path);
  } catch (const std::exception& e) {
    ui.message_box("The file " + path + " could not be created.\n\n" + e.what(), kCannotCreateTitle,
                   MsgButtons::Ok, MsgIcon::Exclamation);
    return {};
  }
  Session& s = session();
  std::string before = s.current_file;
  s.current_file = path;
  OpenResult result = open_assessment_file(ui, path);
  if (!result.changed) s.current_file = before;
  return result;
}

OpenResult file_open(Ui& ui) {
  std::string path = ui.file_dialog(dialog(false, kOpenTitle));
  if (path.empty()) return {};
  return open_assessment_file(ui, path);
}

OpenResult file_save_as(Ui& ui) {
  Session& s = session();
  if (s.current_file.empty()) return {};
  FileDialogRequest request = dialog(true, kSaveTitle);
  request.default_name = file_name_of(s.current_file, 0);
  std::string path = ui.file_dialog(request);
  if (path.empty() || same_file(path, s.current_file) || refuse_in_use(ui, path)) return {};
  // A copy made beside the chosen name replaces a file there only once whole.
  try {
    ReplacingFile copy(path);
    std::error_code ec;
    fs::copy_file(s.current_file, copy.for_library(), fs::copy_options::overwrite_existing, ec);
    if (ec) throw write_error(path, ec.value());
    copy.commit();
  } catch (const FileWriteError& e) {
    ui.message_box(e.what(), kCannotSaveTitle, MsgButtons::Ok, MsgIcon::Exclamation);
    return {};
  }
  std::string before = s.current_file;
  s.current_file = path;
  OpenResult result = open_assessment_file(ui, path);
  if (!result.changed) s.current_file = before;
  return result;
}

OpenResult recent_file_open(Ui& ui, int i) {
  if (i < 1 || i > 4) return {};
  std::string path = session().recent_files[static_cast<size_t>(i)];
  if (path.empty()) return {};
  OpenResult result = open_assessment_file(ui, path);
  if (!file_exists(path)) refresh_recent_files();
  return result;
}

bool add_recent_file(const std::string& name, const std::string& farm, const std::string& path) {
  try {
    Db db = open_files_store();
    Value rowid;
    {
      auto rows = db.query(
          "SELECT rowid FROM " + quote_name("Files") + " WHERE " + quote_name("Location") + " = ?",
          {Value(path)});
      if (rows.next()) rowid = rows.get(0);
    }
    if (rowid.is_null())
      db.insert("Files", {"Name", "Farm", "Location"}, {name, farm, path});
    else
      db.exec("UPDATE " + quote_name("Files") + " SET " + quote_name("Name") + " = ?, " +
                  quote_name("Farm") + " = ?, " + quote_name("Location") + " = ? WHERE rowid = ?",
              {Value(name), Value(farm), Value(path), rowid});
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void refresh_recent_files() {
  Session& s = session();
  for (auto& slot : s.recent_files) slot.clear();
  std::vector<std::string> locations;
  try {
    if (!file_exists(s.files_db_path)) return;
    Db db = open_files_store();
    std::vector<Value> gone;
    {
      auto rows = db.query("SELECT rowid, " + quote_name("Location") + " FROM " +
                           quote_name("Files") + " ORDER BY rowid");
      while (rows.next()) {
        std::string location = rows.get(1).as_text();
        if (file_exists(location))
          locations.push_back(location);
        else
          gone.push_back(rows.get(0));
      }
    }
    for (const Value& rowid : gone)
      db.exec("DELETE FROM " + quote_name("Files") + " WHERE rowid = ?", {rowid});
  } catch (const std::exception&) {
    return;
  }

  for (size_t i = 1; i <= 4; ++i) {
    Stamp best{};
    for (const std::string& location : locations) {
      auto end = s.recent_files.begin() + static_cast<std::ptrdiff_t>(i);
      if (std::find(s.recent_files.begin() + 1, end, location) != end) continue;
      auto used = date_last_used(location);
      if (!used) continue;  // gone since the purge
      // The first candidate fills the slot; a later row wins a tie.
      if (s.recent_files[i].empty() || *used >= best) {
        s.recent_files[i] = location;
        best = *used;
      }
    }
    if (s.recent_files[i].empty()) break;
  }
}

Value file_attribute(const std::string& path, int selector) {
  auto t = file_times(path);
  if (!t) return Value();
  auto date = [](const Stamp& stamp) {
    std::time_t secs = static_cast<std::time_t>(stamp.first);
    std::tm tm{};
    localtime_r(&secs, &tm);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &tm);
    return Value(std::string(text));
  };
  switch (selector) {
    case 1:
      return date(t->created);
    case 2:
      return date(t->accessed);
    case 3:
      return date(t->modified);
    case 4:
      return Value(t->size);
    default:
      return Value();
  }
}

}  // namespace arven

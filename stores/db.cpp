#include "stores/db.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <mutex>
#include <utility>

#include "base/numbers.h"
#include "base/text.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

std::mutex& read_only_mutex() {
  static std::mutex m;
  return m;
}

fs::path& read_only_path() {
  static fs::path p;
  return p;
}

fs::path normal(const fs::path& p) {
  std::error_code ec;
  fs::path a = fs::absolute(p, ec);
  return (ec ? p : a).lexically_normal();
}

bool opens_read_only(const fs::path& path) {
  std::lock_guard lock(read_only_mutex());
  return !read_only_path().empty() && normal(path) == read_only_path();
}

// The cause in words of a failed call on a store, when it is one the user
// can act on. `err` is the system's errno value behind it, 0 when unknown.
std::optional<WriteFault> fault_of(int code, int err, const fs::path& path) {
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  switch (code & 0xff) {
    case SQLITE_FULL:
      return WriteFault::disk_full;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return WriteFault::in_use;
    case SQLITE_READONLY:
      if (opens_read_only(path)) return WriteFault::in_use;
      return write_fault_of(err ? err : EACCES, folder);
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
      if (err) {
        WriteFault f = write_fault_of(err, folder);
        if (f != WriteFault::other) return f;
      }
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

}  // namespace

void set_read_only_file(const fs::path& file) {
  std::lock_guard lock(read_only_mutex());
  read_only_path() = file.empty() ? fs::path() : normal(file);
}

std::optional<WriteFault> write_fault_of(const std::exception& e) {
  if (auto* w = dynamic_cast<const FileWriteError*>(&e)) return w->fault();
  if (auto* s = dynamic_cast<const StoreError*>(&e)) return s->write_fault();
  return std::nullopt;
}

// ---- Value ----------------------------------------------------------------

double Value::as_double() const {
  if (is_null()) return 0;
  if (is_int()) return static_cast<double>(std::get<int64_t>(v_));
  if (is_real()) return std::get<double>(v_);
  return cell_to_number(std::get<std::string>(v_));
}

int64_t Value::as_int() const {
  if (is_int()) return std::get<int64_t>(v_);
  return static_cast<int64_t>(round_half_even(as_double(), 0));
}

std::string Value::as_text() const {
  if (is_null()) return "";
  if (is_int()) return std::to_string(std::get<int64_t>(v_));
  if (is_real()) return number_to_cell(std::get<double>(v_));
  return std::get<std::string>(v_);
}

// ---- errors and names -------------------------------------------------------

StoreError::StoreError(const std::filesystem::path& file, const std::string& what)
    : std::runtime_error("The data store \"" + file.string() + "\" could not be used: " + what),
      file_(file) {}

StoreError::StoreError(const std::filesystem::path& file, WriteFault fault)
    : std::runtime_error(write_failure_text(file, fault)), file_(file), fault_(fault) {}

std::string quote_name(std::string_view name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string like_escape(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '%' || c == '_' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

// ---- Db -----------------------------------------------------------------------

namespace {

// Before the library's first use: no count of the memory in use, which
// costs a global lock on every allocation. Nothing here reads that count.
void configure_library() {
  static const bool done = [] {
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    return true;
  }();
  (void)done;
}

// A first read, so that a file that is not a store fails at the open and a
// hot journal is met there. The extended result code; the text in `msg`.
int probe(sqlite3* h, std::string& msg) {
  char* err = nullptr;
  int rc = sqlite3_exec(h, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, &err);
  msg = err ? err : "unreadable";
  sqlite3_free(err);
  return rc == SQLITE_OK ? rc : sqlite3_extended_errcode(h);
}

// A connection, or null with the extended result code in `rc` and the
// system's errno value behind it in `err`.
sqlite3* open_connection(const fs::path& path, int flags, int& rc, int& err) {
  sqlite3* h = nullptr;
  rc = sqlite3_open_v2(path.c_str(), &h, flags, nullptr);
  if (rc != SQLITE_OK) {
    if (h) {
      rc = sqlite3_extended_errcode(h);
      err = sqlite3_system_errno(h);
    }
    sqlite3_close(h);
    return nullptr;
  }
  sqlite3_busy_timeout(h, 5000);
  return h;
}

// Rolls back the hot journal of a store by opening it for writing once;
// false when the store cannot be written where it lies.
bool roll_back_in_place(const fs::path& path) {
  int rc = SQLITE_OK, err = 0;
  sqlite3* h = open_connection(path, SQLITE_OPEN_READWRITE, rc, err);
  if (!h) return false;
  std::string msg;
  bool ok = sqlite3_db_readonly(h, "main") == 0 && probe(h, msg) == SQLITE_OK;
  sqlite3_close(h);
  return ok;
}

// Copies a store and its hot journal into a folder of its own and rolls the
// copy back there; the folder, or an empty path when that fails.
fs::path rolled_back_copy(const fs::path& path) {
  std::string templ = (fs::temp_directory_path() / "arven-rollback-XXXXXX").string();
  if (!mkdtemp(templ.data())) return {};
  const fs::path folder = templ;
  const fs::path copy = folder / path.filename();
  std::error_code ec;
  fs::copy_file(path, copy, ec);
  if (!ec) fs::copy_file(path.string() + "-journal", copy.string() + "-journal", ec);
  if (ec || !roll_back_in_place(copy)) {
    fs::remove_all(folder, ec);
    return {};
  }
  return folder;
}

}  // namespace

Db Db::open(const std::filesystem::path& path, bool one_thread) {
  configure_library();
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec))
    throw StoreError(path, "the file does not exist");
  const int threading = one_thread ? SQLITE_OPEN_NOMUTEX : 0;
  const bool read_only = opens_read_only(path);
  int rc = SQLITE_CANTOPEN, err = 0;
  sqlite3* h = nullptr;
  if (!read_only) h = open_connection(path, SQLITE_OPEN_READWRITE | threading, rc, err);
  // Read-only for files the user may not write (a shared folder, a locked
  // copy) or another program holds: reading still works, writes fail clearly.
  if (!h) h = open_connection(path, SQLITE_OPEN_READONLY | threading, rc, err);
  if (!h) throw StoreError(path, sqlite3_errstr(rc));
  Db db(path, h);
  std::string msg;
  rc = probe(h, msg);
  if (rc == SQLITE_READONLY_ROLLBACK) {
    // A writer was killed in a transaction and this connection may not undo
    // it: undo it with one that may, or read a copy undone elsewhere.
    sqlite3_close(db.db_);
    db.db_ = nullptr;
    fs::path source = path;
    if (!roll_back_in_place(path)) {
      db.copy_folder_ = rolled_back_copy(path);
      if (db.copy_folder_.empty())
        throw StoreError(path, "it was left in the middle of a change that cannot be undone here");
      source = db.copy_folder_ / path.filename();
    }
    db.db_ = open_connection(source, SQLITE_OPEN_READONLY | threading, rc, err);
    if (!db.db_) throw StoreError(path, sqlite3_errstr(rc));
    rc = probe(db.db_, msg);
  }
  if (rc != SQLITE_OK) {
    if (auto fault = fault_of(rc, sqlite3_system_errno(db.db_), path))
      throw StoreError(path, *fault);
    throw StoreError(path, msg);
  }
  return db;
}

Db Db::create(const std::filesystem::path& path) {
  configure_library();
  std::error_code ec;
  std::filesystem::remove(path, ec);
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), ec);
  int rc = SQLITE_OK, err = 0;
  sqlite3* h = open_connection(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, rc, err);
  if (!h) {
    if (auto fault = fault_of(rc, err, path)) throw StoreError(path, *fault);
    // The library does not always say why it could not make the file.
    if (WriteFault f = diagnosed_write_error(path, "").fault(); f != WriteFault::other)
      throw StoreError(path, f);
    throw StoreError(path, sqlite3_errstr(rc));
  }
  Db db(path, h);
  db.exec_script("PRAGMA page_size = 4096");
  return db;
}

Db::Db(Db&& o) noexcept
    : path_(std::move(o.path_)),
      db_(std::exchange(o.db_, nullptr)),
      copy_folder_(std::exchange(o.copy_folder_, {})) {}

Db& Db::operator=(Db&& o) noexcept {
  if (this != &o) {
    close();
    path_ = std::move(o.path_);
    db_ = std::exchange(o.db_, nullptr);
    copy_folder_ = std::exchange(o.copy_folder_, {});
  }
  return *this;
}

Db::~Db() {
  close();
}

void Db::close() noexcept {
  if (db_) sqlite3_close_v2(db_);
  db_ = nullptr;
  if (!copy_folder_.empty()) {
    std::error_code ec;
    fs::remove_all(copy_folder_, ec);
    copy_folder_.clear();
  }
}

void Db::fail(const std::string& what) const {
  throw StoreError(path_, what);
}

void Db::fail_call(int code) const {
  // The extended code of the connection tells more than the step's result.
  const int extended = sqlite3_extended_errcode(db_);
  if ((extended & 0xff) == (code & 0xff)) code = extended;
  if (auto fault = fault_of(code, sqlite3_system_errno(db_), path_))
    throw StoreError(path_, *fault);
  throw StoreError(path_, sqlite3_errmsg(db_));
}

sqlite3_stmt* Db::prepare(std::string_view sql, const std::vector<Value>& params) const {
  sqlite3_stmt* st = nullptr;
  if (sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &st, nullptr) != SQLITE_OK)
    fail_call(sqlite3_errcode(db_));
  try {
    bind(st, params);
  } catch (...) {
    sqlite3_finalize(st);
    throw;
  }
  return st;
}

void Db::bind(sqlite3_stmt* st, const std::vector<Value>& params) const {
  for (size_t i = 0; i < params.size(); ++i) {
    int idx = static_cast<int>(i) + 1;
    const Value& v = params[i];
    int rc;
    if (v.is_null())
      rc = sqlite3_bind_null(st, idx);
    else if (v.is_int())
      rc = sqlite3_bind_int64(st, idx, std::get<int64_t>(v.raw()));
    else if (v.is_real())
      rc = sqlite3_bind_double(st, idx, std::get<double>(v.raw()));
    else {
      const auto& s = std::get<std::string>(v.raw());
      rc = sqlite3_bind_text(st, idx, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
    }
    if (rc != SQLITE_OK) fail_call(rc);
  }
}

Statement Db::prepare_statement(std::string_view sql) const {
  return Statement(this, prepare(sql, {}));
}

Rows Db::query(std::string_view sql, std::initializer_list<Value> params) const {
  return query(sql, std::vector<Value>(params));
}

Rows Db::query(std::string_view sql, const std::vector<Value>& params) const {
  return Rows(this, prepare(sql, params));
}

int Db::exec(std::string_view sql, std::initializer_list<Value> params) {
  return exec(sql, std::vector<Value>(params));
}

int Db::exec(std::string_view sql, const std::vector<Value>& params) {
  sqlite3_stmt* st = prepare(sql, params);
  int rc;
  while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
  }
  sqlite3_finalize(st);
  if (rc != SQLITE_DONE) fail_call(rc);
  return sqlite3_changes(db_);
}

void Db::exec_script(std::string_view sql) {
  std::string text(sql);
  char* err = nullptr;
  if (int rc = sqlite3_exec(db_, text.c_str(), nullptr, nullptr, &err); rc != SQLITE_OK) {
    std::string msg = err ? err : "failed";
    sqlite3_free(err);
    if (auto fault = fault_of(sqlite3_extended_errcode(db_), sqlite3_system_errno(db_), path_))
      throw StoreError(path_, *fault);
    fail(msg);
  }
}

std::string insert_sql(std::string_view table, const std::vector<std::string>& columns) {
  std::string sql = "INSERT INTO " + quote_name(table) + " (";
  std::string marks;
  for (size_t i = 0; i < columns.size(); ++i) {
    sql += (i ? ", " : "") + quote_name(columns[i]);
    marks += i ? ", ?" : "?";
  }
  return sql + ") VALUES (" + marks + ")";
}

void Db::insert(std::string_view table, const std::vector<std::string>& columns,
                const std::vector<Value>& values) {
  exec(insert_sql(table, columns), values);
}

bool Db::has_table(std::string_view table) const {
  auto rows = query("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ? COLLATE NOCASE",
                    {Value(table)});
  return rows.next();
}

std::vector<std::string> Db::table_names() const {
  std::vector<std::string> out;
  auto rows = query("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY rowid");
  while (rows.next()) out.push_back(rows.get(0).as_text());
  return out;
}

std::vector<std::string> Db::column_names(std::string_view table) const {
  std::vector<std::string> out;
  auto rows = query("SELECT name FROM pragma_table_info(?) ORDER BY cid", {Value(table)});
  while (rows.next()) out.push_back(rows.get(0).as_text());
  return out;
}

void Db::require_table(std::string_view table) const {
  if (!has_table(table)) fail("it has no table \"" + std::string(table) + "\"");
}

void Db::require_intact() const {
  int64_t pages = 0, page_size = 0;
  {
    auto q = query("PRAGMA page_count");
    if (q.next()) pages = q.get(0).as_int();
  }
  {
    auto q = query("PRAGMA page_size");
    if (q.next()) page_size = q.get(0).as_int();
  }
  std::error_code ec;
  const auto size = std::filesystem::file_size(path_, ec);
  if (!ec && static_cast<uintmax_t>(pages * page_size) > size)
    fail("the file is damaged: it has been cut short (" + std::to_string(size) + " of " +
         std::to_string(pages * page_size) + " bytes)");
  std::string verdict;
  try {
    auto q = query("PRAGMA quick_check(1)");
    if (q.next()) verdict = q.get(0).as_text();
  } catch (const StoreError& e) {
    fail(std::string("the file is damaged: ") + e.what());
  }
  if (verdict != "ok") fail("the file is damaged: " + verdict);
}

// ---- Transaction ----------------------------------------------------------------

Transaction::Transaction(Db& db) : db_(db) {
  db_.exec_script("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (open_) {
    char* err = nullptr;
    sqlite3_exec(db_.handle(), "ROLLBACK", nullptr, nullptr, &err);
    sqlite3_free(err);
  }
}

void Transaction::commit() {
  db_.exec_script("COMMIT");
  open_ = false;
}

}  // namespace arven

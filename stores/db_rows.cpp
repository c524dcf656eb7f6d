#include "stores/db.h"

#include <sqlite3.h>

#include <cmath>
#include <utility>

#include "base/numbers.h"
#include "base/text.h"

// The statements and result rows of a Db.

namespace arven {

// ---- Rows -------------------------------------------------------------------

Rows::Rows(const Db* db, sqlite3_stmt* stmt, bool owns) : db_(db), stmt_(stmt), owns_(owns) {
  int n = sqlite3_column_count(stmt_);
  for (int i = 0; i < n; ++i) columns_.emplace(lower_case(sqlite3_column_name(stmt_, i)), i);
}

Rows::Rows(Rows&& o) noexcept
    : db_(o.db_),
      stmt_(std::exchange(o.stmt_, nullptr)),
      owns_(o.owns_),
      columns_(std::move(o.columns_)) {}

Rows& Rows::operator=(Rows&& o) noexcept {
  if (this != &o) {
    if (stmt_ && owns_) sqlite3_finalize(stmt_);
    db_ = o.db_;
    stmt_ = std::exchange(o.stmt_, nullptr);
    owns_ = o.owns_;
    columns_ = std::move(o.columns_);
  }
  return *this;
}

Rows::~Rows() {
  if (stmt_ && owns_) sqlite3_finalize(stmt_);
}

// ---- Statement -------------------------------------------------------------

Statement::Statement(const Db* db, sqlite3_stmt* stmt) : db_(db), stmt_(stmt) {}

Statement::Statement(Statement&& o) noexcept
    : db_(o.db_), stmt_(std::exchange(o.stmt_, nullptr)), rows_(std::move(o.rows_)) {}

Statement& Statement::operator=(Statement&& o) noexcept {
  if (this != &o) {
    rows_.reset();
    if (stmt_) sqlite3_finalize(stmt_);
    db_ = o.db_;
    stmt_ = std::exchange(o.stmt_, nullptr);
    rows_ = std::move(o.rows_);
  }
  return *this;
}

Statement::~Statement() {
  rows_.reset();
  if (stmt_) sqlite3_finalize(stmt_);
}

void Statement::bind_all(const std::vector<Value>& params) {
  sqlite3_reset(stmt_);
  sqlite3_clear_bindings(stmt_);
  db_->bind(stmt_, params);
}

int Statement::run(const std::vector<Value>& params) {
  bind_all(params);
  return run();
}

void Statement::bind(int index, int64_t v) {
  if (sqlite3_bind_int64(stmt_, index, v) != SQLITE_OK)
    db_->fail_call(sqlite3_errcode(db_->handle()));
}

void Statement::bind(int index, double v) {
  if (sqlite3_bind_double(stmt_, index, v) != SQLITE_OK)
    db_->fail_call(sqlite3_errcode(db_->handle()));
}

void Statement::bind(int index, std::string_view text) {
  // A null pointer would bind NULL: an empty text stays an empty text.
  const char* data = text.data() ? text.data() : "";
  if (sqlite3_bind_text(stmt_, index, data, static_cast<int>(text.size()), SQLITE_STATIC) !=
      SQLITE_OK)
    db_->fail_call(sqlite3_errcode(db_->handle()));
}

void Statement::bind_null(int index) {
  if (sqlite3_bind_null(stmt_, index) != SQLITE_OK) db_->fail_call(sqlite3_errcode(db_->handle()));
}

int Statement::run() {
  int rc;
  while ((rc = sqlite3_step(stmt_)) == SQLITE_ROW) {
  }
  if (rc != SQLITE_DONE) {
    rc = sqlite3_reset(stmt_);
    db_->fail_call(rc);
  }
  sqlite3_reset(stmt_);
  return sqlite3_changes(db_->handle());
}

Rows& Statement::query(const std::vector<Value>& params) {
  bind_all(params);
  if (!rows_) rows_.reset(new Rows(db_, stmt_, false));
  return *rows_;
}

bool Rows::next() {
  if (!stmt_) return false;
  int rc = sqlite3_step(stmt_);
  if (rc == SQLITE_ROW) {
    ++row_;
    return true;
  }
  if (rc == SQLITE_DONE) return false;
  db_->fail_call(rc);
}

void Rows::fail_number(const NumberError& e) const {
  // The cell at fault is the first of the row that does not read as a number.
  for (int c = 0; c < column_count(); ++c) {
    try {
      get(c).as_double();
    } catch (const NumberError&) {
      const char* table = sqlite3_column_table_name(stmt_, c);
      db_->fail((table ? "table \"" + std::string(table) + "\", " : std::string()) + "row " +
                std::to_string(row_) + ", column \"" + column_name(c) + "\": " + e.what());
    }
  }
  db_->fail("row " + std::to_string(row_) + ": " + e.what());
}

int Rows::index_of(std::string_view column) const {
  auto it = columns_.find(lower_case(column));
  if (it == columns_.end()) db_->fail("no column \"" + std::string(column) + "\" in the result");
  return it->second;
}

bool Rows::has_column(std::string_view column) const {
  return columns_.count(lower_case(column)) > 0;
}

int Rows::column_count() const {
  return static_cast<int>(columns_.size());
}

std::string Rows::column_name(int index) const {
  return sqlite3_column_name(stmt_, index);
}

Value Rows::get(std::string_view column) const {
  return get(index_of(column));
}

double Rows::get_double(int i) const {
  switch (sqlite3_column_type(stmt_, i)) {
    case SQLITE_NULL:
      return 0;
    case SQLITE_INTEGER:
      return static_cast<double>(sqlite3_column_int64(stmt_, i));
    case SQLITE_FLOAT:
      return sqlite3_column_double(stmt_, i);
    default:
      return get(i).as_double();
  }
}

int64_t Rows::get_int(int i) const {
  if (sqlite3_column_type(stmt_, i) == SQLITE_INTEGER)
    return static_cast<int64_t>(sqlite3_column_int64(stmt_, i));
  return get(i).as_int();
}

Value Rows::get(int i) const {
  switch (sqlite3_column_type(stmt_, i)) {
    case SQLITE_NULL:
      return Value();
    case SQLITE_INTEGER:
      return Value(static_cast<int64_t>(sqlite3_column_int64(stmt_, i)));
    case SQLITE_FLOAT:
      return Value(sqlite3_column_double(stmt_, i));
    default: {
      auto* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, i));
      return Value(std::string(p ? p : "", static_cast<size_t>(sqlite3_column_bytes(stmt_, i))));
    }
  }
}

}  // namespace arven

#pragma once

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/numbers.h"
#include "base/replace_file.h"
#include "stores/value.h"

struct sqlite3;
struct sqlite3_stmt;

namespace arven {

// A failure of a store: the message always names the file, so that a user
// told of it knows which store is damaged or of the wrong shape.
class StoreError : public std::runtime_error {
 public:
  StoreError(const std::filesystem::path& file, const std::string& what);
  // A store that could not be written for a cause the user can act on (a
  // full disk, a read-only folder, a file in use); the message says it in
  // the words of write_failure_text.
  StoreError(const std::filesystem::path& file, WriteFault fault);
  const std::filesystem::path& file() const { return file_; }
  // That cause, or nullopt for any other failure.
  std::optional<WriteFault> write_fault() const { return fault_; }

 private:
  std::filesystem::path file_;
  std::optional<WriteFault> fault_;
};

// The cause when `e` is a FileWriteError, or a StoreError of a store that
// could not be written (see StoreError::write_fault); nullopt otherwise.
// A command that meets such a failure stops at it: the next step would meet
// the same disk.
std::optional<WriteFault> write_fault_of(const std::exception& e);

// Every later Db::open of this file opens it read-only: another program
// holds it, and a write then fails with a StoreError saying that the file is
// in use. An empty path opens every file as before.
void set_read_only_file(const std::filesystem::path& file);

// Quotes a table or column name for SQL, spaces and hyphens included.
std::string quote_name(std::string_view name);
// The statement that inserts one row of these columns into `table`, one
// parameter per column in their order (what Db::insert runs).
std::string insert_sql(std::string_view table, const std::vector<std::string>& columns);

// A text for a LIKE pattern with ESCAPE '\': '%', '_' and '\' in it match
// themselves, so a search for "100%" finds just that.
std::string like_escape(std::string_view text);

class Db;

// A statement prepared once and run many times with new values: the fast
// path for bulk writes and repeated keyed reads.
class Statement {
 public:
  Statement(Statement&&) noexcept;
  Statement& operator=(Statement&&) noexcept;
  ~Statement();

  // Runs the statement with these values (bound in order); returns the
  // number of rows it changed.
  int run(const std::vector<Value>& params);
  // Runs a query with these values; the rows stay valid until the next use
  // of this statement.
  class Rows& query(const std::vector<Value>& params);

  // Binding one parameter at a time (from 1), for bulk writes that should
  // not build a Value per field; text must stay valid until run().
  void bind(int index, int64_t v);
  void bind(int index, double v);
  void bind(int index, std::string_view text);
  void bind_null(int index);
  // Runs the statement with what is bound; returns the rows it changed.
  int run();

 private:
  friend class Db;
  Statement(const Db* db, sqlite3_stmt* stmt);
  void bind_all(const std::vector<Value>& params);

  const Db* db_ = nullptr;
  sqlite3_stmt* stmt_ = nullptr;
  std::unique_ptr<class Rows> rows_;
};

// The rows of one query. Fields are read by column name without regard to
// case; a name the query did not return throws StoreError naming the column.
class Rows {
 public:
  Rows(Rows&&) noexcept;
  Rows& operator=(Rows&&) noexcept;
  ~Rows();

  // Moves to the next row; false at the end (the recordset's EOF).
  bool next();
  Value get(std::string_view column) const;
  Value get(int index) const;
  // get(index).as_double() and get(index).as_int(), without building a
  // Value when the field holds a number or nothing.
  double get_double(int index) const;
  int64_t get_int(int index) const;
  bool has_column(std::string_view column) const;
  int column_count() const;
  std::string column_name(int index) const;
  // The row on show, counted from 1 in the query's order.
  int64_t row() const { return row_; }

  // Runs `read` on every row. A cell that is not a number ends the walk
  // with a StoreError that names the store, the table, the row (counted
  // from 1 in the query's order) and the column.
  template <class Read>
  void each(Read&& read) {
    while (next()) {
      try {
        read(*this);
      } catch (const NumberError& e) {
        fail_number(e);
      }
    }
  }

 private:
  friend class Db;
  friend class Statement;
  Rows(const Db* db, sqlite3_stmt* stmt, bool owns = true);
  int index_of(std::string_view column) const;
  [[noreturn]] void fail_number(const NumberError& e) const;
  int64_t row_ = 0;  // rows read so far

  const Db* db_ = nullptr;
  sqlite3_stmt* stmt_ = nullptr;
  bool owns_ = true;                              // a statement's rows leave the statement to it
  std::unordered_map<std::string, int> columns_;  // lower-case name -> index
};

// One store file. Values are always bound, never spliced into the SQL text.
class Db {
 public:
  // Opens an existing store; throws StoreError when the file is missing or
  // is not a store. A store left with a hot journal (a writer killed in a
  // transaction) is rolled back first, so that it reads as it was before
  // that transaction, even where it can only be opened read-only.
  // `one_thread`: the connection is only ever used by one thread at a time,
  // so SQLite need not lock it on every call (the fast path for bulk reads).
  static Db open(const std::filesystem::path& path, bool one_thread = false);
  // Creates a new, empty store; an existing file at the path is deleted first.
  static Db create(const std::filesystem::path& path);

  Db(Db&&) noexcept;
  Db& operator=(Db&&) noexcept;
  ~Db();

  const std::filesystem::path& path() const { return path_; }

  Rows query(std::string_view sql, std::initializer_list<Value> params = {}) const;
  Rows query(std::string_view sql, const std::vector<Value>& params) const;
  // Runs a statement; returns the number of rows it changed.
  int exec(std::string_view sql, std::initializer_list<Value> params = {});
  int exec(std::string_view sql, const std::vector<Value>& params);
  // Prepares a statement for repeated use.
  Statement prepare_statement(std::string_view sql) const;

  // Runs one or more statements without parameters (schema scripts).
  void exec_script(std::string_view sql);

  // Inserts one row; columns are names as in the store.
  void insert(std::string_view table, const std::vector<std::string>& columns,
              const std::vector<Value>& values);

  bool has_table(std::string_view table) const;
  std::vector<std::string> table_names() const;
  std::vector<std::string> column_names(std::string_view table) const;
  // Throws StoreError naming the file and the table when it is missing.
  void require_table(std::string_view table) const;
  // Throws StoreError when the file is damaged: shorter than its own header
  // says (cut off in a copy or a download), or failing the store's quick
  // integrity check.
  void require_intact() const;

  sqlite3* handle() const { return db_; }
  [[noreturn]] void fail(const std::string& what) const;
  // Throws the StoreError for the failed call that returned `code`: a full
  // disk, a read-only folder or a store in use in words, anything else in
  // the library's own.
  [[noreturn]] void fail_call(int code) const;

 private:
  Db(std::filesystem::path path, sqlite3* db) : path_(std::move(path)), db_(db) {}
  void close() noexcept;
  friend class Statement;
  sqlite3_stmt* prepare(std::string_view sql, const std::vector<Value>& params) const;
  void bind(sqlite3_stmt* st, const std::vector<Value>& params) const;

  std::filesystem::path path_;
  sqlite3* db_ = nullptr;
  // A rolled-back copy read in place of a store whose hot journal could not
  // be rolled back where it lies; removed with the connection.
  std::filesystem::path copy_folder_;
};

// A transaction: committed by commit(), rolled back when destroyed first.
class Transaction {
 public:
  explicit Transaction(Db& db);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();
  void commit();

 private:
  Db& db_;
  bool open_ = true;
};

}  // namespace arven

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <sqlite3.h>

#include "platform/errors/free_with.h"

/// SQLite. Failures carry the path of the database and the database's own text: sqldb:ssdb:Locked (busy or
/// locked), sqldb:ssdb:Corrupt (corrupt or no database), sqldb:ssdb:Failed (any other).
namespace orra::sql {

using foundation::core::except::FreeWith;

// The little of SQLite that the repository needs. Handles of the library are closed by their owners here and
// nowhere else; what they point to is never given out without the object that keeps it alive.
/// One open database file that nobody else is meant to open. Its journal is kept in memory and nothing is
/// synced: the data is a copy of what can be read again.
class Database {
 public:
  /// Opens an existing file, which may be empty.
  explicit Database(const std::string& path);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Runs SQL that gives no rows.
  void execute(const std::string& sql);
  bool isInTransaction() const noexcept { return entered_ > 0; }

  /// The stretch of work that nothing begins or ends a transaction in; another number for each. What was read
  /// in it is what the database still holds.
  std::uint64_t stretch() const noexcept { return stretch_; }
  /// How often a transaction was rolled back: what was read before may be gone then.
  std::uint64_t rollbacks() const noexcept { return rollbacks_; }

  /// Raises the failure that the last call on this database gave with this result code.
  [[noreturn]] void fail(int code) const;

  /// Raises sqldb:ssdb:Corrupt for contents that the database itself does not check.
  [[noreturn]] void failAsCorrupt(const std::string& reason) const;

  /// For the classes of this file.
  sqlite3* handle() const noexcept { return handle_.get(); }

 private:
  friend class Statement;
  friend class Transaction;

  /// Takes every statement off its row, which ends the reading they do.
  void resetStatements() noexcept;
  /// Begins the transactions that were entered. They begin with the first statement that runs in them, so
  /// that one that asks nothing of the database costs nothing.
  void beginEntered() {
    for (; begun_ < entered_; ++begun_) execute(Step::Begin);
  }

  enum class Step { Begin, Commit };
  /// As SQL that is prepared once, since it is run often.
  void execute(Step step);

  std::string path_;
  std::unique_ptr<sqlite3, FreeWith<sqlite3_close_v2>> handle_;
  unsigned entered_ = 0, begun_ = 0;  ///< transactions; one within another counts
  std::uint64_t stretch_ = 0, rollbacks_ = 0;
  std::array<std::unique_ptr<sqlite3_stmt, FreeWith<sqlite3_finalize>>, 2> steps_;
};

/// One prepared statement. Parameters count from 1, columns from 0. Texts and blobs are neither copied when
/// they are bound nor when they are read: bound ones must live until the statement is reset or done, read
/// ones live until the next step or reset.
class Statement {
 public:
  /// The database must outlive the statement.
  Statement(Database& database, const std::string& sql);
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Bound values stay for further runs of the statement until they are replaced. They give the statement
  /// back, so that several can be bound in one line.
  Statement& bind(int parameter, std::int64_t integer);
  Statement& bind(int parameter, double number);
  Statement& bind(int parameter, std::string_view text);
  Statement& bindBlob(int parameter, std::string_view bytes);
  Statement& bindNull(int parameter);

  /// Moves to the next row. False, and reset, behind the last one; reset also when it raises.
  bool step();
  /// Runs a statement that gives no rows.
  void execute() { step(); }
  void reset() noexcept { sqlite3_reset(handle_.get()); }

  /// Takes the statement off its row when the scope is left, with an error or without: a statement that stays
  /// on a row outside a transaction locks the database, and one on a row cannot be bound.
  class ResetAtEnd {
   public:
    explicit ResetAtEnd(Statement& statement) : statement_(statement) {}
    ~ResetAtEnd() { statement_.reset(); }
    ResetAtEnd(const ResetAtEnd&) = delete;
    ResetAtEnd& operator=(const ResetAtEnd&) = delete;

   private:
    Statement& statement_;
  };

  /// Values of the row. A NULL reads as 0 or empty.
  bool isNull(int column) const { return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL; }
  std::int64_t integer(int column) const { return sqlite3_column_int64(handle_.get(), column); }
  double number(int column) const { return sqlite3_column_double(handle_.get(), column); }
  std::string_view bytes(int column) const;

 private:
  void require(int code) const;

  Database& database_;
  std::unique_ptr<sqlite3_stmt, FreeWith<sqlite3_finalize>> handle_;
};

/// One transaction, rolled back when it is left without a commit. Within another one it is a part of it that
/// can be rolled back alone. All reads between its first read and its end see one state.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  /// Raises the database's failures; the transaction is then still to be rolled back.
  void commit();

 private:
  /// Whether the database knows of it.
  bool hasBegun() const noexcept { return database_.begun_ == database_.entered_; }

  Database& database_;
  bool committed_ = false;
};

}  // namespace orra::sql

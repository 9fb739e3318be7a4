#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

/// SQLite. Failures carry the path of the database and the database's own text: sqldb:ssdb:Locked (busy or
/// locked), sqldb:ssdb:Corrupt (corrupt or no database), sqldb:ssdb:Failed (any other); of a shared database
/// sqldb:shared:Locked, sqldb:shared:Corrupt and sqldb:shared:Failed.
namespace orra::sql {

/// Who opens a database file. A private copy of what can be read again has its journal in memory, is never
/// synced and waits for nobody. A shared file outlives the process, so its journal is on the disk, and
/// others that hold it are waited for, up to a minute.
enum class Use { PrivateCopy, Shared };

/// Closes a database or a statement. The library's header stays in the source file.
struct Release {
  void operator()(sqlite3* database) const noexcept;
  void operator()(sqlite3_stmt* statement) const noexcept;
};

// Handles of the library are closed by their owners here and nowhere else; what they point to is never given
// out without the object that keeps it alive.
/// One open database file.
class Database {
 public:
  /// Opens an existing file, which may be empty. One that may not be written is read.
  explicit Database(const std::string& path, Use use = Use::PrivateCopy);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Runs SQL that gives no rows.
  void execute(const std::string& sql);
  /// The same for SQL that makes SQLite give up at once where somebody else has the file for a moment, as a
  /// change of the journal does: tries again for as long as anything else waits.
  void executeInTurn(const std::string& sql);
  bool isInTransaction() const noexcept { return entered_ > 0; }

  /// The stretch of work that nothing begins or ends a transaction in; another number for each. What was read
  /// in it is what the database still holds.
  std::uint64_t stretch() const noexcept { return stretch_; }
  /// How often a transaction was rolled back: what was read before may be gone then.
  std::uint64_t rollbacks() const noexcept { return rollbacks_; }

  /// Defines an SQL function of a text, which is NULL where `function` gives nothing; of numbers it gives the
  /// number itself.
  void defineNumberOf(const char* name, std::optional<double> (*function)(std::string_view));
  /// The row that was inserted last.
  std::int64_t lastRow() const noexcept;

  /// Raises the failure that the last call on this database gave with this result code.
  [[noreturn]] void fail(int code) const;

  /// Raises sqldb:ssdb:Corrupt, or sqldb:shared:Corrupt, for contents that the database itself does not
  /// check.
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
  Use use_;
  std::unique_ptr<sqlite3, Release> handle_;
  unsigned entered_ = 0, begun_ = 0;  ///< transactions; one within another counts
  std::uint64_t stretch_ = 0, rollbacks_ = 0;
  std::array<std::unique_ptr<sqlite3_stmt, Release>, 2> steps_;
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
  void reset() noexcept;

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
  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  double number(int column) const;
  std::string_view bytes(int column) const;

 private:
  void require(int code) const;

  Database& database_;
  std::unique_ptr<sqlite3_stmt, Release> handle_;
};

/// One transaction, rolled back when it is left without a commit. Within another one it is a part of it that
/// can be rolled back alone. All reads between its first read and its end see one state.
class Transaction {
 public:
  /// A transaction that reads before it writes has to lock at once where others write too: what it read might
  /// otherwise be changed before it comes to write, and the database would refuse that.
  enum class Lock { WhenNeeded, AtOnce };
  explicit Transaction(Database& database, Lock lock = Lock::WhenNeeded);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  /// Raises the database's failures; the transaction is then still to be rolled back.
  void commit();

 private:
  /// Whether the database knows of it.
  bool hasBegun() const noexcept { return database_.begun_ == database_.entered_; }

  Database& database_;
  bool isLocked_ = false;  // begun by BEGIN, which only a COMMIT ends
  bool committed_ = false;
};

}  // namespace orra::sql

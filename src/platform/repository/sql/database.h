#pragma once

#include <memory>
#include <string>

struct sqlite3;

namespace orra::sql {

/// One open database file that nobody else is meant to open. Its journal is kept in memory and nothing is
/// synced: the data is a copy of what can be read again.
///
/// Failures, here and of everything that works on the database, carry its path and the database's own text:
/// sqldb:ssdb:Locked (busy or locked), sqldb:ssdb:Corrupt (corrupt or no database), sqldb:ssdb:Failed.
class Database {
 public:
  /// Opens an existing file, which may be empty.
  explicit Database(const std::string& path);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Runs SQL that gives no rows.
  void execute(const char* sql);

  bool isInTransaction() const noexcept;

  /// Takes every statement off its row, which ends the reading they do.
  void resetStatements() noexcept;

  /// Raises the failure that the last call on this database gave with this result code.
  [[noreturn]] void fail(int code) const;

  /// Raises sqldb:ssdb:Corrupt for contents that the database itself does not check.
  [[noreturn]] void failAsCorrupt(const std::string& reason) const;

  sqlite3* handle() const noexcept { return handle_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* database) const noexcept;
  };

  std::string path_;
  std::unique_ptr<sqlite3, Close> handle_;
};

}  // namespace orra::sql

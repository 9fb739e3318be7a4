#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3_stmt;

namespace orra::sql {

class Database;

/// One prepared statement. Parameters count from 1, columns from 0. Texts and blobs are neither copied when
/// they are bound nor when they are read: bound ones must live until the statement is reset or done, read
/// ones live until the next step or reset.
class Statement {
 public:
  /// The database must outlive the statement.
  Statement(Database& database, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

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
  bool isOnRow() const noexcept;

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
  std::int64_t integer(int column) const;
  double number(int column) const;
  std::string_view bytes(int column) const;
  /// Raises sqldb:ssdb:Corrupt if the text is not well-formed.
  std::u16string text(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };

  void require(int code) const;

  Database& database_;
  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
};

}  // namespace orra::sql

#pragma once

#include <cstdint>
#include <utility>

#include "platform/repository/sql/database.h"
#include "platform/repository/sql/statement.h"

namespace orra::sql {

/// Reads rows by identifier. Inside a transaction it stays on the row it read last: asking for that one again
/// costs nothing, asking for the one behind it a step. Outside it lets go of the row at once, since a row
/// that is held locks the database.
class RowCursor {
 public:
  /// Lends the row for one expression.
  class Lease {
   public:
    Lease(const Database& database, Statement* row) noexcept : database_(database), row_(row) {}
    ~Lease() {
      if (row_ != nullptr && !database_.isInTransaction()) row_->reset();
    }
    Lease(Lease&& other) noexcept : database_(other.database_), row_(std::exchange(other.row_, nullptr)) {}

    explicit operator bool() const noexcept { return row_ != nullptr; }
    const Statement* operator->() const noexcept { return row_; }

   private:
    const Database& database_;
    Statement* row_;
  };

  /// `sql` gives the rows from an identifier on, in ascending order, with the identifier in the first column.
  RowCursor(Database& database, const char* sql) : database_(database), rows_(database, sql) {}

  /// An empty lease if there is no such row.
  Lease find(std::int64_t identifier) { return Lease(database_, moveTo(identifier) ? &rows_ : nullptr); }

 private:
  bool moveTo(std::int64_t identifier);

  Database& database_;
  Statement rows_;
  std::int64_t current_ = 0;  ///< while the statement is on a row
};

}  // namespace orra::sql

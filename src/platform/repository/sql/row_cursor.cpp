#include "platform/repository/sql/row_cursor.h"

namespace orra::sql {

bool RowCursor::moveTo(std::int64_t identifier) {
  if (rows_.isOnRow() && identifier == current_) return true;
  if (!rows_.isOnRow() || identifier != current_ + 1) {
    rows_.reset();
    rows_.bind(1, identifier);
  }
  if (!rows_.step()) return false;
  current_ = rows_.integer(0);
  if (current_ == identifier) return true;
  rows_.reset();
  return false;
}

}  // namespace orra::sql

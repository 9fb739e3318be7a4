#include "platform/tables/columns_table.h"

#include <cmath>

#include "platform/errors/exceptions.h"

namespace tavlox::tables {

using foundation::core::except::raise;

ColumnsTable::ColumnsTable(std::u16string source, std::vector<Column> columns)
    : source_(std::move(source)), columns_(std::move(columns)) {
  for (const auto& [name, unit, values, dataType] : columns_) {
    description_.headings.push_back(
        {name, name, unit.empty() ? std::nullopt : std::optional(unit), dataType});
    if (values.size() != columns_.front().values.size())
      raise("tavlox:record:UnevenColumns", source_, name, values.size(), columns_.front().values.size());
  }
  checkHeadings(source_, 1);
  if (columns_.front().values.empty()) raise("tavlox:record:NoRows", source_, 2, 1);
  // Whoever hands over numbers means seconds where nothing else is said; there is nothing to assume.
  description_.isTimeUnitAssumed = false;
  description_.headingLine = plainHeadingLine(description_.headings, description_.timeUnit);
}

bool ColumnsTable::next(Row& row) {
  plain_.clear();
  row.plain = plain_;
  if (row_ == columns_.front().values.size()) return false;
  row.time = columns_.front().values[row_++];
  for (const Column& column : columns_) {
    appendNumber(plain_, column.values[row_ - 1]);
    plain_ += &column == &columns_.back() ? '\n' : ',';
  }
  // In lines of the part that is kept: below the headings.
  if (!std::isfinite(row.time))
    raise("tavlox:record:TimeNotANumber", source_, row_ + 1, 1, plain_.substr(0, plain_.find(',')));
  row.plain = plain_;
  return true;
}

void ColumnsTable::refuseTime() const {
  raise("tavlox:record:TimeNotIncreasing", source_, row_ + 1, 1, plain_.substr(0, plain_.find(',')));
}

}  // namespace tavlox::tables

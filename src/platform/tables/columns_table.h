#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/tables/table.h"

namespace tavlox::tables {

/// Columns of numbers in memory as a table. They are written with the fewest digits that read back the same.
class ColumnsTable : public Table {
 public:
  struct Column {
    std::u16string name;
    std::u16string unit;  ///< empty for none
    std::span<const double> values;
    std::u16string dataType = u"double";  ///< what the numbers were before they became doubles
  };
  /// The first column is the time, in seconds if it has no unit. The values are not copied: they must outlive
  /// the table. `source` is what messages call it;
  /// signals are not said to come from it, since it is no file. Raises tavlox:record:UnevenColumns,
  /// EqualHeadings, NoSignals, NoRows, EmptyHeading or UnknownTimeUnit.
  ColumnsTable(std::u16string source, std::vector<Column> columns);

  /// Raises tavlox:record:TimeNotANumber for a time that is not finite.
  bool next(Row& row) override;
  [[noreturn]] void refuseTime() const override;

 private:
  std::u16string source_;
  std::vector<Column> columns_;
  std::size_t row_ = 0;  ///< how many were given
  std::string plain_;
};

}  // namespace tavlox::tables

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/cli/csv_reader.h"
#include "platform/errors/message_id.h"

namespace tavlox::cli {

/// A column's heading "name [unit]", taken apart. Without a unit in brackets the whole heading is the name.
struct ColumnHeading {
  std::u16string heading, name;
  std::optional<std::u16string> unit;
};

/// Raises fl::i18n::ConversionError if the heading is not UTF-8.
ColumnHeading parseHeading(std::string_view heading);

/// Seconds in one of the units; nothing for a unit that is not known.
std::optional<double> secondsIn(std::u16string_view timeUnit);

/// A table of simulation results: a heading line, the time in the first column, one signal in each further
/// one. It is checked while its bytes come in, and what it says of itself is gathered; the samples are not
/// kept.
///
/// Every cell must be a number ("nan" and "inf" only as samples), every row as long as the heading, and the
/// time must increase from row to row. Raises tavlox:record:… errors with the path, the line and the column.
class SampleTable {
 public:
  /// `path` is for messages.
  explicit SampleTable(std::u16string path);

  void take(std::string_view bytes);
  void finish();

  // Complete after finish().
  const ColumnHeading& time() const { return columns_.front(); }
  /// Without the time column.
  std::vector<ColumnHeading> signalColumns() const { return {columns_.begin() + 1, columns_.end()}; }
  std::uint64_t rowCount() const { return rowCount_; }
  double startTime() const { return first_ * secondsPerUnit_; }  ///< seconds
  double stopTime() const { return last_ * secondsPerUnit_; }    ///< seconds

  /// The step in seconds, as text with nine significant digits, if the longest and the shortest step differ
  /// by no more than a thousandth of the mean step (tables hold rounded times); "variable" if not; empty for
  /// a single row.
  std::u16string sampleTime() const;

 private:
  void takeCell(std::string_view cell, CellPlace place);
  void takeHeading(std::string_view cell, CellPlace place);
  void takeTime(std::string_view cell, CellPlace place);
  void endRow(CellPlace cellAfterLast);
  void endHeading(CellPlace cellAfterLast);

  template <class... Argument>
  [[noreturn]] void refuse(fl::i18n::MessageId<3 + sizeof...(Argument)> identifier, CellPlace place,
                           const Argument&... further) const;

  std::u16string path_;
  CsvReader reader_;
  std::string_view byteOrderMark_;  ///< what may still be skipped of it
  std::vector<ColumnHeading> columns_;
  bool headingIsComplete_ = false;
  double secondsPerUnit_ = 1;
  std::uint64_t rowCount_ = 0;
  double first_ = 0, last_ = 0;                ///< in the table's unit
  double shortestStep_ = 0, longestStep_ = 0;  ///< in the table's unit
};

}  // namespace tavlox::cli

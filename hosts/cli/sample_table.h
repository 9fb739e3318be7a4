#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tavlox::cli {

/// A column's heading "name [unit]", taken apart. Without a unit in brackets the whole heading is the name.
struct ColumnHeading {
  std::u16string heading, name;
  std::optional<std::u16string> unit;
};

/// Raises fl::i18n::ConversionError if the heading is not UTF-8.
ColumnHeading parseHeading(std::string_view heading);

/// A table of simulation results in CSV (comma-separated, cells in double quotes where they need it): a
/// heading line, the time in the first column, one signal in each further one. It is checked while its bytes
/// come in, in constant memory, and what it says of itself is gathered; the samples are not kept. Blanks
/// around unquoted cells, empty lines and a byte order mark are left out.
///
/// Every cell must be a number ("nan" and "inf" only as samples), every row as long as the heading, and the
/// time must increase from row to row. Raises tavlox:record:… errors with the path, the line and the column,
/// which count from 1; a column is a cell, not a character.
class SampleTable {
 public:
  /// `path` is for messages.
  explicit SampleTable(std::u16string path);
  ~SampleTable();

  void take(std::string_view bytes);
  /// Ends the table; its last line may lack a line end.
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
  struct Parser;

  void parseLine(std::string_view piece);
  [[noreturn]] void refuseSyntax() const;
  void takeCell(std::string_view cell);
  void takeHeading(std::string_view cell);
  void takeTime(std::string_view cell);
  void endRow();
  void endHeading();

  std::u16string path_;
  std::unique_ptr<Parser> parser_;
  std::string_view byteOrderMark_;       ///< what may still be skipped of it
  std::uint64_t line_ = 1, column_ = 1;  ///< of the next cell
  std::size_t bytesSinceCell_ = 0;
  std::vector<ColumnHeading> columns_;
  bool headingIsComplete_ = false;
  double secondsPerUnit_ = 1;
  std::uint64_t rowCount_ = 0;
  double first_ = 0, last_ = 0;                ///< in the table's unit
  double shortestStep_ = 0, longestStep_ = 0;  ///< in the table's unit
};

}  // namespace tavlox::cli

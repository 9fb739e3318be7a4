#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/package.h"
#include "platform/tables/headings.h"

namespace tavlox::samples {

/// What is to be read of a table of samples.
struct Wanted {
  /// As numbers, or also as the texts that stand there, digit for digit.
  enum class Cells { Numbers, Texts };

  std::vector<std::uint32_t> columns;                      ///< from 1, where the time is; in any order
  double from = -std::numeric_limits<double>::infinity();  ///< seconds; earlier rows are left out
  double to = std::numeric_limits<double>::infinity();     ///< seconds; later rows are left out
  Cells cells = Cells::Numbers;
};

/// Some rows, next to each other. Columns stand in the order in which they were asked for.
struct SampleBlock {
  std::size_t rows = 0;
  std::vector<double> times;                ///< seconds, never decreasing
  std::vector<std::vector<double>> values;  ///< by column, then row; NaN for an empty cell
  // Only where texts were asked for; without blanks around them and quotes. Valid until the next block is
  // read and as long as the reader.
  std::vector<std::string_view> timeTexts;
  std::vector<std::vector<std::string_view>> texts;  ///< instead of the values: by column, then row
};

/// Reads recorded samples block by block, in memory that does not grow with them: CSV (RFC 4180, UTF-8,
/// commas) with one heading line and the time in the first column. Cells that were not asked for are passed
/// over unread, and so is everything behind the end of the time range.
class SampleReader {
 public:
  /// Reads the headings. Raises samples:part:… errors, which name the package and the part, for a part
  /// without a heading line, a time unit that is not known and a column that is not there. The package must
  /// stay open.
  SampleReader(const opc::model::Package& package, const opc::model::PartName& part, Wanted wanted);
  ~SampleReader();
  SampleReader(SampleReader&&) noexcept;
  SampleReader& operator=(SampleReader&&) noexcept;

  /// Of every column, the time's first, as they stand there but for quotes and blanks around them.
  const std::vector<std::string>& headings() const;
  /// In which the time column is written: seconds, or what its heading names in brackets at the end.
  const tables::TimeUnit& timeUnit() const;

  /// Replaces the block's content by the next rows, some thousand; false at the end. Raises samples:part:…
  /// errors, which name the line too, for a row that is too short, a cell that is read and is no number, a
  /// time that is none or is earlier than the one before; and opc::Exception for data that is damaged.
  bool next(SampleBlock& block);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// First and last time of a table, in seconds, and its number of rows. Reads the whole time column.
struct Span {
  double first = 0, last = 0;
  std::uint64_t rows = 0;  ///< 0 if there is none, and no first and last time either
};
Span spanOf(SampleReader reader);

}  // namespace tavlox::samples

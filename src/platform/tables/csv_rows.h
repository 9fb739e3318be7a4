#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tavlox::tables {

/// Takes delimited text apart, line by line: cells in double quotes may hold anything, quotes in them
/// doubled, also ends of lines. Blanks around cells without quotes and lines without cells are left out. A
/// delimiter of ' ' stands for runs of blanks and tabs, also around the whole line.
class CsvRows {
 public:
  explicit CsvRows(char delimiter);
  ~CsvRows();

  /// What came of a line.
  enum class Outcome {
    Row,       ///< a row is complete
    None,      ///< the line was empty, or its row goes on in the next line
    BadQuote,  ///< a quote stands where none may
    TooLong,   ///< a cell of more than 64 KiB: most often, a quote is never closed
  };
  Outcome take(std::string_view line);
  /// Ends the text, whose last line may lack an end.
  Outcome finish();

  /// Whether a row has begun that was not complete.
  bool isInRow() const;
  std::size_t size() const { return isSimple_ ? cells_.size() : ends_.size(); }
  /// Of the row that was completed last; lasts until the next line is taken, and no longer than the line.
  std::string_view cell(std::size_t column) const {
    if (isSimple_) return cells_[column];
    const std::size_t begin = column == 0 ? 0 : ends_[column - 1];
    return std::string_view(text_).substr(begin, ends_[column] - begin);
  }

 private:
  struct Parser;
  Outcome takeSimple(std::string_view line);
  Outcome outcome(bool isSound);

  std::unique_ptr<Parser> parser_;
  char delimiter_;
  bool collapsesBlanks_;
  std::string collapsed_;
  std::string text_;               ///< the cells of a row, one behind the other
  std::vector<std::size_t> ends_;  ///< of each cell, in the text
  bool isRowComplete_ = false;
  std::vector<std::string_view> cells_;  ///< of a line without quotes, where they stand in it
  bool isSimple_ = false;                ///< the last row was such a line
};

}  // namespace tavlox::tables

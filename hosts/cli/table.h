#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tavlox::cli {

enum class TableStyle { Aligned, AlignedInColour, TabSeparated };

/// Rows of text in columns. Aligned for people, with headings if there are any; one line of tab-separated
/// values a row, without headings, for programs. Either way a row is one line, whatever its values hold.
class Table {
 public:
  explicit Table(std::vector<std::string> headings = {}) : headings_(std::move(headings)) {}

  void addRow(const std::vector<std::u16string>& values);
  std::string format(TableStyle style) const;

 private:
  std::string formatAligned(TableStyle style) const;
  std::vector<std::size_t> columnWidths() const;

  std::vector<std::string> headings_;
  std::vector<std::vector<std::string>> rows_;  ///< each value a single line of UTF-8
};

/// The style that fits where standard output goes.
TableStyle tableStyleOfOutput();

}  // namespace tavlox::cli

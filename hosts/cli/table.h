#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tavlox::cli {

enum class TableStyle { Aligned, AlignedInColour, TabSeparated };

/// Rows of a table that are made when they are asked for: a long table is never held as a whole. Each value
/// is a single line of UTF-8, and each row is asked for twice where columns are aligned.
struct Rows {
  std::size_t count = 0;
  std::function<std::vector<std::string>(std::size_t)> row;
};

/// Hands over the lines of a table in pieces of some 64 KiB. See Table for the styles.
void writeTable(const std::vector<std::string>& headings, const Rows& rows, TableStyle style,
                const std::function<void(std::string_view)>& write);

/// Rows of text in columns. Aligned for people, with headings if there are any; one line of tab-separated
/// values a row, without headings, for programs. Either way a row is one line, whatever its values hold.
class Table {
 public:
  explicit Table(std::vector<std::string> headings = {}) : headings_(std::move(headings)) {}

  void addRow(const std::vector<std::u16string>& values);
  std::string format(TableStyle style) const;

 private:
  std::vector<std::string> headings_;
  std::vector<std::vector<std::string>> rows_;  ///< each value a single line of UTF-8
};

/// The style that fits where standard output goes.
TableStyle tableStyleOfOutput();

}  // namespace tavlox::cli

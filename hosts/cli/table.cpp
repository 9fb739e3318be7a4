#include "hosts/cli/table.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "hosts/cli/terminal.h"

namespace tavlox::cli {
namespace {

constexpr std::string_view kGap = "  ";
constexpr std::size_t kPieceSize = std::size_t{64} * 1024;

/// The last value of a row is not padded: no line ends in spaces.
std::string alignedLine(const std::vector<std::string>& values, const std::vector<std::size_t>& widths) {
  std::string line;
  for (std::size_t i = 0; i < values.size(); ++i) {
    line += values[i];
    if (i + 1 == values.size()) break;
    line.append(widths[i] - displayWidth(values[i]), ' ');
    line += kGap;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::vector<std::size_t> columnWidths(const std::vector<std::string>& headings, const Rows& rows) {
  std::vector<std::size_t> widths;
  const auto widen = [&widths](const std::vector<std::string>& values) {
    widths.resize(std::max(widths.size(), values.size()));
    for (std::size_t i = 0; i < values.size(); ++i) widths[i] = std::max(widths[i], displayWidth(values[i]));
  };
  widen(headings);
  for (std::size_t i = 0; i < rows.count; ++i) widen(rows.row(i));
  return widths;
}

}  // namespace

void writeTable(const std::vector<std::string>& headings, const Rows& rows, TableStyle style,
                const std::function<void(std::string_view)>& write) {
  const bool isAligned = style != TableStyle::TabSeparated;
  const Colours colours = style == TableStyle::AlignedInColour ? Colours::On : Colours::Off;
  const std::vector<std::size_t> widths =
      isAligned ? columnWidths(headings, rows) : std::vector<std::size_t>();
  std::string piece;
  if (isAligned && !headings.empty()) piece = bold(alignedLine(headings, widths), colours) + "\n";
  for (std::size_t i = 0; i < rows.count; ++i) {
    const std::vector<std::string> values = rows.row(i);
    piece += isAligned ? alignedLine(values, widths) : fmt::format("{}", fmt::join(values, "\t"));
    piece += '\n';
    if (piece.size() < kPieceSize) continue;
    write(piece);
    piece.clear();
  }
  write(piece);
}

void Table::addRow(const std::vector<std::u16string>& values) {
  std::vector<std::string>& row = rows_.emplace_back();
  for (const std::u16string& value : values) row.push_back(singleLine(value));
}

std::string Table::format(TableStyle style) const {
  std::string text;
  writeTable(headings_, {.count = rows_.size(), .row = [this](std::size_t i) { return rows_[i]; }}, style,
             [&text](std::string_view piece) { text += piece; });
  return text;
}

TableStyle tableStyleOfOutput() {
  if (!isTerminal(stdout)) return TableStyle::TabSeparated;
  return coloursFor(stdout) == Colours::On ? TableStyle::AlignedInColour : TableStyle::Aligned;
}

}  // namespace tavlox::cli

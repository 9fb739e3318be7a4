#include "hosts/cli/table.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "hosts/cli/terminal.h"

namespace tavlox::cli {
namespace {

constexpr std::string_view kGap = "  ";

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

}  // namespace

void Table::addRow(const std::vector<std::u16string>& values) {
  std::vector<std::string>& row = rows_.emplace_back();
  for (const std::u16string& value : values) row.push_back(singleLine(value));
}

std::vector<std::size_t> Table::columnWidths() const {
  std::vector<std::size_t> widths;
  const auto widen = [&widths](const std::vector<std::string>& values) {
    widths.resize(std::max(widths.size(), values.size()));
    for (std::size_t i = 0; i < values.size(); ++i) widths[i] = std::max(widths[i], displayWidth(values[i]));
  };
  widen(headings_);
  for (const auto& row : rows_) widen(row);
  return widths;
}

std::string Table::formatAligned(TableStyle style) const {
  const Colours colours = style == TableStyle::AlignedInColour ? Colours::On : Colours::Off;
  const std::vector<std::size_t> widths = columnWidths();
  std::string text;
  if (!headings_.empty()) text += bold(alignedLine(headings_, widths), colours) + "\n";
  for (const auto& row : rows_) text += alignedLine(row, widths) + "\n";
  return text;
}

std::string Table::format(TableStyle style) const {
  if (style != TableStyle::TabSeparated) return formatAligned(style);
  std::string text;
  for (const auto& row : rows_) text += fmt::format("{}\n", fmt::join(row, "\t"));
  return text;
}

TableStyle tableStyleOfOutput() {
  if (!isTerminal(stdout)) return TableStyle::TabSeparated;
  return coloursFor(stdout) == Colours::On ? TableStyle::AlignedInColour : TableStyle::Aligned;
}

}  // namespace tavlox::cli

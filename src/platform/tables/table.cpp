#include "platform/tables/table.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace tavlox::tables {

using fl::i18n::to_string;
using fl::i18n::to_ustring;
using foundation::core::except::raise;

namespace {

/// A cell as RFC 4180 writes it: in quotes where it needs them.
std::string quotedCell(std::string_view cell) {
  const bool needsQuotes = cell.find_first_of(",\"\r\n") != std::string_view::npos || cell.empty() ||
                           cell.front() == ' ' || cell.back() == ' ';
  if (!needsQuotes) return std::string(cell);
  std::string quoted = "\"";
  for (const char character : cell) {
    if (character == '"') quoted += '"';
    quoted += character;
  }
  return quoted + "\"";
}

/// Raises for two columns with one name: the signals of a run are told apart by theirs.
void requireDistinctNames(const std::vector<Heading>& headings, const std::u16string& path,
                          std::uint64_t line) {
  std::vector<std::size_t> order(headings.size());
  for (std::size_t column = 0; column < order.size(); ++column) order[column] = column;
  const auto nameOf = [&](std::size_t column) -> const std::u16string& { return headings[column].name; };
  std::ranges::stable_sort(order, {}, nameOf);
  const auto equal = std::ranges::adjacent_find(order, {}, nameOf);
  if (equal == order.end()) return;
  raise("tavlox:record:EqualHeadings", path, line, equal[0] + 1, equal[1] + 1, nameOf(*equal));
}

}  // namespace

Table::~Table() = default;

void Table::checkHeadings(const std::u16string& path, std::uint64_t line) {
  const std::vector<Heading>& headings = description_.headings;
  if (headings.size() < 2) raise("tavlox:record:NoSignals", path, line, headings.size() + 1);
  const auto unnamed = std::ranges::find(headings, std::u16string(), &Heading::name);
  if (unnamed != headings.end())
    raise("tavlox:record:EmptyHeading", path, line, unnamed - headings.begin() + 1);
  requireDistinctNames(headings, path, line);
  const std::optional<std::u16string>& named = headings.front().unit;
  description_.isTimeUnitAssumed = !named;
  if (!named) return;
  const TimeUnit* const unit = findTimeUnit(to_string(*named));
  // An unknown unit is an error, not seconds: wrong times would look right.
  if (unit == nullptr) raise("tavlox:record:UnknownTimeUnit", path, line, 1, *named);
  description_.timeUnit = *unit;
}

std::string plainHeadingLine(const std::vector<Heading>& headings, const TimeUnit& timeUnit) {
  std::string line = quotedCell(to_string(headings.front().name) + " [" + std::string(timeUnit.name) + "]");
  for (std::size_t column = 1; column < headings.size(); ++column) {
    const Heading& heading = headings[column];
    // In the one form of units that every reader takes for one.
    line += "," + quotedCell(heading.unit ? to_string(heading.name) + " [" + to_string(*heading.unit) + "]"
                                          : to_string(heading.written));
  }
  return line + "\n";
}

void appendNumber(std::string& text, double number) {
  char digits[32];
  text.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

}  // namespace tavlox::tables

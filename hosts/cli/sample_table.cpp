#include "hosts/cli/sample_table.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using fl::i18n::to_ustring;

constexpr double kStepTolerance = 1e-3;
constexpr std::size_t kShownOfCell = 40;

struct TimeUnit {
  std::u16string_view name;
  double seconds;
};
constexpr TimeUnit kTimeUnits[] = {
    {u"s", 1},     {u"sec", 1},    {u"ms", 1e-3},  {u"us", 1e-6}, {u"\u00B5s", 1e-6}, {u"\u03BCs", 1e-6},
    {u"ns", 1e-9}, {u"ps", 1e-12}, {u"fs", 1e-15}, {u"min", 60},  {u"h", 3600},
};

/// The whole cell as a number, whatever the locale.
std::optional<double> parseNumber(std::string_view cell) {
  if (cell.starts_with('+') && !cell.starts_with("+-")) cell.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), number);
  if (error != std::errc() || end != cell.data() + cell.size()) return std::nullopt;
  return number;
}

/// A cell as a message shows it.
std::string shown(std::string_view cell) {
  return cell.size() <= kShownOfCell ? std::string(cell) : std::string(cell.substr(0, kShownOfCell)) + "...";
}

}  // namespace

ColumnHeading parseHeading(std::string_view heading) {
  ColumnHeading parsed{.heading = to_ustring(heading), .name = to_ustring(heading), .unit = std::nullopt};
  const std::size_t bracket = heading.rfind(" [");
  if (bracket == std::string_view::npos || !heading.ends_with(']')) return parsed;
  const std::string_view name = heading.substr(0, heading.find_last_not_of(' ', bracket) + 1);
  if (name.empty()) return parsed;
  parsed.name = to_ustring(name);
  parsed.unit = to_ustring(heading.substr(bracket + 2, heading.size() - bracket - 3));
  return parsed;
}

std::optional<double> secondsIn(std::u16string_view timeUnit) {
  for (const TimeUnit& unit : kTimeUnits) {
    if (unit.name == timeUnit) return unit.seconds;
  }
  return std::nullopt;
}

SampleTable::SampleTable(std::u16string path)
    : path_(std::move(path)),
      reader_(path_, {.cell = [this](std::string_view cell, CellPlace place) { takeCell(cell, place); },
                      .endOfRow = [this](CellPlace cellAfterLast) { endRow(cellAfterLast); }}),
      byteOrderMark_("\xEF\xBB\xBF") {}

template <class... Argument>
void SampleTable::refuse(fl::i18n::MessageId<3 + sizeof...(Argument)> identifier, CellPlace place,
                         const Argument&... further) const {
  foundation::core::except::raise(identifier, path_, place.line, place.column, further...);
}

void SampleTable::take(std::string_view bytes) {
  while (!byteOrderMark_.empty() && !bytes.empty()) {
    if (bytes.front() != byteOrderMark_.front()) {
      byteOrderMark_ = {};
      break;
    }
    bytes.remove_prefix(1);
    byteOrderMark_.remove_prefix(1);
  }
  reader_.take(bytes);
}

void SampleTable::finish() {
  reader_.finish();
  if (!headingIsComplete_) refuse("tavlox:record:EmptyTable", {1, 1});
  if (rowCount_ == 0) refuse("tavlox:record:NoRows", {2, 1});
}

void SampleTable::takeCell(std::string_view cell, CellPlace place) {
  if (!headingIsComplete_) return takeHeading(cell, place);
  if (place.column > columns_.size()) refuse("tavlox:record:UnevenRow", place, columns_.size());
  if (place.column == 1) return takeTime(cell, place);
  if (!parseNumber(cell)) refuse("tavlox:record:SampleNotANumber", place, shown(cell));
}

void SampleTable::takeHeading(std::string_view cell, CellPlace place) {
  if (cell.empty()) refuse("tavlox:record:EmptyHeading", place);
  if (!fl::i18n::is_well_formed(cell)) refuse("tavlox:record:HeadingNotUtf8", place);
  columns_.push_back(parseHeading(cell));
}

void SampleTable::takeTime(std::string_view cell, CellPlace place) {
  const std::optional<double> time = parseNumber(cell);
  if (!time || !std::isfinite(*time)) refuse("tavlox:record:TimeNotANumber", place, shown(cell));
  const std::uint64_t earlierRows = rowCount_++;
  const double step = *time - last_;
  last_ = *time;
  if (earlierRows == 0) {
    first_ = *time;
    return;
  }
  if (step <= 0) refuse("tavlox:record:TimeNotIncreasing", place, shown(cell));
  shortestStep_ = earlierRows == 1 ? step : std::min(shortestStep_, step);
  longestStep_ = std::max(longestStep_, step);
}

void SampleTable::endRow(CellPlace cellAfterLast) {
  if (!headingIsComplete_) return endHeading(cellAfterLast);
  if (cellAfterLast.column <= columns_.size())
    refuse("tavlox:record:UnevenRow", cellAfterLast, columns_.size());
}

void SampleTable::endHeading(CellPlace cellAfterLast) {
  if (columns_.size() < 2) refuse("tavlox:record:NoSignals", cellAfterLast);
  const std::u16string unit = time().unit.value_or(u"s");
  const std::optional<double> seconds = secondsIn(unit);
  if (!seconds) refuse("tavlox:record:UnknownTimeUnit", {cellAfterLast.line, 1}, unit);
  secondsPerUnit_ = *seconds;
  headingIsComplete_ = true;
}

std::u16string SampleTable::sampleTime() const {
  if (rowCount_ < 2) return {};
  const double mean = (last_ - first_) / static_cast<double>(rowCount_ - 1);
  if (longestStep_ - shortestStep_ > kStepTolerance * mean) return u"variable";
  return to_ustring(fmt::format("{:.9g}", mean * secondsPerUnit_));
}

}  // namespace tavlox::cli

// A raw file is a header of lines "Key: value", a line for each variable, and then the numbers of all
// variables, point by point: after "Values:" as words, each point with its index in front, after "Binary:" as
// doubles. Several such plots may follow each other. Nothing says how long a plot is but the numbers in its
// header, so what is to be left out has to be read over number by number.
#include "platform/tables/raw_table.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>

#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/files/paths.h"
#include "platform/tables/cells.h"
#include "platform/text/conversion.h"

namespace tavlox::tables {
namespace {

using fl::i18n::to_ustring_lossy;
using foundation::core::except::raise;

constexpr std::size_t kPieceSize = std::size_t{64} * 1024;
// Of a header's line or a number: what is longer is no raw file.
constexpr std::size_t kLongestLine = std::size_t{64} * 1024;
// Of one plot. More would not be a circuit, and would fill the memory.
constexpr std::uint64_t kMostVariables = 1'000'000;
constexpr std::string_view kBlanks = " \t\r\n";
static_assert(std::endian::native == std::endian::little, "numbers are read as they are stored");

struct Quantity {
  std::string_view type, unit;
};
constexpr Quantity kQuantities[] = {{"time", "s"}, {"voltage", "V"}, {"current", "A"}, {"power", "W"}};

/// Takes the first word off the text.
std::string_view takeWord(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(kBlanks));
  text.remove_prefix(word.size());
  return word;
}

/// The value of a line "Key: value", if it is one of that key.
std::optional<std::string_view> valueOf(std::string_view line, std::string_view key) {
  if (!line.starts_with(key)) return std::nullopt;
  line.remove_prefix(key.size());
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  return line.substr(0, line.find_last_not_of(kBlanks) + 1);
}

/// A list of names for a message.
void addTo(std::string& list, std::string_view name) {
  if (!list.empty()) list += ", ";
  list += fmt::format("\"{}\"", name);
}

}  // namespace

RawTable::RawTable(TableFile file) : file_(std::move(file)) {
  std::string others;
  while (readPlot(plot_) && !plot_.isOverTime) {
    addTo(others, plot_.name);
    skipNumbers(plot_);
  }
  if (!plot_.isOverTime) raise("tavlox:record:NoTimePlot", file_.name(), others);
  if (plot_.isComplex) refuse("its plot over time is complex");
  if (!others.empty()) description_.assumed.push_back("its results over time alone, without " + others);
  description_.headings = plot_.variables;
  description_.source = fl::filesystem::extract_filename(file_.name());
  description_.date = file_.date();
  checkHeadings(file_.name(), 1);
  if (plot_.points == 0) raise("tavlox:record:NoRows", file_.name(), 2, 1);
  description_.headingLine = plainHeadingLine(description_.headings, description_.timeUnit);
}

void RawTable::refuse(std::string_view what) const {
  raise("tavlox:record:DamagedRawFile", file_.name(), what);
}

/// Reads on behind what was not taken yet; false at the end of the file.
bool RawTable::fill() {
  buffer_.erase(0, start_);
  start_ = 0;
  const std::size_t before = buffer_.size();
  buffer_.resize(before + kPieceSize);
  buffer_.resize(before + file_.read(buffer_.data() + before, kPieceSize));
  return buffer_.size() > before;
}

/// Takes the next line, without its end; empty at the end of the file.
std::string_view RawTable::line() {
  std::size_t end;
  while ((end = buffer_.find('\n', start_)) == std::string::npos) {
    if (buffer_.size() - start_ > kLongestLine) refuse("a line of its header is too long");
    if (!fill()) {
      end = buffer_.size();
      break;
    }
  }
  const std::string_view found = std::string_view(buffer_).substr(start_, end - start_);
  start_ = std::min(end + 1, buffer_.size());
  return found;
}

/// Takes the next word of a plot's values.
std::string_view RawTable::word() {
  for (;;) {
    start_ = std::min(buffer_.find_first_not_of(kBlanks, start_), buffer_.size());
    const std::size_t end = buffer_.find_first_of(kBlanks, start_);
    if (end != std::string::npos) {
      const std::string_view found = std::string_view(buffer_).substr(start_, end - start_);
      start_ = end;
      return found;
    }
    if (buffer_.size() - start_ > kLongestLine) refuse("a number is too long");
    if (!fill()) {
      if (start_ == buffer_.size()) refuse("it ends within its numbers");
      buffer_ += '\n';
    }
  }
}

double RawTable::binaryNumber() {
  double number;
  while (buffer_.size() - start_ < sizeof number)
    if (!fill()) refuse("it ends within its numbers");
  std::memcpy(&number, buffer_.data() + start_, sizeof number);
  start_ += sizeof number;
  return number;
}

/// Reads up to the numbers of the next plot; false at the end of the file.
bool RawTable::readPlot(Plot& plot) {
  plot = {};
  std::uint64_t count = 0;
  for (;;) {
    // Copied: the buffer moves when the end of the file is looked for.
    const std::string text(line());
    const bool isAtEnd = start_ == buffer_.size() && !fill();
    if (text.find_first_not_of(kBlanks) == std::string_view::npos && isAtEnd) return false;
    const auto number = [&](std::string_view digits, std::uint64_t& into) {
      if (std::from_chars(digits.data(), digits.data() + digits.size(), into).ec != std::errc())
        refuse("a number of its header is none");
    };
    if (const auto name = valueOf(text, "Plotname:")) plot.name = *name;
    if (const auto flags = valueOf(text, "Flags:"))
      plot.isComplex = flags->find("complex") != std::string_view::npos;
    if (const auto digits = valueOf(text, "No. Variables:")) number(*digits, count);
    if (const auto digits = valueOf(text, "No. Points:")) number(*digits, plot.points);
    if (count > kMostVariables) refuse("it has too many variables");
    if (text.starts_with("Variables:"))
      for (std::uint64_t i = 0; i < count; ++i) readVariable(plot, line());
    plot.isBinary = text.starts_with("Binary:");
    if (plot.isBinary || text.starts_with("Values:")) break;
    if (isAtEnd) refuse("it ends within a header");
  }
  if (plot.variables.empty()) refuse("a plot has no variables");
  return true;
}

/// A line such as "1  v(out)  voltage".
void RawTable::readVariable(Plot& plot, std::string_view text) {
  takeWord(text);
  const std::u16string name = to_ustring_lossy(takeWord(text));
  const std::string_view type = takeWord(text);
  if (plot.variables.empty()) plot.isOverTime = type == "time";
  const auto* const quantity = std::ranges::find(kQuantities, type, &Quantity::type);
  const bool isKnown = quantity != std::end(kQuantities);
  plot.variables.push_back(
      {name, name, isKnown ? std::optional(to_ustring_lossy(quantity->unit)) : std::nullopt});
}

void RawTable::skipNumbers(const Plot& plot) {
  for (std::uint64_t point = 0; point < plot.points; ++point) {
    // In ASCII an index is in front, and the two halves of a complex number are one word.
    if (!plot.isBinary) word();
    for (std::size_t variable = 0; variable < plot.variables.size(); ++variable) {
      if (!plot.isBinary) {
        word();
        continue;
      }
      binaryNumber();
      if (plot.isComplex) binaryNumber();
    }
  }
  // The line that the last number stands in.
  if (!plot.isBinary) line();
}

/// Goes through what follows the table. Gives the plots that are left out.
std::string RawTable::plotsBehind() {
  std::string others;
  if (!plot_.isBinary) line();
  for (Plot plot; readPlot(plot); skipNumbers(plot)) {
    if (plot.isOverTime) raise("tavlox:record:SeveralTimePlots", file_.name());
    addTo(others, plot.name);
  }
  return others;
}

bool RawTable::next(Row& row) {
  plain_.clear();
  row.plain = {};
  if (row_ == plot_.points) {
    const std::string others = plotsBehind();
    if (!others.empty()) description_.assumed.push_back("its results over time alone, without " + others);
    file_.requireUnchanged();
    return false;
  }
  ++row_;
  if (!plot_.isBinary) word();
  for (std::size_t variable = 0; variable < plot_.variables.size(); ++variable) {
    if (variable > 0) plain_ += ',';
    if (plot_.isBinary) {
      appendNumber(plain_, binaryNumber());
      continue;
    }
    const std::string_view number = word();
    if (!parseNumber(number))
      raise("tavlox:record:SampleNotANumber", file_.name(), row_ + 1, variable + 1, number);
    plain_ += number;
  }
  plain_ += '\n';
  const std::string_view time = std::string_view(plain_).substr(0, plain_.find_first_of(",\n"));
  row.time = parseNumber(time).value();
  if (!std::isfinite(row.time)) raise("tavlox:record:TimeNotANumber", file_.name(), row_ + 1, 1, time);
  row.plain = plain_;
  return true;
}

void RawTable::refuseTime() const {
  raise("tavlox:record:TimeNotIncreasing", file_.name(), row_ + 1, 1, plain_.substr(0, plain_.find(',')));
}

}  // namespace tavlox::tables

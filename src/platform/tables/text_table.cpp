// A line goes three ways: lines.cpp decodes it, csv_rows.cpp takes it apart, and here its cells are checked
// and written down again in plain form. A line that is plain already is passed on as it is, which keeps a
// plain table byte for byte; so the lines without a row between two rows are kept too and go with the next
// one.
#include "platform/tables/text_table.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/files/paths.h"
#include "platform/text/conversion.h"

namespace tavlox::tables {
namespace {

using fl::i18n::to_ustring;
using fl::i18n::to_ustring_lossy;
using foundation::core::except::raise;

// Bytes of a cell that a message quotes.
constexpr std::size_t kShownOfCell = 40;

/// A cell as a message shows it.
std::string shown(std::string_view cell) {
  return cell.size() <= kShownOfCell ? std::string(cell) : std::string(cell.substr(0, kShownOfCell)) + "...";
}

bool hasEnd(std::string_view line) { return line.ends_with('\n') || line.ends_with('\r'); }

/// "1 cell", "2 cells".
std::string counted(std::uint64_t count, std::string_view what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

}  // namespace

TextTable::TextTable(TableFile file, const TableOptions& options)
    : lines_(std::move(file)),
      dialect_(findDialect(path(), lines_.sample(), options)),
      csv_(dialect_.delimiter),
      cells_(dialect_.numbers) {
  description_.source = fl::filesystem::extract_filename(path());
  description_.date = lines_.file().date();
  description_.isText = true;
  for (std::size_t skipped = 0; skipped < dialect_.skip; ++skipped) lines_.next();
  readHeadings();
  // The first row shows whether times are dates.
  if (!hasRow_) hasRow_ = readRow();
  if (!hasRow_) raise("tavlox:record:NoRows", path(), lineNumber_, 1);
  findMoments();
  if (options.timeUnit) description_.headings.front().unit = to_ustring(*options.timeUnit);
  if (firstMoment_) description_.headings.front().unit = u"s";
  checkHeadings(path(), headingLineNumber_);
  description_.headingLine = headingLine();
  describeDialect(options);
  met_.resize(description_.headings.size());
}

/// Looks whether the times are dates, by the first row.
void TextTable::findMoments() {
  const std::string_view cell = csv_.cell(0);
  if (CellReader(dialect_.numbers).read(cell)) return;
  // Guessed wrong it would be a month off, or by a factor of 60.
  if (isUnclearMoment(cell)) raise("tavlox:record:UnclearTime", path(), lineNumber_, 1, shown(cell));
  firstMoment_ = parseMoment(cell);
  if (!firstMoment_) return;
  // A clock may show the time of day or the time since the start; counted from 0 it is both.
  origin_ = firstMoment_->style == Moment::Style::Clock ? Moment{} : *firstMoment_;
}

/// Goes to the next row of cells. At the end false, and the number is that of the line which is not there.
bool TextTable::readRow() {
  for (;;) {
    line_ = lines_.next();
    lineNumber_ = lines_.number();
    if (line_.empty()) return readRowAtEnd();
    if (!csv_.isInRow() && dialect_.isComment(line_)) {
      hasComments_ = true;
      continue;
    }
    if (outcomeOf(csv_.take(line_))) return true;
    // Only the last line has no end.
    if (!hasEnd(line_)) return outcomeOf(csv_.finish());
    if (!csv_.isInRow()) blankLines_ += line_;
  }
}

bool TextTable::readRowAtEnd() {
  ++lineNumber_;
  return outcomeOf(csv_.finish());
}

/// Whether the line made a row. Raises for one that is ill-formed.
bool TextTable::outcomeOf(CsvRows::Outcome outcome) {
  // Of the cell that was being read.
  const std::size_t column = csv_.size() + 1;
  switch (outcome) {
    case CsvRows::Outcome::BadQuote:
      raise("tavlox:record:BadQuoting", path(), lineNumber_, column);
    case CsvRows::Outcome::TooLong:
      raise("tavlox:record:CellTooLong", path(), lineNumber_, column);
    default:
      return outcome == CsvRows::Outcome::Row;
  }
}

void TextTable::readHeadings() {
  if (!readRow()) raise("tavlox:record:EmptyTable", path(), 1, 1);
  headingLineNumber_ = lineNumber_;
  const std::size_t columns = csv_.size();
  // Told before there are rows to be read: with a wrong delimiter those are beside the point.
  if (columns < 2) raise("tavlox:record:NoSignals", path(), lineNumber_, columns + 1);
  if (!dialect_.hasHeadings) {
    makeHeadings();
    return;
  }
  takeHeadings();
  headingRow_ = line_;
  blankLines_.clear();
  // A row of units leaves the line without those.
  hasPlainHeadings_ = dialect_.isPlain() && !dialect_.hasUnitsRow && !endsInDelimiter_;
  if (dialect_.hasUnitsRow && readRow()) takeUnits();
}

/// For a table whose first row is one of numbers, which stays to be given.
void TextTable::makeHeadings() {
  description_.headings.push_back({u"", u"time", std::nullopt});
  for (std::size_t column = 2; column <= csv_.size(); ++column) {
    const std::u16string name = to_ustring(fmt::format("column {}", column));
    description_.headings.push_back({name, name, std::nullopt});
  }
  hasRow_ = true;
}

void TextTable::takeHeadings() {
  bool areNumbers = true;
  // Some programs write a delimiter behind every cell, also the last. A column is there only if it has a
  // name.
  endsInDelimiter_ = csv_.size() > 2 && csv_.cell(csv_.size() - 1).empty();
  for (std::size_t column = 0; column < csv_.size() - (endsInDelimiter_ ? 1 : 0); ++column) {
    const std::string_view cell = csv_.cell(column);
    if (cell.empty()) raise("tavlox:record:EmptyHeading", path(), lineNumber_, column + 1);
    if (!fl::i18n::is_well_formed(cell))
      raise("tavlox:record:HeadingNotUtf8", path(), lineNumber_, column + 1);
    // A date is no heading either.
    const bool isMoment = column == 0 && (parseMoment(cell) || isUnclearMoment(cell));
    areNumbers = areNumbers && (isMoment || cells_.read(cell));
    description_.headings.push_back(column == 0 ? timeHeading(cell) : signalHeading(cell));
  }
  if (areNumbers) raise("tavlox:record:HeadingsMissing", path(), lineNumber_, 1);
}

/// Takes the row below the headings for their units.
void TextTable::takeUnits() {
  const std::size_t columns = description_.headings.size();
  if (cellCount() > columns) raise("tavlox:record:UnevenRow", path(), lineNumber_, columns + 1, columns);
  for (std::size_t column = 0; column < cellCount(); ++column) {
    const std::string_view unit = unitIn(csv_.cell(column));
    if (!unit.empty()) description_.headings[column].unit = to_ustring_lossy(unit);
  }
}

/// The line of the file if every reader of plain tables finds the unit of the time in it.
std::string TextTable::headingLine() const {
  const Heading& time = description_.headings.front();
  const std::string_view unit = description_.timeUnit.name;
  const bool isPlainTime = time.unit ? time.written == time.name + u" [" + to_ustring(unit) + u"]"
                                     : time.written.find(u'[') == std::u16string::npos;
  if (hasPlainHeadings_ && isPlainTime) return headingRow_;
  return plainHeadingLine(description_.headings, description_.timeUnit);
}

/// What was found out without having been told.
void TextTable::describeDialect(const TableOptions& options) {
  std::vector<std::string>& assumed = description_.assumed;
  if (!lines_.file().compression().empty())
    assumed.push_back(fmt::format("{} data", lines_.file().compression()));
  if (lines_.encoding() == Encoding::Latin1) assumed.push_back("Latin-1 text, as it is no UTF-8");
  if (lines_.encoding() == Encoding::Utf16LittleEndian || lines_.encoding() == Encoding::Utf16BigEndian)
    assumed.push_back("UTF-16 text");
  if (!options.delimiter && dialect_.delimiter != ',')
    assumed.push_back(fmt::format("{} between cells", nameOf(dialect_.delimiter)));
  if (!options.decimal && dialect_.numbers.decimal != '.') assumed.push_back("decimal commas");
  if (!options.hasUnitsRow && dialect_.hasUnitsRow) assumed.push_back("a row of units");
  if (endsInDelimiter_) assumed.push_back("a delimiter at the end of the lines");
  if (!firstMoment_) return;
  if (firstMoment_->style == Moment::Style::Clock) {
    assumed.push_back("hours, minutes and seconds for times, as seconds from 0:00:00");
    return;
  }
  const bool isDayFirst = firstMoment_->style == Moment::Style::DayFirst;
  assumed.push_back(fmt::format("dates{} for times, as seconds from the first",
                                isDayFirst ? " of day, month and year" : ""));
  description_.date = to_ustring(isoText(*firstMoment_));
}

/// What was met in the cells.
void TextTable::describeCells() {
  std::vector<std::string>& assumed = description_.assumed;
  if (hasComments_) assumed.push_back(fmt::format("lines with \"{}\" as comments", dialect_.comment));
  if (cells_.empty > 0) assumed.push_back(counted(cells_.empty, "empty cell") + " as nan");
  for (std::size_t word = 0; word < std::size(cells_.missing); ++word) {
    if (cells_.missing[word] > 0) assumed.push_back(fmt::format("\"{}\" as nan", CellReader::kMissing[word]));
  }
  if (cells_.logical > 0) assumed.push_back(counted(cells_.logical, "true or false cell") + " as 1 or 0");
  if (cells_.exponents > 0) assumed.push_back("exponents written with D");
}

bool TextTable::next(Row& row) {
  if (!hasRow_ && !readRow()) {
    lines_.file().requireUnchanged();
    describeCells();
    // Empty cells aside; a column that also holds numbers is one of numbers.
    for (std::size_t column = 1; column < met_.size(); ++column)
      if (met_[column] == CellReader::Logical) description_.headings[column].dataType = u"boolean";
    plain_ = std::exchange(blankLines_, {});
    row.plain = dialect_.isPlain() ? plain_ : std::string_view();
    return false;
  }
  hasRow_ = false;
  row.plain = takeRow(row);
  return true;
}

/// Of the row, less an empty one behind the last delimiter where lines end in one.
std::size_t TextTable::cellCount() const {
  const std::size_t count = csv_.size();
  const bool isOneMore = endsInDelimiter_ && count == description_.headings.size() + 1;
  return isOneMore && csv_.cell(count - 1).empty() ? count - 1 : count;
}

/// The time of the row, in the unit of the table.
double TextTable::takeTime(bool& isChanged) {
  const std::string_view cell = csv_.cell(0);
  if (firstMoment_) {
    const std::optional<Moment> moment = parseMoment(cell);
    if (!moment || moment->style != firstMoment_->style)
      raise("tavlox:record:TimeNotANumber", path(), lineNumber_, 1, shown(cell));
    seconds_ = secondsBetween(origin_, *moment);
    isChanged = true;
    plain_ = seconds_;
    return parseNumber(seconds_).value();
  }
  const auto time = cells_.read(cell);
  if (!time || !std::isfinite(time->value))
    raise("tavlox:record:TimeNotANumber", path(), lineNumber_, 1, shown(cell));
  // The reader gives the cell itself back where it was plain: comparing places is enough.
  isChanged = isChanged || time->text.data() != cell.data();
  plain_ = time->text;
  return time->value;
}

/// Checks the row and gives it in plain form: the line itself if it is that.
std::string_view TextTable::takeRow(Row& row) {
  const std::size_t columns = description_.headings.size();
  bool isChanged = !dialect_.isPlain();
  row.time = takeTime(isChanged);
  const std::size_t count = cellCount();
  isChanged = isChanged || count != csv_.size();
  for (std::size_t column = 1; column < std::min(count, columns); ++column) {
    const std::string_view cell = csv_.cell(column);
    const auto number = cells_.read(cell);
    if (!number) raise("tavlox:record:SampleNotANumber", path(), lineNumber_, column + 1, shown(cell));
    met_[column] |= number->kind;
    if (!isChanged && number->text.data() != cell.data()) {
      // The first cell that is not plain: those before it were not written down, as most rows need none of
      // it.
      isChanged = true;
      for (std::size_t before = 1; before < column; ++before) (plain_ += ',') += csv_.cell(before);
    }
    if (isChanged) (plain_ += ',') += number->text;
  }
  if (count != columns)
    raise("tavlox:record:UnevenRow", path(), lineNumber_, std::min(count, columns) + 1, columns);
  if (isChanged) plain_ += '\n';
  if (blankLines_.empty()) return isChanged ? std::string_view(plain_) : line_;
  // In other dialects the rows are rewritten anyway, and empty lines between them say nothing.
  if (!isChanged) plain_ = line_;
  if (dialect_.isPlain()) plain_.insert(0, blankLines_);
  blankLines_.clear();
  return plain_;
}

void TextTable::refuseTime() const {
  raise("tavlox:record:TimeNotIncreasing", path(), lineNumber_, 1, shown(csv_.cell(0)));
}

}  // namespace tavlox::tables

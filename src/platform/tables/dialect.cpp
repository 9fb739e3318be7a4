// The first lines are read once for each way in which they could be written, and the way that gives the most
// even rows and the most numbers is taken. Only four delimiters are tried: with others, letters and signs of
// numbers among them, some reading nearly always fits by chance. What stays unclear is an error, since a
// table that is read wrongly looks like one that is right.
#include "platform/tables/dialect.h"

#include <algorithm>
#include <map>
#include <vector>

#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/tables/csv_rows.h"
#include "platform/tables/headings.h"

namespace tavlox::tables {
namespace {

using foundation::core::except::raise;

// Two scores that differ by less are as good as each other.
constexpr double kTie = 1e-6;
// Less than this is no table in that dialect. A table with a few bad rows is above it, and gets an error that
// says which.
constexpr double kLeastScore = 0.5;

/// Cells of a sample that was taken apart by one delimiter.
using Rows = std::vector<std::vector<std::string>>;

/// The lines that belong to the table, from the first row on.
std::vector<std::string_view> linesOf(std::string_view sample, const Dialect& dialect) {
  std::vector<std::string_view> lines;
  std::size_t skip = dialect.skip;
  while (!sample.empty()) {
    const std::size_t size = std::min(sample.find_first_of("\r\n"), sample.size() - 1) + 1;
    const std::string_view line = sample.substr(0, size);
    sample.remove_prefix(size);
    if (line.ends_with('\r') && sample.starts_with('\n')) sample.remove_prefix(1);
    if (skip > 0) {
      --skip;
      continue;
    }
    if (!dialect.isComment(line)) lines.push_back(line);
  }
  return lines;
}

/// What is ill-formed is left out: reading the table will tell.
Rows rowsOf(const std::vector<std::string_view>& lines, char delimiter) {
  Rows rows;
  CsvRows csv(delimiter);
  const auto take = [&](CsvRows::Outcome outcome) {
    if (outcome != CsvRows::Outcome::Row) return;
    std::vector<std::string>& row = rows.emplace_back();
    for (std::size_t column = 0; column < csv.size(); ++column) row.emplace_back(csv.cell(column));
  };
  for (const std::string_view line : lines) take(csv.take(line));
  take(csv.finish());
  return rows;
}

/// The number of cells that most rows have.
std::size_t usualWidth(const Rows& rows) {
  std::map<std::size_t, std::size_t> counts;
  for (const auto& row : rows) ++counts[row.size()];
  const auto most = std::ranges::max_element(counts, {}, [](const auto& count) { return count.second; });
  return most == counts.end() ? 0 : most->first;
}

bool isTimeUnit(const std::string& cell) { return findTimeUnit(unitIn(cell)) != nullptr; }

/// Whether the row holds units: the first is one of time, none of the others a number.
bool isUnitsRow(const std::vector<std::string>& row) {
  return !row.empty() && isTimeUnit(row.front()) &&
         std::ranges::none_of(row, [](const std::string& cell) { return parseNumber(cell).has_value(); });
}

/// One way to read the sample.
struct Candidate {
  Dialect dialect;
  double score = 0;
};

/// The share of cells that are numbers in rows of samples. Nothing if the decimal sign cannot be this one: a
/// comma is one only where some cell has one and no cell needs a point.
std::optional<double> shareOfNumbers(const Rows& rows, std::size_t firstRow, const NumberStyle& style,
                                     bool isCertain) {
  CellReader reader(style);
  std::size_t cells = 0, numbers = 0;
  bool hasComma = false;
  for (std::size_t row = firstRow; row < rows.size(); ++row) {
    for (const std::string& cell : rows[row]) {
      ++cells;
      hasComma = hasComma || cell.find(',') != std::string::npos;
      const bool needsPoint =
          style.decimal == ',' && style.thousands != '.' && cell.find('.') != std::string::npos;
      if (needsPoint && !isCertain && parseNumber(cell)) return std::nullopt;
      if (reader.read(cell) || parseMoment(cell) || isUnclearMoment(cell)) ++numbers;
    }
  }
  if (style.decimal == ',' && !hasComma && !isCertain) return std::nullopt;
  return cells == 0 ? 1 : static_cast<double>(numbers) / static_cast<double>(cells);
}

/// Adds what the sample may be with this delimiter.
void addCandidates(const std::vector<std::string_view>& lines, Dialect dialect, const TableOptions& options,
                   std::vector<Candidate>& candidates) {
  const Rows rows = rowsOf(lines, dialect.delimiter);
  const std::size_t width = usualWidth(rows);
  // A single column is a table without signals, or one with another delimiter.
  if (width < 2) return;
  // Title lines above the table, which --skip is for, make rows uneven without deciding anything.
  const auto usual = std::ranges::count(rows, width, [](const auto& row) { return row.size(); });
  const double evenness = static_cast<double>(usual) / static_cast<double>(rows.size());
  std::size_t firstRow = dialect.hasHeadings ? 1 : 0;
  if (!dialect.hasUnitsRow && firstRow < rows.size()) dialect.hasUnitsRow = isUnitsRow(rows[firstRow]);
  if (dialect.hasUnitsRow) ++firstRow;
  // The point first: where both fit equally well no cell has a comma, and sorting keeps the order.
  for (const char decimal : {'.', ','}) {
    if (decimal == dialect.delimiter || (options.decimal && *options.decimal != decimal)) continue;
    dialect.numbers = {decimal, options.thousands.value_or('\0')};
    const auto numbers = shareOfNumbers(rows, firstRow, dialect.numbers, options.decimal.has_value());
    if (numbers) candidates.push_back({dialect, evenness * *numbers});
  }
}

/// Best first; of equal ones with one delimiter, that with the decimal point.
void sortByScore(std::vector<Candidate>& candidates) {
  std::ranges::stable_sort(candidates, std::greater<>(), &Candidate::score);
}

/// "semicolons and decimal commas (46 %), commas (31 %)".
std::string listOf(const std::vector<Candidate>& candidates) {
  std::string list;
  for (const auto& [dialect, score] : candidates) {
    if (!list.empty()) list += ", ";
    list += fmt::format("{}{} ({:.0f} %)", nameOf(dialect.delimiter),
                        dialect.numbers.decimal == ',' ? " and decimal commas" : "", 100 * score);
  }
  return list;
}

/// Two dialects that read a table in two ways. Tabs are blanks too, so what reads well with tabs often reads
/// as well with blanks, and the same.
bool areRivals(const Candidate& best, const Candidate& next) {
  const bool isSameReading = best.dialect.delimiter == next.dialect.delimiter ||
                             (best.dialect.delimiter == '\t' && next.dialect.delimiter == ' ');
  return !isSameReading && best.score - next.score < kTie;
}

/// The line that some spreadsheets write first: "sep=;". Nothing if it is none.
std::optional<char> namedDelimiter(std::string_view sample) {
  const std::string_view line = sample.substr(0, sample.find_first_of("\r\n"));
  if (line.size() != 5 || !(line.starts_with("sep=") || line.starts_with("Sep=") || line.starts_with("SEP=")))
    return std::nullopt;
  return line[4];
}

/// The character that comment lines begin with: one of two that no heading begins with for good reasons.
char commentMark(std::string_view sample, std::size_t skip) {
  for (const std::string_view line : linesOf(sample, Dialect{.skip = skip})) {
    if (line.starts_with('#') || line.starts_with('%')) return line.front();
  }
  return 0;
}

}  // namespace

std::string_view nameOf(char delimiter) {
  switch (delimiter) {
    case ',':
      return "commas";
    case ';':
      return "semicolons";
    case '\t':
      return "tabs";
    case ' ':
      return "blanks";
    default:
      return "other delimiters";
  }
}

std::string_view unitIn(std::string_view cell) {
  const bool isBracketed =
      (cell.starts_with('[') && cell.ends_with(']')) || (cell.starts_with('(') && cell.ends_with(')'));
  return isBracketed ? cell.substr(1, cell.size() - 2) : cell;
}

Dialect findDialect(const std::u16string& file, std::string_view sample, const TableOptions& options) {
  Dialect dialect{
      .skip = options.skip, .hasUnitsRow = options.hasUnitsRow, .hasHeadings = options.hasHeadings};
  dialect.numbers = {options.decimal.value_or('.'), options.thousands.value_or('\0')};
  std::optional<char> delimiter = options.delimiter;
  if (const auto named = namedDelimiter(sample); named && options.skip == 0) {
    dialect.skip = 1;
    if (!delimiter) delimiter = named;
  }
  dialect.comment = options.comment.value_or(commentMark(sample, dialect.skip));
  const std::vector<std::string_view> lines = linesOf(sample, dialect);
  std::vector<Candidate> candidates;
  for (const char candidate : delimiter ? std::string(1, *delimiter) : std::string(",;\t ")) {
    dialect.delimiter = candidate;
    addCandidates(lines, dialect, options, candidates);
  }
  sortByScore(candidates);
  // Nothing to choose from: what is missing is told when the table is read.
  dialect.delimiter = delimiter.value_or(',');
  if (candidates.empty()) return dialect;
  const bool isTie = candidates.size() > 1 && areRivals(candidates[0], candidates[1]);
  if (isTie || candidates.front().score < kLeastScore)
    raise("tavlox:record:UnclearDialect", file, listOf(candidates));
  return candidates.front().dialect;
}

}  // namespace tavlox::tables

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/tables/headings.h"

/// Tables of results that people have, whatever wrote them: delimited text in its dialects, raw files of a
/// circuit simulator, HDF5 files, columns of numbers in memory. Each is read row by row, once, in the one
/// plain form in which sessions keep samples: UTF-8, comma-separated (RFC 4180), a heading line, the time
/// first, decimal points, nan and inf. Numbers keep the digits that they were written with.
namespace tavlox::tables {

/// One row. `plain` lasts until the next one is asked for.
struct Row {
  double time = 0;         ///< in the table's unit, finite
  std::string_view plain;  ///< all of it in plain form, with its line end unless it was the last
};

/// What is known of a table besides its rows.
struct TableDescription {
  std::vector<Heading> headings;  ///< the time's first; at least two, no name twice
  TimeUnit timeUnit;
  bool isTimeUnitAssumed = false;    ///< nothing named a unit, so the times were taken for seconds
  std::string headingLine;           ///< in plain form, with its line end; names the unit of the time
  std::u16string name;               ///< of the run, if the table gives it one
  std::u16string source;             ///< the file that signals are said to come from; may be empty
  std::u16string date;               ///< when the results were made, "2026-11-15T12:44:29Z"; may be empty
  bool isText = false;               ///< delimited text, which options can say more of
  std::vector<std::string> assumed;  ///< what a reader of plain tables would not have known, in English
};

/// One table. Raises tavlox:record:… errors that name the file and the place.
class Table {
 public:
  Table() = default;
  virtual ~Table();
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  /// Known before the first row, but for what the rows themselves show: that is in `date` and `assumed` once
  /// the last one was read.
  const TableDescription& description() const { return description_; }

  /// Gives the next row. At the end gives false and, as the row's text, what stands behind the last one.
  /// Raises for a row that holds anything but numbers, and at the end for a table without rows.
  virtual bool next(Row& row) = 0;

  /// Raises tavlox:record:TimeNotIncreasing for the row given last: rows are told apart by their times.
  [[noreturn]] virtual void refuseTime() const = 0;

 protected:
  /// Checks the headings and takes the unit of the time from the first. Raises tavlox:record:NoSignals,
  /// EmptyHeading, EqualHeadings and UnknownTimeUnit with the path and the line.
  void checkHeadings(const std::u16string& path, std::uint64_t line);

  TableDescription description_;
};

/// The heading line of a plain table, with its line end. The time's heading always names its unit.
std::string plainHeadingLine(const std::vector<Heading>& headings, const TimeUnit& timeUnit);

/// Appends the number with the fewest digits that read back the same.
void appendNumber(std::string& text, double number);

}  // namespace tavlox::tables

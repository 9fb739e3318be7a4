#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/tables/csv_rows.h"
#include "platform/tables/dialect.h"
#include "platform/tables/lines.h"
#include "platform/tables/table.h"

namespace tavlox::tables {

/// A table in delimited text. Its rows are checked as they come: as many cells as there are headings, a
/// finite time first, numbers behind it. A row that is plain already is given byte for byte.
///
/// Errors name the file, the line and the column, which count from 1; a column is a cell, not a character.
class TextTable : public Table {
 public:
  /// Reads up to the first row. Raises as `next` does, and for what the headings must not be.
  TextTable(TableFile file, const TableOptions& options);

  bool next(Row& row) override;
  [[noreturn]] void refuseTime() const override;

 private:
  bool readRow();
  bool readRowAtEnd();
  bool outcomeOf(CsvRows::Outcome outcome);
  void readHeadings();
  void makeHeadings();
  void takeHeadings();
  void takeUnits();
  void findMoments();
  std::string headingLine() const;
  void describeDialect(const TableOptions& options);
  void describeCells();
  double takeTime(bool& isChanged);
  std::string_view takeRow(Row& row);
  std::size_t cellCount() const;

  const std::u16string& path() const { return lines_.file().name(); }

  Lines lines_;
  Dialect dialect_;
  CsvRows csv_;
  CellReader cells_;
  std::string_view line_;   ///< that the row is made of
  std::string headingRow_;  ///< the heading line as it stands in the file
  std::string plain_;       ///< a row that was not
  std::string blankLines_;  ///< before the row
  std::uint64_t lineNumber_ = 0, headingLineNumber_ = 0;
  bool hasPlainHeadings_ = false;  ///< its line can stay as it is
  bool hasRow_ = false;            ///< was read ahead
  bool hasComments_ = false;
  bool endsInDelimiter_ = false;       ///< its headings do, and so a row may
  std::vector<unsigned char> met_;     ///< by column, which kinds of cells
  std::optional<Moment> firstMoment_;  ///< of a table with dates or clock times
  Moment origin_;                      ///< which times count from
  std::string seconds_;                ///< since then
};

}  // namespace tavlox::tables

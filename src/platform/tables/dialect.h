#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/tables/cells.h"

/// How a table is written, and how that is found out.
namespace tavlox::tables {

/// What people say of a table. What they do not say is found out, but for thousands, which never are: "1,234"
/// may be a number with decimals.
struct TableOptions {
  std::optional<char> delimiter;  ///< ',', ';', '\t', or ' ' for runs of blanks
  std::optional<char> decimal;    ///< '.' or ','
  std::optional<char> thousands;
  std::optional<char> comment;  ///< lines that begin with it are left out
  std::size_t skip = 0;         ///< lines at the beginning that are left out
  bool hasUnitsRow = false;     ///< the row below the headings holds units
  bool hasHeadings = true;
  std::optional<std::string> timeUnit;  ///< one that findTimeUnit knows
  std::optional<std::string> group;     ///< of an HDF5 file: in which the table is, or the dataset that it is
};

/// How one table is written.
struct Dialect {
  char delimiter = ',';
  NumberStyle numbers;
  char comment = 0;  ///< 0 if no lines are comments
  std::size_t skip = 0;
  bool hasUnitsRow = false;
  bool hasHeadings = true;

  /// Whether the lines of its rows are plain already, as far as their cells are.
  bool isPlain() const { return delimiter == ',' && numbers.decimal == '.' && numbers.thousands == 0; }
  /// Whether the line is none of the table's, outside of quotes.
  bool isComment(std::string_view line) const { return comment != 0 && line.starts_with(comment); }
};

/// The dialect of a table that begins with these whole lines. For each of the four delimiters, and each
/// decimal sign that the cells allow, the score is the share of rows with the same number of cells times the
/// share of cells that are numbers; the best one counts. Raises tavlox:record:UnclearDialect, which lists the
/// candidates, if two are equally good or even the best one is below a half. `file` is for messages.
Dialect findDialect(const std::u16string& file, std::string_view sample, const TableOptions& options);

/// The unit that a cell holds, without brackets around it.
std::string_view unitIn(std::string_view cell);

/// What a delimiter is called: "semicolons".
std::string_view nameOf(char delimiter);

}  // namespace tavlox::tables

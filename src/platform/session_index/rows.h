#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Rows on their way from the process that reads a package to the one that writes the index. Both are the
/// same program, so the form is the machine's own and nobody else's.
namespace tavlox::session_index {

using Cell = std::variant<std::monostate, std::int64_t, double, std::string>;  ///< texts in UTF-8

/// What a row says of a package. Each package begins with its file and ends with End.
enum class RowKind : char {
  File = 'F',    ///< path, inode, size, modified, changed, time of reading, modified as text
  Gone = 'G',    ///< there is no such file any more
  Run = 'R',     ///< its fields, and the text to search in
  Signal = 'S',  ///< likewise
  Statistics =
      'T',  ///< of the signal of this index among the package's: part, column, minimum, maximum, count
  Properties = 'P',  ///< description, version
  Error = 'X',       ///< identifier, message, and 1 if the rows before are not to be kept
  End = 'E',
};

struct Row {
  RowKind kind = RowKind::End;
  std::vector<Cell> cells;
  std::string bytes;  ///< as it came
};

/// Writes rows into a stream, whose failures show in std::ferror.
class RowWriter {
 public:
  explicit RowWriter(std::FILE* stream) : stream_(stream) {}

  /// What is written next are the cells of this row.
  RowWriter& begin(RowKind kind);
  RowWriter& nothing();
  RowWriter& integer(std::int64_t number);
  RowWriter& number(double number);
  RowWriter& text(std::string_view narrow);
  RowWriter& text(std::u16string_view text);
  /// Ends the row.
  void end();

 private:
  void put(char type, const void* value, std::size_t size);
  std::FILE* stream_;
  std::string row_;  ///< so far: a cell is small, and writing it costs more than keeping it
};

/// The next row, whose cells are used again; false if the stream ends before it does.
bool readRow(std::FILE* stream, Row& row);

}  // namespace tavlox::session_index

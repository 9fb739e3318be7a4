#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tavlox::cli {

/// Where a cell stands in a table, for messages. Both count from 1; a column is a cell, not a character.
struct CellPlace {
  std::uint64_t line = 1;
  std::uint64_t column = 1;
};

/// Takes apart one CSV table (comma-separated, cells in double quotes where they need it) while its bytes
/// come in, in constant memory. Blanks around unquoted cells and empty lines are left out.
class CsvReader {
 public:
  struct Receiver {
    std::function<void(std::string_view cell, CellPlace place)> cell;
    /// `cellAfterLast` is the place that the next cell would have had.
    std::function<void(CellPlace cellAfterLast)> endOfRow;
  };

  /// `path` is for messages.
  CsvReader(std::u16string path, Receiver receiver);
  ~CsvReader();

  /// Raises tavlox:record:BadQuoting, tavlox:record:CellTooLong (a cell of more than 64 KiB, most often a
  /// quote that is never closed), and whatever the receiver raises.
  void take(std::string_view bytes);
  /// Ends the table; its last line may lack a line end.
  void finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tavlox::cli

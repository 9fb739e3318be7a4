#pragma once

#include <cstdint>
#include <string>

#include "platform/tables/table.h"
#include "platform/tables/table_file.h"

namespace tavlox::tables {

/// A raw file of ngspice, ASCII or binary. It holds one or more plots, one behind the other; the one over
/// time is the table, the others (operating points, sweeps, complex results over frequency) are left out,
/// which `assumed` says. Binary numbers are written with the fewest digits that read back the same.
///
/// Raises tavlox:record:DamagedRawFile for a file that is cut off or no raw file, NoTimePlot if none of its
/// plots is over time and SeveralTimePlots for more than one, which would be several runs.
class RawTable : public Table {
 public:
  /// Whether a file that begins like this is one.
  static bool begins(std::string_view bytes) { return bytes.starts_with("Title:"); }

  explicit RawTable(TableFile file);

  bool next(Row& row) override;
  [[noreturn]] void refuseTime() const override;

 private:
  /// What stands above the numbers of a plot.
  struct Plot {
    std::string name;
    std::vector<Heading> variables;
    std::uint64_t points = 0;
    bool isComplex = false, isBinary = false, isOverTime = false;
  };
  bool readPlot(Plot& plot);
  void readVariable(Plot& plot, std::string_view line);
  void skipNumbers(const Plot& plot);
  std::string plotsBehind();

  bool fill();
  std::string_view line();
  std::string_view word();
  double binaryNumber();
  [[noreturn]] void refuse(std::string_view what) const;

  TableFile file_;
  std::string buffer_;
  std::size_t start_ = 0;  ///< in the buffer, of what was not taken yet
  Plot plot_;
  std::uint64_t row_ = 0;  ///< how many were given
  std::string plain_;
};

}  // namespace tavlox::tables

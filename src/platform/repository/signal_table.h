#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "platform/repository/member_binding.h"
#include "platform/repository/sql/row_cursor.h"
#include "platform/repository/sql/statement.h"

namespace orra {

class Row;

/// Names a signal in its table: the run in the upper half, below it the signal's place among the run's
/// signals, from 1 in the order of loading. One run's rows are therefore neighbours, and need no index.
constexpr std::int64_t signalIdentifier(std::int32_t run, std::int64_t place) {
  return (std::int64_t{run} << 32) + place;
}
constexpr std::int32_t runOfSignal(std::int64_t identifier) {
  return static_cast<std::int32_t>(identifier >> 32);
}

/// The signals of one repository.
class SignalTable {
 public:
  /// Columns, in the order of a signal's members.
  enum Column : int {
    Name = 1,
    DomainType,
    Description,
    Units,
    DisplayUnits,
    DataTypeLabel,
    Complexity,
    ComplexCoordSystem,
    SampleTime,
    Model,
    DisplayBlockPath,
    BlockName,
    PortIndex,
    Dimensions,
    Channel,
    RootSource,
    TimeSource,
    DataSource,
  };

  /// Creates the table in a database that does not have it.
  explicit SignalTable(sql::Database& database);

  void add(std::int64_t identifier, const Row& row);

  /// The number of signals that the run has.
  std::int64_t countOf(std::int32_t run);

  using IdentifierVisitor = std::function<void(std::int64_t identifier)>;
  /// In the order of loading.
  void forEachOf(std::int32_t run, const IdentifierVisitor& visit);
  /// `name` is UTF-8. The first search builds the index of names, so that loading need not keep it up.
  void forEachNamed(std::string_view name, std::int32_t run, const IdentifierVisitor& visit);

  /// Raises simulation_data_repository:sdr:InternalError if there is no such signal.
  sql::RowCursor::Lease row(std::int64_t identifier);

 private:
  sql::Database& database_;
  sql::Statement insert_, findLast_, findOfRun_, findNamed_;
  sql::RowCursor cursor_;
  PackedLists lists_;
};

}  // namespace orra

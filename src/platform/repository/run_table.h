#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/repository/sql/row_cursor.h"
#include "platform/repository/sql/statement.h"

namespace orra {

class Row;

/// The runs of one repository, and in a table of their own the entries of their metadata.
class RunTable {
 public:
  /// Columns, in the order of a run's members.
  enum Column : int {
    Name = 1,
    DateCreated,
    RunNumber,
    OrderIndex,
    Model,
    SimMode,
    StartTime,
    StopTime,
    Status,
    UpdateTime,
    SimTime,
    TermTime,
    TotalTime,
  };

  /// Creates the tables in a database that does not have them.
  explicit RunTable(sql::Database& database);

  /// `place` is the run's in its list, from 1.
  void add(std::int32_t run, std::size_t place, const Row& row);

  bool has(std::int32_t run) { return static_cast<bool>(cursor_.find(run)); }
  /// Raises simulation_data_repository:sdr:NoSuchRun.
  sql::RowCursor::Lease row(std::int32_t run);
  /// Empty text for a key that the run does not have. Raises NoSuchRun likewise.
  std::u16string metadata(std::int32_t run, std::string_view key);

 private:
  void addMetadata(std::int32_t run, const Row& row);

  sql::Statement insert_, insertMetadata_, findMetadata_;
  sql::RowCursor cursor_;
};

}  // namespace orra

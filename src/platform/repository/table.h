#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/repository/database_file.h"
#include "platform/repository/records.h"
#include "platform/repository/set.h"
#include "platform/repository/sql/database.h"

namespace orra {

class Row;

struct KeyRange {
  std::int64_t first, last;
};

// The tables of the repository. Only the classes of this folder know them: what others see are runs and
// signals, which read their fields from here.
/// The records of one kind in a database, each in one row.
template <class Record>
class Table {
 public:
  /// Creates the table in a database that does not have it.
  Table(sql::Database& database, const std::string& name);

  /// A number that stands for a field that the row does not have.
  struct Default {
    std::size_t field;
    std::int64_t number;
  };
  /// Stores the members of a checked element under a key that is not taken. Raises the database's failures.
  void add(std::int64_t key, const Row& row, std::optional<Default> missing = {});

  /// The whole record, null if there is none. Valid until the next call. Inside a transaction the table stays
  /// on the row it read last: asking for that one again costs nothing, asking for the one behind it a step.
  /// Outside it lets go of the row at once, since a row that is held locks the database.
  const Record* find(std::int64_t key);

  using KeyVisitor = std::function<void(std::int64_t key)>;
  /// The highest key in the range; nothing if there is none.
  std::optional<std::int64_t> lastKey(KeyRange range);
  /// In ascending order.
  void forEachKey(KeyRange range, const KeyVisitor& visit);
  /// `name` is UTF-8. The first search builds the index of names, so that loading need not keep it up.
  void forEachKeyNamed(std::string_view name, KeyRange range, const KeyVisitor& visit);

 private:
  /// From the row that rows_ is on.
  void readRecord();

  sql::Database& database_;
  std::string createNameIndex_;
  sql::Statement insert_, rows_, lastKey_, keys_, keysNamed_;
  std::string packed_;  ///< the fields of the row that is inserted
  Record record_;       ///< of the row that rows_ is on
  std::int64_t recordKey_ = 0;
};

extern template class Table<RunRecord>;
extern template class Table<SignalRecord>;

/// The keys that a run's signals can have: the run in the upper half, below it the signal's position among
/// the run's signals, from 1 in the order of loading. One run's rows are therefore neighbours, and need no
/// index.
constexpr KeyRange signalsOf(RunId run) {
  const std::int64_t upper = static_cast<std::int64_t>(run) << 32;
  return {upper + 1, upper + std::numeric_limits<std::uint32_t>::max()};
}
constexpr RunId runOfSignal(std::int64_t key) { return RunId{static_cast<std::int32_t>(key >> 32)}; }

/// Everything that one repository has open. Members are closed from the last to the first: statements before
/// the database, and the database before the file, whose lock must outlive all other openings of it.
struct ObjectManager::Tables {
  Tables(const std::string& folder, const std::string& name);

  DatabaseFile file;
  sql::Database database;
  Table<RunRecord> runs;          ///< by repository identifier
  std::vector<RunId> loadedRuns;  ///< those of `runs`, in ascending order
  Table<SignalRecord> signals;    ///< see signalsOf
};

}  // namespace orra

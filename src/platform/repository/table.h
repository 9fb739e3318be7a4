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
#include "platform/sql/database.h"

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

  /// The whole record, null if there is none. Valid until the next call. Asking for the one that was read
  /// last costs nothing in the same transaction. Whoever asks for one record after the other, in however many
  /// transactions, gets them from memory: some are read ahead, so that the database is not locked and
  /// searched for each. Any other record, also one that was read before, is read from the database.
  const Record* find(std::int64_t key);

  using KeyVisitor = std::function<void(std::int64_t key)>;
  /// The highest key in the range; nothing if there is none.
  std::optional<std::int64_t> lastKey(KeyRange range);
  /// In ascending order.
  void forEachKey(KeyRange range, const KeyVisitor& visit);
  /// `name` is UTF-8. The first search builds the index of names, so that loading need not keep it up.
  void forEachKeyNamed(std::string_view name, KeyRange range, const KeyVisitor& visit);

 private:
  /// A row that was read ahead: where its name and its packed fields end in aheadBytes_.
  struct AheadRow {
    std::int64_t key;
    std::size_t nameEnd, end;
  };

  /// The first row from `key` on and up to `most` in all. The ones behind the first are left out where they
  /// cannot be read: that is said when it is their turn.
  void readAhead(std::int64_t key, std::size_t most);
  /// The next row of those that were read ahead; null if there is none that still holds.
  const AheadRow* nextAhead() const;
  void unpackNext();

  sql::Database& database_;
  std::string createNameIndex_;
  sql::Statement insert_, rows_, lastKey_, keys_, keysNamed_;
  std::string packed_;  ///< the fields of the row that is inserted
  std::string aheadBytes_;
  std::vector<AheadRow> ahead_;
  std::size_t unpacked_ = 0;          ///< of the rows ahead
  std::uint64_t aheadRollbacks_ = 0;  ///< of the database when they were read
  Record record_;
  std::int64_t recordKey_ = 0;
  std::uint64_t recordStretch_ = 0;  ///< of the database when it was read; 0 if it was read in part
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

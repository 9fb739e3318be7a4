#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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

/// The records of one kind in a database. Those of neighbouring keys lie together in batches, each a row of
/// the database: many records then cost it as little as one.
template <class Record>
class Table {
 public:
  /// Creates the table in a database that does not have it.
  Table(sql::Database& database, const std::string& name);

  /// A number that stands for a field that the record does not have.
  struct Default {
    std::size_t field;
    std::int64_t number;
  };

  /// Stores records, in a transaction that begins before it and ends behind it.
  class Loading {
   public:
    explicit Loading(Table& table) : table_(table) {}

    /// Takes the members of a checked element under a key that is not taken. Raises the database's failures.
    void add(std::int64_t key, const Row& row, std::optional<Default> missing = {});
    /// Stores what is left. Without it the last records are not in the table.
    void finish();

   private:
    struct Batch {
      KeyRange keys;
      std::string records;
      /// Where each field was packed last, and its bytes: none in a new batch.
      std::array<std::pair<std::size_t, std::size_t>, kMembers<Record>.size()> fields;
    };
    /// The batch that a record of this key goes on with.
    Batch& batchFor(std::int64_t key);
    void store(Batch& batch);

    Table& table_;
    std::vector<Batch> open_;  ///< of several runs, as their signals may come in turns
    std::size_t current_ = 0;
  };

  /// The whole record, null if there is none. Valid until the next call. Asking for the one that was read
  /// last costs nothing in the same transaction. Whoever asks for one record after the other, in however many
  /// transactions, gets those of a batch from memory, so that the database is not locked and searched for
  /// each. Any other record, also one that was read before, is read from the database.
  const Record* find(std::int64_t key) {
    const bool isSame = key == recordKey_ && recordStretch_ == database_.stretch();
    return isSame && database_.isInTransaction() ? &record_ : read(key);
  }

  /// Which fields of a record are known to be the same as those of the record of the key before, a bit for
  /// each, the lowest for the first.
  std::uint32_t repeatedFields(std::int64_t key) { return find(key) == nullptr ? 0 : repeated_; }

  /// The highest key in the range; the one before it if there is none.
  std::int64_t lastKey(KeyRange range);

  /// Visits the records of exactly this name by ascending keys. The first search reads all names, of which 16
  /// bytes each stay in memory.
  void forEachKeyNamed(std::u16string_view name, KeyRange range,
                       const std::function<void(std::int64_t key)>& visit);

 private:
  /// A name by its hash.
  struct Name {
    std::size_t hash;
    std::int64_t key;
    auto operator<=>(const Name&) const = default;
  };

  /// What stands before the fields of a record: how many bytes they have, and a bit for each that was left
  /// out since the record before has the same.
  struct Head {
    std::uint32_t length = 0, repeated = 0;
  };

  const Record* read(std::int64_t key);
  /// The row that the statement is on becomes the batch that records are taken from.
  void takeBatch(sql::Statement& batches);
  /// Whether the batch holds the record, not yet taken, and the database still does.
  bool isAhead(std::int64_t key) const;
  /// Of the record that begins there in the batch.
  Head headAt(std::size_t offset) const;
  /// To the last record up to this one that is whole, unless it was taken.
  void skipTo(std::int64_t key);
  /// The next record of the batch becomes the one that was read last.
  void takeNext();
  /// All names, sorted.
  const std::vector<Name>& names();

  sql::Database& database_;
  sql::Statement insert_, batchOf_, lastKey_, batches_;
  // The batch that was read last, of which the records from `next_` on are still to be taken.
  std::string batch_;
  std::size_t offset_ = 0;
  std::int64_t next_ = 1, last_ = 0;
  std::uint64_t batchRollbacks_ = 0;  ///< of the database when it was read
  std::vector<Name> names_;           ///< empty as long as nobody searched
  std::uint64_t namesRollbacks_ = 0;  ///< likewise
  Record record_;
  std::uint32_t repeated_ = 0;  ///< its fields that are the same as those of the record before
  std::int64_t recordKey_ = 0;
  std::uint64_t recordStretch_ = 0;  ///< of the database when it was read; 0 if it was read in part
};

extern template class Table<RunRecord>;
extern template class Table<SignalRecord>;

/// The keys that a run's signals can have: the run in the upper half, below it the signal's position among
/// the run's signals, from 1 in the order of loading. So one run's signals are neighbours, without a gap.
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
  Table<RunRecord> runs;           ///< by repository identifier
  std::vector<RunId> loadedRuns;   ///< those of `runs`, in ascending order
  Table<SignalRecord> signals;     ///< see signalsOf
  std::shared_ptr<Set> signalRun;  ///< the run of the signal whose run was asked for last, or null
};

}  // namespace orra

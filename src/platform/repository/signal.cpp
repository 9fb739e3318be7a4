#include "platform/repository/signal.h"

#include "platform/progress/progress.h"
#include "platform/repository/json_rows.h"
#include "platform/repository/table.h"
#include "platform/text/conversion.h"

namespace orra {

using foundation::core::except::raise;

namespace {

constexpr std::size_t kRowsPerReport = 65'536;

/// Adds signals behind those that their runs have.
class SignalLoader {
 public:
  SignalLoader(ObjectManager::Tables& tables, const RunIdMap& runIds)
      : tables_(tables), loading_(tables.signals), runIds_(runIds) {}

  void add(std::size_t index, const Row& row) {
    constexpr std::size_t kRun = fieldIndex<SignalRecord>("runID");
    if (!row[kRun]) raiseInvalid(kSignalsPartKind, index + 1, "\"runID\" is missing");
    const FileRunId inFile{row.integer(kRun)};
    // Mostly one run's signals stand together.
    if (current_ == nullptr || inFile != currentInFile_) {
      current_ = &lastKeyOf(inFile, index);
      currentInFile_ = inFile;
    }
    loading_.add(++*current_, row);
  }
  void finish() { loading_.finish(); }

 private:
  /// The key of the run's last signal so far.
  std::int64_t& lastKeyOf(FileRunId inFile, std::size_t index) {
    if (const auto known = lastKeys_.find(inFile); known != lastKeys_.end()) return known->second;
    const auto run = runIds_.find(inFile);
    // The map may have runs of an earlier load.
    if (run == runIds_.end() || !tables_.runs.find(static_cast<std::int64_t>(run->second))) {
      raiseInvalid(kSignalsPartKind, index + 1, "\"runID\" is no run of the run list");
    }
    // A further part may add to a run that has signals already; its numbering goes on.
    const std::int64_t last = tables_.signals.lastKey(signalsOf(run->second));
    return lastKeys_.emplace(inFile, last).first->second;
  }

  ObjectManager::Tables& tables_;
  Table<SignalRecord>::Loading loading_;
  const RunIdMap& runIds_;
  boost::unordered_flat_map<FileRunId, std::int64_t, FileRunIdHash> lastKeys_;
  std::int64_t* current_ = nullptr;  ///< the entry of the run that came last; valid until another is added
  FileRunId currentInFile_{};
};

}  // namespace

void object::loadSignals(ObjectManager& manager, ObjRefArrayJSON& signals, const RunIdMap& runIds,
                         ProgressTracker*, bool, int, TemporalDeserializer*) {
  ObjectManager::Tables& tables = manager.tables();
  sql::Transaction transaction(tables.database);
  SignalLoader loader(tables, runIds);
  signals.forEachRow([&](std::size_t index, const Row& row) {
    if (index % kRowsPerReport == 0) corvan::reportProgress({u"Loading signals", index});
    loader.add(index, row);
  });
  loader.finish();
  transaction.commit();
  corvan::reportProgress({u"Loading signals", signals.size(), signals.size()});
}

std::unique_ptr<Signal> Signal::getSignalFromObjRef(std::unique_ptr<ObjectRef> reference) {
  return std::make_unique<Signal>(*reference);
}

const SignalRecord& Signal::record() const {
  const ObjectRef& reference = getObjectReference();
  const SignalRecord* found = reference.getObjectManager()->tables().signals.find(reference.key());
  if (found == nullptr) raise("simulation_data_repository:sdr:InternalError");
  return *found;
}

std::uint32_t Signal::repeatedFields(const Signal& before) const {
  const ObjectRef &reference = getObjectReference(), &other = before.getObjectReference();
  const bool areNeighbours =
      reference.getObjectManager() == other.getObjectManager() && reference.key() == other.key() + 1;
  return areNeighbours ? reference.getObjectManager()->tables().signals.repeatedFields(reference.key()) : 0;
}

std::shared_ptr<Set> Signal::getRun() const {
  ObjectManager& manager = *getObjectReference().getObjectManager();
  const auto key = static_cast<std::int64_t>(runOfSignal(getObjectReference().key()));
  // Signals of one run are mostly asked one after the other.
  std::shared_ptr<Set>& run = manager.tables().signalRun;
  if (run == nullptr || run->getObjectReference().key() != key) {
    run = std::make_shared<Set>(ObjectRef(&manager, key));
  }
  return run;
}

std::vector<std::uint64_t> Signal::getChannel(bool zeroBased) const {
  std::vector<std::uint64_t> channel = record().channel.value_or(std::vector<std::uint64_t>{});
  // Recorded channels count from 1; a 0, which no writer should have recorded, stays.
  if (!zeroBased) return channel;
  for (std::uint64_t& index : channel) index -= index > 0 ? 1 : 0;
  return channel;
}

}  // namespace orra

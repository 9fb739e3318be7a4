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
  SignalLoader(ObjectManager::Tables& tables, const RunIdMap& runIds) : tables_(tables), runIds_(runIds) {}

  void add(std::size_t index, const Row& row) {
    constexpr std::size_t kRun = fieldIndex<SignalRecord>("runID");
    if (!row[kRun]) raiseInvalid(kSignalsPartKind, index + 1, "\"runID\" is missing");
    const FileRunId inFile{row.integer(kRun)};
    // Mostly one run's signals stand together.
    if (current_ == nullptr || inFile != currentInFile_) {
      current_ = &lastKeyOf(inFile, index);
      currentInFile_ = inFile;
    }
    tables_.signals.add(++*current_, row);
  }

 private:
  /// The key of the run's last signal so far.
  std::int64_t& lastKeyOf(FileRunId inFile, std::size_t index) {
    if (const auto known = lastKeys_.find(inFile); known != lastKeys_.end()) return known->second;
    const auto run = runIds_.find(inFile);
    // The map may have runs of an earlier load.
    if (run == runIds_.end() || !tables_.runs.find(static_cast<std::int64_t>(run->second))) {
      raiseInvalid(kSignalsPartKind, index + 1, "\"runID\" is no run of the run list");
    }
    const auto range = signalsOf(run->second);
    const std::int64_t last = tables_.signals.lastKey(range).value_or(range.first - 1);
    return lastKeys_.emplace(inFile, last).first->second;
  }

  ObjectManager::Tables& tables_;
  const RunIdMap& runIds_;
  boost::unordered_map<FileRunId, std::int64_t, FileRunIdHash> lastKeys_;
  std::int64_t* current_ = nullptr;  ///< the entry of the run that came last
  FileRunId currentInFile_{};
};

}  // namespace

void object::loadSignals(ObjectManager& manager, const ObjRefArrayJSON& signals, RunIdMap& runIds,
                         ProgressTracker*, bool, int, TemporalDeserializer*) {
  ObjectManager::Tables& tables = manager.tables();
  sql::Transaction transaction(tables.database);
  SignalLoader loader(tables, runIds);
  signals.forEachRow([&](std::size_t index, const Row& row) {
    if (index % kRowsPerReport == 0) corvan::reportProgress({u"Loading signals", index, signals.size()});
    loader.add(index, row);
  });
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

std::shared_ptr<Set> Signal::getRun() const {
  const ObjectRef& reference = getObjectReference();
  const auto run = static_cast<std::int64_t>(runOfSignal(reference.key()));
  return std::make_shared<Set>(ObjectRef(reference.getObjectManager(), run));
}

std::u16string Signal::getName() const { return record().name.value_or(u""); }
std::string Signal::getDomainType() const { return fl::i18n::to_string(record().domainType.value_or(u"")); }
std::u16string Signal::getDescription() const { return record().description.value_or(u""); }
std::u16string Signal::getUnits() const { return record().units.value_or(u""); }
std::u16string Signal::getDisplayUnits() const { return record().displayUnits.value_or(u""); }
std::u16string Signal::getDataTypeLabel() const { return record().dataTypeLabel.value_or(u""); }
std::int32_t Signal::getComplexity() const { return record().complexity.value_or(0); }
std::int32_t Signal::getComplexCoordSystem() const { return record().complexCoordSystem.value_or(0); }
std::u16string Signal::getSampleTimeString() const { return record().sampleTime.value_or(u""); }
std::u16string Signal::getModel() const { return record().model.value_or(u""); }
std::u16string Signal::getDisplayBlockPath() const { return record().displayBlockPath.value_or(u""); }
std::u16string Signal::getBlockName() const { return record().blockName.value_or(u""); }
std::int32_t Signal::getPortIndex() const { return record().portIndex.value_or(0); }
std::vector<std::uint64_t> Signal::getDimensions() const {
  return record().dimensions.value_or(std::vector<std::uint64_t>{});
}
std::vector<std::uint64_t> Signal::getChannel(bool zeroBased) const {
  std::vector<std::uint64_t> channel = record().channel.value_or(std::vector<std::uint64_t>{});
  if (!zeroBased) return channel;
  for (std::uint64_t& index : channel) index -= index > 0 ? 1 : 0;
  return channel;
}
std::u16string Signal::getRootSource() const { return record().rootSource.value_or(u""); }
std::u16string Signal::getTimeSource() const { return record().timeSource.value_or(u""); }
std::u16string Signal::getDataSource() const { return record().dataSource.value_or(u""); }

}  // namespace orra

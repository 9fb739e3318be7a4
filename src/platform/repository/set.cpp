#include "platform/repository/set.h"

#include <algorithm>
#include <utility>

#include "platform/repository/json_rows.h"
#include "platform/repository/obj_ref_array_json.h"
#include "platform/repository/signal.h"
#include "platform/repository/table.h"
#include "platform/text/conversion.h"
#include "platform/text/text_hash.h"

namespace orra {

using foundation::core::except::raise;

namespace {

std::int64_t keyOf(RunId run) { return static_cast<std::int64_t>(run); }

/// An identifier that no run of this process had before, and another than the run has in its file.
RunId newRunId(std::int32_t inFile) {
  // Files mostly count from 1; far from there a mix-up shows.
  static std::int32_t last = 1'000'000'000;
  if (++last == inFile) ++last;
  if (last <= 0) raise("simulation_data_repository:sdr:InternalError");
  return RunId{last};
}

}  // namespace

std::size_t FileRunIdHash::operator()(FileRunId run) const noexcept {
  return fl::i18n::TextHash()({reinterpret_cast<const char*>(&run), sizeof run});
}

void Set::loadRunsFromJSON(ObjectManager& manager, std::istream& stream, RunIdMap& runIds,
                           std::vector<RunId>& newRuns, Application) {
  // All runs or none: the caller's map is touched only after the transaction has been committed.
  ObjectManager::Tables& tables = manager.tables();
  std::vector<std::pair<FileRunId, RunId>> loaded;
  sql::Transaction transaction(tables.database);
  Table<RunRecord>::Loading loading(tables.runs);
  ObjRefArrayJSON runs(kRunListKind, ObjRefArrayJSON::Reading::WithRows);
  runs.load(stream);
  runs.forEachRow([&](std::size_t index, const Row& row) {
    const std::int32_t inFile = row.integer(fieldIndex<RunRecord>(strings::IDLower));
    const RunId run = newRunId(inFile);
    // A run without an order index stands where the run list has it.
    const auto position = static_cast<std::int64_t>(index) + 1;
    loading.add(keyOf(run), row, {{fieldIndex<RunRecord>("orderIndex"), position}});
    loaded.emplace_back(FileRunId{inFile}, run);
  });
  loading.finish();
  transaction.commit();
  runIds.reserve(runIds.size() + loaded.size());
  for (const auto& [inFile, run] : loaded) {
    tables.loadedRuns.push_back(run);
    runIds[inFile] = run;
    newRuns.push_back(run);
  }
}

bool Set::lookupSet(RunId run, std::shared_ptr<Set>& result, ObjectManager& manager, bool mustExist) {
  result.reset();
  // Not asked of the database: a query of its own would lock it once more for each run that is looked up.
  const bool found = std::ranges::binary_search(manager.tables().loadedRuns, run);
  if (!found && mustExist) raise("simulation_data_repository:sdr:NoSuchRun");
  if (found) result = std::make_shared<Set>(ObjectRef(&manager, keyOf(run)));
  return found;
}

void Set::getAllSignals(ObjectManager& manager, SignalQueryType type, RunId run,
                        boost::ptr_vector<ObjectRef>& references) {
  // Known by their keys alone; no signal is read before one of its fields is asked for.
  if (type == SignalQueryType::None) return;
  const KeyRange keys = signalsOf(run);
  const std::int64_t last = manager.tables().signals.lastKey(keys);
  for (std::int64_t key = keys.first; key <= last; ++key) references.push_back(new ObjectRef(&manager, key));
}

void Set::getAllSignalsByName(ObjectManager& manager, const std::u16string& name, RunId run,
                              boost::ptr_vector<ObjectRef>& references) {
  manager.tables().signals.forEachKeyNamed(
      name, signalsOf(run), [&](std::int64_t key) { references.push_back(new ObjectRef(&manager, key)); });
}

const RunRecord& Set::record() const {
  const ObjectRef& reference = getObjectReference();
  const RunRecord* found = reference.getObjectManager()->tables().runs.find(reference.key());
  if (found == nullptr) raise("simulation_data_repository:sdr:NoSuchRun");
  return *found;
}

const std::u16string& Set::getRunMetaDataUstring(std::string_view key) const {
  static const std::u16string empty;
  const auto& metadata = record().metadata;
  const auto entry = metadata.find(key);
  return entry == metadata.end() ? empty : entry->second;
}

}  // namespace orra

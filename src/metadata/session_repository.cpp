#include "metadata/session_repository.h"

#include "metadata/file_time.h"
#include "metadata/transaction.h"
#include "package/session_parts.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/repository/load_signals.h"
#include "platform/repository/obj_ref_array_json.h"

namespace orra::tavloxio {

using file::OpenMode;
using file::ScopedRef;
using foundation::core::except::collection;
using foundation::core::except::raise;
using References = boost::ptr_vector<ObjectRef>;

namespace {

/// Converts the references, in their order.
void appendSignals(Signals& signals, References& references) {
  std::size_t next = signals.size() + references.size();
  signals.resize(next);
  // From the end, where taking a reference out costs nothing.
  while (!references.empty()) {
    std::unique_ptr<ObjectRef> reference(references.pop_back().release());
    signals[--next] = Signal::getSignalFromObjRef(std::move(reference));
  }
}

/// Removes a database file that nobody uses any more.
void removeDatabase(const std::u16string& location) {
  std::string reason;
  try {
    fl::filesystem::remove(location);
    return;
  } catch (const std::exception& failure) {
    reason = failure.what();
  } catch (...) {
    // No reason is known.
  }
  // These identifiers of the data dictionary are the ones that hosts know for this failure.
  if (!reason.empty()) raise("BRINDD:brindd:DictFuncThrewStdException", reason);
  raise("BRINDD:brindd:DictFuncThrewException");
}

}  // namespace

SessionRepository::~SessionRepository() { release(); }

void SessionRepository::ensureLoaded(const std::u16string& path) {
  const auto stamp = fileModificationTime(path);
  if (stamp == loadedStamp_) return;
  // Stored before anything is loaded: a load that fails is not tried again until the file changes.
  loadedStamp_ = stamp;
  release();
  objectManager_ = std::make_unique<ObjectManager>();
  objectManager_->initializeObjectManager("", "");
  load(ScopedRef(OpenMode::Read, path));
}

void SessionRepository::release() {
  if (objectManager_ == nullptr) return;
  const std::u16string location = objectManager_->getDatabaseLocation();
  objectManager_.reset();
  if (!location.empty()) removeDatabase(location);
}

void SessionRepository::load(const ScopedRef& ref) {
  const auto runLists = findPartsByRelationshipType(ref, tavlox::relationship_types::kRunData);
  if (runLists.empty()) return;
  PartStream stream(runLists.front(), StartAt::Beginning);
  IdentifierMap loaded;
  std::vector<std::int32_t> newRuns;
  Set::loadRunsFromJSON(*objectManager_, stream, loaded, newRuns, Application::SessionFile);
  for (const auto& [file, repository] : loaded) fileToRepository_[file] = repository;

  for (const auto& part : findPartsByRelationshipType(ref, tavlox::relationship_types::kSignalsData)) {
    loadSignals(part);
  }
}

void SessionRepository::loadSignals(const opc::model::Part& part) {
  PartStream stream(part, StartAt::Beginning);
  ObjRefArrayJSON signals(kSignalsPartKind, ObjRefArrayJSON::Keep::Rows);
  signals.load(stream);
  IdentifierMap identifiers(fileToRepository_.begin(), fileToRepository_.end());
  object::loadSignals(*objectManager_, signals, identifiers, nullptr, false, 0, nullptr);
  fileToRepository_ = {identifiers.begin(), identifiers.end()};
}

std::int32_t SessionRepository::repositoryIdentifier(std::int32_t fileIdentifier) const {
  const auto entry = fileToRepository_.find(fileIdentifier);
  if (entry == fileToRepository_.end()) raise("tavlox:general:UnableToReadFile", "");
  return entry->second;
}

std::shared_ptr<Set> SessionRepository::lookupRun(std::int32_t fileIdentifier) {
  const std::int32_t run = repositoryIdentifier(fileIdentifier);
  std::shared_ptr<Set> found;
  runTransaction(*objectManager_, [&] {
    if (Set::lookupSet(run, found, *objectManager_, false)) return;
    collection missing;
    missing.add("simulation_data_repository:sdr:NoSuchRun");
    throwCollected(missing);
  });
  return found;
}

Signals SessionRepository::allSignals(const std::vector<std::int32_t>& fileIdentifiers) {
  Signals signals;
  for (const std::int32_t identifier : fileIdentifiers) {
    const std::int32_t run = repositoryIdentifier(identifier);
    References references;
    runTransaction(*objectManager_,
                   [&] { Set::getAllSignals(*objectManager_, SignalQueryType::All, run, references); });
    appendSignals(signals, references);
  }
  return signals;
}

Signals SessionRepository::signalsByName(const std::vector<std::int32_t>& fileIdentifiers,
                                         const std::u16string& name) {
  Signals signals;
  for (const std::int32_t identifier : fileIdentifiers) {
    References references;
    Set::getAllSignalsByName(*objectManager_, name, repositoryIdentifier(identifier), references);
    appendSignals(signals, references);
  }
  return signals;
}

}  // namespace orra::tavloxio

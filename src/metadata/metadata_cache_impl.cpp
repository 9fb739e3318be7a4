#include "metadata/metadata_cache_impl.h"

#include <ctime>

#include "metadata/run_list.h"
#include "metadata/session_repository.h"
#include "package/session_parts.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace orra::tavloxio {

using boost::posix_time::ptime;
using file::OpenMode;
using file::ScopedRef;
using foundation::core::except::collection;
using foundation::core::except::raise;
using References = boost::ptr_vector<ObjectRef>;

namespace {

// Two things are kept of a file, each with the file's time when it was read: the values of its properties,
// and a repository of its runs and signals. They are read independently, since whoever asks for a description
// should not wait for a hundred thousand signals. A change of the file's time is the only sign of a new
// content; a content that comes with the old time is not noticed.
/// The last-write time of the file, UTC, in microseconds. Raises tavlox:general:FileNotFound if there is no
/// such file and tavlox:general:UnableToReadFile if its status cannot be read, both with the path.
ptime fileModificationTime(const std::u16string& path) {
  // Every query of every run comes by here, so one system call has to do for a file that is there.
  try {
    return fl::filesystem::status(path).lastWriteTime;
  } catch (...) {
    if (!fl::filesystem::exists(path)) raise("tavlox:general:FileNotFound", path);
    raise("tavlox:general:UnableToReadFile", path);
  }
}

/// "15-Nov-2026 12:44:29": local time, the month as the process's time locale abbreviates it.
std::u16string localTimeText(ptime time) {
  const ptime epoch(boost::gregorian::date(1970, 1, 1));
  // Division cuts towards zero; times before 1970 are off by less than a second.
  const std::time_t seconds = (time - epoch).total_microseconds() / 1'000'000;
  char text[100];
  const std::size_t length = std::strftime(text, sizeof text, "%d-%b-%Y %H:%M:%S", std::localtime(&seconds));
  return fl::i18n::to_ustring_lossy({text, length});
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

MetadataCacheImpl::~MetadataCacheImpl() { releaseRepository(); }

void MetadataCacheImpl::setFilename(const std::u16string& name) {
  // Opened and let go of: a file that is no package is refused now, not when the first property is read.
  { ScopedRef readable(OpenMode::Read, name); }
  // Absolute, so that the object goes on to mean the same file when the working folder changes.
  filename_ = fl::filesystem::absolute(name);
  metadataStamp_ = ptime();
  metadata_.clear();
  releaseRepository();
}

bool MetadataCacheImpl::isUpToDate() { return fileModificationTime(filename_) == metadataStamp_; }

const std::u16string* MetadataCacheImpl::getFilename() {
  if (!fl::filesystem::exists(filename_)) raise("tavlox:general:FileNotFound", filename_);
  return &filename_;
}

const std::u16string* MetadataCacheImpl::getLastModified() {
  return &get<std::u16string>(MetadataKey::LastModified);
}
const std::u16string* MetadataCacheImpl::getDescription() {
  return &get<std::u16string>(MetadataKey::Description);
}
const std::u16string* MetadataCacheImpl::getCompression() {
  return &get<std::u16string>(MetadataKey::Compression);
}
const std::u16string* MetadataCacheImpl::getVersion() { return &get<std::u16string>(MetadataKey::Version); }
std::int32_t MetadataCacheImpl::getNumRuns() { return get<std::int32_t>(MetadataKey::NumRuns); }
std::int32_t MetadataCacheImpl::getNumSignals() { return get<std::int32_t>(MetadataKey::NumSignals); }
bool MetadataCacheImpl::getContainsView() { return get<bool>(MetadataKey::ContainsView); }
bool MetadataCacheImpl::getContainsComparison() { return get<bool>(MetadataKey::ContainsComparison); }

const MetadataValue& MetadataCacheImpl::upToDateValue(MetadataKey key) {
  loadMetadata();
  const auto entry = metadata_.find(key);
  // A first pass that failed before this value leaves it without an entry until the file changes.
  if (entry == metadata_.end()) {
    raise("tavlox_io:general:InternalError", filename_, static_cast<std::int32_t>(key));
  }
  return entry->second;
}

void MetadataCacheImpl::loadMetadata() {
  const auto stamp = fileModificationTime(filename_);
  if (stamp == metadataStamp_) return;
  // Stored before anything is read: a pass that fails is not tried again until the file changes.
  metadataStamp_ = stamp;
  const ScopedRef ref(OpenMode::Read, filename_);

  std::u16string text;
  ref.file().getDescription(text);
  metadata_[MetadataKey::Description] = text;
  metadata_[MetadataKey::LastModified] = localTimeText(stamp);
  ref.file().getVersion(text);
  metadata_[MetadataKey::Version] = text;
  metadata_[MetadataKey::Compression] = readCompressionType(ref);

  const auto runs = readRunList(ref);
  metadata_[MetadataKey::NumRuns] = runCount(runs.get());
  metadata_[MetadataKey::NumSignals] = countSignals(ref);
  metadata_[MetadataKey::ContainsView] =
      !findPartsByRelationshipType(ref, tavlox::relationship_types::kView).empty();
  metadata_[MetadataKey::ContainsComparison] = containsComparisonRun(runs.get());
}

std::vector<FileRunId> MetadataCacheImpl::getRunIDs() {
  const ScopedRef ref(OpenMode::Read, filename_);
  return runIdentifiers(readRunList(ref).get());
}

void MetadataCacheImpl::ensureRunData() {
  const auto stamp = fileModificationTime(filename_);
  if (stamp == runDataStamp_) return;
  // Stored before anything is loaded: a load that fails is not tried again until the file changes.
  runDataStamp_ = stamp;
  releaseRepository();
  // The repository is kept even if filling it fails: queries then answer with the runs that were loaded.
  objectManager_ = std::make_unique<ObjectManager>();
  objectManager_->initializeObjectManager("", "");
  loadRunData(ScopedRef(OpenMode::Read, filename_), *objectManager_, runIdMap_);
}

void MetadataCacheImpl::releaseRepository() {
  if (objectManager_ == nullptr) return;
  // Read while the object lives, removed when the database is closed.
  const std::u16string location = objectManager_->getDatabaseLocation();
  objectManager_.reset();
  if (!location.empty()) removeDatabase(location);
}

RunId MetadataCacheImpl::repositoryRun(FileRunId run) const {
  const auto entry = runIdMap_.find(run);
  if (entry == runIdMap_.end()) raise("tavlox:general:UnableToReadFile", "");
  return entry->second;
}

ObjectManager& MetadataCacheImpl::repository() const {
  if (objectManager_ == nullptr) raise("simulation_data_repository:sdr:InternalError");
  return *objectManager_;
}

std::shared_ptr<Set> MetadataCacheImpl::lookupRun(FileRunId run) {
  ensureRunData();
  const RunId inRepository = repositoryRun(run);
  ObjectManager& manager = repository();
  std::shared_ptr<Set> found;
  collection errors = collection::get_empty_instance();
  manager.safeTransaction(
      [&] {
        // Raised within the transaction, which collects it; outside it is raised again, after a second pause.
        if (Set::lookupSet(inRepository, found, manager, false)) return;
        collection missing;
        missing.add("simulation_data_repository:sdr:NoSuchRun");
        throwCollected(missing);
      },
      errors);
  throwCollected(errors);
  return found;
}

Signals MetadataCacheImpl::lookupSignalsByName(const std::u16string& name) {
  ensureRunData();
  ObjectManager& manager = repository();
  Signals signals;
  // Not within a transaction: errors of this search reach the caller as the repository raises them.
  for (const FileRunId run : getRunIDs()) {
    References references;
    Set::getAllSignalsByName(manager, name, repositoryRun(run), references);
    appendSignals(signals, references);
  }
  return signals;
}

Signals MetadataCacheImpl::lookupAllSignals() {
  ensureRunData();
  ObjectManager& manager = repository();
  Signals signals;
  for (const FileRunId run : getRunIDs()) {
    const RunId inRepository = repositoryRun(run);
    References references;
    collection errors = collection::get_empty_instance();
    manager.safeTransaction(
        [&] { Set::getAllSignals(manager, SignalQueryType::All, inRepository, references); }, errors);
    throwCollected(errors);
    appendSignals(signals, references);
  }
  return signals;
}

}  // namespace orra::tavloxio

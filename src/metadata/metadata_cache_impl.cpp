#include "metadata/metadata_cache_impl.h"

#include "metadata/file_time.h"
#include "metadata/run_list.h"
#include "package/session_parts.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"

namespace orra::tavloxio {

using file::OpenMode;
using file::ScopedRef;
using foundation::core::except::raise;

void MetadataCacheImpl::setFilename(const std::u16string& name) {
  { ScopedRef readable(OpenMode::Read, name); }
  filename_ = fl::filesystem::absolute(name);
  metadataStamp_ = boost::posix_time::ptime();
  metadata_.clear();
  repository_.release();
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

std::vector<std::int32_t> MetadataCacheImpl::getRunIDs() {
  const ScopedRef ref(OpenMode::Read, filename_);
  return runIdentifiers(readRunList(ref).get());
}

std::shared_ptr<Set> MetadataCacheImpl::lookupRun(std::int32_t runIdentifier) {
  repository_.ensureLoaded(filename_);
  return repository_.lookupRun(runIdentifier);
}

Signals MetadataCacheImpl::lookupSignalsByName(const std::u16string& name) {
  repository_.ensureLoaded(filename_);
  return repository_.signalsByName(getRunIDs(), name);
}

Signals MetadataCacheImpl::lookupAllSignals() {
  repository_.ensureLoaded(filename_);
  return repository_.allSignals(getRunIDs());
}

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

}  // namespace orra::tavloxio

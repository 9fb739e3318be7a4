#pragma once

#include <unordered_map>
#include <variant>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "metadata/metadata_cache.h"

namespace orra::tavloxio {

/// The values kept per file, in the order in which one pass reads them.
enum class MetadataKey : std::int32_t {
  Description = 0,
  LastModified = 1,
  Version = 2,
  Compression = 3,
  NumRuns = 4,
  NumSignals = 5,
  ContainsView = 6,
  ContainsComparison = 7,
};

/// Alternatives in this order; each key has one of them for good.
using MetadataValue = std::variant<std::u16string, std::int32_t, bool>;

class MetadataCacheImpl final : public MetadataCache {
 public:
  MetadataCacheImpl() = default;
  /// A database file that cannot be removed now ends the process, as any error that leaves a destructor.
  ~MetadataCacheImpl() override;
  MetadataCacheImpl(const MetadataCacheImpl&) = delete;
  MetadataCacheImpl& operator=(const MetadataCacheImpl&) = delete;

  void setFilename(const std::u16string& name) override;
  bool isUpToDate() override;
  const std::u16string* getFilename() override;
  const std::u16string* getLastModified() override;
  const std::u16string* getDescription() override;
  const std::u16string* getCompression() override;
  const std::u16string* getVersion() override;
  std::int32_t getNumRuns() override;
  std::int32_t getNumSignals() override;
  bool getContainsView() override;
  bool getContainsComparison() override;
  std::vector<FileRunId> getRunIDs() override;
  std::shared_ptr<Set> lookupRun(FileRunId run) override;
  Signals lookupSignalsByName(const std::u16string& name) override;
  Signals lookupAllSignals() override;

 private:
  /// Reads every value if the file has changed since they were read.
  void loadMetadata();
  const MetadataValue& upToDateValue(MetadataKey key);
  template <class Alternative>
  const Alternative& get(MetadataKey key) {
    return std::get<Alternative>(upToDateValue(key));
  }

  /// Loads runs and signals if the file has changed since they were loaded.
  void ensureRunData();
  /// Closes the repository and removes its database file. Raises BRINDD:brindd:DictFuncThrewStdException with
  /// the reason, or BRINDD:brindd:DictFuncThrewException without one, if the file cannot be removed.
  void releaseRepository();
  RunId repositoryRun(FileRunId run) const;
  /// The repository that ensureRunData loaded. Raises simulation_data_repository:sdr:InternalError if there
  /// is none, which is so from a failed releaseRepository until the file changes.
  ObjectManager& repository() const;

  std::u16string filename_;
  // Not-a-date-time until something was read, which equals no file's time.
  boost::posix_time::ptime metadataStamp_, runDataStamp_;  ///< the file's time when they were last read
  std::unordered_map<MetadataKey, MetadataValue> metadata_;
  // Never emptied: an entry of an earlier load finds nothing, since no repository uses an identifier again.
  RunIdMap runIdMap_;
  std::unique_ptr<ObjectManager> objectManager_;
};

}  // namespace orra::tavloxio

#pragma once

#include <unordered_map>
#include <variant>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "metadata/metadata_cache.h"
#include "metadata/session_repository.h"

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

using MetadataValue = std::variant<std::u16string, std::int32_t, bool>;

class MetadataCacheImpl final : public MetadataCache {
 public:
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
  std::vector<std::int32_t> getRunIDs() override;
  std::shared_ptr<Set> lookupRun(std::int32_t runIdentifier) override;
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

  std::u16string filename_;
  boost::posix_time::ptime metadataStamp_;
  std::unordered_map<MetadataKey, MetadataValue> metadata_;
  SessionRepository repository_;
};

}  // namespace orra::tavloxio

#include "metadata/metadata_cache.h"

namespace orra::tavloxio {

MetadataCache::~MetadataCache() = default;

}  // namespace orra::tavloxio

#pragma once

#include "metadata/metadata_cache.h"
#include "platform/arrays/host_array.h"

namespace orra::tavloxio {

// What the host is told of runs. Scripts know the fields by name, so names, classes and order never change.
/// The identifiers of all runs, an N×1 int32 column in the order of the run list.
corvan::HostArray runIdentifierColumn(MetadataCache& cache);

/// The run identifier that a host value stands for: a numeric scalar cut towards zero. 0, which is no run's
/// identifier as a rule, for everything else.
FileRunId toRunIdentifier(const corvan::HostArray& value);

/// The 1×1 structure that describes one run in 29 fields. Raises what MetadataCache::lookupRun raises, and
/// the repository's failures as throwCollected translates them.
corvan::HostArray runRecord(MetadataCache& cache, FileRunId run);

}  // namespace orra::tavloxio

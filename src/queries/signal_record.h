#pragma once

#include <functional>

#include "metadata/metadata_cache.h"
#include "platform/arrays/host_array.h"

namespace orra::tavloxio {

// What the host is told of signals. Scripts know the fields by name, so names, classes and order never
// change.
/// The 1×N structure array that describes signals in 19 fields, from whatever query finds them. Raises what
/// the query raises, and the repository's failures as throwCollected translates them.
corvan::HostArray signalRecords(const std::function<Signals()>& query);

}  // namespace orra::tavloxio

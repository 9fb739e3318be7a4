#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "package/scoped_ref.h"
#include "platform/repository/obj_ref_array_json.h"
#include "platform/repository/set.h"

/// What the session's JSON parts say without loading a repository. Errors of the package library and of the
/// JSON reader pass through unchanged.
namespace orra::tavloxio {

/// The run list of the first run-data part; null when the package has none.
std::unique_ptr<ObjRefArrayJSON> readRunList(const file::ScopedRef& ref);

/// The three below take a run list or null, which counts as an empty one.
std::int32_t runCount(const ObjRefArrayJSON* runs);
std::vector<FileRunId> runIdentifiers(const ObjRefArrayJSON* runs);
bool containsComparisonRun(const ObjRefArrayJSON* runs);

/// The entries of all signals parts together.
std::int32_t countSignals(const file::ScopedRef& ref);

}  // namespace orra::tavloxio

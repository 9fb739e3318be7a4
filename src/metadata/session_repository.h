#pragma once

#include <boost/ptr_container/ptr_vector.hpp>

#include "metadata/metadata_cache.h"
#include "package/scoped_ref.h"
#include "platform/errors/exceptions.h"

/// Between the session's parts and the repository of its runs and signals.
namespace orra::tavloxio {

/// Loads the runs of the first run list, and then the signals of every signals part, into an empty
/// repository. Without a run list nothing is loaded. Adds the runs to the map. Errors of the package library
/// and of the repository pass through unchanged.
void loadRunData(const file::ScopedRef& ref, ObjectManager& manager, RunIdMap& runIdMap);

/// Converts the references, in their order, and appends them to the result.
void appendSignals(Signals& result, boost::ptr_vector<ObjectRef>& references);

/// What a transaction of the repository gathered: nothing for an empty collection. Otherwise pauses for half
/// a second and raises by the first error: a corrupt database as
/// simulation_data_repository:sdr:InternalError, a locked one as sqldb:ssdb:Locked with the identifier and
/// the text of the repository's error, anything else as the collection itself.
void throwCollected(const foundation::core::except::collection& errors);

}  // namespace orra::tavloxio

#pragma once

#include <boost/function.hpp>

#include "platform/errors/exceptions.h"
#include "platform/repository/object_manager.h"

/// How failures of the session repository become errors of the module.
namespace orra::tavloxio {

/// Runs the work as one repository transaction and raises what it gathered, see throwCollected.
void runTransaction(ObjectManager& manager, const boost::function<void()>& work);

/// Nothing for an empty collection. Otherwise pauses for half a second and raises by the first error: a
/// corrupt database as simulation_data_repository:sdr:InternalError, a locked one as sqldb:ssdb:Locked with
/// the identifier and the text of the repository's error, anything else as the collection itself.
void throwCollected(const foundation::core::except::collection& errors);

/// The pause that throwCollected takes. Tests put a quicker one in its place.
extern void (*pauseBeforeRaising)();

}  // namespace orra::tavloxio

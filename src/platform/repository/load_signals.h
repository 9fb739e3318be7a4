#pragma once

#include "platform/repository/obj_ref_array_json.h"
#include "platform/repository/set.h"

namespace orra {

class ObjectManager;
class ProgressTracker;
class TemporalDeserializer;

namespace object {

/// Loads a signals part. `fileToRepository` must have every run that a signal names; nothing is added to it.
/// All of the part is loaded, in one transaction, or nothing. The array must keep rows. Identifiers of
/// signals are a part's own: another part may have them again. Raises
/// simulation_data_repository:sdr:InvalidSessionData with the element and the member, and database failures.
void loadSignals(ObjectManager& manager, const ObjRefArrayJSON& signals, IdentifierMap& fileToRepository,
                 ProgressTracker* tracker, bool keepsIdentifiers, int offset,
                 TemporalDeserializer* deserializer);

}  // namespace object
}  // namespace orra

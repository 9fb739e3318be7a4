#pragma once

#include <functional>
#include <span>
#include <string_view>

#include "platform/arrays/host_array.h"
#include "platform/samples/recorded_session.h"

/// What tells a record's place in the session, which the module's records do not: fields that `runs` and
/// `signals` show in front of the module's own, so that the two can be joined and samples be found.
namespace tavlox::cli {

/// Puts the fields RunID, RunOrderIndex and SamplesPart in front of runs' records, one after the other.
class RunPlacer {
 public:
  /// Takes the record's values. Valid until the next call.
  const corvan::HostArray& withPlace(corvan::HostArray record, const samples::RunPlace& run);

 private:
  corvan::HostArray placed_;  ///< made once: all runs have the same fields
};

/// The records of signals, with RunID, SamplesPart and SamplesColumn in front, in pieces: there may be a
/// million. The records are those of all runs in their order, or only those of one name that the places were
/// asked for. A part that is empty text and a column of 0 say that there are no samples.
void forEachWithPlace(const corvan::HostArray& records, const samples::SessionPlaces& session,
                      const std::function<void(const corvan::HostArray&)>& take);

}  // namespace tavlox::cli

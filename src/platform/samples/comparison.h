#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/samples/recorded_session.h"

namespace tavlox::samples {

/// How far a value may be from the reference. A value b at time t passes if for some τ in [t − time, t +
/// time] |b − A(τ)| ≤ max(absolute, relative·|A(τ)|, range·(max A − min A)).
struct Tolerance {
  double absolute = 0, relative = 0, range = 0;
  double time = 0;  ///< seconds
};

/// Why two signals are different, or that they are not.
enum class Verdict {
  Equal,             ///< within the tolerance, everywhere
  Different,         ///< some value is not
  OtherSpan,         ///< first or last times differ by more than the time tolerance
  NothingToCompare,  ///< one of them has no samples, or they have no span in common
};

/// The outcome for two signals of the same name.
struct SignalComparison {
  std::u16string name;
  RecordedSignal a, b;
  Verdict verdict = Verdict::Equal;
  Tolerance tolerance;
  // The largest difference between the two at the same time, NaN if there is none; where it is, what they are
  // there.
  double largest = 0, time = 0, valueA = 0, valueB = 0;
  /// The smallest absolute tolerance that would pass with this time tolerance; infinite if none would.
  double passes = 0;
  std::uint64_t failures = 0;  ///< of the values tested, on the union of both times
  std::uint64_t tested = 0;
};

}  // namespace tavlox::samples

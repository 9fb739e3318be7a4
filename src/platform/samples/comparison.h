#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/samples/recorded_session.h"

namespace tavlox::samples {

/// How far values may be from the reference A. A value b of B at time t passes if for some τ within
/// [t − time, t + time] |b − A(τ)| ≤ max(absolute, relative·|A(τ)|, range·(max A − min A)); a value of A
/// passes likewise against B, with |A(t)| in the place of |A(τ)|.
struct Tolerance {
  double absolute = 0, relative = 0, range = 0;
  double time = 0;  ///< seconds
};

/// Whether two signals are the same, and if not, why.
enum class Verdict {
  Equal,            ///< within the tolerance, wherever one of them has a sample
  Different,        ///< some value is not
  OtherSpan,        ///< they begin or end at times that differ by more than the time tolerance
  NothingToCompare  ///< neither has samples, or they have no time in common
};

/// What becomes of two signals.
struct SignalComparison {
  RecordedSignal a, b;
  Tolerance tolerance;
  Verdict verdict = Verdict::Equal;
  /// The largest difference at one time, infinite where one of the two is not a number; where it is, and what
  /// the two are there.
  double largest = 0, largestTime = 0, valueA = 0, valueB = 0;
  /// The smallest absolute tolerance that alone, with the same time tolerance, would let all values pass;
  /// infinite if none would.
  double needed = 0;
  std::uint64_t tested = 0, failed = 0;  ///< values of either that were looked for in the other

  /// Within the tolerance and in the same unit.
  bool isEqual() const { return verdict == Verdict::Equal && a.units == b.units; }
};

/// What becomes of two runs.
struct RunComparison {
  const RecordedRun *a = nullptr, *b = nullptr;
  std::vector<std::string> metadata;  ///< names of the fields that differ; they decide nothing
  std::vector<RecordedSignal> onlyInA, onlyInB;
  std::vector<SignalComparison> signals;  ///< those of one name
  /// Whether all signals are, and none is missing.
  bool isEqual() const;
};

/// Which part of two runs is compared: all, or the time that both have.
enum class Extent { Whole, Overlap };

/// Compares two runs signal by signal: the n-th of a name with the n-th of that name. Signals are chosen and
/// given their tolerances by the functions. The runs are read side by side, in memory that grows with the
/// number of signals and with the samples within the time tolerance, not with all samples. Raises what
/// reading samples raises.
class RunComparer {
 public:
  std::function<bool(const std::u16string& name)> isWanted;
  std::function<Tolerance(const std::u16string& name)> toleranceOf;
  Extent extent = Extent::Whole;
  /// Is told every two values that are compared at one time, in the order of the times; `signal` is the index
  /// in RunComparison::signals. May be empty.
  std::function<void(std::size_t signal, double time, double a, double b)> onValues;

  RunComparison compare(const RecordedSession& sessionA, const RecordedRun& a,
                        const RecordedSession& sessionB, const RecordedRun& b) const;
};

}  // namespace tavlox::samples

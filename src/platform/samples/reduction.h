#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tavlox::samples {

/// One sample of one signal.
struct Sample {
  double time = 0, value = 0;
};

/// What is kept of the samples of a stretch of time. NaN is no value: it is neither minimum nor maximum, and
/// shows only in `hasGap`.
struct Bucket {
  Sample first, minimum, maximum, last;  ///< of the values that are numbers; the earliest of equal ones
  std::uint64_t count = 0;               ///< of those values; without any the samples above mean nothing
  bool hasGap = false;                   ///< whether there was a NaN

  void add(Sample sample);
  /// Adds what a later bucket holds.
  void add(const Bucket& later);
  /// Appends the up to four different samples in the order of their times: what a line through them shows is
  /// what a line through all samples would.
  void appendTo(std::vector<Sample>& samples) const;
};

/// A signal of any length in a fixed number of buckets of equal duration, each with its first, smallest,
/// largest and last value, so that no spike is lost however narrow it is.
class Reduction {
 public:
  /// Buckets from `from` to `to` (seconds), the end included. All samples fall into the first if the two are
  /// equal. `count` is at least 1.
  Reduction(double from, double to, std::size_t count);

  /// Samples come in the order of their times; those outside are left out.
  void add(double time, double value);

  const std::vector<Bucket>& buckets() const { return buckets_; }
  /// The same stretch in half as many buckets (rounded up): the next coarser level of zooming.
  Reduction halved() const;
  /// All buckets' samples, in the order of their times.
  std::vector<Sample> samples() const;

 private:
  double from_, duration_;  ///< of one bucket
  std::vector<Bucket> buckets_;
};

}  // namespace tavlox::samples

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/samples/recorded_session.h"
#include "platform/samples/sample_reader.h"

namespace tavlox::samples {

/// The signals of one run at any times, as long as the times do not decrease. Memory does not grow with the
/// samples.
class RunOnGrid {
 public:
  /// `between` has an element for each column that the reader reads.
  RunOnGrid(SampleReader reader, std::vector<Between> between);

  /// The time of the first sample later than the last time that values were asked for; nothing behind the
  /// last one.
  std::optional<double> nextTime() const;
  /// Gives the values at the time, between samples by what each signal does there; NaN before the first
  /// sample and behind the last. Of samples of one time the last counts.
  void valuesAt(double time, std::span<double> values);

  std::size_t columns() const { return between_.size(); }

 private:
  void advance();

  SampleReader reader_;
  std::vector<Between> between_;
  SampleBlock block_;
  std::size_t row_ = 0;  ///< in the block, of the first sample that was not passed
  bool hasNext_ = true;
  bool hasPrevious_ = false;
  double previousTime_ = 0;
  std::vector<double> previous_;
};

/// Several runs on common times, row by row: either on every time that one of them has (union), or on a fixed
/// step.
class Grid {
 public:
  /// Every time of any run.
  explicit Grid(std::vector<RunOnGrid> runs);
  /// Times `from`, `from + step`, … up to `to`, in seconds; `step` is above 0.
  Grid(std::vector<RunOnGrid> runs, double from, double to, double step);

  /// Goes to the next row; false at the end.
  bool next();
  double time() const { return time_; }
  /// The values of all runs' columns, one run behind the other.
  std::span<const double> values() const { return values_; }

 private:
  std::optional<double> nextTime();

  std::vector<RunOnGrid> runs_;
  std::optional<double> step_;
  double from_ = 0, to_ = 0;
  std::uint64_t index_ = 0;
  double time_ = 0;
  std::vector<double> values_;
};

}  // namespace tavlox::samples

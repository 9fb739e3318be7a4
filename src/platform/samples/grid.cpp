#include "platform/samples/grid.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace tavlox::samples {
namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// A time without the noise of its last bits: three times 0.1 is meant to be 0.3, and a held signal that
/// changes at 0.3 is meant to have changed.
double withoutNoise(double time) {
  char text[32];
  const auto written = std::to_chars(text, std::end(text), time, std::chars_format::general, 15);
  double rounded = time;
  std::from_chars(text, written.ptr, rounded);
  return rounded;
}

}  // namespace

RunOnGrid::RunOnGrid(SampleReader reader, std::vector<Between> between)
    : reader_(std::move(reader)), between_(std::move(between)), previous_(between_.size(), kNone) {
  hasNext_ = reader_.next(block_);
}

std::optional<double> RunOnGrid::nextTime() const {
  if (!hasNext_) return std::nullopt;
  return block_.times[row_];
}

/// Passes the sample that is next.
void RunOnGrid::advance() {
  hasPrevious_ = true;
  previousTime_ = block_.times[row_];
  for (std::size_t i = 0; i < previous_.size(); ++i) previous_[i] = block_.values[i][row_];
  if (++row_ < block_.rows) return;
  row_ = 0;
  hasNext_ = reader_.next(block_);
}

void RunOnGrid::valuesAt(double time, std::span<double> values) {
  while (hasNext_ && block_.times[row_] <= time) advance();
  // Before the first sample, or behind the last one.
  const bool isOutside = !hasPrevious_ || (!hasNext_ && previousTime_ < time);
  if (isOutside) {
    std::ranges::fill(values, kNone);
    return;
  }
  std::ranges::copy(previous_, values.begin());
  if (previousTime_ == time) return;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (between_[i] == Between::Linear)
      values[i] = interpolated(time, previousTime_, previous_[i], block_.times[row_], block_.values[i][row_]);
  }
}

Grid::Grid(std::vector<RunOnGrid> runs) : runs_(std::move(runs)) {
  std::size_t columns = 0;
  for (const RunOnGrid& run : runs_) columns += run.columns();
  values_.resize(columns);
}

Grid::Grid(std::vector<RunOnGrid> runs, double from, double to, double step) : Grid(std::move(runs)) {
  step_ = step;
  from_ = from;
  to_ = to;
}

std::optional<double> Grid::nextTime() {
  if (step_) {
    // Not by adding up, which would add up the rounding errors too.
    const double time = withoutNoise(from_ + static_cast<double>(index_++) * *step_);
    return time <= to_ ? std::optional(time) : std::nullopt;
  }
  std::optional<double> earliest;
  for (const RunOnGrid& run : runs_) {
    const auto next = run.nextTime();
    if (next && (!earliest || *next < *earliest)) earliest = next;
  }
  return earliest;
}

bool Grid::next() {
  const auto time = nextTime();
  if (!time) return false;
  time_ = *time;
  std::span<double> rest(values_);
  for (RunOnGrid& run : runs_) {
    run.valuesAt(time_, rest.first(run.columns()));
    rest = rest.subspan(run.columns());
  }
  return true;
}

}  // namespace tavlox::samples

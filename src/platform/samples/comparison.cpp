#include "platform/samples/comparison.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <optional>

// Two runs are read side by side. Of each a window is kept: the samples within the time tolerance around the
// time at hand, and one more on either side, between which values are interpolated. The time at hand goes
// over every time that either run has. There the values of B are looked for in the window of A, and those of
// A in the window of B, so that neither can have a spike that the other lacks.
namespace tavlox::samples {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// How far apart two values are: NaN and NaN, and equal infinities, not at all.
double distance(double x, double y) {
  if (x == y || (std::isnan(x) && std::isnan(y))) return 0;
  const double difference = std::abs(x - y);
  if (std::isnan(difference)) return kInfinity;
  return difference;
}

/// The samples of one run around a time that only grows.
class Window {
 public:
  Window(SampleReader reader, std::size_t columns, double reach)
      : reader_(std::move(reader)), columns_(columns), reach_(reach) {
    isMore_ = reader_.next(block_);
  }

  /// The earliest time behind `time`; nothing at the end.
  std::optional<double> timeBehind(double time) const {
    const auto found =
        std::upper_bound(times_.begin() + static_cast<std::ptrdiff_t>(begin_), times_.end(), time);
    if (found != times_.end()) return *found;
    // The window reaches no further than it has to: the next sample may not be in it yet.
    return isMore_ ? std::optional(block_.times[next_]) : std::nullopt;
  }

  void moveTo(double time) {
    // Until one is in it that lies behind the reach, which ends the last piece.
    while (isMore_ && (begin_ == times_.size() || times_.back() <= time + reach_)) takeRow();
    // One that lies before the reach stays, which begins the first piece.
    while (begin_ + 1 < times_.size() && times_[begin_ + 1] < time - reach_) ++begin_;
    // Now and then, so that moving costs less than reading did.
    if (begin_ < 4096 || 2 * begin_ < times_.size()) return;
    times_.erase(times_.begin(), times_.begin() + static_cast<std::ptrdiff_t>(begin_));
    values_.erase(values_.begin(), values_.begin() + static_cast<std::ptrdiff_t>(begin_ * columns_));
    begin_ = 0;
  }

  std::size_t begin() const { return begin_; }
  /// The first sample that is not earlier.
  std::size_t find(double time) const {
    const auto first = times_.begin() + static_cast<std::ptrdiff_t>(begin_);
    return static_cast<std::size_t>(std::lower_bound(first, times_.end(), time) - times_.begin());
  }
  std::size_t end() const { return times_.size(); }
  double time(std::size_t row) const { return times_[row]; }
  double value(std::size_t row, std::size_t column) const { return values_[row * columns_ + column]; }

 private:
  void takeRow() {
    times_.push_back(block_.times[next_]);
    for (const auto& column : block_.values) values_.push_back(column[next_]);
    if (++next_ < block_.rows) return;
    next_ = 0;
    isMore_ = reader_.next(block_);
  }

  SampleReader reader_;
  std::size_t columns_;
  double reach_;
  SampleBlock block_;
  std::size_t next_ = 0;  ///< in the block
  bool isMore_ = false;
  std::vector<double> times_, values_;  ///< row by row; those before begin_ were passed
  std::size_t begin_ = 0;
};

/// The values at a time: one, or at a repeated time of an interpolated signal all of that time; none outside
/// of its span.
void valuesAt(const Window& window, std::size_t column, Between kind, double time,
              std::vector<double>& values) {
  values.clear();
  for (std::size_t row = window.find(time); row < window.end(); ++row) {
    if (window.time(row) > time) {
      if (!values.empty() || row == window.begin()) return;
      const double before = window.value(row - 1, column);
      values.push_back(kind == Between::Held ? before
                                             : interpolated(time, window.time(row - 1), before,
                                                            window.time(row), window.value(row, column)));
      return;
    }
    // Of a held signal the last value of a time is what it goes on with.
    if (kind == Between::Held) values.clear();
    values.push_back(window.value(row, column));
  }
}

/// How near a signal comes to a value.
struct Nearest {
  double distance = kInfinity;
  bool passes = false;

  /// `allowed` gives how far the value may be from the candidate.
  template <class Allowed>
  void offer(double value, double candidate, const Allowed& allowed) {
    const double apart = samples::distance(value, candidate);
    distance = std::min(distance, apart);
    passes = passes || apart <= allowed(candidate);
  }
};

/// Looks for a value in the window, from `time` on either side.
template <class Allowed>
Nearest findNearest(const Window& window, std::size_t column, Between kind, double time, double reach,
                    double value, const Allowed& allowed) {
  Nearest nearest;
  const auto offer = [&](double candidate) { nearest.offer(value, candidate, allowed); };
  const double from = time - reach, to = time + reach;
  for (std::size_t row = window.begin(); row < window.end() && window.time(row) <= to; ++row) {
    const double start = window.time(row), here = window.value(row, column);
    if (start >= from) offer(here);
    if (row + 1 == window.end() || window.time(row + 1) < from) continue;
    const double end = window.time(row + 1);
    if (start == end) continue;
    if (kind == Between::Held) {
      // It still has the value where the reach begins, unless that is where it changes.
      if (start < from && end > from) offer(here);
      continue;
    }
    // The piece of the line that lies within reach: it takes every value between its two ends, and of those
    // the one that is searched for, if it is among them, is the nearest there is.
    const double there = window.value(row + 1, column);
    const double first = interpolated(std::max(start, from), start, here, end, there);
    const double last = interpolated(std::min(end, to), start, here, end, there);
    if (start < from && end > from) offer(first);
    if (end > to) offer(last);
    if (value > std::min(first, last) && value < std::max(first, last)) offer(value);
  }
  return nearest;
}

/// One pair of signals while it is compared.
struct Pair {
  Pair(SignalComparison* compared, std::size_t columnOfBoth, Between between)
      : result(compared), column(columnOfBoth), kind(between) {}

  SignalComparison* result;
  std::size_t column;
  Between kind;
  double range = 0;  ///< of A, largest less smallest value; 0 if nobody asks

  /// `tell` gets what the two are at the time: both values, or at a repeated one several.
  template <class Tell>
  void compareAt(double time, const Window& a, const Window& b, const Tell& tell);

 private:
  template <class Allowed>
  void look(double value, double time, const std::vector<double>& there, const Window& window,
            const Allowed& allowed);

  std::vector<double> valuesA_, valuesB_;
};

/// Looks for a value of one signal in the other, of which `there` are the values at the same time.
template <class Allowed>
void Pair::look(double value, double time, const std::vector<double>& there, const Window& window,
                const Allowed& allowed) {
  Nearest nearest;
  for (const double candidate : there) nearest.offer(value, candidate, allowed);
  // The window is searched only where that can change the outcome: it may hold very many samples.
  const bool isSettled = nearest.passes && nearest.distance <= result->needed;
  if (!isSettled && result->tolerance.time > 0)
    nearest = findNearest(window, column, kind, time, result->tolerance.time, value, allowed);
  ++result->tested;
  result->failed += nearest.passes ? 0 : 1;
  result->needed = std::max(result->needed, nearest.distance);
}

template <class Tell>
void Pair::compareAt(double time, const Window& a, const Window& b, const Tell& tell) {
  const Tolerance& tolerance = result->tolerance;
  const double least = std::max(tolerance.absolute, tolerance.range * range);
  const auto allowedAt = [&](double reference) {
    const double relative = tolerance.relative * std::abs(reference);
    // Infinities are equal or they are not; a share of one would let everything pass.
    return std::isfinite(relative) ? std::max(least, relative) : least;
  };
  valuesAt(a, column, kind, time, valuesA_);
  valuesAt(b, column, kind, time, valuesB_);
  for (const double value : valuesB_) look(value, time, valuesA_, a, allowedAt);
  for (const double value : valuesA_)
    look(value, time, valuesB_, b, [&](double) { return allowedAt(value); });
  // At a repeated time the values stand in the same order, or the last is the one that counts.
  for (std::size_t i = 0; i < std::max(valuesA_.size(), valuesB_.size()); ++i) {
    if (valuesA_.empty() || valuesB_.empty()) return;
    const double valueA = valuesA_[std::min(i, valuesA_.size() - 1)];
    const double valueB = valuesB_[std::min(i, valuesB_.size() - 1)];
    tell(valueA, valueB);
    const double apart = distance(valueA, valueB);
    if (apart <= result->largest) continue;
    result->largest = apart;
    result->largestTime = time;
    result->valueA = valueA;
    result->valueB = valueB;
  }
}

using Names = std::map<std::pair<std::u16string, std::size_t>, const RecordedSignal*>;

/// The signals that are wanted, by name and their number among those of the name.
Names namesOf(const RecordedRun& run, const RunComparer& comparer) {
  std::map<std::u16string, std::size_t> counts;
  Names names;
  for (const RecordedSignal& signal : run.signals) {
    if (!comparer.isWanted || comparer.isWanted(signal.name))
      names.emplace(std::pair(signal.name, counts[signal.name]++), &signal);
  }
  return names;
}

/// The fields of two records that differ. What names the run, or says when it was recorded and how long that
/// took, is another in every recording.
std::vector<std::string> differingFields(const orra::RunRecord& a, const orra::RunRecord& b) {
  static constexpr std::string_view kOfTheRecording[] = {
      "id",         "name",    "dateCreated", "runNumber", "orderIndex", "samples",
      "updateTime", "simTime", "termTime",    "totalTime", "metadata"};
  std::vector<std::string> fields;
  const auto compare = [&](const auto& field) {
    const bool isLeftOut = std::ranges::find(kOfTheRecording, field.name) != std::end(kOfTheRecording);
    if (!isLeftOut && a.*field.value != b.*field.value) fields.emplace_back(field.name);
  };
  std::apply([&](const auto&... field) { (compare(field), ...); }, orra::kFields<orra::RunRecord>);
  for (const orra::Member& entry : orra::kMetadataMembers) {
    const auto inA = a.metadata.find(entry.name), inB = b.metadata.find(entry.name);
    const bool isInA = inA != a.metadata.end(), isInB = inB != b.metadata.end();
    if (isInA != isInB || (isInA && inA->second != inB->second)) fields.emplace_back(entry.name);
  }
  return fields;
}

/// The signals of one name that were kept with samples, as pairs.
std::vector<SignalComparison> pairsOf(const Names& a, const Names& b, const RunComparer& comparer) {
  std::vector<SignalComparison> pairs;
  for (const auto& [name, signal] : a) {
    const auto other = b.find(name);
    if (other == b.end()) continue;
    SignalComparison pair{.a = *signal, .b = *other->second};
    if (comparer.toleranceOf) pair.tolerance = comparer.toleranceOf(name.first);
    // Without samples there is nothing that could be called equal.
    if (pair.a.column == 0 || pair.b.column == 0) pair.verdict = Verdict::NothingToCompare;
    pairs.push_back(std::move(pair));
  }
  return pairs;
}

/// Largest less smallest value of each column.
std::vector<double> rangesOf(SampleReader reader, std::size_t columns) {
  std::vector<double> low(columns, kInfinity), high(columns, -kInfinity), ranges(columns, 0);
  for (SampleBlock block; reader.next(block);) {
    for (std::size_t i = 0; i < columns; ++i) {
      for (const double value : block.values[i]) {
        if (!std::isfinite(value)) continue;
        low[i] = std::min(low[i], value);
        high[i] = std::max(high[i], value);
      }
    }
  }
  for (std::size_t i = 0; i < columns; ++i)
    if (low[i] <= high[i]) ranges[i] = high[i] - low[i];
  return ranges;
}

}  // namespace

bool RunComparison::isEqual() const {
  return onlyInA.empty() && onlyInB.empty() && std::ranges::all_of(signals, &SignalComparison::isEqual);
}

RunComparison RunComparer::compare(const RecordedSession& sessionA, const RecordedRun& a,
                                   const RecordedSession& sessionB, const RecordedRun& b) const {
  RunComparison comparison{.a = &a, .b = &b, .metadata = differingFields(a.record, b.record)};
  const Names namesA = namesOf(a, *this), namesB = namesOf(b, *this);
  for (const auto& [name, signal] : namesA)
    if (!namesB.contains(name)) comparison.onlyInA.push_back(*signal);
  for (const auto& [name, signal] : namesB)
    if (!namesA.contains(name)) comparison.onlyInB.push_back(*signal);
  comparison.signals = pairsOf(namesA, namesB, *this);

  std::vector<Pair> pairs;
  Wanted wantedA, wantedB;
  double reach = 0;
  bool isRangeAsked = false;
  for (SignalComparison& result : comparison.signals) {
    if (result.verdict == Verdict::NothingToCompare) continue;
    const std::size_t column = pairs.size();
    // A signal that is held in one of them is compared as that one is: it has no values in between.
    const bool isHeld = betweenSamplesOf(result.a.dataTypeLabel) == Between::Held ||
                        betweenSamplesOf(result.b.dataTypeLabel) == Between::Held;
    pairs.emplace_back(&result, column, isHeld ? Between::Held : Between::Linear);
    wantedA.columns.push_back(result.a.column);
    wantedB.columns.push_back(result.b.column);
    reach = std::max(reach, result.tolerance.time);
    isRangeAsked = isRangeAsked || result.tolerance.range > 0;
  }
  if (pairs.empty()) return comparison;

  const Span spanA = spanOf(sessionA.read(a, {})), spanB = spanOf(sessionB.read(b, {}));
  const double first = std::max(spanA.first, spanB.first), last = std::min(spanA.last, spanB.last);
  const bool haveSamples = spanA.rows > 0 && spanB.rows > 0;
  for (const Pair& pair : pairs) {
    const double apart = std::max(std::abs(spanA.first - spanB.first), std::abs(spanA.last - spanB.last));
    if (extent == Extent::Whole && apart > pair.result->tolerance.time)
      pair.result->verdict = Verdict::OtherSpan;
    if (!haveSamples || (first > last && extent == Extent::Overlap))
      pair.result->verdict = Verdict::NothingToCompare;
  }
  if (!haveSamples) return comparison;
  if (isRangeAsked) {
    const std::vector<double> ranges = rangesOf(sessionA.read(a, wantedA), pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) pairs[i].range = ranges[i];
  }

  Window windowA(sessionA.read(a, wantedA), pairs.size(), reach);
  Window windowB(sessionB.read(b, wantedB), pairs.size(), reach);
  for (double time = -kInfinity;;) {
    const auto nextA = windowA.timeBehind(time), nextB = windowB.timeBehind(time);
    if (!nextA && !nextB) break;
    time = std::min(nextA.value_or(kInfinity), nextB.value_or(kInfinity));
    windowA.moveTo(time);
    windowB.moveTo(time);
    for (Pair& pair : pairs) {
      // Outside of what both have, values are looked for only where the ends are as near as they must be.
      const bool isCommon = time >= first && time <= last;
      if (isCommon || pair.result->verdict == Verdict::Equal) {
        const auto tell = [&](double valueA, double valueB) {
          const auto signal = static_cast<std::size_t>(pair.result - comparison.signals.data());
          if (onValues) onValues(signal, time, valueA, valueB);
        };
        if (isCommon || extent == Extent::Whole) pair.compareAt(time, windowA, windowB, tell);
      }
    }
  }
  for (const Pair& pair : pairs) {
    SignalComparison& result = *pair.result;
    if (result.verdict == Verdict::Equal && result.tested == 0) result.verdict = Verdict::NothingToCompare;
    if (result.verdict == Verdict::Equal && result.failed > 0) result.verdict = Verdict::Different;
  }
  return comparison;
}

}  // namespace tavlox::samples

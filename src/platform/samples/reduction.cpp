#include "platform/samples/reduction.h"

#include <algorithm>
#include <cmath>

namespace tavlox::samples {

void Bucket::add(Sample sample) {
  if (std::isnan(sample.value)) {
    hasGap = true;
    return;
  }
  if (count++ == 0) first = minimum = maximum = sample;
  if (sample.value < minimum.value) minimum = sample;
  if (sample.value > maximum.value) maximum = sample;
  last = sample;
}

void Bucket::add(const Bucket& later) {
  hasGap = hasGap || later.hasGap;
  if (later.count == 0) return;
  if (count == 0) first = minimum = maximum = later.first;
  if (later.minimum.value < minimum.value) minimum = later.minimum;
  if (later.maximum.value > maximum.value) maximum = later.maximum;
  last = later.last;
  count += later.count;
}

void Bucket::appendTo(std::vector<Sample>& samples) const {
  if (count == 0) return;
  const bool risesFirst = maximum.time < minimum.time;
  const Sample& earlier = risesFirst ? maximum : minimum;
  const Sample& later = risesFirst ? minimum : maximum;
  const auto start = static_cast<std::ptrdiff_t>(samples.size());
  samples.insert(samples.end(), {first, earlier, later, last});
  // Two of them may be one sample: the first is often the smallest or the largest.
  const auto isSame = [](const Sample& a, const Sample& b) { return a.time == b.time && a.value == b.value; };
  samples.erase(std::unique(samples.begin() + start, samples.end(), isSame), samples.end());
}

Reduction::Reduction(double from, double to, std::size_t count)
    : from_(from), duration_((to - from) / static_cast<double>(count)), buckets_(count) {}

void Reduction::add(double time, double value) {
  const double place = duration_ > 0 ? (time - from_) / duration_ : 0;
  // The end of the last bucket belongs to it; rounding may push a time next to the end a little further.
  constexpr double kRounding = 1e-9;
  const auto count = static_cast<double>(buckets_.size());
  if (place < 0 || place > count * (1 + kRounding)) return;
  buckets_[std::min(static_cast<std::size_t>(place), buckets_.size() - 1)].add(Sample{time, value});
}

Reduction Reduction::halved() const {
  Reduction coarser(*this);
  coarser.duration_ *= 2;
  coarser.buckets_.resize((buckets_.size() + 1) / 2);
  for (std::size_t i = 0; i < coarser.buckets_.size(); ++i) {
    coarser.buckets_[i] = buckets_[2 * i];
    if (2 * i + 1 < buckets_.size()) coarser.buckets_[i].add(buckets_[2 * i + 1]);
  }
  return coarser;
}

std::vector<Sample> Reduction::samples() const {
  std::vector<Sample> samples;
  for (const Bucket& bucket : buckets_) bucket.appendTo(samples);
  return samples;
}

}  // namespace tavlox::samples

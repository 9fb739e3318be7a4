#include "hosts/cli/report/page.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <limits>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "platform/text/conversion.h"

namespace tavlox::cli {

// Made at build of the files beside this one; see embed.py.
extern const std::string_view kPageBeforeData, kPageBehindData;

namespace {

using fl::i18n::JsonWriter;

static_assert(std::endian::native == std::endian::little,
              "the page reads doubles with the lowest byte first");

/// RFC 4648. Numbers go into the page as they are in memory: digit for digit, NaN included, in 11 characters
/// each.
std::string base64Of(std::span<const double> numbers) {
  constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto bytes = std::as_bytes(numbers);
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k)
      group = group << 8 | (k < count ? std::to_integer<std::uint32_t>(bytes[i + k]) : 0);
    for (std::size_t k = 0; k < 4; ++k) text += k <= count ? kDigits[group >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

void writeTexts(JsonWriter& json, std::span<const std::string> texts) {
  json.beginArray();
  for (const std::string& text : texts) json.value(text);
  json.endArray();
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
}

}  // namespace

CurveSamples::CurveSamples(std::uint64_t count) { samples_.reserve(count); }

CurveSamples::CurveSamples(const samples::Span& span, std::size_t buckets)
    : reduction_(std::in_place, span.first, span.last, buckets), from_(span.first), to_(span.last) {}

void CurveSamples::add(double time, double value) {
  ++count_;
  all_.add(samples::Sample{time, value});
  last_ = value;
  // Kept as a mean from the first value on: a sum of large values would lose the small ones.
  if (!std::isnan(value)) mean_ += (value - mean_) / static_cast<double>(all_.count);
  reduction_ ? reduction_->add(time, value) : samples_.push_back({time, value});
}

std::vector<samples::Sample> CurveSamples::kept() const {
  if (!reduction_) return samples_;
  std::vector<samples::Sample> kept;
  const std::vector<samples::Bucket>& buckets = reduction_->buckets();
  const double duration = (to_ - from_) / static_cast<double>(buckets.size());
  for (std::size_t i = 0; i < buckets.size(); ++i) {
    buckets[i].appendTo(kept);
    const double middle = from_ + (static_cast<double>(i) + 0.5) * duration;
    if (buckets[i].hasGap) kept.push_back({buckets[i].count > 0 ? buckets[i].last.time : middle, kNone});
  }
  return kept;
}

void writeNumber(JsonWriter& json, double number) {
  std::isinf(number) ? json.value(number > 0 ? "∞" : "−∞") : json.value(number);
}

std::string asScriptText(std::string json) {
  // In JSON these can only stand in texts. "<" would begin markup; the separators end a line of a script.
  replaceAll(json, "<", "\\u003c");
  replaceAll(json, "\u2028", "\\u2028");
  replaceAll(json, "\u2029", "\\u2029");
  return json;
}

Page::Page(Sink write, const Head& head) : write_(std::move(write)) {
  write_(kPageBeforeData);
  json_.beginObject().member("kind").value(head.kind);
  json_.member("title").value(head.title).member("subtitle").value(head.subtitle);
  json_.member("seriesTitle").value(head.seriesTitle);
  const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  json_.member("made").value(fmt::format("Made by tavlox on {:%Y-%m-%d at %H:%M} UTC.", fmt::gmtime(now)));
  json_.member("curves").beginArray();
}

void Page::flush() { write_(asScriptText(json_.take())); }

void Page::addCurve(const CurveLabel& label, const CurveSamples& samples) {
  std::vector<double> times, values;
  for (const samples::Sample& sample : samples.kept()) {
    times.push_back(sample.time);
    values.push_back(sample.value);
  }
  const std::u16string unit = label.unit.empty() ? u"" : u" [" + label.unit + u"]";
  json_.beginObject().member("group").value(label.name + unit).member("name").value(label.name);
  json_.member("unit").value(label.unit).member("series").value(label.series);
  if (!label.below.empty()) json_.member("below").value(label.below);
  json_.member("held").value(label.between == samples::Between::Held).member("count").value(samples.count());
  if (label.markTime) {
    json_.member("mark").beginObject().member("time").value(*label.markTime);
    json_.member("text").value(label.markText).endObject();
  }
  // The index of the curve that has them stands for times that are there already.
  const auto same = std::ranges::find(recentTimes_, times, &decltype(recentTimes_)::value_type::second);
  if (same != recentTimes_.end()) {
    json_.member("time").value(static_cast<std::uint64_t>(same->first));
  } else {
    // In a comparison three take turns: those of A, of B and of both.
    constexpr std::size_t kKept = 3;
    json_.member("time").value(base64Of(times));
    recentTimes_.emplace_back(curveCount_, std::move(times));
    if (recentTimes_.size() > kKept) recentTimes_.erase(recentTimes_.begin());
  }
  json_.member("value").value(base64Of(values)).endObject();
  ++curveCount_;
  flush();
}

void Page::endTable() {
  if (hasTables_) json_.endArray().endObject();
}

void Page::beginTable(std::string_view title, std::span<const std::string> fields,
                      std::span<const std::string> columns, std::string_view bad) {
  if (!hasTables_) json_.endArray().member("tables").beginArray();
  endTable();
  hasTables_ = true;
  json_.beginObject().member("title").value(title);
  writeTexts(json_.member("fields"), fields);
  writeTexts(json_.member("columns"), columns);
  if (!bad.empty()) json_.member("bad").value(bad);
  json_.member("rows").beginArray();
}

JsonWriter& Page::beginRow() { return json_.beginArray(); }

void Page::endRow() {
  // Pieces of some size: a session may have a million signals.
  constexpr std::size_t kPieceSize = std::size_t{64} * 1024;
  json_.endArray();
  if (json_.text().size() >= kPieceSize) flush();
}

void Page::finish(const Facts& facts) {
  if (!hasTables_) json_.endArray().member("tables").beginArray();
  endTable();
  json_.endArray().member("facts").beginArray();
  for (const auto& [name, value] : facts) json_.beginArray().value(name).value(value).endArray();
  json_.endArray().endObject();
  flush();
  write_(kPageBehindData);
}

}  // namespace tavlox::cli

#include "hosts/cli/comparison_page.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include <fmt/format.h>

#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using fl::i18n::JsonWriter;
using fl::i18n::to_ustring;
using samples::RecordedRun;
using samples::RecordedSession;
using samples::RecordedSignal;
using samples::RunComparison;
using samples::SignalComparison;
using samples::Span;
using samples::Verdict;

/// First and last time of all samples that the run's signals have; none where it has no samples.
Span spanOfSamples(const RecordedSession& session, const RecordedRun& run) {
  return run.samples ? samples::spanOf(session.read(run, {})) : Span{};
}

SampleBudget budgetFor(const Pairing& runs, const std::vector<std::pair<Span, Span>>& spans, Detail detail) {
  std::uint64_t values = 0, curves = 0;
  for (std::size_t i = 0; i < spans.size(); ++i) {
    const std::uint64_t rows = spans[i].first.rows + spans[i].second.rows;
    const std::uint64_t signals = runs.pairs[i].first->signals.size();
    // Both curves, and the difference, which has a value wherever one of them has.
    curves += 3 * signals;
    values += 2 * rows * (signals + 1);
  }
  return {detail, values, curves};
}

/// B less A, with nothing between equal infinities; NaN where one of them is.
double differenceOf(double a, double b) { return a == b ? 0 : b - a; }

/// The signals of a comparison that have samples on both sides, those that differ first: they are what the
/// page begins with.
std::vector<const SignalComparison*> shownOf(const RunComparison& compared) {
  std::vector<const SignalComparison*> shown;
  for (const bool isEqual : {false, true}) {
    for (const SignalComparison& signal : compared.signals)
      if (signal.a.column != 0 && signal.b.column != 0 && signal.isEqual() == isEqual)
        shown.push_back(&signal);
  }
  return shown;
}

std::vector<CurveSamples> readSide(const RecordedSession& session, const RecordedRun& run, const Span& span,
                                   const std::vector<const SignalComparison*>& shown,
                                   RecordedSignal SignalComparison::*side, const SampleBudget& budget) {
  PlottedRun plotted{&run, {}, run.name(), span};
  for (const SignalComparison* signal : shown) plotted.signals.push_back(signal->*side);
  return readCurves(session, plotted, budget);
}

std::u16string toleranceText(const samples::Tolerance& tolerance) {
  std::string text;
  const auto add = [&](std::string_view name, double value) {
    if (value > 0) text += fmt::format("{}{}={}", text.empty() ? "" : " ", name, value);
  };
  add("abs", tolerance.absolute);
  add("rel", tolerance.relative);
  add("range", tolerance.range);
  add("time", tolerance.time);
  return to_ustring(text.empty() ? "none" : text);
}

}  // namespace

bool Outcome::isEqual() const {
  return runs.onlyInA.empty() && runs.onlyInB.empty() &&
         std::ranges::all_of(compared, &RunComparison::isEqual);
}

std::vector<Outcome::Remark> Outcome::notCompared() const {
  std::vector<Remark> remarks;
  for (const RecordedRun* run : runs.onlyInA)
    remarks.push_back({idsOf(*run, *run), u"", "run only in A", true});
  for (const RecordedRun* run : runs.onlyInB)
    remarks.push_back({idsOf(*run, *run), u"", "run only in B", true});
  for (const RunComparison& pair : compared) {
    const std::u16string ids = idsOf(*pair.a, *pair.b);
    // Told, since it may explain the rest, but it decides nothing.
    for (const std::string& field : pair.metadata)
      remarks.push_back({ids, to_ustring(field), "other metadata", false});
    for (const RecordedSignal& signal : pair.onlyInA)
      remarks.push_back({ids, signal.name, "only in A", true});
    for (const RecordedSignal& signal : pair.onlyInB)
      remarks.push_back({ids, signal.name, "only in B", true});
  }
  return remarks;
}

const char* verdictOf(const SignalComparison& signal) {
  switch (signal.verdict) {
    case Verdict::Different:
      return "different";
    case Verdict::OtherSpan:
      return "other span";
    case Verdict::NothingToCompare:
      return "nothing to compare";
    default:
      return signal.isEqual() ? "equal" : "other units";
  }
}

std::u16string idsOf(const RecordedRun& a, const RecordedRun& b) {
  const std::string idA = std::to_string(a.id()), idB = std::to_string(b.id());
  return to_ustring(idA == idB ? idA : idA + ":" + idB);
}

ComparisonPage::ComparisonPage(Page::Sink write, const RecordedSession& a, const RecordedSession& b,
                               const Pairing& runs, Detail detail)
    : a_(a),
      b_(b),
      runs_(runs),
      spans_([&] {
        std::vector<std::pair<Span, Span>> spans;
        for (const auto& [runA, runB] : runs.pairs)
          spans.emplace_back(spanOfSamples(a, *runA), spanOfSamples(b, *runB));
        return spans;
      }()),
      budget_(budgetFor(runs, spans_, detail)),
      page_(std::move(write),
            {.kind = "Comparison",
             .title = fs::extract_filename(a.path()) + u" and " + fs::extract_filename(b.path()),
             .subtitle = u"",
             .seriesTitle = "Recordings"}) {}

/// What tells a curve from others of its signal: "A", and where there are several pairs of runs also which.
std::u16string ComparisonPage::seriesOf(const RecordedRun& a, const RecordedRun& b,
                                        std::u16string_view which) const {
  if (runs_.pairs.size() == 1) return std::u16string(which);
  const auto isNamedSo = [&](const auto& pair) { return pair.first->name() == a.name(); };
  const bool isName =
      !a.name().empty() && a.name() == b.name() && std::ranges::count_if(runs_.pairs, isNamedSo) == 1;
  return (isName ? a.name() : u"run " + idsOf(a, b)) + u" · " + std::u16string(which);
}

RunComparison ComparisonPage::add(samples::RunComparer comparer, const RecordedRun& a, const RecordedRun& b) {
  const auto [spanA, spanB] = spans_[next_++];
  const Span both{std::min(spanA.first, spanB.first), std::max(spanA.last, spanB.last),
                  spanA.rows + spanB.rows};
  std::vector<std::optional<CurveSamples>> differences;
  comparer.onValues = [&](std::size_t signal, double time, double valueA, double valueB) {
    if (differences.size() <= signal) differences.resize(signal + 1);
    if (!differences[signal]) differences[signal] = budget_.curveOf(both);
    differences[signal]->add(time, differenceOf(valueA, valueB));
  };
  RunComparison compared = comparer.compare(a_, a, b_, b);
  differences.resize(compared.signals.size());

  const std::vector<const SignalComparison*> shown = shownOf(compared);
  if (shown.empty()) return compared;
  const auto curvesA = readSide(a_, a, spanA, shown, &SignalComparison::a, budget_);
  const auto curvesB = readSide(b_, b, spanB, shown, &SignalComparison::b, budget_);
  for (std::size_t i = 0; i < shown.size(); ++i) {
    const SignalComparison& signal = *shown[i];
    CurveLabel label{.name = signal.a.name, .unit = signal.a.units, .series = seriesOf(a, b, u"A")};
    label.between = samples::betweenSamplesOf(signal.a.dataTypeLabel);
    if (!signal.isEqual() && signal.largest > 0) {
      label.markTime = signal.largestTime;
      label.markText = to_ustring(fmt::format("largest difference: {:.6g}", signal.largest));
    }
    page_.addCurve(label, curvesA[i]);
    CurveLabel labelB = label;
    // In another unit it is another quantity, and gets a plot of its own.
    labelB.unit = signal.b.units;
    labelB.series = seriesOf(a, b, u"B");
    labelB.between = samples::betweenSamplesOf(signal.b.dataTypeLabel);
    labelB.markTime.reset();
    page_.addCurve(labelB, curvesB[i]);
    const auto& difference = differences[static_cast<std::size_t>(shown[i] - compared.signals.data())];
    if (!difference) continue;
    label.series = seriesOf(a, b, u"B \u2212 A");
    label.below = u"Difference of " + label.name;
    page_.addCurve(label, *difference);
  }
  return compared;
}

void ComparisonPage::addTable(const Outcome& outcome) {
  static const std::vector<std::string> kColumns = {
      "Signal", "Runs", "Passes", "Verdict",     "Unit", "Largest difference",
      "At [s]", "A",    "B",      "Needed --abs"};
  static const std::vector<std::string> kFields = [] {
    std::vector<std::string> fields = kColumns;
    fields.insert(fields.end(),
                  {"Unit in B", "Type in A", "Type in B", "Tolerance", "Values tested", "Values failed"});
    return fields;
  }();
  page_.beginTable("Signals", kFields, kColumns, "no");
  const auto begin = [&](std::u16string_view signal, std::u16string_view runs, bool passes,
                         const char* verdict) -> JsonWriter& {
    return page_.beginRow().value(signal).value(runs).value(passes ? "yes" : "no").value(verdict);
  };
  for (const auto& [runs, subject, verdict, isDifference] : outcome.notCompared()) {
    JsonWriter& json = begin(subject, runs, !isDifference, verdict);
    for (std::size_t i = 4; i < kFields.size(); ++i) json.value("");
    page_.endRow();
  }
  for (const RunComparison& runs : outcome.compared) {
    for (const SignalComparison& signal : runs.signals) {
      JsonWriter& json = begin(signal.a.name, idsOf(*runs.a, *runs.b), signal.isEqual(), verdictOf(signal));
      json.value(signal.a.units);
      for (const double number :
           {signal.largest, signal.largestTime, signal.valueA, signal.valueB, signal.needed})
        writeNumber(json, number);
      json.value(signal.b.units).value(signal.a.dataTypeLabel).value(signal.b.dataTypeLabel);
      json.value(toleranceText(signal.tolerance)).value(signal.tested).value(signal.failed);
      page_.endRow();
    }
  }
}

void ComparisonPage::finish(const Outcome& outcome) {
  std::size_t signals = 0, equal = 0;
  for (const RunComparison& runs : outcome.compared) {
    signals += runs.signals.size();
    equal += static_cast<std::size_t>(std::ranges::count_if(runs.signals, &SignalComparison::isEqual));
  }
  addTable(outcome);
  page_.finish({{"Result", outcome.isEqual() ? u"equal within the tolerances" : u"different"},
                {"Equal signals", to_ustring(fmt::format("{} of {}", equal, signals))},
                {"A, the reference", fs::absolute(a_.path())},
                {"B", fs::absolute(b_.path())},
                {"Compared runs", to_ustring(std::to_string(outcome.compared.size()))}});
}

}  // namespace tavlox::cli

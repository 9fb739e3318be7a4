#include "hosts/cli/selection.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using fl::i18n::to_string;
using foundation::core::except::raise;
using samples::RecordedRun;
using samples::RecordedSignal;

/// The whole word as a number, or nothing.
template <class Number>
std::optional<Number> parse(const std::u16string& word) {
  const std::string narrow = to_string(word);
  const char* const last = narrow.data() + narrow.size();
  Number number{};
  const auto [end, error] = std::from_chars(narrow.data(), last, number);
  if (error != std::errc() || end != last) return std::nullopt;
  return number;
}

bool isWanted(const std::vector<std::u16string>& globs, const std::u16string& name) {
  return globs.empty() ||
         std::ranges::any_of(globs, [&](const auto& glob) { return matchesGlob(glob, name); });
}

std::vector<const RecordedRun*> selectRuns(const Request& request, const samples::RecordedSession& session) {
  std::vector<const RecordedRun*> runs;
  for (const RecordedRun& run : session.runs()) {
    if (!request.has("--run") && run.samples) runs.push_back(&run);
  }
  for (const std::u16string& word : request.all("--run")) {
    const auto run = std::ranges::find(session.runs(), toRunID(word), &RecordedRun::id);
    if (run == session.runs().end()) raise("tavlox:samples:NoSuchRun", session.path(), word);
    if (!run->samples) raise("samples:session:NoSamples", session.path(), run->id());
    // Each once, however often it was asked for.
    if (std::ranges::find(runs, &*run) == runs.end()) runs.push_back(&*run);
  }
  if (runs.empty()) raise("tavlox:samples:NoneRecorded", session.path());
  return runs;
}

}  // namespace

std::optional<double> numberOf(const Request& request, std::string_view option) {
  if (!request.has(option)) return std::nullopt;
  const auto number = parse<double>(request.one(option));
  if (!number || !std::isfinite(*number)) raise("tavlox:cli:NotANumber", option, request.one(option));
  return number;
}

samples::Wanted rangeOf(const Request& request) {
  samples::Wanted wanted;
  wanted.from = numberOf(request, "--from").value_or(wanted.from);
  wanted.to = numberOf(request, "--to").value_or(wanted.to);
  return wanted;
}

std::int32_t toRunID(const std::u16string& word) {
  const auto id = parse<std::int32_t>(word);
  if (!id) raise("tavlox:cli:NotARunID", word);
  return *id;
}

std::vector<std::uint32_t> SelectedRun::columns() const {
  std::vector<std::uint32_t> columns;
  for (const RecordedSignal& signal : signals) columns.push_back(signal.column);
  return columns;
}

std::vector<SelectedRun> selectSamples(const Request& request, const samples::RecordedSession& session) {
  const std::vector<std::u16string>& globs = request.all("--signal");
  std::vector<SelectedRun> selected;
  for (const RecordedRun* run : selectRuns(request, session)) {
    SelectedRun chosen{run, {}};
    for (const RecordedSignal& signal : run->signals) {
      if (signal.column != 0 && isWanted(globs, signal.name)) chosen.signals.push_back(signal);
    }
    if (!chosen.signals.empty()) selected.push_back(std::move(chosen));
  }
  for (const std::u16string& glob : globs) {
    const auto describes = [&](const RecordedSignal& signal) { return matchesGlob(glob, signal.name); };
    const bool isFound = std::ranges::any_of(
        selected, [&](const SelectedRun& run) { return std::ranges::any_of(run.signals, describes); });
    // A name that is mistyped must not give a table without it.
    if (!isFound) raise("tavlox:samples:NoSuchSignal", session.path(), glob);
  }
  if (selected.empty()) raise("tavlox:samples:NoneRecorded", session.path());
  return selected;
}

std::u16string headingOf(const RecordedSignal& signal) {
  return signal.units.empty() ? signal.name : signal.name + u" [" + signal.units + u"]";
}

}  // namespace tavlox::cli

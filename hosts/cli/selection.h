#pragma once

#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/cli/command.h"
#include "platform/samples/recorded_session.h"
#include "platform/text/glob.h"

/// Which recorded samples a command is to work on: the options that name runs, signals and times.
namespace tavlox::cli {

/// The options that choose among what was recorded. Both may be given several times.
inline constexpr Parameter kRunOption{"--run", Takes::Values, "Only the run of this id; may be repeated",
                                      "ID"};
inline constexpr Parameter kSignalOption{"--signal", Takes::Values,
                                         "Only signals named so; * and ? stand for any text", "GLOB"};
inline constexpr Parameter kFromOption{"--from", Takes::Value, "Only samples from this time on, in seconds",
                                       "T"};
inline constexpr Parameter kToOption{"--to", Takes::Value, "Only samples up to this time, in seconds", "T"};

/// The option's value as a finite number; nothing if it was not given. Raises tavlox:cli:NotANumber, which is
/// a mistake in the command line: to be called by a command's check too.
std::optional<double> numberOf(const Request& request, std::string_view option);

/// The time range of --from and --to, without columns. Raises as numberOf does.
samples::Wanted rangeOf(const Request& request);

/// A whole number that stands for a run. Raises tavlox:cli:NotARunID for anything else.
std::int32_t toRunID(const std::u16string& word);

using fl::i18n::matchesGlob;

/// A run, and those of its signals that were chosen.
struct SelectedRun {
  const samples::RecordedRun* run;
  std::vector<samples::RecordedSignal> signals;  ///< with samples, and not none

  std::vector<std::uint32_t> columns() const;
};

/// What the options choose of the session, which must outlive it. Raises tavlox:samples:… errors for a run
/// that is not there or has no samples, a glob that describes no recorded signal, and a session without
/// samples; nothing is silently left out but runs that have none of the signals.
std::vector<SelectedRun> selectSamples(const Request& request, const samples::RecordedSession& session);

/// "v(out) [V]"; the name alone for a signal without a unit.
std::u16string headingOf(const samples::RecordedSignal& signal);

}  // namespace tavlox::cli

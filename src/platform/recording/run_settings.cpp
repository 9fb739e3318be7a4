#include "platform/recording/run_settings.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/tables/cells.h"
#include "platform/text/conversion.h"

namespace tavlox::recording {
namespace {

using orra::RunRecord;
using Text = std::optional<std::u16string> RunRecord::*;
using Seconds = std::optional<double> RunRecord::*;

/// A field beside the metadata, under the name of hosts and that of the run list.
template <class Field>
struct NamedField {
  std::string_view name, member;
  Field field;
};

// What follows from the table (times of the simulation, samples, numbers) is not to be set.
constexpr NamedField<Text> kTexts[] = {
    {"Name", "name", &RunRecord::name},       {"DateCreated", "dateCreated", &RunRecord::dateCreated},
    {"Model", "model", &RunRecord::model},    {"SimMode", "simMode", &RunRecord::simMode},
    {"Status", "status", &RunRecord::status},
};
constexpr NamedField<Seconds> kSeconds[] = {
    {"ModelInitializationTime", "updateTime", &RunRecord::updateTime},
    {"ModelExecutionTime", "simTime", &RunRecord::simTime},
    {"ModelTerminationTime", "termTime", &RunRecord::termTime},
    {"ModelTotalElapsedTime", "totalTime", &RunRecord::totalTime},
};
// The one key of the metadata that hosts show under another name.
constexpr std::string_view kShownStepSize = "SolverStepSize";

std::string lowered(std::string_view text) {
  std::string lower(text);
  for (char& character : lower)
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  return lower;
}

/// How many characters must be put in, left out or changed to make one text of the other.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = std::exchange(row[j + 1], std::min({row[j] + 1, row[j + 1] + 1, changed}));
    }
  }
  return row.back();
}

[[noreturn]] void refuseKey(std::string_view key) {
  std::vector<std::string_view> names;
  for (const auto& text : kTexts) names.push_back(text.name);
  for (const auto& seconds : kSeconds) names.push_back(seconds.name);
  for (const orra::Member& member : orra::kMetadataMembers) names.push_back(member.name);
  const auto distanceTo = [lower = lowered(key)](std::string_view name) {
    return distance(lower, lowered(name));
  };
  const std::string_view nearest = *std::ranges::min_element(names, {}, distanceTo);
  // Further away it is another word.
  const bool isLike = distanceTo(nearest) * 3 <= std::max(nearest.size(), std::size_t{6});
  const std::string advice = isLike ? fmt::format("Did you mean \"{}\"?", nearest)
                                    : fmt::format("There are {}.", fmt::join(names, ", "));
  foundation::core::except::raise("tavlox:record:NotAKey", key, advice);
}

}  // namespace

void set(RunRecord& run, std::u16string_view key, std::u16string_view value) {
  const std::string narrow = fl::i18n::to_string(key), asked = lowered(narrow);
  const auto isAsked = [&](std::string_view name) { return lowered(name) == asked; };
  for (const auto& [name, member, field] : kTexts)
    if (isAsked(name) || isAsked(member)) return void(run.*field = value);
  for (const auto& [name, member, field] : kSeconds) {
    if (!isAsked(name) && !isAsked(member)) continue;
    const auto seconds = tables::parseNumber(fl::i18n::to_string(value));
    if (!seconds || !std::isfinite(*seconds))
      foundation::core::except::raise("tavlox:record:OptionValue", name, value, "a number of seconds");
    run.*field = *seconds;
    return;
  }
  for (const orra::Member& member : orra::kMetadataMembers)
    if (isAsked(member.name)) return void(run.metadata[std::string(member.name)] = value);
  if (!isAsked(kShownStepSize)) refuseKey(narrow);
  run.metadata[orra::strings::SolverMaxStepSize] = value;
}

}  // namespace tavlox::recording

#include "platform/recording/run_settings.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/tables/cells.h"
#include "platform/text/conversion.h"
#include "platform/text/suggestion.h"

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

[[noreturn]] void refuseKey(std::string_view key) {
  std::vector<std::u16string> names;
  const auto add = [&](std::string_view name) { names.push_back(fl::i18n::to_ustring(name)); };
  for (const auto& text : kTexts) add(text.name);
  for (const auto& seconds : kSeconds) add(seconds.name);
  for (const orra::Member& member : orra::kMetadataMembers) add(member.name);
  const std::u16string meant = fl::i18n::closest(fl::i18n::to_ustring(key), names);
  std::u16string advice = u"Did you mean \"" + meant + u"\"?";
  if (meant.empty()) {
    advice = u"There are ";
    for (const std::u16string& name : names) advice += name + (&name == &names.back() ? u"." : u", ");
  }
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

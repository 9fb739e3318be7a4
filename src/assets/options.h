#pragma once

#include <span>
#include <string>
#include <unordered_map>
#include <variant>

#include "platform/zobs/value.h"

namespace orra::tavloxio::part {

/// "OutputPath" and "Path" hold a text, "Replace" a logical.
using OptionMap = std::unordered_map<std::string, std::variant<std::u16string, bool>>;

/// The name/value pairs of a method's inputs, from the third input on. A trailing name without a value is
/// ignored; a name that occurs twice keeps its last value; "Replace" is true for the word "enable" in any
/// case and false for all others. Raises Corvan:InputParser:UnmatchedParameter, with the name and an empty
/// text, for an unknown name.
OptionMap parseNameValueOptions(std::span<const zobs::Value> inputs);

/// The value of an option; empty or false if it was not given.
std::u16string textOption(const OptionMap& options, const std::string& name);
bool logicalOption(const OptionMap& options, const std::string& name);

}  // namespace orra::tavloxio::part

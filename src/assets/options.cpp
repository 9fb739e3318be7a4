#include "assets/options.h"

#include <string_view>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace orra::tavloxio::part {
namespace {

constexpr std::size_t kFirstPair = 2;  // after the object and the method's main input

/// Only ASCII letters have a lower case here.
std::u16string lowerCase(std::u16string text) {
  for (char16_t& unit : text) {
    if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit - u'A' + u'a');
  }
  return text;
}

void addOption(OptionMap& options, const std::u16string& name, const std::u16string& value) {
  const std::string key = fl::i18n::to_string_lossy(name);
  if (key == "OutputPath" || key == "Path") {
    options.insert_or_assign(key, value);
    return;
  }
  if (key == "Replace") {
    // "enable" is the one word that switches it on.
    options.insert_or_assign(key, lowerCase(value) == u"enable");
    return;
  }
  foundation::core::except::raise("Corvan:InputParser:UnmatchedParameter", name, u"");
}

}  // namespace

OptionMap parseNameValueOptions(std::span<const zobs::Value> inputs) {
  OptionMap options;
  for (std::size_t i = kFirstPair; i + 1 < inputs.size(); i += 2) {
    addOption(options, std::get<std::u16string>(inputs[i]), std::get<std::u16string>(inputs[i + 1]));
  }
  return options;
}

std::u16string textOption(const OptionMap& options, const std::string& name) {
  const auto option = options.find(name);
  return option == options.end() ? std::u16string() : std::get<std::u16string>(option->second);
}

bool logicalOption(const OptionMap& options, const std::string& name) {
  const auto option = options.find(name);
  return option != options.end() && std::get<bool>(option->second);
}

}  // namespace orra::tavloxio::part

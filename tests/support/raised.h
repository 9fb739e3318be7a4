#pragma once

#include <exception>
#include <string>

#include "platform/errors/exceptions.h"
#include "platform/text/conversion.h"

namespace support {

inline std::string describe(const foundation::core::except::IUserException& error) {
  std::string text = error.GetID() + "(";
  for (const auto& argument : error.GetArguments()) {
    if (text.back() != '(') text += ", ";
    text += fl::i18n::to_string_lossy(argument);
  }
  return text + ")";
}

/// What `action` raises, as "identifier(argument, argument)"; the text of another exception; "" if it raises
/// nothing.
template <class Action>
std::string raisedBy(const Action& action) {
  try {
    action();
  } catch (const foundation::core::except::IUserException& error) {
    return describe(error);
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

/// The first cause of what `action` raises; "" if there is none.
template <class Action>
std::string causeOf(const Action& action) {
  try {
    action();
  } catch (const foundation::core::except::except_with_causes& error) {
    if (!error.causes().empty()) return describe(error.causes().front());
  }
  return "";
}

/// The identifier alone: the rule that `action` breaks; "" if it raises nothing.
template <class Action>
std::string ruleOf(const Action& action) {
  const std::string raised = raisedBy(action);
  return raised.substr(0, raised.find('('));
}

}  // namespace support

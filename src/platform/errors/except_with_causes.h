#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/errors/user_exception.h"

namespace foundation::core::except {

/// One message-ID error: an identifier, its arguments, and the errors that led to it, in order.
class except_with_causes : public IUserException {
 public:
  explicit except_with_causes(std::string_view identifier, Arguments arguments = {},
                              std::vector<except_with_causes> causes = {});
  ~except_with_causes() override;

  const std::string& GetID() const noexcept override { return identifier_; }
  const Arguments& GetArguments() const noexcept override { return arguments_; }
  const std::vector<except_with_causes>& causes() const noexcept { return causes_; }

  void addCause(except_with_causes cause) { causes_.push_back(std::move(cause)); }

 private:
  std::string identifier_;
  Arguments arguments_;
  std::vector<except_with_causes> causes_;
};

/// Texts are taken as they are, narrow ones as UTF-8 (lossy: a message is never refused), integers in
/// decimal.
std::u16string toArgument(std::u16string_view text);
std::u16string toArgument(std::string_view narrow);
inline std::u16string toArgument(const char16_t* text) { return toArgument(std::u16string_view(text)); }
inline std::u16string toArgument(const char* narrow) { return toArgument(std::string_view(narrow)); }
template <std::integral Number>
std::u16string toArgument(Number number) {
  return toArgument(std::string_view(std::to_string(number)));
}

/// Raises one message-ID error. The whole identifier stands at the call, so that a search finds it.
template <class... Argument>
[[noreturn]] void raise(std::string_view identifier, const Argument&... arguments) {
  throw except_with_causes(identifier, {toArgument(arguments)...});
}

}  // namespace foundation::core::except

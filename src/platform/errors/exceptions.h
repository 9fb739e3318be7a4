#pragma once

#include <concepts>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/errors/message_id.h"

/// The errors of the platform and its modules: one with an identifier and arguments, an ordered collection of
/// them, and out of memory.
namespace foundation::core::except {

/// What fills the placeholders of a message's text, in order.
using Arguments = std::vector<std::u16string>;

/// Out of memory. Raising it allocates nothing. No catalog is asked for its text, since that needs memory.
class bad_alloc : public std::bad_alloc {
 public:
  ~bad_alloc() override;
  const char* what() const noexcept override {
    return "Out of memory. Close other programs or data and try again.";
  }
};

/// What every error that reaches a user answers: its identifier ("catalog:component:key"), its ordered
/// arguments, and the catalog's text for them.
class IUserException : public std::exception {
 public:
  virtual const std::string& GetID() const noexcept = 0;
  virtual const Arguments& GetArguments() const noexcept = 0;

  /// The catalog text with the arguments in place, as UTF-8. An identifier that the catalog does not know
  /// gives the identifier and the arguments.
  std::string GetMessageTxt() const;

  /// GetMessageTxt, kept for as long as the exception lives; the identifier if there is no memory for it.
  const char* what() const noexcept override;

 private:
  mutable std::string what_;
};

/// One message-ID error: an identifier, its arguments, and the errors that led to it, in order.
class except_with_causes : public IUserException {
 public:
  /// The identifier is not checked here. An error without causes is made by `raise`, which has the compiler
  /// check it.
  explicit except_with_causes(std::string_view identifier, Arguments arguments = {},
                              std::vector<except_with_causes> causes = {});
  ~except_with_causes() override;

  const std::string& GetID() const noexcept override { return identifier_; }
  const Arguments& GetArguments() const noexcept override { return arguments_; }
  const std::vector<except_with_causes>& causes() const noexcept { return causes_; }

  void addCause(const except_with_causes& cause) { causes_.push_back(cause); }

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
[[noreturn]] void raise(fl::i18n::MessageId<sizeof...(Argument)> identifier, const Argument&... arguments) {
  throw except_with_causes(identifier, {toArgument(arguments)...});
}

/// Errors gathered in order instead of being raised one by one. A collection can itself be raised; it then
/// answers with the identifier, arguments and text of its first error.
class collection : public IUserException {
 public:
  collection() = default;
  ~collection() override;

  /// One that is empty for the life of the process.
  static const collection& get_empty_instance();

  /// Adds one error at the end.
  void add(const except_with_causes& error) { errors_.push_back(error); }
  template <class... Argument>
  void add(fl::i18n::MessageId<sizeof...(Argument)> identifier, const Argument&... arguments) {
    errors_.emplace_back(identifier, Arguments{toArgument(arguments)...});
  }

  bool empty() const noexcept { return errors_.empty(); }
  std::size_t size() const noexcept { return errors_.size(); }
  const std::vector<except_with_causes>& errors() const noexcept { return errors_; }

  /// The first error, with the further ones as its last causes. The collection must not be empty.
  except_with_causes extract_except_with_causes() const;

  /// The first error's; empty ones if there is none.
  const std::string& GetID() const noexcept override;
  const Arguments& GetArguments() const noexcept override;

 private:
  std::vector<except_with_causes> errors_;
};

/// Raises a collection that holds one error.
template <class... Argument>
[[noreturn]] void raiseCollection(fl::i18n::MessageId<sizeof...(Argument)> identifier,
                                  const Argument&... arguments) {
  collection errors;
  errors.add(identifier, arguments...);
  throw errors;
}

}  // namespace foundation::core::except

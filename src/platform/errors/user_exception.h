#pragma once

#include <exception>
#include <string>
#include <vector>

namespace foundation::core::except {

using Arguments = std::vector<std::u16string>;

/// What every error that reaches a user answers: its identifier ("catalog:component:key"), its ordered
/// arguments, and the catalog's text for them.
class IUserException : public std::exception {
 public:
  virtual const std::string& GetID() const noexcept = 0;
  virtual const Arguments& GetArguments() const noexcept = 0;

  /// The catalog text with the arguments in place, as UTF-8. An identifier that the catalog does not know
  /// gives the identifier and the arguments.
  std::string GetMessageTxt() const;

  /// GetMessageTxt, kept for as long as the exception lives.
  const char* what() const noexcept override;

 private:
  mutable std::string what_;
};

}  // namespace foundation::core::except

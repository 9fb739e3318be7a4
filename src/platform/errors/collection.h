#pragma once

#include <string_view>
#include <vector>

#include "platform/errors/except_with_causes.h"

namespace foundation::core::except {

/// Errors gathered in order instead of being raised one by one. A collection can itself be raised; it then
/// answers with the identifier, arguments and text of its first error.
class collection : public IUserException {
 public:
  collection() = default;
  ~collection() override;

  static const collection& get_empty_instance();

  /// Adds one error at the end.
  void add(except_with_causes error) { errors_.push_back(std::move(error)); }
  template <class... Argument>
  void add(std::string_view identifier, const Argument&... arguments) {
    errors_.emplace_back(identifier, Arguments{toArgument(arguments)...});
  }

  bool empty() const noexcept { return errors_.empty(); }
  std::size_t size() const noexcept { return errors_.size(); }
  const std::vector<except_with_causes>& errors() const noexcept { return errors_; }

  /// The first error, with the further ones as its last causes. The collection must not be empty.
  except_with_causes extract_except_with_causes() const;

  const std::string& GetID() const noexcept override;
  const Arguments& GetArguments() const noexcept override;

 private:
  std::vector<except_with_causes> errors_;
};

/// Raises a collection that holds one error.
template <class... Argument>
[[noreturn]] void raiseCollection(std::string_view identifier, const Argument&... arguments) {
  collection errors;
  errors.add(identifier, arguments...);
  throw errors;
}

}  // namespace foundation::core::except

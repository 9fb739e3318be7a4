#pragma once

#include <string_view>

#include "platform/errors/exceptions.h"

/// The errors of the package library. They stand here, below it, because the files and the ZIP container that
/// it is built on raise them too.
namespace opc {

/// Any failure of the package library. The identifier says which rule was broken, the first argument is the
/// path of the package.
class Exception : public foundation::core::except::except_with_causes {
 public:
  using except_with_causes::except_with_causes;
  ~Exception() override;
};

namespace model {

/// There is no file of that name.
class PackageNotFound : public Exception {
 public:
  /// The path is UTF-8; ill-formed bytes show as U+FFFD in the message.
  explicit PackageNotFound(std::string_view narrowPath);
  ~PackageNotFound() override;
};

/// The file is there but is refused; the identifier says which rule it breaks.
class PackageOpenFailed : public Exception {
 public:
  using Exception::Exception;
  ~PackageOpenFailed() override;
};

}  // namespace model

/// Raises an error of the package library: plain, or of a class derived from Exception that handlers tell
/// apart.
template <class Error = Exception, class... Argument>
[[noreturn]] void raise(fl::i18n::MessageId<sizeof...(Argument)> identifier, const Argument&... arguments) {
  throw Error(identifier, {foundation::core::except::toArgument(arguments)...});
}

/// Refuses to open a package.
template <class... Argument>
[[noreturn]] void refuse(fl::i18n::MessageId<sizeof...(Argument)> identifier, const Argument&... arguments) {
  raise<model::PackageOpenFailed>(identifier, arguments...);
}

}  // namespace opc

#pragma once

#include <string_view>

#include "platform/errors/exceptions.h"

namespace fl::filesystem {

/// A file or folder operation that the system refused, or a name that no file can have. The identifier says
/// which operation; the first argument is the path, the second, where the system gave one, its reason.
class Error : public foundation::core::except::except_with_causes {
 public:
  using except_with_causes::except_with_causes;
  ~Error() override;
};

template <class... Argument>
[[noreturn]] void raise(fl::i18n::MessageId<sizeof...(Argument)> identifier, const Argument&... arguments) {
  throw Error(identifier, {foundation::core::except::toArgument(arguments)...});
}

}  // namespace fl::filesystem

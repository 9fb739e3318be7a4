#pragma once

#include "platform/errors/except_with_causes.h"

namespace fl::filesystem {

/// A file or folder operation that the system refused.
class Error : public foundation::core::except::except_with_causes {
 public:
  using except_with_causes::except_with_causes;
  ~Error() override;
};

}  // namespace fl::filesystem

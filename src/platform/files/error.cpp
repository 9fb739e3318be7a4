#include "platform/files/error.h"

namespace fl::filesystem {

Error::~Error() = default;

}  // namespace fl::filesystem

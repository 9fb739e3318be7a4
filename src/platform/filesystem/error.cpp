#include "platform/filesystem/error.h"

namespace fl::filesystem {

Error::~Error() = default;

}  // namespace fl::filesystem

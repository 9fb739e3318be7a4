#pragma once

#include <vector>

#include "platform/errors/exceptions.h"

namespace tavlox::cli {

/// Why the module could not read or save a file. The module's errors name the file alone, so the package
/// library and the file system are asked again. Empty for other errors, and when nothing is found (any more).
std::vector<foundation::core::except::except_with_causes> findCauses(
    const foundation::core::except::IUserException& error);

}  // namespace tavlox::cli

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zobs {

/// The names that begin with `prefix` of the functions that a loaded library itself exports, as its dynamic
/// symbol table lists them. `library` is a handle of dlopen.
std::vector<std::string> exportedFunctions(void* library, std::string_view prefix);

}  // namespace zobs

#pragma once

#include <string>
#include <string_view>

namespace zobs {

/// Where an installation keeps the module of this name: NAME.so in the folder "tavlox" beside the platform's
/// library, wherever the two were moved. Whether there is one is seen when it is loaded.
std::u16string installedModule(std::string_view name);

/// Loads a module (a shared library) and calls its initialisation entry point: the one function without
/// arguments that it exports under a name that begins with "CvInitialize_". A module stays loaded for the
/// life of the process, and loading it again only calls the entry point again. Raises
/// Corvan:ObjectSystem:CannotLoadModule with the path and the reason: no such file, no shared library that
/// can be loaded here, no entry point or several. Errors of the entry point pass through, and the module
/// stays loaded: what it registered is in use.
void loadModule(const std::u16string& path);

}  // namespace zobs

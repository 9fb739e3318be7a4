#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace fl::i18n {

/// The folder that the platform's library was loaded from, with symbolic links resolved; what an installation
/// brings lies at fixed places beside it. Asked of the loader, which knows where this very library came from:
/// a folder that was compiled in would be wrong as soon as the installation is moved. Empty if the loader
/// cannot tell.
std::filesystem::path libraryFolder();

/// A function in a library of the installation.
struct Found {
  void* address;       ///< null if there is none
  std::string path;    ///< of the library
  std::string reason;  ///< why there is none, in the loader's words
};
/// Loads the library of that name in the modules' folder, without its ".so", for good: what it made may live
/// to the end of the process. For what few calls need and takes long to load.
Found findInInstallation(std::string_view library, const char* function);

}  // namespace fl::i18n

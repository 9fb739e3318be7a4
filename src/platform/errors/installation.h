#pragma once

#include <filesystem>

namespace fl::i18n {

/// The folder that the platform's library was loaded from, with symbolic links resolved; what an installation
/// brings lies at fixed places beside it. Asked of the loader, which knows where this very library came from:
/// a folder that was compiled in would be wrong as soon as the installation is moved. Empty if the loader
/// cannot tell.
std::filesystem::path libraryFolder();

}  // namespace fl::i18n

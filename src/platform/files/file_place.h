#pragma once

#include <string>

#include "platform/files/descriptor.h"

namespace fl::filesystem {

/// Where a file stands or is to stand: its folder, held open so that nobody can move it away, and its name
/// there.
struct FilePlace {
  std::string path;  ///< as it was asked for; what messages name
  Descriptor folder;
  std::string name;
};

/// The place of the file that `path` (UTF-8) leads to, symbolic links followed. Raises opc::Exception if
/// there is none, or its folder cannot be opened.
FilePlace placeOfExisting(const std::string& path);

/// The place for a file that is to get the name `path`; only the folder must exist.
FilePlace placeOfNew(const std::string& path);

}  // namespace fl::filesystem

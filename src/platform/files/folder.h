#pragma once

#include <string>

#include "platform/files/descriptor.h"

/// Making files. Names that no file can have raise Error.
namespace fl::filesystem {

/// A folder that is kept open: its path is followed once, however many files are made in it.
class Folder {
 public:
  /// Nothing is said about a folder that cannot be opened; making a file in it fails.
  explicit Folder(const std::u16string& path);
  /// A new file of this name, open for writing. Owns nothing if there is one already, be it a link that leads
  /// nowhere, or if it cannot be made.
  Descriptor createFile(const std::u16string& name) const;

 private:
  Descriptor folder_;
};

/// The file at this path, or where a link leads, open for writing: emptied if it is there and made if not.
/// Owns nothing if that fails.
Descriptor createOrEmptyFile(const std::u16string& path);

}  // namespace fl::filesystem

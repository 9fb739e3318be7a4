#pragma once

#include <string>
#include <vector>

#include "package/scoped_ref.h"

namespace orra::tavloxio::part {

struct AddOptions {
  std::u16string Path;   ///< the folder of the package to store in; the user folder if empty
  bool Replace = false;  ///< whether an entry of the same name gives way
};

/// Stores a disk file, or each file lying directly in a folder, links included and subfolders left out. Gives
/// the part names in the order of adding; a path that does not exist adds nothing and is no error. An error
/// stops the walk, and what was added before it stays.
std::vector<std::u16string> addPathToPackage(const file::ScopedRef& ref, const std::u16string& diskPath,
                                             const AddOptions& options);

/// Stores one disk file under a user-assets relationship (or the type of the one it replaces) and gives its
/// part name. Raises tavlox_io:general:CannotAddEntry, with the file name and the package's path, if the
/// package library refuses the name or the entry. A disk file that cannot be opened raises
/// fl::filesystem::Error, one that cannot be read to its end opc:stream:CannotRead with the package, the file
/// and how far it was read; the package is then as it was, also the entry that was to be replaced.
std::u16string addToPackage(const file::ScopedRef& ref, const std::u16string& diskPath,
                            const AddOptions& options);

}  // namespace orra::tavloxio::part

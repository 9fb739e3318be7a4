#pragma once

#include <string>

#include "package/scoped_ref.h"

namespace orra::tavloxio::part {

struct AddOptions {
  std::u16string Path;   ///< the folder of the package to store in; the user folder if empty
  bool Replace = false;  ///< whether an entry of the same name gives way
};

/// Stores a disk file, or each file lying directly in a folder, links included and subfolders left out, under
/// a user-assets relationship, or under the type of the one that it replaces. A path that does not exist adds
/// nothing and is no error. An error stops the walk, and what was added before it stays.
///
/// Raises tavlox_io:general:CannotAddEntry, with the file name and the package's path, if the package library
/// refuses the name or the entry. A disk file that cannot be opened raises fl::filesystem::Error, one that
/// cannot be read to its end opc:stream:CannotRead with the package, the file, how far it was read and the
/// reason; the package is then as it was, also the entry that was to be replaced.
void addPathToPackage(const file::ScopedRef& ref, const std::u16string& diskPath, const AddOptions& options);

}  // namespace orra::tavloxio::part

#pragma once

#include <string>
#include <vector>

namespace tavlox::session_index {

/// The packages of a folder: all regular files, or links to such, named *.tavlox.
struct PackageSearch {
  std::vector<std::u16string> packages;           ///< sorted
  std::vector<std::u16string> unreadableFolders;  ///< in these, and below, there may be more
};

/// Looks in the folder, or also in all below it. Links to folders are not followed, which might never end.
/// Paths begin with the folder as it was given.
enum class Depth { Folder, Below };
PackageSearch findPackages(const std::u16string& folder, Depth depth);

}  // namespace tavlox::session_index

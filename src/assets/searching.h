#pragma once

#include <string>
#include <vector>

#include "package/scoped_ref.h"

/// Listing and deleting: both take a search text, an absolute path of the package or a bare file name.
namespace orra::tavloxio::part {

struct ListOptions {
  std::u16string search = u"/";
};

struct ListedEntry {
  std::u16string fullPath;
  std::u16string name;
  std::u16string type;  ///< what follows the last "+" of the content sub-type; empty without one
};

/// The entries that the search text selects, in the package's order. A bare name is looked for among all
/// package-level relationships. Empty text and "*" mean "/". Finding nothing is an empty answer. Raises
/// tavlox_io:general:UnsupportedSearch for a relative path with folders. A relationship that reaches no part
/// (dangling, above the root or out of the package) is an entry without a type.
std::vector<ListedEntry> listFiles(const file::ScopedRef& ref, const ListOptions& options);

/// Removes the entries that `name` selects, bare names among user files only, and gives their names. Raises
/// tavlox_io:general:EntryDoesNotExist (the name) and tavlox_io:general:UnsupportedSearch.
std::vector<std::u16string> deleteFromPackage(const file::ScopedRef& ref, const std::u16string& name);

}  // namespace orra::tavloxio::part

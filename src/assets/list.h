#pragma once

#include <string>
#include <vector>

#include "package/scoped_ref.h"

namespace orra::tavloxio::part {

struct ListOptions {
  std::u16string search = u"/";
};

struct ListedEntry {
  std::u16string fullPath;
  std::u16string name;
  std::u16string type;  ///< what follows the last "+" of the content sub-type; empty without one
};

/// The entries that the search text selects, in the package's order: an absolute path, or a bare name that is
/// looked for among all package-level relationships. Empty text and "*" mean "/". Finding nothing is an empty
/// answer. Raises tavlox_io:general:UnsupportedSearch for a relative path with folders, and opc::Exception
/// for a relationship that leads to no part; one that leads out of the package is an entry without a type.
std::vector<ListedEntry> listFiles(const file::ScopedRef& ref, const ListOptions& options);

}  // namespace orra::tavloxio::part

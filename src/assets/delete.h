#pragma once

#include <string>
#include <vector>

#include "package/scoped_ref.h"

namespace orra::tavloxio::part {

/// Removes the entries that `name` selects, bare names among user files only, and gives their names. Raises
/// tavlox_io:general:EntryDoesNotExist (the name) and tavlox_io:general:UnsupportedSearch.
std::vector<std::u16string> deleteFromPackage(const file::ScopedRef& ref, const std::u16string& name);

}  // namespace orra::tavloxio::part

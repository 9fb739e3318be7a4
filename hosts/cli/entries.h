#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/arrays/host_array.h"
#include "platform/zobs/object.h"

/// Entries of a package, and what the module's methods will do with them: it does not ask before it replaces
/// or removes something, so that this program has to know beforehand.
namespace tavlox::cli {

inline constexpr std::u16string_view kUserFolder = u"/user/";

struct Entry {
  std::u16string fullPath, name;
};

/// The listing of a search: a structure array with the fields FullPath, Name and Type.
corvan::HostArray listing(const zobs::COSInterfacePointer& file, const std::u16string& search);
std::vector<Entry> entriesOf(const corvan::HostArray& listing);

/// Whether a search text is a path of the package, rather than a bare file name.
bool isPackagePath(const std::u16string& search);

/// Where `get` writes the entries that a search lists, in their order. A path keeps its folders below the
/// output folder; a bare name takes user files only, and strips their folder /user/.
std::vector<std::u16string> extractionTargets(const std::vector<Entry>& listed, const std::u16string& search,
                                              const std::u16string& outputFolder);

/// The full paths of entries that are not user files.
std::vector<std::u16string> outsideUserFolder(const std::vector<Entry>& entries);

/// The full paths that `before` has and `after` has not.
std::vector<std::u16string> removedBetween(const std::vector<Entry>& before, const std::vector<Entry>& after);

/// Where `add` stores a file.
std::u16string storedName(const std::u16string& packageFolder, const std::u16string& diskPath);

/// Names for a message: "/a, /b and 3 more". Not empty.
std::u16string namesInMessage(const std::vector<std::u16string>& names);

}  // namespace tavlox::cli

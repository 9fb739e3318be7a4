#pragma once

#include <string>
#include <vector>

#include "package/scoped_ref.h"

namespace orra::tavloxio::part {

/// Writes the entries that `name` selects to disk and gives the files' canonical paths, one for each
/// relationship in the package's order; a part that several lead to is written once. An absolute name keeps
/// the package's folders below the output folder; a bare name finds user files in every folder and writes
/// them less "/user/". An empty output folder means the current one.
///
/// Relationships that reach no part do not stop the others. Each missing target is raised once, after the
/// walk: the first as the error, the further ones as its causes, opc:part:NotFound (package, name) or
/// opc:package:ExternalTarget (package, relationship, target).
///
/// An output folder that its owner may not write gives a list of one empty text and extracts nothing. Raises
/// tavlox_io:general:UnsupportedSearch, tavlox_io:general:EntryDoesNotExist (the name) and
/// tavlox_io:general:InvalidOutputPath (the folder or file); files written before an error stay.
std::vector<std::u16string> copyFilesToDisk(const file::ScopedRef& ref, const std::u16string& name,
                                            const std::u16string& outputFolder);

/// The folder made absolute. Creates it, for its owner only, with its missing parents. Raises
/// tavlox_io:general:InvalidOutputPath with the folder as given.
std::u16string prepareOutputDirectory(const std::u16string& folder);

}  // namespace orra::tavloxio::part

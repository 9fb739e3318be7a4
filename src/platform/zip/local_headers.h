#pragma once

#include <vector>

#include "platform/files/descriptor.h"
#include "platform/zip/directory.h"

namespace zip {

/// Checks every entry's local header against what the directory says, and that no two entries share a byte,
/// with each other or with the directory. Fills in where the data starts and where the entry ends.
///
/// Headers are read in the order in which they lie in the file: neighbouring small entries share one read,
/// the data of large ones is skipped. Raises what `tell` raises, and opc::Exception if the file cannot be
/// read.
void checkLocalHeaders(const fl::filesystem::InputFile& file, std::vector<Entry>& entries,
                       std::uint64_t directoryOffset, const RuleBroken& tell);

}  // namespace zip

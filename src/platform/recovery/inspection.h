#pragma once

#include <string>

#include "platform/recovery/finding.h"
#include "platform/zip/limits.h"

namespace tavlox::recovery {

// A check that goes on after the first fault, where opening a package stops at it. The rules themselves are
// not repeated here: the audits of the directory and of the package index hand over what they would refuse,
// and the session's loaders are asked, so that what is refused and what is reported cannot drift apart.
/// Everything that is wrong with one package: the rules of the archive, the checksum of every item, content
/// types and relationships, every part that a relationship promises, the form of session parts, and samples
/// that do not fit their signals. Errors are what readers refuse, when they open the package or when they
/// come to it; notes are what they let pass. With a broken directory the items are looked for without it. Of
/// a document the first fault is told, of a list of runs or signals every element that is at fault. Reads all
/// of the file, in constant memory.
///
/// Raises opc::Exception if the file is not there or cannot be read.
Findings inspect(const std::u16string& path, const zip::Limits& limits = {});

}  // namespace tavlox::recovery

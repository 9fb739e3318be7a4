#pragma once

#include <cstdint>
#include <string>

#include "platform/opc/package.h"
#include "platform/recovery/finding.h"
#include "platform/zip/limits.h"

namespace tavlox::recovery {

// Recovery of a package that readers refuse or whose items are damaged. It is a separate act with a new file
// as its result: the damaged one stays as the only witness of what was in it, so that another attempt, or
// another tool, can start from the same bytes.
/// What became of a package that was rebuilt.
struct Rebuilt {
  std::uint64_t parts = 0;  ///< in the new package
  /// Errors are what was lost: parts, or what is known of them. Notes say what was decided.
  Findings findings = {};
};

/// Makes a new package at `target` of everything that is sound in the damaged one: each item whose size and
/// checksum hold becomes a part again, with content types and relationships from the original documents where
/// these are sound, else from the names that sessions have. What is sound but cannot stand where it stood
/// (another item has its name, it is no valid part of a session, it may come from an archive inside this one)
/// is kept as a user file below "/user/recovered", and so are the readable elements of a damaged run list or
/// signals part. The outcome opens and has no errors (see `inspect`). Memory does not grow with a part.
///
/// The damaged file is only read. Raises opc::Exception if it cannot be read, has nothing to recover or is
/// the target, and whatever saving a package raises; there is no target then, and one that was to be
/// replaced is as it was.
Rebuilt rebuild(const std::u16string& damaged, const std::u16string& target,
                opc::model::Package::Existing existing, const zip::Limits& limits = {});

}  // namespace tavlox::recovery

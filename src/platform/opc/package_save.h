#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/files/descriptor.h"
#include "platform/opc/package_contents.h"
#include "platform/zip/spool.h"

namespace opc {

/// Writes the package `contents` describe to `path` (UTF-8), atomically and durably. `file` is what they were
/// read from, or null for a new package; `replaced` is what that one replaces, if anything. Entries that were
/// not touched are copied compressed, in their order, with their comments and extra fields; changed documents
/// and replaced data stand where the old ones stood; what is new follows. The bytes of deleted and replaced
/// parts are never in the new file. Where nothing was deleted and the file system can share blocks, what is
/// new is appended to a clone.
///
/// `storage` takes the new documents while they are prepared.
///
/// Raises opc::Exception if anything fails; the file is then as it was.
void savePackage(const std::string& path, PackageContents& contents,
                 const std::shared_ptr<const fl::filesystem::InputFile>& file,
                 const std::optional<fl::filesystem::FileIdentity>& replaced,
                 const std::shared_ptr<zip::SpoolStorage>& storage);

}  // namespace opc

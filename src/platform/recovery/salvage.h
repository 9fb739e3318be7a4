#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors/package_errors.h"
#include "platform/files/descriptor.h"
#include "platform/zip/directory.h"
#include "platform/zip/limits.h"

namespace tavlox::recovery {

// Both functions below give the same list, whether there is a directory or not, so that inspection and
// recovery need not tell the two cases apart. "Item" is said of what was found in the bytes; an entry is what
// a directory records.
/// One item of an archive. Of a damaged one the numbers are the best guess there is.
struct FoundEntry {
  zip::Entry entry;
  /// What the directory calls it, if that is not what its local header says; else empty.
  std::string_view otherName = {};
  /// Why its data cannot be trusted; nothing if size and checksum hold.
  std::optional<opc::Exception> damage = std::nullopt;
  /// Told apart from damage because the bytes are right and only where they belong is not known.
  /// Sound, but it may be an item of another archive that was kept inside a damaged item of this one.
  bool isDoubtful = false;
};

/// The items of an archive, with all of their data read and checked. Movable, not copyable.
struct FoundEntries {
  std::vector<FoundEntry> list;
  /// What the names point into, where there is no directory for that.
  std::deque<std::string> names = {};
};

/// Those that a sound directory names, in its order; the directory must outlive them. Raises opc::Exception
/// if the file cannot be read, or inflates to more than may be read of a package.
FoundEntries checkEntries(const std::shared_ptr<const fl::filesystem::InputFile>& file,
                          const zip::Directory& directory, const zip::Limits& limits = {});

/// Those that can be found without trusting a directory, in the order in which they lie in the file. Every
/// byte is looked at: local headers say where items begin, their headers, data descriptors and what is left
/// of the directory say how long they are, and the checksum decides which of them is right. What lies inside
/// a sound item is its data, whatever it looks like. Raises as `checkEntries`, and if there are more items
/// than a package may have.
FoundEntries findEntries(const std::shared_ptr<const fl::filesystem::InputFile>& file,
                         const zip::Limits& limits = {});

/// Whether an item of that name is the list of content types or holds relationships.
bool isDocument(std::string_view name);

}  // namespace tavlox::recovery

#include "platform/session_index/package_search.h"

#include <algorithm>

#include "platform/files/filesystem.h"
#include "platform/progress/progress.h"

namespace tavlox::session_index {
namespace {

namespace fs = fl::filesystem;

bool isPackage(const fs::DirectoryIterator::Entry& entry) {
  // Temporaries of a save that goes on begin with a dot.
  const std::u16string name = fs::extract_filename(entry.path);
  if (!name.ends_with(u".tavlox") || name.starts_with(u'.')) return false;
  if (entry.type == fs::FileType::Regular) return true;
  if (entry.type != fs::FileType::SymbolicLink || !fs::exists(entry.path)) return false;
  return fs::status(entry.path).type == fs::FileType::Regular;
}

/// Adds what lies in one folder, and the folders there to `folders`.
void look(const std::u16string& folder, PackageSearch& found, std::vector<std::u16string>& folders) {
  fs::DirectoryIterator entries(folder);
  bool isRead = entries.isOpen();
  while (isRead) {
    try {
      const auto entry = entries.next();
      if (!entry) return;
      if (entry->type == fs::FileType::Directory) folders.push_back(entry->path);
      if (isPackage(*entry)) found.packages.push_back(entry->path);
    } catch (const fs::Error&) {
      isRead = false;
    }
  }
  found.unreadableFolders.push_back(folder);
}

}  // namespace

PackageSearch findPackages(const std::u16string& folder, Depth depth) {
  PackageSearch found;
  std::vector<std::u16string> folders{folder};
  do {
    corvan::reportProgress({u"Looking for packages"});
    const std::u16string next = std::move(folders.back());
    folders.pop_back();
    look(next, found, folders);
  } while (depth == Depth::Below && !folders.empty());
  std::ranges::sort(found.packages);
  return found;
}

}  // namespace tavlox::session_index

#include <cerrno>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/files/error.h"
#include "platform/files/filesystem.h"
#include "platform/files/native_name.h"
#include "platform/text/conversion.h"

namespace fl::filesystem {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

FileType typeOf(mode_t mode) {
  if (S_ISREG(mode)) return FileType::Regular;
  if (S_ISDIR(mode)) return FileType::Directory;
  if (S_ISLNK(mode)) return FileType::SymbolicLink;
  return FileType::Other;
}

/// NotFound if the entry was removed since the folder was read.
FileType typeOf(DIR* folder, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return typeOf(static_cast<mode_t>(DTTOIF(entry.d_type)));
  // Not every file system keeps the type with the name.
  struct stat found;
  if (fstatat(dirfd(folder), entry.d_name, &found, AT_SYMLINK_NOFOLLOW) != 0) return FileType::NotFound;
  return typeOf(found.st_mode);
}

bool isSelfOrParent(std::string_view name) { return name == "." || name == ".."; }

}  // namespace

struct DirectoryIterator::State {
  std::u16string path;
  Folder folder;
};

DirectoryIterator::DirectoryIterator(const std::u16string& folder)
    : state_(std::make_unique<State>(State{folder, Folder(opendir(toNativeName(folder).c_str()))})) {}

DirectoryIterator::~DirectoryIterator() = default;

bool DirectoryIterator::isOpen() const { return state_->folder != nullptr; }

std::optional<DirectoryIterator::Entry> DirectoryIterator::next() {
  if (!isOpen()) return std::nullopt;
  errno = 0;
  while (const dirent* entry = readdir(state_->folder.get())) {
    const std::string_view name = entry->d_name;
    if (isSelfOrParent(name)) continue;
    if (!i18n::is_well_formed(name)) raise("fl:filesystem:EntryNotUtf8", state_->path, name);
    const FileType type = typeOf(state_->folder.get(), *entry);
    if (type != FileType::NotFound) return Entry{concatenate(state_->path, i18n::to_ustring(name)), type};
    errno = 0;
  }
  if (errno == 0) return std::nullopt;
  raise("fl:filesystem:ListFailed", state_->path, std::generic_category().message(errno));
}

}  // namespace fl::filesystem

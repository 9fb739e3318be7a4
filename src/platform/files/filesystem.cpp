#include "platform/files/filesystem.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors/free_with.h"
#include "platform/files/descriptor.h"
#include "platform/text/conversion.h"

namespace fl::filesystem {
namespace {

namespace posix_time = boost::posix_time;

FileType typeOf(mode_t mode) {
  if (S_ISREG(mode)) return FileType::Regular;
  if (S_ISDIR(mode)) return FileType::Directory;
  if (S_ISLNK(mode)) return FileType::SymbolicLink;
  return FileType::Other;
}

posix_time::ptime timeOf(const timespec& stamp) {
  static const posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
  static const posix_time::ptime first(boost::date_time::min_date_time),
      last(boost::date_time::max_date_time);
  // File systems keep stamps that a calendar time cannot show.
  const std::int64_t seconds = std::clamp<std::int64_t>(stamp.tv_sec, (first - epoch).total_seconds() + 1,
                                                        (last - epoch).total_seconds() - 1);
  return epoch + posix_time::seconds(seconds) + posix_time::microseconds(stamp.tv_nsec / 1000);
}

/// Whether the system says that there is no such file, and not merely that it cannot tell. Links that lead
/// in a circle, and names longer than any file has, lead to no file either.
bool saysMissing(int code) {
  return code == ENOENT || code == ENOTDIR || code == ELOOP || code == ENAMETOOLONG;
}

/// Opens what was a regular file a moment ago; `path` is what messages call it.
OpenFile openFile(int folder, const char* name, const std::u16string& path) {
  Descriptor file(openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOCTTY));
  struct stat found;
  if (!file || fstat(file.get(), &found) != 0) raise("fl:filesystem:OpenFailed", path, systemReason(errno));
  if (!S_ISREG(found.st_mode)) raise("fl:filesystem:NotAFile", path);
  return {std::move(file), static_cast<std::uint64_t>(found.st_size)};
}

/// NotFound if the file was removed since the folder was read.
FileType typeOf(DIR* folder, const dirent& listed) {
  if (listed.d_type != DT_UNKNOWN) return typeOf(static_cast<mode_t>(DTTOIF(listed.d_type)));
  // Not every file system keeps the type with the name.
  struct stat found;
  if (fstatat(dirfd(folder), listed.d_name, &found, AT_SYMLINK_NOFOLLOW) != 0) return FileType::NotFound;
  return typeOf(found.st_mode);
}

}  // namespace

bool FileStatus::has(Permissions bits) const {
  return (permissions & static_cast<unsigned>(bits)) == static_cast<unsigned>(bits);
}

bool exists(const std::u16string& path) {
  if (!isPossibleName(path)) return false;
  struct stat found;
  return stat(toNativeName(path).c_str(), &found) == 0 || !saysMissing(errno);
}

FileStatus status(const std::u16string& path) {
  struct stat found;
  if (stat(toNativeName(path).c_str(), &found) != 0) {
    raise("fl:filesystem:StatusFailed", path, systemReason(errno));
  }
  return {typeOf(found.st_mode), found.st_mode & 07777, static_cast<std::uint64_t>(found.st_size),
          timeOf(found.st_mtim)};
}

void set_permissions(const std::u16string& path, Permissions bits) {
  if (chmod(toNativeName(path).c_str(), static_cast<mode_t>(bits)) == 0) return;
  raise("fl:filesystem:PermissionsFailed", path, systemReason(errno));
}

bool create_directories(const std::u16string& path) {
  std::error_code failure;
  const bool created = std::filesystem::create_directories(toNativeName(path), failure);
  if (failure) raise("fl:filesystem:CreateFolderFailed", path, failure.message());
  return created;
}

bool remove(const std::u16string& path) {
  std::error_code failure;
  const bool removed = std::filesystem::remove(toNativeName(path), failure);
  if (failure) raise("fl:filesystem:RemoveFailed", path, failure.message());
  return removed;
}

OpenFile open_for_reading(const std::u16string& path) {
  // Looked at first: opening a device may set off whatever it drives.
  if (status(path).type != FileType::Regular) raise("fl:filesystem:NotAFile", path);
  return openFile(AT_FDCWD, toNativeName(path).c_str(), path);
}

std::u16string absolute(const std::u16string& path, const std::u16string& base) {
  const auto isAbsolute = [](const std::u16string& text) { return text.starts_with(u'/'); };
  if (isAbsolute(path)) return path;
  if (isAbsolute(base)) return concatenate(base, path);
  return concatenate(concatenate(current_path(), base), path);
}

std::u16string weakly_canonical(const std::u16string& path) {
  // Made absolute first: a relative path whose first folder is missing would stay relative.
  const std::string name = toNativeName(absolute(path));
  std::error_code failure;
  const std::filesystem::path canonical = std::filesystem::weakly_canonical(name, failure);
  if (failure) raise("fl:filesystem:ResolveFailed", path, failure.message());
  return fromNativeName(canonical.native());
}

std::u16string current_path() {
  std::error_code failure;
  const std::filesystem::path current = std::filesystem::current_path(failure);
  if (failure) raise("fl:filesystem:ResolveFailed", ".", failure.message());
  return fromNativeName(current.native());
}

std::u16string temp_directory_path() {
  // Not the standard library's: that one fails if TMPDIR names no folder, and here the use of it should say
  // so.
  const char* chosen = std::getenv("TMPDIR");
  return fromNativeName(chosen != nullptr && *chosen != '\0' ? chosen : "/tmp");
}

struct DirectoryIterator::State {
  std::u16string path;
  std::unique_ptr<DIR, foundation::core::except::FreeWith<closedir>> folder;
  const dirent* listed = nullptr;  // what was read last
};

DirectoryIterator::DirectoryIterator(const std::u16string& folder)
    : state_(new State{folder, decltype(State::folder)(opendir(toNativeName(folder).c_str())), nullptr}) {}

DirectoryIterator::~DirectoryIterator() = default;

bool DirectoryIterator::isOpen() const { return state_->folder != nullptr; }

std::optional<DirectoryIterator::Entry> DirectoryIterator::next() {
  if (!isOpen()) return std::nullopt;
  for (;;) {
    errno = 0;  // the end of the folder and a failed read differ only in this
    const dirent* const listed = state_->listed = readdir(state_->folder.get());
    if (listed == nullptr && errno == 0) return std::nullopt;
    if (listed == nullptr) raise("fl:filesystem:ListFailed", state_->path, systemReason(errno));
    const std::string_view name = listed->d_name;
    if (name == "." || name == "..") continue;
    // Left out silently, a file would be missing from what the caller makes of the folder.
    if (!i18n::is_well_formed(name)) raise("fl:filesystem:EntryNotUtf8", state_->path, name);
    const FileType type = typeOf(state_->folder.get(), *listed);
    // Removed while the folder was read: as if it had never been listed.
    if (type != FileType::NotFound) return Entry{concatenate(state_->path, i18n::to_ustring(name)), type};
  }
}

OpenFile DirectoryIterator::open(const Entry& last) const {
  if (last.type != FileType::Regular) return open_for_reading(last.path);
  return openFile(dirfd(state_->folder.get()), state_->listed->d_name, last.path);
}

}  // namespace fl::filesystem

#include "platform/files/filesystem.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/error.h"
#include "platform/files/native_name.h"

namespace fl::filesystem {
namespace {

namespace posix_time = boost::posix_time;

std::string reasonOf(int code) { return std::generic_category().message(code); }

FileType typeOf(mode_t mode) {
  if (S_ISREG(mode)) return FileType::Regular;
  if (S_ISDIR(mode)) return FileType::Directory;
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

/// Whether the system says that there is no such file, and not merely that it cannot tell.
bool saysMissing(int code) {
  return code == ENOENT || code == ENOTDIR || code == ELOOP || code == ENAMETOOLONG;
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
    raise("fl:filesystem:StatusFailed", path, reasonOf(errno));
  }
  FileStatus status;
  status.type = typeOf(found.st_mode);
  status.permissions = found.st_mode & 07777;
  status.size = static_cast<std::uint64_t>(found.st_size);
  status.lastWriteTime = timeOf(found.st_mtim);
  return status;
}

void set_permissions(const std::u16string& path, Permissions bits) {
  if (chmod(toNativeName(path).c_str(), static_cast<mode_t>(bits)) == 0) return;
  raise("fl:filesystem:PermissionsFailed", path, reasonOf(errno));
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

std::ifstream open_for_reading(const std::u16string& path) {
  // Looked at first: opening a pipe would wait for somebody to write into it.
  if (status(path).type != FileType::Regular) raise("fl:filesystem:NotAFile", path);
  std::ifstream file(toNativeName(path), std::ios::binary);
  if (!file) raise("fl:filesystem:OpenFailed", path, reasonOf(errno));
  return file;
}

void replace_file(const std::u16string& from, const std::u16string& to) {
  if (rename(toNativeName(from).c_str(), toNativeName(to).c_str()) != 0) {
    const std::string reason = reasonOf(errno);
    unlink(toNativeName(from).c_str());
    raise("fl:filesystem:ReplaceFailed", to, reason);
  }
  // The new name is kept by the folder, which is synced like a file.
  const int folder =
      open(toNativeName(extract_parent_path(absolute(to))).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;  // a folder that may be written but not read cannot be synced
  fsync(folder);
  close(folder);
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
  const char* chosen = std::getenv("TMPDIR");
  return fromNativeName(chosen != nullptr && *chosen != '\0' ? chosen : "/tmp");
}

}  // namespace fl::filesystem

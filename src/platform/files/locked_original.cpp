#include "platform/files/locked_original.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "platform/errors/package_errors.h"

namespace fl::filesystem {
namespace {

constexpr int kAttempts = 16;

bool isPermissionError(int error) { return error == EACCES || error == EPERM || error == EROFS; }

/// Permission bits are asked for themselves: to root every file seems writable.
void checkMayBeReplaced(const FilePlace& place) {
  struct stat status {};
  if (::fstatat(place.folder.get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) opc::raise("opc:save:FileGone", place.path);
    opc::raise("opc:save:CannotOpen", place.path, systemReason(errno));
  }
  if (!S_ISREG(status.st_mode)) opc::raise("opc:save:NotAFile", place.path);
  if ((status.st_mode & S_IWUSR) == 0) opc::raise("opc:save:ReadOnly", place.path);
}

/// Opened for writing, although nothing is written: this is how the system says whether one might.
Descriptor openOriginal(const FilePlace& place) {
  Descriptor file(
      ::openat(place.folder.get(), place.name.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (file) return file;
  if (errno == ENOENT) opc::raise("opc:save:FileGone", place.path);
  if (isPermissionError(errno)) opc::raise("opc:save:ReadOnly", place.path);
  opc::raise("opc:save:CannotOpen", place.path, systemReason(errno));
}

bool lock(const FilePlace& place, int file) {
  int result = 0;
  do {
    result = ::flock(file, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return true;
  if (errno == EWOULDBLOCK) opc::raise("opc:save:InUse", place.path);
  if (errno == ENOLCK || errno == ENOSYS || errno == EOPNOTSUPP || errno == EINVAL) return false;
  opc::raise("opc:save:CannotLock", place.path, systemReason(errno));
}

}  // namespace

LockedOriginal::LockedOriginal(const FilePlace& place, const FileIdentity& expected)
    : place_(place), expected_(expected) {
  bool isLockedByName = false;
  for (int attempt = 0; attempt < kAttempts && !isLockedByName; ++attempt) isLockedByName = openAndLock();
  if (!isLockedByName) opc::raise("opc:save:InUse", place_.path);
  check();
}

bool LockedOriginal::openAndLock() {
  checkMayBeReplaced(place_);
  file_ = openOriginal(place_);
  isLocked_ = lock(place_, file_.get());
  return hasName();  // between opening and locking somebody may have put another file there
}

bool LockedOriginal::hasName() const {
  struct stat named {
  }, opened{};
  if (::fstatat(place_.folder.get(), place_.name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0) return false;
  if (::fstat(file_.get(), &opened) != 0) return false;
  return named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

void LockedOriginal::check() const {
  struct stat named {};
  const bool exists = ::fstatat(place_.folder.get(), place_.name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno == ENOENT) opc::raise("opc:save:FileGone", place_.path);
  if (!hasName() || identityOf(file_.get()) != expected_) opc::raise("opc:save:FileChanged", place_.path);
}

}  // namespace fl::filesystem

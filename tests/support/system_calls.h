#pragma once

#include <cerrno>
#include <cstdarg>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace support {

/// Stands between the program and the system while it lives: notes the calls that make a save durable and
/// lets calls fail that fail on no healthy disk. The functions below take the place of the C library's, so
/// one source file of a test program may include this.
struct SystemCalls {
  SystemCalls() { watching = this; }
  ~SystemCalls() { watching = nullptr; }
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;

  std::vector<std::string> made;  ///< "fchown 600" (the mode then), "fsync file", "rename", "fsync folder"
  std::map<std::string, int> failing;        ///< one of these or "fsetxattr", and its error number
  std::function<void(int file)> beforeLock;  ///< called once
  bool canClone = false;                     ///< as on file systems whose files share blocks
  int readsLeft = -1;                        ///< before one fails; none does while this is negative

  static inline SystemCalls* watching = nullptr;

  /// Notes the call. Whether it is to fail; errno says why.
  static bool refuses(const std::string& call) {
    if (watching == nullptr) return false;
    watching->made.push_back(call);
    const auto found = watching->failing.find(call);
    if (found == watching->failing.end()) return false;
    errno = found->second;
    return true;
  }
};

}  // namespace support

extern "C" {

int fsync(int file) {
  struct stat status {};
  const bool isFolder = fstat(file, &status) == 0 && S_ISDIR(status.st_mode);
  if (support::SystemCalls::refuses(isFolder ? "fsync folder" : "fsync file")) return -1;
  return static_cast<int>(syscall(SYS_fsync, file));
}

ssize_t pread(int file, void* into, size_t count, off_t offset) {
  if (support::SystemCalls* const calls = support::SystemCalls::watching; calls != nullptr) {
    errno = EIO;
    if (calls->readsLeft >= 0 && calls->readsLeft-- == 0) return -1;
  }
  return syscall(SYS_pread64, file, into, count, offset);
}

int fchown(int file, uid_t user, gid_t group) noexcept {
  struct stat status {};
  char mode[8] = "";
  if (fstat(file, &status) == 0) snprintf(mode, sizeof mode, "%o", status.st_mode & 0777U);
  if (support::SystemCalls::refuses("fchown " + std::string(mode))) return -1;
  return static_cast<int>(syscall(SYS_fchown, file, user, group));
}

int fsetxattr(int file, const char* name, const void* value, size_t size, int flags) noexcept {
  if (support::SystemCalls::watching != nullptr &&
      support::SystemCalls::watching->failing.contains("fsetxattr") &&
      support::SystemCalls::refuses("fsetxattr")) {
    return -1;
  }
  return static_cast<int>(syscall(SYS_fsetxattr, file, name, value, size, flags));
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
  if (support::SystemCalls::refuses("rename")) return -1;
  return static_cast<int>(syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}
int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
  return renameat2(fromFolder, from, toFolder, to, 0);
}

int flock(int file, int operation) noexcept {
  support::SystemCalls* const calls = support::SystemCalls::watching;
  if (calls != nullptr && calls->beforeLock) std::exchange(calls->beforeLock, nullptr)(file);
  return static_cast<int>(syscall(SYS_flock, file, operation));
}

/// Where it may clone it copies, which gives the same bytes. Elsewhere no file system of the machine matters.
int ioctl(int file, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  const unsigned long argument = va_arg(arguments, unsigned long);
  va_end(arguments);
  support::SystemCalls* const calls = support::SystemCalls::watching;
  if (request != FICLONE || calls == nullptr)
    return static_cast<int>(syscall(SYS_ioctl, file, request, argument));
  if (!calls->canClone) {
    errno = EOPNOTSUPP;
    return -1;
  }
  char buffer[4096];
  off_t at = 0;
  while (const ssize_t count = pread(static_cast<int>(argument), buffer, sizeof buffer, at)) {
    if (count < 0 || pwrite(file, buffer, static_cast<size_t>(count), at) != count) return -1;
    at += count;
  }
  return 0;
}

}  // extern "C"

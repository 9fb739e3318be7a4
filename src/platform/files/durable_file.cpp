#include "platform/files/durable_file.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string_view>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "platform/errors/free_with.h"
#include "platform/errors/package_errors.h"

// How a file is replaced so that a crash at any moment leaves either the old version or the new one. The
// folder is opened and stays open, so that every later step works on the same folder. The original is
// locked, which keeps other savers away, and compared with what the caller read. The new version is written
// under a temporary name beside it, because a rename is only atomic inside one file system. It gets the
// original's attributes and a later time stamp and is synced; then the original is compared once more and
// renamed over. Last the folder is synced: until then the rename itself may be lost when the power fails.
//
// A file that does not exist yet is created the same way, but there is no original to lock, to compare or to
// copy from, and the rename must not replace what somebody else put there.

namespace fl::filesystem {
namespace {

using foundation::core::except::FreeWith;
using opc::raise;

/// Where a file is or is to be: its folder, held open so that nobody can move it away, and its name there.
struct FileLocation {
  std::string path;  ///< as it was asked for; what messages name
  Descriptor folder;
  std::string name;
};

/// Opened even if it may not be listed: a folder that may be entered and written is enough to save in.
Descriptor openFolder(const std::string& path, const std::string& folder) {
  Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened && errno == EACCES) {
    opened = Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  if (!opened) raise("opc:save:CannotReachFolder", path, systemReason(errno));
  return opened;
}

FileLocation locate(const std::string& path, const std::string& resolved) {
  if (path.find('\0') != std::string::npos) raise("opc:save:BadName", path);
  const std::size_t slash = resolved.rfind('/');
  std::string name = slash == std::string::npos ? resolved : resolved.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") raise("opc:save:BadName", path);
  // A bare name lies in the current folder.
  const std::string folder = slash == std::string::npos ? "." : resolved.substr(0, slash + 1);
  return {path, openFolder(path, folder), std::move(name)};
}

/// Of the file that `path` leads to, symbolic links followed.
FileLocation locateExisting(const std::string& path) {
  const std::unique_ptr<char, FreeWith<std::free>> resolved(::realpath(path.c_str(), nullptr));
  if (resolved) return locate(path, resolved.get());
  if (errno == ENOENT) raise("opc:save:FileGone", path);
  raise("opc:save:CannotReachFolder", path, systemReason(errno));
}

/// Takes the exclusive lock of an open file, without waiting. Gives 0 or the error number.
int tryLock(const Descriptor& file) {
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

// ---- The original: locked for as long as its new version is being written.

struct stat statusOf(const FileLocation& location) {
  struct stat status {};
  if (::fstatat(location.folder.get(), location.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return status;
  if (errno == ENOENT) raise("opc:save:FileGone", location.path);
  raise("opc:save:CannotOpen", location.path, systemReason(errno));
}

/// Opened for writing, although nothing is written: this is how the system says whether one might. The
/// permission bits are asked for themselves, because to root every file seems writable.
Descriptor openOriginal(const FileLocation& location) {
  const struct stat status = statusOf(location);
  if (!S_ISREG(status.st_mode)) raise("opc:save:NotAFile", location.path);
  const auto raiseReadOnly = [&](int error) {
    raise("opc:save:ReadOnly", location.path, systemReason(error));
  };
  if ((status.st_mode & S_IWUSR) == 0) raiseReadOnly(EACCES);
  // A link or a pipe that was put there since is neither followed nor waited for.
  const int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  Descriptor file(::openat(location.folder.get(), location.name.c_str(), flags));
  if (file) return file;
  if (errno == ENOENT) raise("opc:save:FileGone", location.path);
  if (errno == EACCES || errno == EPERM || errno == EROFS) raiseReadOnly(errno);
  raise("opc:save:CannotOpen", location.path, systemReason(errno));
}

/// Does not wait for the lock: who holds it is saving, and what this save started from is then out of date.
/// On the few file systems that know no locks `checkUnchanged` alone protects the file.
void lockOriginal(const FileLocation& location, const Descriptor& file) {
  const int error = tryLock(file);
  if (error == 0 || error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP || error == EINVAL) return;
  if (error == EWOULDBLOCK) raise("opc:save:InUse", location.path);
  raise("opc:save:CannotLock", location.path, systemReason(error));
}

/// Raises unless the name still leads to the open file and nobody changed that. Between opening and locking
/// it, or where nobody asks for locks, somebody may have put another file there.
void checkUnchanged(const FileLocation& location, const Descriptor& file, const FileIdentity& expected) {
  const struct stat named = statusOf(location);
  const bool isSame = named.st_dev == expected.device && named.st_ino == expected.inode;
  if (!isSame || identityOf(file.get()) != expected) raise("opc:save:FileChanged", location.path);
}

// ---- The temporary: ".NAME.saving-XXXXXX" beside the file.

constexpr std::string_view kInfix = ".saving-";
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
constexpr std::size_t kRandomLetters = 6;

/// What a name too long for anything to be added to it is shortened to: its beginning, never half a
/// character, and a hash, so that it stays this name's own.
std::string shortened(const std::string& name, std::size_t room) {
  std::array<char, 10> sum{};
  const auto hash = static_cast<std::uint32_t>(std::hash<std::string>()(name));
  static_cast<void>(std::snprintf(sum.data(), sum.size(), "~%08x", hash));
  // Nine bytes are the "~" and eight hex digits.
  std::size_t end = room > 9 ? room - 9 : 0;
  // Bytes 10xxxxxx continue a UTF-8 character.
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  return name.substr(0, end) + sum.data();
}

/// What the names of all temporaries of this file, and of no other, start with.
std::string temporaryPrefix(const FileLocation& location) {
  const long longest = ::fpathconf(location.folder.get(), _PC_NAME_MAX);
  const std::size_t most = longest > 0 ? static_cast<std::size_t>(longest) : NAME_MAX;
  // The one is the dot in front.
  const std::size_t room = most - 1 - kInfix.size() - kRandomLetters;
  const std::string& name = location.name;
  return "." + (name.size() <= room ? name : shortened(name, room)) + std::string(kInfix);
}

bool isTemporaryName(std::string_view name, std::string_view prefix) {
  if (name.size() != prefix.size() + kRandomLetters || !name.starts_with(prefix)) return false;
  return name.find_first_not_of(kLetters, prefix.size()) == std::string_view::npos;
}

std::vector<std::string> temporariesOf(const FileLocation& location, std::string_view prefix) {
  std::vector<std::string> names;
  const int folder = ::openat(location.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return names;
  const std::unique_ptr<DIR, FreeWith<::closedir>> listing(::fdopendir(folder));
  if (!listing) ::close(folder);
  while (const dirent* item = listing ? ::readdir(listing.get()) : nullptr) {
    if (isTemporaryName(item->d_name, prefix)) names.emplace_back(item->d_name);
  }
  return names;
}

/// Removes what killed processes left of earlier saves of this file. Every temporary is locked by the process
/// that writes it, and the lock goes with the process: what can be locked is stale.
void sweep(const FileLocation& location, std::string_view prefix) {
  for (const std::string& name : temporariesOf(location, prefix)) {
    const int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const Descriptor file(::openat(location.folder.get(), name.c_str(), flags));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (tryLock(file) == 0) ::unlinkat(location.folder.get(), name.c_str(), 0);
  }
}

/// Locks a new temporary. False if a sweep in another process came first: it holds the lock and is about to
/// remove the file, or has removed it already. Where files cannot be locked nobody sweeps them either.
bool isKeptFromSweeping(const Descriptor& file) {
  if (tryLock(file) == EWOULDBLOCK) return false;
  struct stat status {};
  return ::fstat(file.get(), &status) != 0 || status.st_nlink > 0;
}

/// The new version on its way: created under a temporary name and locked, so that no other process sweeps it
/// away; removed again unless it was given its real name.
class TemporaryFile {
 public:
  /// `location` must outlive it. The mode is less what the process masks.
  TemporaryFile(const FileLocation& location, mode_t mode) : location_(location) {
    constexpr int kAttempts = 64;
    const std::string prefix = temporaryPrefix(location);
    sweep(location, prefix);
    std::random_device random;
    for (int attempt = 0; attempt < kAttempts && name_.empty(); ++attempt) {
      std::string name = prefix;
      for (std::size_t i = 0; i < kRandomLetters; ++i) name += kLetters[random() % kLetters.size()];
      const int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
      file_ = Descriptor(::openat(location.folder.get(), name.c_str(), flags, mode));
      // Another attempt helps only if somebody has drawn the same letters.
      if (!file_ && errno != EEXIST) break;
      if (file_ && isKeptFromSweeping(file_)) name_ = std::move(name);
    }
    if (name_.empty()) raise("opc:save:FolderNotWritable", location.path, systemReason(errno));
  }
  ~TemporaryFile() {
    if (!name_.empty()) ::unlinkat(location_.folder.get(), name_.c_str(), 0);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int descriptor() const { return file_.get(); }

  /// Each gives it its real name and answers 0, or the error number. `takeFreeName` fails with EEXIST where a
  /// file has the name.
  int replaceFile() { return rename(0); }
  int takeFreeName() {
    const int error = rename(RENAME_NOREPLACE);
    if (error != EINVAL && error != ENOSYS) return error;
    // For file systems that cannot rename without replacing: a second name is not given where one exists.
    const int folder = location_.folder.get();
    if (::linkat(folder, name_.c_str(), folder, location_.name.c_str(), 0) != 0) return errno;
    ::unlinkat(folder, name_.c_str(), 0);
    name_.clear();
    return 0;
  }

  /// It is the file of that name now, which others may want to save.
  void unlock() noexcept { ::flock(file_.get(), LOCK_UN); }

 private:
  int rename(unsigned flags) {
    const int folder = location_.folder.get();
    const int result = flags == 0 ? ::renameat(folder, name_.c_str(), folder, location_.name.c_str())
                                  : ::renameat2(folder, name_.c_str(), folder, location_.name.c_str(), flags);
    if (result != 0) return errno;
    name_.clear();
    return 0;
  }

  const FileLocation& location_;
  std::string name_;  ///< empty once it has its real one
  Descriptor file_;
};

/// Sharing blocks costs no more than a new inode. Not every file system can, and none across file systems.
bool clone(int from, int to) {
  if (::ioctl(to, FICLONE, from) == 0) return true;
  // An attempt that failed on the way may have left some blocks.
  static_cast<void>(::ftruncate(to, 0));
  return false;
}

// ---- What the new version takes over from the original.

constexpr char kAccessList[] = "system.posix_acl_access";

/// Whom the new file belongs to: only root can give files away, and others only to groups they are in.
enum class Kept { OwnerAndGroup, Group, Neither };

Kept copyOwner(const struct stat& original, int to, const std::string& path) {
  if (::fchown(to, original.st_uid, original.st_gid) == 0) return Kept::OwnerAndGroup;
  if (errno != EPERM && errno != EINVAL) raise("opc:save:CannotKeepOwner", path, systemReason(errno));
  struct stat status {};
  if (::fstat(to, &status) == 0 && status.st_gid == original.st_gid) return Kept::Group;
  return ::fchown(to, static_cast<uid_t>(-1), original.st_gid) == 0 ? Kept::Group : Kept::Neither;
}

/// What of the mode still means what it meant. Rights of a group that could not be kept would go to another
/// group, which gets no more than everybody has.
mode_t safeMode(mode_t mode, Kept kept) {
  mode &= 07777;
  if (kept == Kept::OwnerAndGroup) return mode;
  mode &= ~static_cast<mode_t>(S_ISUID);
  if (kept == Kept::Group) return mode;
  const mode_t others = mode & S_IRWXO;
  return (mode & ~static_cast<mode_t>(S_ISGID | S_IRWXG)) | (mode & (others << 3));
}

/// A list or value whose size the system tells only by asking twice, in between which it may grow.
template <class Ask>
std::optional<std::string> askForBytes(const Ask& ask) {
  constexpr int kAttempts = 8;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const ssize_t size = ask(nullptr, 0);
    if (size < 0) return std::nullopt;
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (size == 0) return bytes;
    const ssize_t got = ask(bytes.data(), bytes.size());
    if (got < 0 && errno == ERANGE) continue;
    if (got < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
  }
  return std::nullopt;
}

void copyAttribute(int from, int to, const std::string& name, const std::string& path) {
  const auto value =
      askForBytes([&](char* into, std::size_t size) { return ::fgetxattr(from, name.c_str(), into, size); });
  if (!value && errno == ENODATA) return;
  if (value && ::fsetxattr(to, name.c_str(), value->data(), value->size(), 0) == 0) return;
  // Labels of the system itself (security modules, capabilities) are its own to give; what users set is kept.
  const bool isUsers = name.starts_with("user.") || name == kAccessList;
  if (errno == ENOTSUP || !isUsers) return;
  raise("opc:save:CannotKeepAttribute", path, name, systemReason(errno));
}

void copyExtendedAttributes(int from, int to, Kept kept, const std::string& path) {
  // A new file takes over its folder's default list, which the original need not have.
  ::fremovexattr(to, kAccessList);
  const auto names =
      askForBytes([&](char* into, std::size_t size) { return ::flistxattr(from, into, size); });
  if (!names && errno != ENOTSUP && errno != ENOSYS) {
    raise("opc:save:CannotKeepAttribute", path, "", systemReason(errno));
  }
  if (!names) return;
  for (std::size_t at = 0; at < names->size();) {
    const std::string name(names->c_str() + at);
    at += name.size() + 1;
    // The list speaks of "the group" too, and of the mode's group bits as a mask: both would be wrong.
    if (name == kAccessList && kept == Kept::Neither) continue;
    copyAttribute(from, to, name, path);
  }
}

/// Gives one file the owner, group, access lists, extended attributes and mode of another, and answers the
/// mode it got. Where the system does not let the owner or group be kept, the file never becomes accessible
/// to anyone who could not access the original.
mode_t copyAttributes(int from, int to, const std::string& path) {
  struct stat original {};
  if (::fstat(from, &original) != 0) raise("opc:save:CannotOpen", path, systemReason(errno));
  const Kept kept = copyOwner(original, to, path);
  copyExtendedAttributes(from, to, kept, path);
  const mode_t mode = safeMode(original.st_mode, kept);
  if (::fchmod(to, mode) != 0) raise("opc:save:CannotKeepMode", path, systemReason(errno));
  return mode;
}

// ---- The time stamp, in nanoseconds since the epoch.

constexpr std::int64_t kSecond = 1'000'000'000, kMicrosecond = 1'000;

/// By a microsecond or more: readers notice a change by a stamp of that grain.
bool hasLaterStamp(int file, std::int64_t than) {
  return identityOf(file).modified / kMicrosecond > than / kMicrosecond;
}

bool setStamp(int file, std::int64_t stamp) {
  const timespec time{.tv_sec = stamp / kSecond, .tv_nsec = stamp % kSecond};
  const timespec times[] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, time};
  return ::futimens(file, times) == 0;
}

/// The file's own stamp where it is later already. Else the clock was set back, ticks coarsely, or the file
/// system counts in whole or even seconds, so what was set is read again.
void ensureLaterStamp(int file, std::int64_t than, const std::string& path) {
  using namespace std::chrono;
  if (hasLaterStamp(file, than)) return;
  const std::int64_t now = nanoseconds(system_clock::now().time_since_epoch()).count();
  const std::int64_t next = (than / kMicrosecond + 1) * kMicrosecond;
  for (const std::int64_t stamp : {now, next, than + kSecond, than + 2 * kSecond}) {
    if (stamp < next) continue;
    if (!setStamp(file, stamp)) raise("opc:save:CannotSetTime", path, systemReason(errno));
    if (hasLaterStamp(file, than)) return;
  }
  raise("opc:save:CannotSetTime", path, systemReason(EOVERFLOW));
}

// ---- The disk.

void sync(int file, const std::string& path) {
  if (::fsync(file) != 0) raise("opc:save:CannotSync", path, systemReason(errno));
}

/// A folder that cannot be synced at all (a file system that knows no such thing, or no right to open it) is
/// the best there is; an error of the disk is not.
void syncFolder(const FileLocation& location) {
  if (::fsync(location.folder.get()) == 0 || errno == EINVAL || errno == EBADF || errno == ENOTSUP) return;
  raise("opc:save:NotConfirmed", location.path, systemReason(errno));
}

}  // namespace

struct DurableFile::State {
  /// Replaces a file.
  State(const std::string& path, const FileIdentity& what, Start start)
      : location(locateExisting(path)), expected(what), original(openOriginal(location)) {
    lockOriginal(location, original);
    checkUnchanged(location, original, expected);
    temporary.emplace(location, 0600);  // nobody else's until it has the original's owner
    isClone = start == Start::CloneOrEmpty && clone(original.get(), temporary->descriptor());
    mode = copyAttributes(original.get(), temporary->descriptor(), path);
  }
  /// Creates one.
  explicit State(const std::string& path) : location(locate(path, path)) {
    temporary.emplace(location, 0666);
  }

  void replace();
  void create();

  const FileLocation location;
  const FileIdentity expected;
  Descriptor original;  // the lock goes last but for the folder
  std::optional<TemporaryFile> temporary;
  mode_t mode = 0;
  bool isClone = false, isCommitted = false;
};

void DurableFile::State::replace() {
  const int file = temporary->descriptor();
  // Writing takes set-user and set-group bits away; this gives them back.
  if (::fchmod(file, mode) != 0) raise("opc:save:CannotKeepMode", location.path, systemReason(errno));
  ensureLaterStamp(file, expected.modified, location.path);
  sync(file, location.path);
  // Programs that ask for no locks may have changed the file while its new version was being written.
  checkUnchanged(location, original, expected);
  const int error = temporary->replaceFile();
  if (error != 0) raise("opc:save:CannotRename", location.path, systemReason(error));
}

void DurableFile::State::create() {
  sync(temporary->descriptor(), location.path);
  const int error = temporary->takeFreeName();
  if (error == EEXIST) raise("opc:save:FileAppeared", location.path);
  if (error != 0) raise("opc:save:CannotRename", location.path, systemReason(error));
}

DurableFile::DurableFile(const std::string& path, const FileIdentity& expected, Start start)
    : state_(new State(path, expected, start)) {}
DurableFile::DurableFile(const std::string& path) : state_(new State(path)) {}
DurableFile::~DurableFile() = default;

int DurableFile::descriptor() const { return state_->temporary->descriptor(); }
bool DurableFile::isClone() const { return state_->isClone; }

void DurableFile::commit() {
  State& state = *state_;
  if (state.isCommitted) return;
  if (state.original) {
    state.replace();
  } else {
    state.create();
  }
  // Before the folder is synced: the rename has happened, and must not be tried again if that fails.
  state.isCommitted = true;
  syncFolder(state.location);
  state.temporary->unlock();
}

}  // namespace fl::filesystem

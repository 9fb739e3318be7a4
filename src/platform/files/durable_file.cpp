#include "platform/files/durable_file.h"

#include <cerrno>
#include <cstdint>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/files/file_attributes.h"
#include "platform/files/file_place.h"
#include "platform/files/locked_original.h"
#include "platform/files/temporary_file.h"

namespace fl::filesystem {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000, kMicrosecond = 1'000;  // in nanoseconds

std::int64_t nanoseconds(const timespec& time) { return time.tv_sec * kSecond + time.tv_nsec; }

/// Sharing blocks costs no more than a new inode. Not every file system can, and none across file systems.
bool clone(int from, int to) {
  if (::ioctl(to, FICLONE, from) == 0) return true;
  (void)::ftruncate(to, 0);
  return false;
}

/// In microseconds: readers notice a change by a stamp of that grain.
bool isLater(std::int64_t stamp, std::int64_t than) { return stamp / kMicrosecond > than / kMicrosecond; }

bool hasLaterStamp(int file, std::int64_t than) {
  struct stat status {};
  return ::fstat(file, &status) == 0 && isLater(nanoseconds(status.st_mtim), than);
}

bool setStamp(int file, std::int64_t stamp) {
  const timespec time{.tv_sec = stamp / kSecond, .tv_nsec = stamp % kSecond};
  const timespec times[] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, time};
  return ::futimens(file, times) == 0;
}

/// The file's own stamp where it is later already. Else the clock was set back, ticks coarsely, or the file
/// system counts in whole or even seconds, so what was set is read again.
void ensureLaterStamp(int file, std::int64_t than, const std::string& path) {
  if (hasLaterStamp(file, than)) return;
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  const std::int64_t next = (than / kMicrosecond + 1) * kMicrosecond;
  for (const std::int64_t stamp : {nanoseconds(now), next, than + kSecond, than + 2 * kSecond}) {
    if (!isLater(stamp, than)) continue;
    if (!setStamp(file, stamp)) opc::raise("opc:save:CannotSetTime", path, systemReason(errno));
    if (hasLaterStamp(file, than)) return;
  }
  opc::raise("opc:save:CannotSetTime", path, systemReason(EOVERFLOW));
}

void sync(int file, const std::string& path) {
  if (::fsync(file) != 0) opc::raise("opc:save:CannotSync", path, systemReason(errno));
}

/// A folder that cannot be synced at all (a file system that knows no such thing, or no right to open it) is
/// the best there is; an error of the disk is not.
void syncFolder(const FilePlace& place) {
  if (::fsync(place.folder.get()) == 0 || errno == EINVAL || errno == EBADF || errno == ENOTSUP) return;
  opc::raise("opc:save:NotConfirmed", place.path, systemReason(errno));
}

}  // namespace

struct DurableFile::State {
  explicit State(FilePlace where, const FileIdentity& what = {}) : place(std::move(where)), expected(what) {}

  const FilePlace place;
  const FileIdentity expected;
  std::optional<LockedOriginal> original;  // the lock goes last but for the folder
  std::optional<TemporaryFile> temporary;
  mode_t mode = 0;
  bool isClone = false, isCommitted = false;

  void replace();
  void create();
};

void DurableFile::State::replace() {
  // Writing takes set-user and set-group bits away; this gives them back.
  if (::fchmod(temporary->descriptor(), mode) != 0) {
    opc::raise("opc:save:CannotKeepMode", place.path, systemReason(errno));
  }
  ensureLaterStamp(temporary->descriptor(), expected.modified, place.path);
  sync(temporary->descriptor(), place.path);
  original->check();
  const int error = temporary->replaceFile();
  if (error != 0) opc::raise("opc:save:CannotRename", place.path, systemReason(error));
}

void DurableFile::State::create() {
  sync(temporary->descriptor(), place.path);
  const int error = temporary->takeFreeName();
  if (error == EEXIST) opc::raise("opc:save:FileAppeared", place.path);
  if (error != 0) opc::raise("opc:save:CannotRename", place.path, systemReason(error));
}

DurableFile::DurableFile(const std::string& path, const FileIdentity& expected, Start start)
    : state_(new State(placeOfExisting(path), expected)) {
  State& state = *state_;
  state.original.emplace(state.place, expected);
  if (state.original->isLocked()) removeStaleTemporaries(state.place);
  state.temporary.emplace(state.place, 0600);  // nobody else's until it has the original's owner
  if (start == Start::CloneOrEmpty) {
    state.isClone = clone(state.original->descriptor(), state.temporary->descriptor());
  }
  state.mode = copyAttributes(state.original->descriptor(), state.temporary->descriptor(), path);
}

DurableFile::DurableFile(const std::string& path) : state_(new State(placeOfNew(path))) {
  state_->temporary.emplace(state_->place, 0666);
}

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
  state.isCommitted = true;
  syncFolder(state.place);
  state.original.reset();
  state.temporary->unlock();  // it is the file of that name now, which others may want to save
}

}  // namespace fl::filesystem

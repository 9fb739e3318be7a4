#include "platform/repository/database_file.h"

#include <cerrno>
#include <set>
#include <string_view>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"

// Database files hold copies of recorded data, so they lie in a folder that only their owner can enter, and
// must not stay behind when a process is killed. Each file is locked with flock for as long as its process
// lives; the next process that needs a database removes the files it can lock.
namespace orra {

using fl::filesystem::Descriptor;
using fl::filesystem::systemReason;
using foundation::core::except::raise;

namespace {

constexpr char kSuffix[] = ".db";
constexpr mode_t kOwnerOnly = 0700;
constexpr int kMostAttempts = 100;

[[noreturn]] void refuse(const std::string& path, int error) {
  raise("sqldb:ssdb:Failed", path, systemReason(error));
}

/// The files this process has open. A sweep must not touch them: closing any descriptor of a file drops all
/// the locks that the process has on it, the database's among them.
std::set<std::string>& ownFiles() {
  static std::set<std::string> paths;
  return paths;
}

/// Whether the path is a folder, not a link to one, that belongs to this user; nobody else may use it then.
bool makePrivate(const std::string& path) {
  // Opened before it is examined, so that what is examined cannot be exchanged for something else.
  const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status {};
  if (!folder || ::fstat(folder.get(), &status) != 0 || status.st_uid != ::geteuid()) return false;
  return (status.st_mode & 07777) == kOwnerOnly || ::fchmod(folder.get(), kOwnerOnly) == 0;
}

std::string privateFolder() {
  const std::string base =
      fl::filesystem::toNativeName(fl::filesystem::absolute(fl::filesystem::temp_directory_path())) +
      "/orra-repositories-" + std::to_string(::geteuid());
  // The first name may be taken by a user who wants to read along, or to be in the way.
  for (int attempt = 1; attempt <= kMostAttempts; ++attempt) {
    std::string path = attempt == 1 ? base : base + "-" + std::to_string(attempt);
    if (::mkdir(path.c_str(), kOwnerOnly) != 0 && errno != EEXIST) refuse(path, errno);
    if (makePrivate(path)) return path;
  }
  refuse(base, EEXIST);
}

/// The lock can be taken only when the process that held it has ended.
void removeIfAbandoned(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  // Removed with the lock held: two sweeps at once cannot both believe the name to be theirs.
  if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) ::unlink(path.c_str());
}

void sweep(const std::string& folder) {
  try {
    fl::filesystem::DirectoryIterator entries(fl::filesystem::fromNativeName(folder));
    if (!entries.isOpen()) return;
    while (const auto entry = entries.next()) {
      const std::string path = fl::filesystem::toNativeName(entry->path);
      if (path.ends_with(kSuffix) && !ownFiles().contains(path)) removeIfAbandoned(path);
    }
  } catch (const fl::filesystem::Error&) {
    // Sweeping is a courtesy; the next process does it.
  }
}

/// Nothing if the name is taken, or if a sweep in another process was quicker than the lock.
Descriptor createLocked(const std::string& path) {
  Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file && errno != EEXIST) refuse(path, errno);
  if (!file) return file;
  // Where files cannot be locked nobody can sweep them either.
  while (::flock(file.get(), LOCK_EX) != 0 && errno == EINTR) {
  }
  struct stat status {};
  // Between creating and locking it was open to a sweep; a file without a name is no use to anyone.
  const bool swept = ::fstat(file.get(), &status) == 0 && status.st_nlink == 0;
  return swept ? Descriptor() : std::move(file);
}

std::string chosenName() {
  // The process identifier keeps running processes apart, the number the databases of one process.
  static unsigned created = 0;
  return std::to_string(::getpid()) + "-" + std::to_string(++created) + kSuffix;
}

}  // namespace

DatabaseFile::DatabaseFile(const std::string& folder, const std::string& name) {
  const std::string parent = folder.empty() ? privateFolder() : folder;
  if (folder.empty()) sweep(parent);
  for (int attempt = 1; !lock_ && attempt <= kMostAttempts; ++attempt) {
    const auto path =
        fl::filesystem::concatenate(fl::filesystem::fromNativeName(parent),
                                    fl::filesystem::fromNativeName(name.empty() ? chosenName() : name));
    path_ = fl::filesystem::toNativeName(fl::filesystem::absolute(path));
    // Entered first, so that a sweep of this process never meets a file it does not know.
    ownFiles().insert(path_);
    try {
      lock_ = createLocked(path_);
    } catch (...) {
      ownFiles().erase(path_);
      throw;
    }
    if (!lock_) ownFiles().erase(path_);
    // A name that was asked for is not exchanged for another.
    if (!lock_ && !name.empty()) break;
  }
  if (!lock_) refuse(path_, EEXIST);
}

DatabaseFile::~DatabaseFile() {
  // Removed before the lock is given up, after which a sweep may be at it.
  if (!kept_) ::unlink(path_.c_str());
  lock_.reset();
  ownFiles().erase(path_);
}

}  // namespace orra

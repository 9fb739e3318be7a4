#include "platform/files/temporary_file.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"

namespace fl::filesystem {
namespace {

constexpr std::string_view kMarker = ".saving-";
constexpr std::size_t kRandomLetters = 6;
constexpr int kAttempts = 64;

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};
using FolderListing = std::unique_ptr<DIR, CloseFolder>;

std::size_t longestName(const FilePlace& place) {
  const long longest = ::fpathconf(place.folder.get(), _PC_NAME_MAX);
  return longest > 0 ? static_cast<std::size_t>(longest) : NAME_MAX;
}

/// What a name too long for anything to be added to it is shortened to: its beginning, never half a
/// character, and a hash, so that it stays this name's own.
std::string shortened(const std::string& name, std::size_t room) {
  std::array<char, 10> sum{};
  const auto hash = static_cast<std::uint32_t>(std::hash<std::string>()(name));
  static_cast<void>(::snprintf(sum.data(), sum.size(), "~%08x", hash));
  std::size_t end = room > 9 ? room - 9 : 0;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  return name.substr(0, end) + sum.data();
}

/// What the names of all temporaries of this file, and of no other, start with.
std::string temporaryPrefix(const FilePlace& place) {
  const std::size_t room = longestName(place) - 1 - kMarker.size() - kRandomLetters;
  const std::string stem = place.name.size() <= room ? place.name : shortened(place.name, room);
  return "." + stem + std::string(kMarker);
}

std::string randomLetters() {
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  std::string letters;
  for (std::size_t i = 0; i < kRandomLetters; ++i) letters += kLetters[random() % kLetters.size()];
  return letters;
}

bool isTemporaryName(std::string_view name, std::string_view prefix) {
  if (name.size() != prefix.size() + kRandomLetters || !name.starts_with(prefix)) return false;
  return name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789", prefix.size()) ==
         std::string_view::npos;
}

std::vector<std::string> temporariesOf(const FilePlace& place) {
  std::vector<std::string> names;
  const int folder = ::openat(place.folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return names;
  const FolderListing listing(::fdopendir(folder));
  if (!listing) {
    ::close(folder);
    return names;
  }
  const std::string prefix = temporaryPrefix(place);
  while (const dirent* item = ::readdir(listing.get())) {
    if (isTemporaryName(item->d_name, prefix)) names.emplace_back(item->d_name);
  }
  return names;
}

/// Every temporary is locked by the process that writes it, and the lock goes with the process.
bool isBeingWritten(const FilePlace& place, const std::string& name) {
  const Descriptor file(
      ::openat(place.folder.get(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return true;
  return ::flock(file.get(), LOCK_EX | LOCK_NB) != 0;
}

}  // namespace

TemporaryFile::TemporaryFile(const FilePlace& place, mode_t mode) : place_(place) {
  const std::string prefix = temporaryPrefix(place);
  for (int attempt = 0; attempt < kAttempts && !file_; ++attempt) {
    std::string name = prefix + randomLetters();
    file_ = Descriptor(
        ::openat(place.folder.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (file_) name_ = std::move(name);
    if (!file_ && errno != EEXIST) break;
  }
  if (!file_) opc::raise("opc:save:FolderNotWritable", place.path, systemReason(errno));
  ::flock(file_.get(),
          LOCK_EX | LOCK_NB);  // says that it is no stale one; where there are no locks nobody sweeps
}

TemporaryFile::~TemporaryFile() {
  if (!name_.empty()) ::unlinkat(place_.folder.get(), name_.c_str(), 0);
}

int TemporaryFile::replaceFile() {
  if (::renameat(place_.folder.get(), name_.c_str(), place_.folder.get(), place_.name.c_str()) != 0)
    return errno;
  name_.clear();
  return 0;
}

int TemporaryFile::takeFreeName() {
  const int folder = place_.folder.get();
  if (::renameat2(folder, name_.c_str(), folder, place_.name.c_str(), RENAME_NOREPLACE) == 0) {
    name_.clear();
    return 0;
  }
  return errno == EINVAL || errno == ENOSYS ? linkToFreeName() : errno;
}

void TemporaryFile::unlock() noexcept { ::flock(file_.get(), LOCK_UN); }

/// For file systems that cannot rename without replacing.
int TemporaryFile::linkToFreeName() {
  const int folder = place_.folder.get();
  if (::linkat(folder, name_.c_str(), folder, place_.name.c_str(), 0) != 0) return errno;
  ::unlinkat(folder, name_.c_str(), 0);
  name_.clear();
  return 0;
}

void removeStaleTemporaries(const FilePlace& place) noexcept {
  try {
    for (const std::string& name : temporariesOf(place)) {
      if (!isBeingWritten(place, name)) ::unlinkat(place.folder.get(), name.c_str(), 0);
    }
  } catch (const std::exception&) {
    // Out of memory or of entropy: what is stale can wait for the next save.
  }
}

}  // namespace fl::filesystem

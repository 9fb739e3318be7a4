#include "platform/files/folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/files/paths.h"

namespace fl::filesystem {
namespace {

// For everyone, less what the user keeps from others.
constexpr mode_t kNewFile = 0666;

}  // namespace

Folder::Folder(const std::u16string& path)
    : folder_(::open(toNativeName(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

Descriptor Folder::createFile(const std::u16string& name) const {
  return Descriptor(
      openat(folder_.get(), toNativeName(name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFile));
}

Descriptor createOrEmptyFile(const std::u16string& path) {
  return Descriptor(::open(toNativeName(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kNewFile));
}

}  // namespace fl::filesystem

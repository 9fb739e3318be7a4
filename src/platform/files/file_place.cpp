#include "platform/files/file_place.h"

#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <stdlib.h>

#include "platform/errors/package_errors.h"

namespace fl::filesystem {
namespace {

/// A folder that may be entered and written but not listed is enough to save in.
Descriptor openFolder(const std::string& path, const std::string& folder) {
  Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened && errno == EACCES)
    opened = Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!opened) opc::raise("opc:save:CannotReachFolder", path, systemReason(errno));
  return opened;
}

FilePlace split(const std::string& path, const std::string& resolved) {
  if (path.find('\0') != std::string::npos) opc::raise("opc:save:BadName", path);
  const std::size_t slash = resolved.rfind('/');
  std::string name = slash == std::string::npos ? resolved : resolved.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") opc::raise("opc:save:BadName", path);
  const std::string folder = slash == std::string::npos ? "." : resolved.substr(0, slash + 1);
  return {path, openFolder(path, folder), std::move(name)};
}

}  // namespace

FilePlace placeOfExisting(const std::string& path) {
  const std::unique_ptr<char, decltype(&::free)> resolved(::realpath(path.c_str(), nullptr), &::free);
  if (resolved) return split(path, resolved.get());
  if (errno == ENOENT) opc::raise("opc:save:FileGone", path);
  opc::raise("opc:save:CannotReachFolder", path, systemReason(errno));
}

FilePlace placeOfNew(const std::string& path) { return split(path, path); }

}  // namespace fl::filesystem

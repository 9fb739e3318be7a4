#include "platform/files/file_attributes.h"

#include <cerrno>
#include <optional>
#include <string_view>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/files/descriptor.h"

namespace fl::filesystem {
namespace {

constexpr char kAccessList[] = "system.posix_acl_access";
constexpr int kAttempts = 8;

enum class Kept { All, Group, None };

Kept copyOwner(const struct stat& original, int to, const std::string& path) {
  if (::fchown(to, original.st_uid, original.st_gid) == 0) return Kept::All;
  if (errno != EPERM && errno != EINVAL) opc::raise("opc:save:CannotKeepOwner", path, systemReason(errno));
  struct stat status {};
  if (::fstat(to, &status) == 0 && status.st_gid == original.st_gid) return Kept::Group;
  return ::fchown(to, static_cast<uid_t>(-1), original.st_gid) == 0 ? Kept::Group : Kept::None;
}

/// What of the mode still means what it meant. Rights of a group that could not be kept would go to another
/// group, which gets no more than everybody has.
mode_t safeMode(mode_t mode, Kept kept) {
  mode &= 07777;
  if (kept == Kept::All) return mode;
  mode &= ~static_cast<mode_t>(S_ISUID);
  if (kept == Kept::Group) return mode;
  const mode_t others = mode & S_IRWXO;
  return (mode & ~static_cast<mode_t>(S_ISGID | S_IRWXG)) | (mode & (others << 3));
}

/// A list or value whose size the system tells only by asking twice, in between which it may grow.
template <class Ask>
std::optional<std::string> askForBytes(const Ask& ask) {
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

/// Labels of the system itself (security modules, capabilities) are its own to give; what users set is kept.
bool isUsers(std::string_view name) { return name.starts_with("user.") || name == kAccessList; }

void copyAttribute(int from, int to, const std::string& name, const std::string& path) {
  const auto value =
      askForBytes([&](char* into, std::size_t size) { return ::fgetxattr(from, name.c_str(), into, size); });
  if (!value && errno == ENODATA) return;
  if (value && ::fsetxattr(to, name.c_str(), value->data(), value->size(), 0) == 0) return;
  if (errno == ENOTSUP || !isUsers(name)) return;
  opc::raise("opc:save:CannotKeepAttribute", path, name, systemReason(errno));
}

void copyExtendedAttributes(int from, int to, Kept kept, const std::string& path) {
  // A new file takes over its folder's default list, which the original need not have.
  ::fremovexattr(to, kAccessList);
  const auto names =
      askForBytes([&](char* into, std::size_t size) { return ::flistxattr(from, into, size); });
  if (!names && errno != ENOTSUP && errno != ENOSYS) {
    opc::raise("opc:save:CannotKeepAttribute", path, "", systemReason(errno));
  }
  if (!names) return;
  for (std::size_t at = 0; at < names->size();) {
    const std::string name(names->c_str() + at);
    at += name.size() + 1;
    // The list speaks of "the group" too, and of the mode's group bits as a mask: both would be wrong.
    if (name == kAccessList && kept == Kept::None) continue;
    copyAttribute(from, to, name, path);
  }
}

}  // namespace

mode_t copyAttributes(int from, int to, const std::string& path) {
  struct stat original {};
  if (::fstat(from, &original) != 0) opc::raise("opc:save:CannotOpen", path, systemReason(errno));
  const Kept kept = copyOwner(original, to, path);
  copyExtendedAttributes(from, to, kept, path);
  const mode_t mode = safeMode(original.st_mode, kept);
  if (::fchmod(to, mode) != 0) opc::raise("opc:save:CannotKeepMode", path, systemReason(errno));
  return mode;
}

}  // namespace fl::filesystem

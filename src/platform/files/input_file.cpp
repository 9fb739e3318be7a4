#include "platform/files/input_file.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"

namespace fl::filesystem {
namespace {

std::int64_t nanoseconds(const timespec& time) {
  return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

std::string reason(int error) { return std::generic_category().message(error); }

FileIdentity identityFrom(const struct stat& status) {
  return {status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
          nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

int openForReading(const std::string& path) {
  if (path.find('\0') != std::string::npos) throw opc::model::PackageNotFound(path);
  // Opening a pipe that nobody writes to would otherwise wait for a writer.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor >= 0) return descriptor;
  if (errno == ENOENT || errno == ENOTDIR) throw opc::model::PackageNotFound(path);
  opc::refuse("opc:zip:CannotOpen", path, reason(errno));
}

}  // namespace

FileIdentity identityOf(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return {};
  return identityFrom(status);
}

InputFile::InputFile(std::string path) : path_(std::move(path)), descriptor_(openForReading(path_)) {
  struct stat status {};
  const bool isFile = ::fstat(descriptor_, &status) == 0 && S_ISREG(status.st_mode);
  identity_ = identityFrom(status);
  if (isFile) return;
  ::close(descriptor_);
  opc::refuse("opc:zip:NotAFile", path_);
}

InputFile::~InputFile() { ::close(descriptor_); }

void InputFile::read(std::uint64_t offset, void* into, std::size_t count) const {
  auto* next = static_cast<char*>(into);
  while (count > 0) {
    const ssize_t got = ::pread(descriptor_, next, count, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) opc::raise("opc:zip:ReadFailed", path_, reason(errno));
    if (got == 0) opc::raise("opc:zip:EndsEarly", path_);
    next += got;
    offset += static_cast<std::uint64_t>(got);
    count -= static_cast<std::size_t>(got);
  }
}

}  // namespace fl::filesystem

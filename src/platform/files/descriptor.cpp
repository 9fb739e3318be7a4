#include "platform/files/descriptor.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"

namespace fl::filesystem {
namespace {

std::int64_t nanoseconds(const timespec& time) {
  return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

FileIdentity identityFrom(const struct stat& status) {
  return {status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size),
          nanoseconds(status.st_mtim), nanoseconds(status.st_ctim)};
}

Descriptor openForReading(const std::string& path) {
  // The system would stop reading at the NUL and open another file.
  if (path.find('\0') != std::string::npos) throw opc::model::PackageNotFound(path);
  // Opening a pipe that nobody writes to would otherwise wait for a writer.
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file) return file;
  // Below something that is no folder there is no file either.
  if (errno == ENOENT || errno == ENOTDIR) throw opc::model::PackageNotFound(path);
  opc::refuse("opc:zip:CannotOpen", path, systemReason(errno));
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this == &other) return *this;
  reset();
  value_ = std::exchange(other.value_, -1);
  return *this;
}

void Descriptor::reset() noexcept { close(); }

int Descriptor::close() noexcept {
  const int closing = std::exchange(value_, -1);
  // Not tried again after an interruption: the system has given the number up by then.
  return closing < 0 || ::close(closing) == 0 || errno == EINTR ? 0 : errno;
}

std::string systemReason(int error) { return std::generic_category().message(error); }

int writeAt(int descriptor, std::uint64_t offset, const void* data, std::size_t count) noexcept {
  const char* from = static_cast<const char*>(data);
  while (count > 0) {
    const ssize_t written = ::pwrite(descriptor, from, count, static_cast<off_t>(offset));
    // A signal that came before the first byte: nothing was written, nothing is wrong.
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    if (written == 0) return ENOSPC;  // no progress and no reason: as good as full
    from += written;
    offset += static_cast<std::uint64_t>(written);
    count -= static_cast<std::size_t>(written);
  }
  return 0;
}

ReadResult readAt(int descriptor, std::uint64_t offset, void* into, std::size_t count) noexcept {
  char* to = static_cast<char*>(into);
  std::size_t done = 0;
  while (done < count) {
    const auto [got, error] = readSomeAt(descriptor, offset + done, to + done, count - done);
    if (error != 0) return {done, error};
    // The end of the file, which is no error here; the count says so.
    if (got == 0) break;
    done += got;
  }
  return {done, 0};
}

ReadResult readSomeAt(int descriptor, std::uint64_t offset, void* into, std::size_t count) noexcept {
  for (;;) {
    const ssize_t got = ::pread(descriptor, into, count, static_cast<off_t>(offset));
    if (got >= 0) return {static_cast<std::size_t>(got), 0};
    if (errno != EINTR) return {0, errno};
  }
}

FileIdentity identityOf(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 ? identityFrom(status) : FileIdentity{};
}

FileIdentity identityOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? identityFrom(status) : FileIdentity{};
}

InputFile::InputFile(std::string path) : path_(std::move(path)), file_(openForReading(path_)) {
  // Asked of the open file and not of the path, which may lead to another one by now.
  struct stat status {};
  if (::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode)) opc::refuse("opc:zip:NotAFile", path_);
  identity_ = identityFrom(status);
}

void InputFile::read(std::uint64_t offset, void* into, std::size_t count) const {
  const ReadResult result = readAt(file_.get(), offset, into, count);
  if (result.error != 0) opc::raise("opc:zip:ReadFailed", path_, systemReason(result.error));
  // Whoever reads knows the size from the opening, so the file has been cut off since.
  if (result.count < count) opc::raise("opc:zip:EndsEarly", path_);
}

}  // namespace fl::filesystem

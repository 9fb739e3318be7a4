#include "platform/files/descriptor.h"

#include <cerrno>
#include <system_error>

#include <unistd.h>

namespace fl::filesystem {

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this == &other) return *this;
  reset();
  value_ = std::exchange(other.value_, -1);
  return *this;
}

void Descriptor::reset() noexcept {
  if (value_ >= 0) ::close(value_);
  value_ = -1;
}

std::string systemReason(int error) { return std::generic_category().message(error); }

int writeAt(int descriptor, std::uint64_t offset, const void* data, std::size_t count) noexcept {
  const char* from = static_cast<const char*>(data);
  while (count > 0) {
    const ssize_t written = ::pwrite(descriptor, from, count, static_cast<off_t>(offset));
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
    const ssize_t got = ::pread(descriptor, to + done, count - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {done, errno};
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return {done, 0};
}

}  // namespace fl::filesystem

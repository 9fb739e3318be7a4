#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace fl::filesystem {

/// Owns one open file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int value = -1) noexcept : value_(value) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;

  int get() const noexcept { return value_; }
  explicit operator bool() const noexcept { return value_ >= 0; }
  void reset() noexcept;

 private:
  int value_;
};

/// The system's words for an error number.
std::string systemReason(int error);

/// Writes all of `count` bytes at `offset`. Gives 0, or the error number of the write that failed.
int writeAt(int descriptor, std::uint64_t offset, const void* data, std::size_t count) noexcept;

/// What a read gave: fewer bytes than were asked for only at the end of the file or with an error number.
struct ReadResult {
  std::size_t count;
  int error;
};
ReadResult readAt(int descriptor, std::uint64_t offset, void* into, std::size_t count) noexcept;

}  // namespace fl::filesystem

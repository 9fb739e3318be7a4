#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

/// Open files: who owns the descriptor, which file it is, and reading and writing at offsets.
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

/// What tells one state of a file from another: two equal identities mean that nobody changed it in between.
struct FileIdentity {
  std::uint64_t device = 0, inode = 0, size = 0;
  std::int64_t modified = 0, changed = 0;  ///< nanoseconds since the epoch

  bool operator==(const FileIdentity&) const = default;
};

/// All zero if the system does not tell.
FileIdentity identityOf(int descriptor);

/// An open file that is read by offset. Reading never maps the file: a mapping of a file that somebody
/// truncates would end the process.
class InputFile {
 public:
  /// Opens `path` (UTF-8) for reading. Raises PackageNotFound if there is no such file and PackageOpenFailed
  /// if it is not a regular file or may not be read.
  explicit InputFile(std::string path);

  const std::string& path() const { return path_; }
  int descriptor() const { return file_.get(); }
  std::uint64_t size() const { return identity_.size; }
  /// As it was when the file was opened.
  const FileIdentity& identity() const { return identity_; }

  /// Reads exactly `count` bytes at `offset`; raises opc::Exception if the file ends before or cannot be
  /// read.
  void read(std::uint64_t offset, void* into, std::size_t count) const;

 private:
  std::string path_;
  Descriptor file_;
  FileIdentity identity_;
};

}  // namespace fl::filesystem

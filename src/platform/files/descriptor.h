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
  /// Takes over what `open` gave. A negative value owns nothing, so a failed open can be passed on and asked
  /// for with `operator bool`.
  explicit Descriptor(int value = -1) noexcept : value_(value) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : value_(std::exchange(other.value_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept;

  int get() const noexcept { return value_; }
  explicit operator bool() const noexcept { return value_ >= 0; }
  /// Closes the descriptor if there is one. What closing reports is ignored: whoever must know that the data
  /// reached the disk syncs before.
  void reset() noexcept;
  /// The same for who wants to know: gives 0, or the error number of a write that failed only now.
  int close() noexcept;

 private:
  int value_;
};

/// The system's words for an error number ("No such file or directory"), as messages quote them.
std::string systemReason(int error);

/// Writes all of `count` bytes at `offset`, going on after interruptions and partial writes. Gives 0, or the
/// error number of the write that failed. The descriptor's own position is neither used nor moved.
int writeAt(int descriptor, std::uint64_t offset, const void* data, std::size_t count) noexcept;

/// What a read gave: fewer bytes than were asked for only at the end of the file or with an error number.
struct ReadResult {
  std::size_t count;
  int error;
};
/// Reads at `offset` in the same way.
ReadResult readAt(int descriptor, std::uint64_t offset, void* into, std::size_t count) noexcept;
/// Reads what the system gives at once, 0 bytes only at the end of the file.
ReadResult readSomeAt(int descriptor, std::uint64_t offset, void* into, std::size_t count) noexcept;

/// What tells one state of a file from another: two equal identities mean that nobody changed it in between,
/// unless a change of the same size came within one tick of the kernel's clock. The time of the last change
/// is part of it because whoever writes a file can also set its time of modification back.
struct FileIdentity {
  std::uint64_t device = 0, inode = 0, size = 0;
  std::int64_t modified = 0, changed = 0;  ///< nanoseconds since the epoch

  bool operator==(const FileIdentity&) const = default;
};

/// Of an open file. All zero if the system does not tell.
FileIdentity identityOf(int descriptor);
/// Of the file that the path leads to, without opening it. All zero if there is none.
FileIdentity identityOf(const std::string& path);

/// An open file that is read by offset. Reading never maps the file: a mapping of a file that somebody
/// truncates would end the process.
class InputFile {
 public:
  /// Opens `path` (UTF-8) for reading. Raises PackageNotFound if there is no such file and PackageOpenFailed
  /// if it is not a regular file or may not be read.
  explicit InputFile(std::string path);

  const std::string& path() const { return path_; }
  int descriptor() const { return file_.get(); }
  /// In bytes, when the file was opened.
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

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fl::filesystem {

/// What tells one state of a file from another: two equal identities mean that nobody changed it in between.
struct FileIdentity {
  std::uint64_t device = 0, inode = 0, size = 0;
  std::int64_t modified = 0, changed = 0;  ///< nanoseconds since the epoch

  bool operator==(const FileIdentity&) const = default;
};

/// An open file that is read by position. Reading never maps the file: a mapping of a file that somebody
/// truncates would end the process.
class InputFile {
 public:
  /// Opens `path` (UTF-8) for reading. Raises PackageNotFound if there is no such file and PackageOpenFailed
  /// if it is not a regular file or may not be read.
  explicit InputFile(std::string path);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  const std::string& path() const { return path_; }
  int descriptor() const { return descriptor_; }
  std::uint64_t size() const { return identity_.size; }
  /// As it was when the file was opened.
  const FileIdentity& identity() const { return identity_; }

  /// Reads exactly `count` bytes at `offset`; raises opc::Exception if the file ends before or cannot be
  /// read.
  void read(std::uint64_t offset, void* into, std::size_t count) const;

 private:
  std::string path_;
  int descriptor_ = -1;
  FileIdentity identity_;
};

/// The identity of an open descriptor.
FileIdentity identityOf(int descriptor);

}  // namespace fl::filesystem

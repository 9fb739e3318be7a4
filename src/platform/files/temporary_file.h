#pragma once

#include <string>

#include <sys/types.h>

#include "platform/files/descriptor.h"
#include "platform/files/file_place.h"

namespace fl::filesystem {

/// A file in the making, beside the place it is meant for, called ".NAME.saving-XXXXXX". It goes when this
/// does, unless it got its real name.
class TemporaryFile {
 public:
  /// Creates it, with `mode` less what the process masks. `place` must outlive it. Raises opc::Exception if
  /// the folder cannot be written.
  TemporaryFile(const FilePlace& place, mode_t mode);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int descriptor() const { return file_.get(); }

  /// Each puts it in its place and gives 0, or the error number. `takeFreeName` fails with EEXIST where a
  /// file has the name.
  int replaceFile();
  int takeFreeName();

  /// Ends the lock that keeps others from sweeping or replacing the file.
  void unlock() noexcept;

 private:
  int linkToFreeName();

  const FilePlace& place_;
  std::string name_;  ///< empty once it has its real one
  Descriptor file_;
};

/// Removes what killed processes left of earlier saves of this file. Never fails, and never touches a file
/// that is being written: those are locked.
void removeStaleTemporaries(const FilePlace& place) noexcept;

}  // namespace fl::filesystem

#pragma once

#include "platform/files/descriptor.h"
#include "platform/files/file_place.h"
#include "platform/files/input_file.h"

namespace fl::filesystem {

/// The file that is going to be replaced, open and locked. While it lives no other program that asks for the
/// lock replaces the file.
class LockedOriginal {
 public:
  /// Never waits: who holds the lock is saving, and what this save started from is then out of date. Raises
  /// opc::Exception if the file is locked, read-only, gone, no regular file, or no longer `expected`.
  LockedOriginal(const FilePlace& place, const FileIdentity& expected);

  int descriptor() const { return file_.get(); }

  /// False on the few file systems that know no locks. Only `check` protects the file there.
  bool isLocked() const { return isLocked_; }

  /// Raises opc::Exception unless the name still leads to this file and it still is `expected`.
  void check() const;

 private:
  /// Whether the lock stands on the file that has the name now.
  bool openAndLock();
  bool hasName() const;

  const FilePlace& place_;
  FileIdentity expected_;
  Descriptor file_;
  bool isLocked_ = false;
};

}  // namespace fl::filesystem

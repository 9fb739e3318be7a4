#pragma once

#include <memory>
#include <string>

#include "platform/files/descriptor.h"

namespace fl::filesystem {

/// A new version of a file, written beside it and put in its place by one rename: all there or not at all,
/// also when the power fails. This is the only way in which packages are saved.
///
/// Construction resolves symbolic links, takes an exclusive advisory lock (flock) on the original's inode,
/// without waiting for it, and checks that the path still leads there. It removes temporaries that killed
/// processes left and creates its own with the original's owner, mode and extended attributes. Destruction
/// without `commit` removes the temporary; the original is then as it was. Raises opc::Exception, naming the
/// path, on every failure.
///
/// The new version is a new inode: further hard links keep the old one.
class DurableFile {
 public:
  enum class Start {
    Empty,
    CloneOrEmpty,  ///< shares the original's blocks where the file system can; see isClone
  };

  /// To replace the file at `path` (UTF-8), which must still be `expected`.
  DurableFile(const std::string& path, const FileIdentity& expected, Start start);
  /// To create `path`, which must not exist when `commit` is called; its mode is 0666 less what the process
  /// masks. There is nothing to lock then, so two processes may prepare the same file; one of them fails.
  explicit DurableFile(const std::string& path);
  ~DurableFile();
  DurableFile(const DurableFile&) = delete;
  DurableFile& operator=(const DurableFile&) = delete;

  /// Where the new version is written. Stays this object's, and open until it goes.
  int descriptor() const;
  /// Whether the new version starts with all bytes of the original. If not, it starts empty, whatever was
  /// asked for.
  bool isClone() const;

  /// Syncs the file, gives it a time stamp later than the original's (by a microsecond or more), checks that
  /// the original is still `expected`, renames over it and syncs the folder. "opc:save:NotConfirmed" alone
  /// comes after the rename: the file is the new one, but might be the old one again if the power fails. A
  /// second call does nothing.
  void commit();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace fl::filesystem

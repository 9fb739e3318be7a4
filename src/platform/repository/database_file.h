#pragma once

#include <string>

#include "platform/files/descriptor.h"

namespace orra {

/// A new, empty file (0600) for a database. As long as this lives it holds an advisory lock on the file that
/// dies with the process, which tells the files of processes that died from those in use.
///
/// Must outlive every other opening of the file: closing it drops the database's own locks.
/// The lock is not the database's own, by which SQLite keeps connections apart: that one comes and goes with
/// each transaction, this one says that somebody still needs the file.
class DatabaseFile {
 public:
  /// What is empty is chosen: the folder is then a private one (0700) below the system's temporary folder,
  /// in which the files of processes that died are swept first. Both are UTF-8. Raises sqldb:ssdb:Failed with
  /// the path and the system's reason.
  DatabaseFile(const std::string& folder, const std::string& name);
  /// Removes the file unless it is kept.
  ~DatabaseFile();
  DatabaseFile(const DatabaseFile&) = delete;
  DatabaseFile& operator=(const DatabaseFile&) = delete;

  /// Leaves the file to whoever asks for its path.
  void keep() noexcept { kept_ = true; }

  /// Absolute, UTF-8.
  const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
  fl::filesystem::Descriptor lock_;
  bool kept_ = false;
};

}  // namespace orra

#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/files/descriptor.h"

namespace zip {

/// What several spools keep their data in together: a memory budget of 8 MiB and, past that, one unlinked
/// temporary file in the folder given, however many the spools are. Spools may be written in turns. Room in
/// the file is not used again before the storage goes.
class SpoolStorage {
 public:
  /// `folder` (UTF-8) takes the temporary file if one is needed.
  explicit SpoolStorage(std::string folder);

  const std::string& folder() const { return folder_; }

  /// Whether the budget has this much left, which is then taken from it.
  bool takeMemory(std::size_t count);
  void giveMemoryBack(std::size_t count);

  /// Writes to the end of the file and gives where. Raises opc::Exception if the file cannot be created or
  /// written.
  std::uint64_t append(const char* data, std::size_t count);
  /// The file, or -1 while everything is in memory.
  int descriptor() const { return file_.get(); }

 private:
  std::string folder_;
  std::mutex mutex_;  // spools of one storage may be written from different threads
  std::size_t memory_ = 0;
  fl::filesystem::Descriptor file_;
  std::uint64_t end_ = 0;
};

}  // namespace zip

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/files/descriptor.h"
#include "platform/zip/directory.h"

namespace zip {

/// Reads the data of one entry, front to back, inflating where needed. Never yields more than the declared
/// size; at the end size and checksum have been checked.
class EntryReader {
 public:
  EntryReader(std::shared_ptr<const fl::filesystem::InputFile> file, const Entry& entry);
  ~EntryReader();
  EntryReader(EntryReader&&) noexcept;
  EntryReader& operator=(EntryReader&&) noexcept;

  /// Up to `count` bytes; 0 only at the sound end. Raises opc::Exception naming package and entry if the data
  /// is broken or ends early, or its size or checksum is not the declared one. A failed reader stays failed.
  std::size_t read(void* into, std::size_t count);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// All of an entry, for small ones. Raises as EntryReader, and if it is larger than `limit`.
std::string readWhole(const std::shared_ptr<const fl::filesystem::InputFile>& file, const Entry& entry,
                      std::uint64_t limit);

}  // namespace zip

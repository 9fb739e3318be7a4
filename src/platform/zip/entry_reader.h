#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/files/descriptor.h"
#include "platform/zip/directory.h"

namespace zip {

/// What is wrong with data that is not what was declared. TooLong is also said of packed bytes behind the
/// end of the deflate stream.
enum class Damage { Broken, TooShort, TooLong, ChecksumDiffers };

/// Reads data that lies stored or deflated somewhere, front to back and in constant memory. Never yields more
/// than the declared size, and checks everything before the last bytes are handed out: whoever reads exactly
/// the declared size has seen the end. Knows nothing of files; who holds it knows the names that a message
/// needs.
class DataReader {
 public:
  /// Reads the next `count` bytes as they lie there, or fewer if there are no more.
  using Source = std::function<std::size_t(void* into, std::size_t count)>;

  /// Size and checksum (CRC-32) are those that the unpacked data must have. The source is not called before
  /// the first read.
  DataReader(Source source, Method method, std::uint64_t size, std::uint32_t checksum);
  ~DataReader();
  DataReader(DataReader&&) noexcept;

  /// Up to `count` bytes; 0 only at the sound end. Throws a Damage, or what the source throws; then and ever
  /// after the same.
  std::size_t read(void* into, std::size_t count);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// Reads the data of one entry. Keeps the file open; the entry and its directory are no longer needed.
class EntryReader {
 public:
  EntryReader(std::shared_ptr<const fl::filesystem::InputFile> file, const Entry& entry);

  /// As DataReader, but raises opc::Exception, naming package and entry.
  std::size_t read(void* into, std::size_t count);

 private:
  std::shared_ptr<const fl::filesystem::InputFile> file_;
  std::string name_;
  DataReader data_;
};

/// All of an entry, for small ones. Raises as EntryReader, and if it is larger than `limit`.
std::string readWhole(const std::shared_ptr<const fl::filesystem::InputFile>& file, const Entry& entry,
                      std::uint64_t limit);

}  // namespace zip

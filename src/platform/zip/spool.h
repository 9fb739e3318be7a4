#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/zip/spool_storage.h"

namespace zip {

/// Takes the data of a new entry while it is written, deflates it at once and keeps the result in a storage
/// that it may share with others: in memory while the storage has some left, past that in its file, so that
/// memory does not grow with the data.
class Spool {
 public:
  explicit Spool(std::shared_ptr<SpoolStorage> storage);
  /// With a storage of its own in `folder` (UTF-8).
  explicit Spool(std::string folder);
  ~Spool();
  Spool(Spool&&) noexcept;
  Spool& operator=(Spool&&) noexcept;

  /// Raises opc::Exception if the temporary file cannot be written (full disk).
  void write(const void* data, std::size_t count);
  /// Ends the data. Nothing may be written after it; a second call does nothing.
  void finish();
  bool isFinished() const;

  /// For a writer that cannot give all of the data. As after a write that failed, nothing more can be
  /// written then and `finish` raises opc::Exception.
  void abandon() noexcept;
  /// Some of the data could not be kept, so what is here must not be taken for a whole entry.
  bool isBroken() const;

  std::uint64_t size() const;            ///< uncompressed bytes written so far
  std::uint64_t compressedSize() const;  ///< valid once finished
  std::uint32_t checksum() const;        ///< CRC-32 of the uncompressed bytes

  /// Reads deflated bytes by position, once finished.
  void readCompressed(std::uint64_t offset, void* into, std::size_t count) const;
  /// A run of deflated bytes in the storage's file.
  struct Extent {
    std::uint64_t begin, end;
  };
  /// The file the deflated bytes lie in, or -1 if they are in memory; and where in it, in their order.
  int descriptor() const;
  const std::vector<Extent>& extents() const;

  /// Reads the data back, uncompressed, front to back; checked as an entry's. The spool must outlive it.
  class Reader {
   public:
    explicit Reader(const Spool& spool);
    ~Reader();
    Reader(Reader&&) noexcept;
    std::size_t read(void* into, std::size_t count);

   private:
    struct State;
    std::unique_ptr<State> state_;
  };

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace zip

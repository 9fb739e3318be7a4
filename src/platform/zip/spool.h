#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/zip/entry_reader.h"

namespace zip {

class Deflater;

/// What several spools keep their data in together: a memory budget of 8 MiB and, past that, one unlinked
/// temporary file in the folder given, however many the spools are. Spools may be written in turns. Room in
/// the file is not used again before the storage goes.
class SpoolStorage {
 public:
  /// `folder` (UTF-8) takes the temporary file if one is needed.
  explicit SpoolStorage(std::string folder);
  ~SpoolStorage();

  const std::string& folder() const { return folder_; }

  /// Whether the budget has this much left, which is then taken from it.
  bool takeMemory(std::size_t count);
  /// For bytes that were taken and are no longer in memory.
  void giveMemoryBack(std::size_t count) { memory_ -= count; }

  /// Writes to the end of the file and gives the offset. Raises opc::Exception if the file cannot be created
  /// or written.
  std::uint64_t append(const char* data, std::size_t count);
  /// The file, or -1 while everything is in memory.
  int descriptor() const { return file_.get(); }

  /// One that is ready for new data; and the way back, so that the next small entry need not set aside and
  /// clear buffers many times its size.
  std::unique_ptr<Deflater> takeDeflater();
  void giveBack(std::unique_ptr<Deflater> deflater);

 private:
  std::string folder_;
  std::unique_ptr<Deflater> idle_;
  std::size_t memory_ = 0;
  fl::filesystem::Descriptor file_;
  std::uint64_t end_ = 0;
};

/// Takes the data of a new entry while it is written, packs it at once and keeps the result in a storage that
/// it may share with others: in memory while the storage has some left, past that in its file, so that memory
/// does not grow with the data. Small data is packed once it is whole: it is kept as it came if deflating
/// does not make it smaller.
class Spool {
 public:
  explicit Spool(std::shared_ptr<SpoolStorage> storage);
  /// With a storage of its own in `folder` (UTF-8).
  explicit Spool(std::string folder);
  ~Spool();
  Spool(Spool&&) noexcept;

  /// Raises opc::Exception if the temporary file cannot be written (full disk).
  void write(const void* data, std::size_t count);
  /// Ends the data. Nothing may be written after it; a second call does nothing.
  void finish();
  bool isFinished() const { return isFinished_; }

  /// For a writer that cannot give all of the data. As after a write that failed, nothing more can be
  /// written then and `finish` raises opc::Exception.
  void abandon() noexcept { isBroken_ = true; }
  /// Some of the data could not be kept, so what is here must not be taken for a whole entry.
  bool isBroken() const { return isBroken_; }

  std::uint64_t size() const { return size_; }          ///< uncompressed bytes written so far
  std::uint32_t checksum() const { return checksum_; }  ///< CRC-32 of the uncompressed bytes

  /// How the data is packed, and how long it then is. Valid once finished.
  Method method() const { return method_; }
  std::uint64_t packedSize() const { return packedSize_; }

  /// Reads exactly `count` packed bytes at an offset, once finished. Raises opc::Exception if they are not
  /// all there, or cannot be read.
  void readPacked(std::uint64_t offset, void* into, std::size_t count) const;
  /// A run of packed bytes in the storage's file.
  struct Extent {
    std::uint64_t begin, end;
  };
  /// The file the packed bytes lie in, or -1 if they are in memory; and where in it, in their order.
  int descriptor() const { return extents_.empty() ? -1 : storage_->descriptor(); }
  const std::vector<Extent>& extents() const { return extents_; }
  /// The packed bytes if they are in memory, else nothing.
  std::string_view memory() const { return {memory_.data(), memory_.size()}; }

  /// Reads the data back, uncompressed, front to back; checked as an entry's. The spool must outlive it and
  /// be finished. Raises opc::Exception if the temporary file no longer gives what was written.
  class Reader {
   public:
    /// Raises opc::Exception if the spool is not finished.
    explicit Reader(const Spool& spool);
    /// Up to `count` bytes; 0 at the end.
    std::size_t read(void* into, std::size_t count);

   private:
    const Spool* spool_;
    DataReader data_;
  };

 private:
  void deflate(const void* data, std::size_t count);
  void packSmall();
  void keep(const char* data, std::size_t count);
  bool keepInMemory(const char* data, std::size_t count);
  void store(const char* data, std::size_t count);

  std::shared_ptr<SpoolStorage> storage_;
  std::vector<char> waiting_;           // all of the data, until it is more than small
  std::unique_ptr<Deflater> deflater_;  // from then on, until it is finished
  std::vector<char> memory_;            // all of the packed data, or nothing once there are extents
  std::vector<Extent> extents_;
  Method method_ = Method::Deflate;
  std::uint64_t size_ = 0, packedSize_ = 0;
  std::uint32_t checksum_ = 0;
  bool isFinished_ = false, isBroken_ = false;
};

}  // namespace zip

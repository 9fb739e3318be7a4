#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/zip/limits.h"

namespace zip {

/// How the data of an entry is packed, with the numbers of APPNOTE 4.4.5. Archives that use others are
/// refused.
enum class Method : std::uint16_t { Stored = 0, Deflate = 8 };

/// One entry as the central directory gives it, checked against its local header. Its texts are valid as
/// long as the directory, also after that was moved.
struct Entry {
  std::string_view name;           ///< raw bytes, inside the directory's own buffer
  std::string_view centralRecord;  ///< the whole central record, likewise
  std::uint64_t compressedSize = 0, size = 0;
  std::uint64_t headerOffset = 0;  ///< of the local header, in the file
  std::uint64_t dataOffset = 0;    ///< of the first byte of data
  std::uint64_t endOffset = 0;     ///< past the data and its descriptor, where the next item may start
  std::uint32_t checksum = 0;      ///< CRC-32 of the uncompressed data
  Method method = Method::Stored;
  bool isSymbolicLink = false;
};

/// The audited directory of one archive. Nothing of it is trusted before all of it was checked: bounds,
/// overlaps, local headers against the directory (name, method, sizes, checksum; not times), data
/// descriptors, duplicate names, names with NUL or ".." segments, a second name in an extra field,
/// encryption, several disks, methods, ZIP64 records. The data itself is checked by whoever reads it, see
/// EntryReader.
///
/// Deliberately let pass, since sound archives do it: bytes before the first entry and between entries (as
/// long as offsets count from the start of the file), up to 16 bytes behind the end record (line ends added
/// in transport, padding to a block; lost when the archive is saved), padding in extra fields, data
/// descriptors in each of their four forms, entries said to be deflated that are empty and have no data.
/// Movable, not copyable: the entries point into one buffer.
class Directory {
 public:
  /// Raises PackageOpenFailed, with the identifier of the first rule that is broken; also when the file
  /// cannot be read.
  static Directory read(const fl::filesystem::InputFile& file, const Limits& limits = {});

  /// In the order of the central directory.
  const std::vector<Entry>& entries() const { return entries_; }
  /// The archive's comment: raw bytes, at most 65,535.
  std::string_view comment() const { return comment_; }
  /// Where the central directory starts: new entries may be appended from here on in a clone.
  std::uint64_t offset() const { return offset_; }

 private:
  Directory() = default;
  static Directory audit(const fl::filesystem::InputFile& file, const Limits& limits);
  void readRecords(const fl::filesystem::InputFile& file, std::uint64_t bytes, std::uint64_t declaredEntries);

  std::unique_ptr<char[]> records_;
  std::vector<Entry> entries_;
  std::string comment_;
  std::uint64_t offset_ = 0;
};

}  // namespace zip

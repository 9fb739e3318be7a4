#include "platform/zip/writer.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/records.h"

// An archive is written in one pass. Local headers and data go to the file as the entries come, while the
// central records (APPNOTE 4.3.12) are collected in memory and follow at the end.
//
// Entries that come from an older archive keep their bytes and their record, in which only the offset is set
// anew: what other programs wrote there, and this one does not understand, survives. New entries have the
// plainest form: sizes and checksum are known before the header is written, so there is no data descriptor,
// and no extra field but that of ZIP64, where numbers do not fit into 32 bits (4.5.3).

namespace zip {
namespace {

using fl::filesystem::systemReason;
using opc::raise;

constexpr std::size_t kLongestText = 0xFFFF;
constexpr std::size_t kKernelPiece = std::size_t{1} << 30;
constexpr std::size_t kMemoryPiece = std::size_t{256} << 10;

// ---- The records of new entries.

constexpr std::uint16_t kMadeByUnix = 3 << 8;
// Ten times the version of the format that a reader needs: 1.0, 2.0 for deflate, 4.5 for ZIP64.
constexpr std::uint16_t kPlainVersion = 10, kDeflateVersion = 20, kZip64Version = 45;

/// Now, as ZIP keeps a moment: local time in steps of two seconds, from 1980 to 2107; the date in the upper
/// half.
std::uint32_t dosTimeNow() {
  const time_t now = ::time(nullptr);
  struct tm local {};
  ::localtime_r(&now, &local);
  if (local.tm_year < 80) return std::uint32_t{1 << 5 | 1} << 16;
  const int date = std::min(local.tm_year - 80, 127) << 9 | (local.tm_mon + 1) << 5 | local.tm_mday;
  const int time = local.tm_hour << 11 | local.tm_min << 5 | std::min(local.tm_sec, 59) / 2;
  return static_cast<std::uint32_t>(date) << 16 | static_cast<std::uint32_t>(time);
}

/// What the headers of a new entry say.
struct NewEntry {
  std::string_view name;
  Method method;
  std::uint32_t modified, checksum;
  std::uint64_t size, compressedSize, headerOffset;
};

/// The largest 32-bit number counts as too large, since it says that the true one stands elsewhere.
bool isLarge(std::uint64_t number) { return number >= kInZip64Field; }
std::uint32_t narrowed(std::uint64_t number) {
  return isLarge(number) ? kInZip64Field : static_cast<std::uint32_t>(number);
}

std::string zip64Field(std::string_view numbers) {
  std::string field;
  append(field, kZip64FieldId);
  append(field, static_cast<std::uint16_t>(numbers.size()));
  return field.append(numbers);
}

/// Either both sizes stand in the ZIP64 field or none does: a local header may not hold only one (APPNOTE
/// 4.5.3).
bool hasLargeSize(const NewEntry& entry) { return isLarge(entry.size) || isLarge(entry.compressedSize); }

std::string largeSizes(const NewEntry& entry) {
  std::string sizes;
  if (!hasLargeSize(entry)) return sizes;
  append(sizes, entry.size);
  append(sizes, entry.compressedSize);
  return sizes;
}

/// The run of numbers that both headers of an entry share, up to the length of its extra fields.
void appendCommon(std::string& to, const NewEntry& entry, const std::string& extra) {
  const std::uint16_t version = entry.method == Method::Deflate ? kDeflateVersion : kPlainVersion;
  append(to, extra.empty() ? version : kZip64Version);
  // Names are UTF-8. Only one that is not ASCII has to say so.
  append(to, isAscii(entry.name) ? std::uint16_t{0} : kUtf8Name);
  append(to, static_cast<std::uint16_t>(entry.method));
  append(to, entry.modified);
  append(to, entry.checksum);
  append(to, hasLargeSize(entry) ? kInZip64Field : static_cast<std::uint32_t>(entry.compressedSize));
  append(to, hasLargeSize(entry) ? kInZip64Field : static_cast<std::uint32_t>(entry.size));
  append(to, static_cast<std::uint16_t>(entry.name.size()));
  append(to, static_cast<std::uint16_t>(extra.size()));
}

std::string localHeader(const NewEntry& entry) {
  const std::string extra = hasLargeSize(entry) ? zip64Field(largeSizes(entry)) : std::string();
  std::string header;
  append(header, kLocalSignature);
  appendCommon(header, entry, extra);
  header.append(entry.name).append(extra);
  return header;  // what append gives would be copied
}

void appendCentralRecord(std::string& directory, const NewEntry& entry) {
  std::string numbers = largeSizes(entry);
  // Behind the sizes, and on its own if these are small.
  if (isLarge(entry.headerOffset)) append(numbers, entry.headerOffset);
  const std::string extra = numbers.empty() ? std::string() : zip64Field(numbers);

  append(directory, kCentralSignature);
  append(directory,
         static_cast<std::uint16_t>(kMadeByUnix | (extra.empty() ? kDeflateVersion : kZip64Version)));
  appendCommon(directory, entry, extra);
  append(directory, std::uint16_t{0});  // no comment
  append(directory, std::uint16_t{0});  // first disk
  append(directory, std::uint16_t{0});  // no internal attributes
  // For programs that unpack the archive: a file that its owner may change. The record says Unix above, so
  // that this counts as a mode.
  append(directory, static_cast<std::uint32_t>(S_IFREG | 0644) << 16);
  append(directory, narrowed(entry.headerOffset));
  directory.append(entry.name).append(extra);
}

// ---- The records of entries that are kept.

/// The extra fields of a central record without their ZIP64 field, and where that one stood.
struct OtherFields {
  std::string bytes;
  std::size_t zip64At = 0;
  bool hadZip64 = false;
};

/// What follows the last whole field, such as padding of up to three bytes, stays at the end.
OtherFields withoutZip64(std::string_view extra) {
  OtherFields others;
  std::size_t at = 0;
  while (extra.size() - at >= 4) {
    const std::size_t length = std::min<std::size_t>(4 + load16(extra.data() + at + 2), extra.size() - at);
    const bool isZip64 = !others.hadZip64 && load16(extra.data() + at) == kZip64FieldId;
    if (isZip64) {
      others.hadZip64 = true;
      others.zip64At = others.bytes.size();
    } else {
      others.bytes.append(extra.substr(at, length));
    }
    at += length;
  }
  others.bytes.append(extra.substr(at));
  return others;
}

/// The ZIP64 numbers of a record whose offset stands there too: of the others those that refer to it.
std::string zip64WithOffset(const Entry& entry, std::uint64_t offset) {
  const char* record = entry.centralRecord.data();
  std::string numbers;
  if (load32(record + 24) == kInZip64Field) append(numbers, entry.size);
  if (load32(record + 20) == kInZip64Field) append(numbers, entry.compressedSize);
  append(numbers, offset);
  if (load16(record + 34) == kInZip64Record) append(numbers, std::uint32_t{0});
  return zip64Field(numbers);
}

/// The ZIP64 field stands where the old one stood, at the front if there was none. False if there is no
/// room.
bool appendRecordWithLargeOffset(std::string& directory, const Entry& entry, std::uint64_t offset) {
  std::string_view record = entry.centralRecord;
  const std::size_t extraAt = kCentralSize + load16(record.data() + 28);
  const std::size_t extraSize = load16(record.data() + 30);
  OtherFields extra = withoutZip64(record.substr(extraAt, extraSize));
  extra.bytes.insert(extra.zip64At, zip64WithOffset(entry, offset));
  if (extra.bytes.size() > kLongestText) return false;

  std::string moved(record.substr(0, extraAt));
  // Readers that know no ZIP64 are told to keep away. The upper byte names a system and stays.
  const std::uint16_t version = load16(moved.data() + 6);
  if ((version & 0xFF) < kZip64Version) {
    store(&moved[6], static_cast<std::uint16_t>((version & 0xFF00) | kZip64Version));
  }
  store(&moved[30], static_cast<std::uint16_t>(extra.bytes.size()));
  store(&moved[42], kInZip64Field);
  directory.append(moved).append(extra.bytes).append(record.substr(extraAt + extraSize));
  return true;
}

/// Appends the central record of an entry whose local header now lies at `offset`. Everything else that it
/// says survives byte for byte. False, and nothing appended, if its extra fields have no room for a ZIP64
/// offset.
bool appendMovedRecord(std::string& directory, const Entry& entry, std::uint64_t offset) {
  // A record that keeps its offset in the ZIP64 field goes on doing so, also where it would no longer have
  // to.
  const bool offsetIsInZip64 = load32(entry.centralRecord.data() + 42) == kInZip64Field;
  if (offsetIsInZip64 || isLarge(offset)) return appendRecordWithLargeOffset(directory, entry, offset);
  const std::size_t start = directory.size();
  directory.append(entry.centralRecord);
  store(&directory[start + 42], static_cast<std::uint32_t>(offset));
  return true;
}

// ---- The end.

struct DirectoryExtent {
  std::uint64_t entries, offset, size;
};

std::string zip64End(const DirectoryExtent& directory) {
  std::string end;
  append(end, kZip64EndSignature);
  append(end, std::uint64_t{kZip64EndSize - 12});  // what follows of this record
  append(end, static_cast<std::uint16_t>(kMadeByUnix | kZip64Version));
  append(end, kZip64Version);
  append(end, std::uint64_t{0});  // this disk, and the one with the directory
  append(end, directory.entries);
  append(end, directory.entries);
  append(end, directory.size);
  append(end, directory.offset);

  append(end, kZip64LocatorSignature);
  append(end, std::uint32_t{0});
  append(end, directory.offset + directory.size);
  append(end, std::uint32_t{1});  // disks altogether
  return end;
}

/// What follows the directory: ZIP64 records if a number asks for them, the end record and the comment.
std::string directoryEnd(const DirectoryExtent& directory, std::string_view comment) {
  // A count of 0xFFFF has to go there too, because that number refers to it.
  const bool isZip64 =
      directory.entries >= kInZip64Record || isLarge(directory.offset) || isLarge(directory.size);
  std::string end = isZip64 ? zip64End(directory) : std::string();
  const auto entries = static_cast<std::uint16_t>(std::min<std::uint64_t>(directory.entries, kInZip64Record));
  append(end, kEndSignature);
  append(end, std::uint32_t{0});  // this disk, and the one with the directory
  append(end, entries);
  append(end, entries);
  append(end, narrowed(directory.size));
  append(end, narrowed(directory.offset));
  append(end, static_cast<std::uint16_t>(comment.size()));
  return end.append(comment);
}

// ---- The bytes.

/// Whether reading and writing may succeed where the kernel would not copy: other file systems, old kernels,
/// and sandboxes that know no copying.
bool isKernelCopyRefused(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM;
}

}  // namespace

Writer::Writer(int descriptor, std::string path, std::uint64_t offset)
    : descriptor_(descriptor), path_(std::move(path)), offset_(offset), now_(dosTimeNow()) {}

void Writer::copy(const fl::filesystem::InputFile& from, const Entry& entry) {
  // Entries that follow each other in the original are only noted down, and copied in one call later.
  const bool isNeighbour =
      pending_ && pending_->descriptor == from.descriptor() && pending_->end == entry.headerOffset;
  if (!isNeighbour) {
    copyPending();
    pending_ = Range{from.descriptor(), entry.headerOffset, entry.headerOffset};
  }
  appendRecord(entry, offset_);
  pending_->end = entry.endOffset;
  offset_ += entry.endOffset - entry.headerOffset;
}

void Writer::keep(const Entry& entry) { appendRecord(entry, entry.headerOffset); }

void Writer::appendRecord(const Entry& entry, std::uint64_t offset) {
  if (!appendMovedRecord(directory_, entry, offset)) raise("opc:save:RecordTooLong", path_, entry.name);
  ++entries_;
}

void Writer::add(std::string_view name, const Spool& content) {
  if (name.size() > kLongestText) raise("opc:save:NameTooLong", path_, name.substr(0, 80));
  if (!content.isFinished()) raise("opc:save:ContentNotFinished", path_, name);
  copyPending();
  // What deflating has made longer is stored after all.
  const bool isPacked = content.method() == Method::Stored || content.packedSize() < content.size();
  const NewEntry entry{.name = name,
                       .method = isPacked ? content.method() : Method::Stored,
                       .modified = now_,
                       .checksum = content.checksum(),
                       .size = content.size(),
                       .compressedSize = isPacked ? content.packedSize() : content.size(),
                       .headerOffset = offset_};
  write(localHeader(entry));
  if (isPacked) {
    writePacked(content);
  } else {
    writeInflated(content);
  }
  appendCentralRecord(directory_, entry);
  ++entries_;
}

void Writer::finish(std::string_view comment) {
  if (comment.size() > kLongestText) raise("opc:save:CommentTooLong", path_);
  copyPending();
  const DirectoryExtent extent{entries_, offset_, directory_.size()};
  write(directory_);
  write(directoryEnd(extent, comment));
  flush();
  // A clone may be longer than what was written: its old directory lay here.
  if (::ftruncate(descriptor_, static_cast<off_t>(offset_)) != 0) {
    raise("opc:save:CannotWrite", path_, systemReason(errno));
  }
}

void Writer::copyPending() {
  if (!pending_) return;
  const Range range = *pending_;
  pending_.reset();
  // `copy` has counted these bytes already; writing them counts them again.
  offset_ -= range.end - range.begin;
  copyRange(range);
}

void Writer::copyRange(Range range) {
  flush();
  while (range.begin < range.end) {
    const std::uint64_t copied = copyInKernel(range);
    // What the kernel declines once it will decline for the rest.
    if (copied == 0) return copyThroughMemory(range);
    range.begin += copied;
    offset_ += copied;
  }
}

/// Copies some of the range. 0 where the kernel will not, or sees the end of the file, which only a read
/// tells for certain.
std::uint64_t Writer::copyInKernel(const Range& range) {
  auto from = static_cast<off64_t>(range.begin), to = static_cast<off64_t>(offset_);
  const std::size_t piece = std::min<std::uint64_t>(range.end - range.begin, kKernelPiece);
  ssize_t copied = 0;
  do {
    copied = ::copy_file_range(range.descriptor, &from, descriptor_, &to, piece, 0);
  } while (copied < 0 && errno == EINTR);
  if (copied >= 0) return static_cast<std::uint64_t>(copied);
  if (isKernelCopyRefused(errno)) return 0;
  raise("opc:save:CannotWrite", path_, systemReason(errno));
}

void Writer::copyThroughMemory(Range range) {
  std::vector<char> buffer(std::min<std::uint64_t>(range.end - range.begin, kMemoryPiece));
  while (range.begin < range.end) {
    const std::size_t piece = std::min<std::uint64_t>(range.end - range.begin, buffer.size());
    const auto result = fl::filesystem::readAt(range.descriptor, range.begin, buffer.data(), piece);
    if (result.error != 0) raise("opc:save:CannotReadOriginal", path_, systemReason(result.error));
    // Its length was checked when it was opened, so somebody has cut it off since.
    if (result.count < piece) raise("opc:save:OriginalShrank", path_);
    write({buffer.data(), piece});
    range.begin += piece;
  }
}

void Writer::writePacked(const Spool& content) {
  if (content.descriptor() < 0) return write(content.memory());
  for (const auto& [begin, end] : content.extents()) copyRange({content.descriptor(), begin, end});
}

void Writer::writeInflated(const Spool& content) {
  Spool::Reader reader(content);
  std::vector<char> buffer(std::clamp<std::uint64_t>(content.size(), 1, kMemoryPiece));
  while (const std::size_t count = reader.read(buffer.data(), buffer.size())) write({buffer.data(), count});
}

void Writer::write(std::string_view bytes) {
  // Ten thousand small entries are a few calls so, instead of two each.
  if (gathered_.size() + bytes.size() > kMemoryPiece) flush();
  gathered_.append(bytes);
  offset_ += bytes.size();
}

void Writer::flush() {
  const std::uint64_t begin = offset_ - gathered_.size();
  const int error = fl::filesystem::writeAt(descriptor_, begin, gathered_.data(), gathered_.size());
  if (error != 0) raise("opc:save:CannotWrite", path_, systemReason(error));
  gathered_.clear();
}

}  // namespace zip

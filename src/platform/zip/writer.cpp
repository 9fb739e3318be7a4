#include "platform/zip/writer.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/files/descriptor.h"

namespace zip {
using opc::raise;

namespace {

constexpr std::size_t kLongestText = 0xFFFF;
constexpr std::size_t kKernelPiece = std::size_t{1} << 30;
constexpr std::size_t kMemoryPiece = std::size_t{256} << 10;

/// Whether reading and writing may succeed where the kernel would not copy: other file systems, old kernels,
/// and sandboxes that know no copying.
bool isKernelCopyRefused(int error) {
  return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == EPERM;
}

}  // namespace

Writer::Writer(int descriptor, std::string path, std::uint64_t offset)
    : descriptor_(descriptor), path_(std::move(path)), offset_(offset), now_(dosTimeNow()) {}

void Writer::copy(const fl::filesystem::InputFile& from, const Entry& entry) {
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
  const bool isSmaller = content.compressedSize() < content.size();
  const NewEntry entry{.name = name,
                       .method = isSmaller ? Method::Deflate : Method::Stored,
                       .modified = now_,
                       .checksum = content.checksum(),
                       .size = content.size(),
                       .compressedSize = isSmaller ? content.compressedSize() : content.size(),
                       .headerOffset = offset_};
  write(localHeader(entry));
  if (isSmaller) {
    writeDeflated(content);
  } else {
    writeInflated(content);
  }
  appendCentralRecord(directory_, entry);
  ++entries_;
}

void Writer::finish(std::string_view comment) {
  if (comment.size() > kLongestText) raise("opc:save:CommentTooLong", path_);
  copyPending();
  const DirectoryPlace place{entries_, offset_, directory_.size()};
  write(directory_);
  write(directoryEnd(place, comment));
  if (::ftruncate(descriptor_, static_cast<off_t>(offset_)) != 0) {
    raise("opc:save:CannotWrite", path_, fl::filesystem::systemReason(errno));
  }
}

void Writer::copyPending() {
  if (!pending_) return;
  const Range range = *pending_;
  pending_.reset();
  offset_ -= range.end - range.begin;
  copyRange(range);
}

void Writer::copyRange(Range range) {
  while (range.begin < range.end) {
    const std::uint64_t copied = copyInKernel(range);
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
  raise("opc:save:CannotWrite", path_, fl::filesystem::systemReason(errno));
}

void Writer::copyThroughMemory(Range range) {
  std::vector<char> buffer(std::min<std::uint64_t>(range.end - range.begin, kMemoryPiece));
  while (range.begin < range.end) {
    const std::size_t piece = std::min<std::uint64_t>(range.end - range.begin, buffer.size());
    const fl::filesystem::ReadResult result =
        fl::filesystem::readAt(range.descriptor, range.begin, buffer.data(), piece);
    if (result.error != 0)
      raise("opc:save:CannotReadOriginal", path_, fl::filesystem::systemReason(result.error));
    if (result.count < piece) raise("opc:save:OriginalShrank", path_);
    write({buffer.data(), piece});
    range.begin += piece;
  }
}

void Writer::writeDeflated(const Spool& content) {
  if (content.descriptor() >= 0) {
    for (const auto& [begin, end] : content.extents()) copyRange({content.descriptor(), begin, end});
    return;
  }
  std::vector<char> bytes(content.compressedSize());  // small: what is large lies in a file
  content.readCompressed(0, bytes.data(), bytes.size());
  write({bytes.data(), bytes.size()});
}

void Writer::writeInflated(const Spool& content) {
  Spool::Reader reader(content);
  std::vector<char> buffer(std::clamp<std::uint64_t>(content.size(), 1, kMemoryPiece));
  while (const std::size_t count = reader.read(buffer.data(), buffer.size())) write({buffer.data(), count});
}

void Writer::write(std::string_view bytes) {
  const int error = fl::filesystem::writeAt(descriptor_, offset_, bytes.data(), bytes.size());
  if (error != 0) raise("opc:save:CannotWrite", path_, fl::filesystem::systemReason(error));
  offset_ += bytes.size();
}

}  // namespace zip

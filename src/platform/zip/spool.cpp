#include "platform/zip/spool.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <isa-l.h>
#include <stdlib.h>
#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/wide_registers.h"

namespace zip {
namespace {

using fl::filesystem::Descriptor;
using fl::filesystem::systemReason;
using opc::raise;

// Most new parts are small: with this budget they never touch the disk.
constexpr std::size_t kMemory = std::size_t{8} << 20;

// Data up to this size is gathered and deflated in one call, which is faster and knows whether it was worth
// it.
constexpr std::size_t kSmall = std::size_t{64} << 10;

// So little is deflated by the format's own code. To find one that suits it better takes twenty times as
// long, and the code would have to be written down too.
constexpr std::size_t kTiny = 64;

/// A file that has no name, so that nothing is left whatever becomes of the process. O_EXCL also keeps it
/// from being given one later.
Descriptor openUnlinked(const std::string& folder) {
  Descriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL, 0600));
  if (file) return file;
  // Not every file system knows such files.
  std::string name = folder + "/.spool-XXXXXX";
  file = Descriptor(::mkostemp(name.data(), O_CLOEXEC));
  if (!file) raise("opc:spool:CannotCreate", folder, systemReason(errno));
  ::unlink(name.c_str());
  return file;
}

}  // namespace

/// Makes raw streams, one after the other, in constant memory.
class Deflater {
 public:
  /// Takes deflated bytes as they come out; may raise.
  using Sink = std::function<void(const char* data, std::size_t count)>;

  Deflater() { isal_deflate_init(&stream_); }

  /// Deflates data that is whole and not more than `kSmall`. Nothing if it would not become smaller; else
  /// valid until the next call.
  std::optional<std::string_view> deflateSmall(const void* data, std::size_t count) {
    if (count == 0) return std::nullopt;
    start();
    if (count <= kTiny) {
      stream_.level = 0;
      isal_deflate_set_hufftables(&stream_, nullptr, IGZIP_HUFFTABLE_STATIC);
    }
    stream_.end_of_stream = 1;
    stream_.next_in = static_cast<std::uint8_t*>(const_cast<void*>(data));
    stream_.avail_in = static_cast<std::uint32_t>(count);
    stream_.next_out = output_.get();
    stream_.avail_out = static_cast<std::uint32_t>(count - 1);
    const bool isSmaller = isal_deflate(&stream_) == COMP_OK && stream_.internal_state.state == ZSTATE_END;
    releaseWideRegisters();
    if (!isSmaller) return std::nullopt;
    return std::string_view(reinterpret_cast<const char*>(output_.get()), stream_.total_out);
  }

  /// Makes it ready for a stream that comes piece by piece.
  void start() {
    isal_deflate_reset(&stream_);
    stream_.level = kLevel;
    stream_.level_buf = levelBuffer_.get();
    stream_.level_buf_size = kLevelBuffer;
    stream_.flush = NO_FLUSH;
    stream_.end_of_stream = 0;
  }

  void deflate(const void* data, std::size_t count, const Sink& sink) {
    // The library does not write to its input, only its signature says so.
    auto* from = static_cast<std::uint8_t*>(const_cast<void*>(data));
    while (count > 0) {
      const std::size_t piece = std::min(count, kLargestInput);
      stream_.next_in = from;
      stream_.avail_in = static_cast<std::uint32_t>(piece);
      while (stream_.avail_in > 0) step(sink);
      from += piece;
      count -= piece;
    }
  }

  /// Ends the stream: what was held back comes out.
  void finish(const Sink& sink) {
    stream_.avail_in = 0;
    stream_.end_of_stream = 1;
    // What is held back may be more than one output buffer.
    while (stream_.internal_state.state != ZSTATE_END) step(sink);
  }

 private:
  // Of the library's levels this one comes closest to zlib's usual size on text; the one above it is slower
  // and on text that repeats itself even larger.
  static constexpr std::size_t kLevel = 2, kLevelBuffer = ISAL_DEF_LVL2_DEFAULT;
  static constexpr std::size_t kOutputBuffer = kSmall;
  static constexpr std::size_t kLargestInput = std::size_t{1} << 30;  // the library counts in 32 bits

  /// One call into the library; whatever came out goes to the sink.
  void step(const Sink& sink) {
    const std::uint32_t inputBefore = stream_.avail_in;
    const auto stateBefore = stream_.internal_state.state;
    stream_.next_out = output_.get();
    stream_.avail_out = kOutputBuffer;
    const int status = isal_deflate(&stream_);
    releaseWideRegisters();
    const std::size_t produced = kOutputBuffer - stream_.avail_out;
    const bool isStuck =
        produced == 0 && stream_.avail_in == inputBefore && stream_.internal_state.state == stateBefore;
    // Without the second condition a library that stands still would be called for ever.
    if (status != COMP_OK || isStuck) throw std::logic_error("the deflate library refused a sound stream");
    if (produced > 0) sink(reinterpret_cast<const char*>(output_.get()), produced);
  }

  isal_zstream stream_;
  std::unique_ptr<std::uint8_t[]> levelBuffer_{new std::uint8_t[kLevelBuffer]};
  std::unique_ptr<std::uint8_t[]> output_{new std::uint8_t[kOutputBuffer]};
};

SpoolStorage::SpoolStorage(std::string folder) : folder_(folder.empty() ? "." : std::move(folder)) {}
SpoolStorage::~SpoolStorage() = default;

std::unique_ptr<Deflater> SpoolStorage::takeDeflater() {
  return idle_ ? std::move(idle_) : std::make_unique<Deflater>();
}

void SpoolStorage::giveBack(std::unique_ptr<Deflater> deflater) { idle_ = std::move(deflater); }

bool SpoolStorage::takeMemory(std::size_t count) {
  // Not as a sum, which could wrap around.
  if (count > kMemory - memory_) return false;
  memory_ += count;
  return true;
}

std::uint64_t SpoolStorage::append(const char* data, std::size_t count) {
  if (!file_) file_ = openUnlinked(folder_);
  const int error = fl::filesystem::writeAt(file_.get(), end_, data, count);
  if (error != 0) raise("opc:spool:CannotWrite", folder_, systemReason(error));
  // Only now: the next write goes over what a failed one may have left.
  end_ += count;
  return end_ - count;
}

Spool::Spool(std::shared_ptr<SpoolStorage> storage) : storage_(std::move(storage)) {}
Spool::Spool(std::string folder) : Spool(std::make_shared<SpoolStorage>(std::move(folder))) {}
Spool::~Spool() {
  if (storage_) storage_->giveMemoryBack(memory_.size());  // not if it was moved away
}
Spool::Spool(Spool&&) noexcept = default;

void Spool::write(const void* data, std::size_t count) {
  const bool mayGoOn = !isBroken_ && !isFinished_;
  // Until all of it is kept: what is half written must never be taken for a whole entry.
  isBroken_ = true;
  if (!mayGoOn) raise("opc:spool:Ended", storage_->folder());
  if (!deflater_ && count <= kSmall - waiting_.size()) {
    const char* const bytes = static_cast<const char*>(data);
    waiting_.insert(waiting_.end(), bytes, bytes + count);
  } else {
    deflate(data, count);
  }
  checksum_ = crc32_gzip_refl(checksum_, static_cast<const unsigned char*>(data), count);
  releaseWideRegisters();
  size_ += count;
  isBroken_ = false;
}

void Spool::deflate(const void* data, std::size_t count) {
  const auto sink = [&](const char* out, std::size_t size) { keep(out, size); };
  if (!deflater_) {
    deflater_ = storage_->takeDeflater();
    deflater_->start();
    const std::vector<char> first = std::exchange(waiting_, {});
    deflater_->deflate(first.data(), first.size(), sink);
  }
  deflater_->deflate(data, count, sink);
}

void Spool::finish() {
  if (isBroken_) raise("opc:spool:Ended", storage_->folder());
  if (isFinished_) return;
  isBroken_ = true;
  if (deflater_) {
    deflater_->finish([&](const char* out, std::size_t size) { keep(out, size); });
    // A growing vector sets aside more than the budget knows of.
    memory_.shrink_to_fit();
  } else {
    deflater_ = storage_->takeDeflater();
    packSmall();
  }
  isBroken_ = false;
  isFinished_ = true;
  storage_->giveBack(std::move(deflater_));
}

void Spool::packSmall() {
  const std::vector<char> data = std::exchange(waiting_, {});
  const auto deflated = deflater_->deflateSmall(data.data(), data.size());
  if (!deflated) method_ = Method::Stored;
  deflated ? keep(deflated->data(), deflated->size()) : keep(data.data(), data.size());
}

void Spool::keep(const char* data, std::size_t count) {
  if (!keepInMemory(data, count)) store(data, count);
  packedSize_ += count;
}

bool Spool::keepInMemory(const char* data, std::size_t count) {
  if (!extents_.empty()) return false;
  // An allocation that fails only leaves the budget smaller.
  if (storage_->takeMemory(count)) {
    memory_.insert(memory_.end(), data, data + count);
    return true;
  }
  // All of the data lies in one or the other, so what is in memory goes to the file first.
  if (memory_.empty()) return false;
  store(memory_.data(), memory_.size());
  storage_->giveMemoryBack(memory_.size());
  memory_ = {};
  return false;
}

void Spool::store(const char* data, std::size_t count) {
  const std::uint64_t begin = storage_->append(data, count);
  // Other spools may have written to the same file since; only then does a new extent start.
  if (!extents_.empty() && extents_.back().end == begin) {
    extents_.back().end += count;
  } else {
    extents_.push_back({begin, begin + count});
  }
}

void Spool::readPacked(std::uint64_t offset, void* into, std::size_t count) const {
  if (count == 0) return;
  const bool isInside = offset <= packedSize_ && count <= packedSize_ - offset;
  if (!isFinished() || !isInside) raise("opc:spool:Damaged", storage_->folder());
  if (extents_.empty()) {
    std::memcpy(into, memory_.data() + offset, count);
    return;
  }
  auto* to = static_cast<char*>(into);
  for (const auto& [begin, end] : extents_) {
    // From here on the offset counts from the start of this extent.
    const std::uint64_t length = end - begin;
    if (offset >= length) {
      offset -= length;
      continue;
    }
    const std::size_t piece = std::min<std::uint64_t>(count, length - offset);
    const auto result = fl::filesystem::readAt(descriptor(), begin + offset, to, piece);
    if (result.error != 0) raise("opc:spool:CannotRead", storage_->folder(), systemReason(result.error));
    if (result.count < piece) raise("opc:spool:Damaged", storage_->folder());
    to += piece;
    count -= piece;
    offset = 0;
    if (count == 0) return;
  }
}

Spool::Reader::Reader(const Spool& spool)
    : spool_(&spool),
      data_(
          [&spool, offset = std::uint64_t{0}](void* into, std::size_t count) mutable {
            const std::size_t piece = std::min<std::uint64_t>(count, spool.packedSize() - offset);
            spool.readPacked(offset, into, piece);
            offset += piece;
            return piece;
          },
          spool.method(), spool.size(), spool.checksum()) {
  if (!spool.isFinished()) raise("opc:spool:NotFinished", spool.storage_->folder());
}

std::size_t Spool::Reader::read(void* into, std::size_t count) {
  try {
    return data_.read(into, count);
  } catch (const Damage) {
    raise("opc:spool:Damaged", spool_->storage_->folder());
  }
}

}  // namespace zip

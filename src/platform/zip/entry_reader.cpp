#include "platform/zip/entry_reader.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <isa-l.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/wide_registers.h"

// Size and checksum of an entry are claims until all of its data was unpacked, and the packed data may come
// from anybody. So the output is cut at the declared size, whatever the stream would still give, and the
// whole is judged together with the last declared byte, not at a further read that a caller might never
// make.

namespace zip {
namespace {

using fl::filesystem::InputFile;
using opc::raise;

// Packed bytes that are taken at once, and unpacked bytes that one call gives at most: these are still in
// the processor's cache when their checksum is taken, and fit the 32 bits in which the library counts.
constexpr std::size_t kInputStep = std::size_t{64} << 10;
constexpr std::size_t kOutputStep = std::size_t{256} << 10;

/// Inflates one raw deflate stream.
class Inflater {
 public:
  explicit Inflater(const DataReader::Source& source) : source_(source) { isal_inflate_init(&state_); }

  /// Up to `count` bytes, which must not be 0: with no room the end of the stream would go unnoticed. 0 at
  /// the end of the stream.
  std::size_t inflate(void* into, std::size_t count) {
    for (;;) {
      // Called before new input is taken: what it holds back from the last input may fill this output too.
      state_.next_out = static_cast<std::uint8_t*>(into);
      state_.avail_out = static_cast<std::uint32_t>(count);
      if (isal_inflate(&state_) != ISAL_DECOMP_OK) throw Damage::Broken;
      const std::size_t produced = count - state_.avail_out;
      if (produced != 0) return produced;
      if (state_.block_state == ISAL_BLOCK_FINISH) return 0;
      // The library reports no error on a stream it cannot go on with; standing still with input at hand is
      // one.
      if (state_.avail_in != 0) throw Damage::Broken;
      state_.next_in = input_.get();
      state_.avail_in = static_cast<std::uint32_t>(source_(input_.get(), kInputStep));
      if (state_.avail_in == 0) throw Damage::TooShort;
    }
  }

  /// At the end of the stream: whether bytes lie behind it. The library reads ahead into a register; whole
  /// bytes left in there were not part of the stream either.
  bool hasMoreInput() {
    return state_.avail_in != 0 || state_.read_in_length >= 8 || source_(input_.get(), 1) != 0;
  }

 private:
  const DataReader::Source& source_;
  inflate_state state_;
  std::unique_ptr<std::uint8_t[]> input_ = std::make_unique_for_overwrite<std::uint8_t[]>(kInputStep);
};

/// Takes `count` bytes of the entry's data from the file.
DataReader::Source dataOf(const InputFile& file, const Entry& entry) {
  return
      [&file, next = entry.dataOffset, left = entry.compressedSize](void* into, std::size_t count) mutable {
        const std::size_t step = std::min<std::uint64_t>(count, left);
        file.read(next, into, step);
        next += step;
        left -= step;
        return step;
      };
}

/// Some programs call nothing at all deflated, although even an empty stream has bytes.
Method methodOfData(const Entry& entry) {
  return entry.size == 0 && entry.compressedSize == 0 ? Method::Stored : entry.method;
}

}  // namespace

struct DataReader::State {
  State(Source from, Method method, std::uint64_t size, std::uint32_t checksum)
      : source(std::move(from)), left(size), declaredChecksum(checksum) {
    if (method == Method::Deflate) inflater = std::make_unique<Inflater>(source);
  }

  std::size_t read(void* into, std::size_t count) {
    std::size_t got = 0;
    if (left != 0) {
      const std::size_t step = std::min({std::uint64_t{count}, left, std::uint64_t{kOutputStep}});
      got = inflater ? inflater->inflate(into, step) : source(into, step);
      if (got == 0) throw Damage::TooShort;
    }
    actualChecksum = crc32_gzip_refl(actualChecksum, static_cast<const unsigned char*>(into), got);
    left -= got;
    if (left == 0 && !isAtSoundEnd) checkEnd();
    releaseWideRegisters();
    return got;
  }

  /// All declared bytes came out; the data must have nothing more to say, and end where its bytes do.
  void checkEnd() {
    char surplus = 0;
    // The end of a deflate stream shows only when one byte more is asked for. That byte must not come.
    const bool hasMore =
        inflater ? inflater->inflate(&surplus, 1) != 0 || inflater->hasMoreInput() : source(&surplus, 1) != 0;
    if (hasMore) throw Damage::TooLong;
    if (actualChecksum != declaredChecksum) throw Damage::ChecksumDiffers;
    isAtSoundEnd = true;
  }

  const Source source;
  std::uint64_t left;  ///< bytes that were not handed out yet
  std::uint32_t declaredChecksum, actualChecksum = 0;
  bool isAtSoundEnd = false;
  std::unique_ptr<Inflater> inflater;  // only where it is needed: it is larger than most parts
  std::exception_ptr failure;
};

DataReader::DataReader(Source source, Method method, std::uint64_t size, std::uint32_t checksum)
    : state_(std::make_unique<State>(std::move(source), method, size, checksum)) {}
DataReader::~DataReader() = default;
DataReader::DataReader(DataReader&&) noexcept = default;

std::size_t DataReader::read(void* into, std::size_t count) {
  // A reader that failed has lost its position. Whoever tries again must not take what follows for the rest.
  if (state_->failure) std::rethrow_exception(state_->failure);
  if (count == 0) return 0;
  try {
    return state_->read(into, count);
  } catch (...) {
    state_->failure = std::current_exception();
    throw;
  }
}

EntryReader::EntryReader(std::shared_ptr<const InputFile> file, const Entry& entry)
    : file_(std::move(file)),
      name_(entry.name),
      data_(dataOf(*file_, entry), methodOfData(entry), entry.size, entry.checksum) {}

std::size_t EntryReader::read(void* into, std::size_t count) {
  try {
    return data_.read(into, count);
  } catch (const Damage damage) {
    switch (damage) {
      case Damage::Broken:
        raise("opc:zip:DataBroken", file_->path(), name_);
      case Damage::TooShort:
        raise("opc:zip:DataTooShort", file_->path(), name_);
      case Damage::TooLong:
        raise("opc:zip:DataTooLong", file_->path(), name_);
      case Damage::ChecksumDiffers:
        break;
    }
    raise("opc:zip:ChecksumDiffers", file_->path(), name_);
  }
}

std::string readWhole(const std::shared_ptr<const InputFile>& file, const Entry& entry, std::uint64_t limit) {
  if (entry.size > limit) raise("opc:zip:EntryTooLarge", file->path(), entry.name, limit);
  EntryReader reader(file, entry);
  std::string content;
  std::size_t filled = 0;
  // Grows with what really comes: the declared size may be a lie until the end is reached.
  do {
    content.resize(static_cast<std::size_t>(std::min<std::uint64_t>(entry.size, 2 * filled + kOutputStep)));
    while (filled < content.size()) filled += reader.read(content.data() + filled, content.size() - filled);
  } while (filled < entry.size);
  // An empty entry was not read at all so far; this checks its end as well.
  char surplus = 0;
  reader.read(&surplus, 1);
  return content;
}

}  // namespace zip

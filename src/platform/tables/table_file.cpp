#include "platform/tables/table_file.h"

#include <cerrno>
#include <ctime>

#include <fcntl.h>
#include <isa-l.h>
#include <unistd.h>
#include <zstd.h>

#include "platform/errors/exceptions.h"
#include "platform/errors/free_with.h"
#include "platform/files/filesystem.h"
#include "platform/progress/progress.h"
#include "platform/text/conversion.h"
#include "platform/zip/wide_registers.h"

namespace tavlox::tables {

namespace fs = fl::filesystem;
using foundation::core::except::raise;

namespace {

// Between two pieces progress is reported, and an interrupt can end the program.
constexpr std::size_t kPieceSize = std::size_t{256} * 1024;

/// `error` is an errno.
[[noreturn]] void refuse(const std::u16string& name, int error) {
  if (error == ENOENT) raise("tavlox:general:FileNotFound", name);
  raise("tavlox:record:CannotReadTable", name, fs::systemReason(error));
}

}  // namespace

class Unpacker {
 public:
  virtual ~Unpacker() = default;

  /// Takes packed bytes off the front of `packed` and gives how many it wrote to `into`. False as `isSound`
  /// for data that cannot be unpacked.
  struct Unpacked {
    std::size_t count;
    bool isSound;
  };
  virtual Unpacked unpack(std::string_view& packed, char* into, std::size_t count) = 0;
  /// Whether the data may end here.
  virtual bool isComplete() const = 0;
  virtual std::string_view name() const = 0;

  std::string buffer;       ///< of packed data
  std::string_view rest{};  ///< what is left of it
};

namespace {

/// Members follow each other without anything between them, as `cat a.gz b.gz` makes them.
class GzipUnpacker : public Unpacker {
 public:
  GzipUnpacker() { begin(); }

  Unpacked unpack(std::string_view& packed, char* into, std::size_t count) override {
    if (isComplete()) {
      // What is behind a member and is no other is padding, which gzip passes over too.
      if (!packed.starts_with('\x1F')) {
        packed = {};
        return {0, true};
      }
      begin();
    }
    state_->next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(packed.data()));
    state_->avail_in = static_cast<std::uint32_t>(packed.size());
    state_->next_out = reinterpret_cast<std::uint8_t*>(into);
    state_->avail_out = static_cast<std::uint32_t>(count);
    const int result = isal_inflate(state_.get());
    zip::releaseWideRegisters();
    // Of broken data the library does not say truly how much of it is left.
    if (result < ISAL_DECOMP_OK) return {0, false};
    packed.remove_prefix(packed.size() - state_->avail_in);
    return {count - state_->avail_out, true};
  }
  bool isComplete() const override { return state_->block_state == ISAL_BLOCK_FINISH; }
  std::string_view name() const override { return "gzip"; }

 private:
  void begin() {
    isal_inflate_init(state_.get());
    state_->crc_flag = ISAL_GZIP;
  }

  std::unique_ptr<inflate_state> state_ = std::make_unique<inflate_state>();
};

class ZstdUnpacker : public Unpacker {
 public:
  ZstdUnpacker() {
    if (stream_ == nullptr) throw std::bad_alloc();
  }

  Unpacked unpack(std::string_view& packed, char* into, std::size_t count) override {
    ZSTD_inBuffer in{packed.data(), packed.size(), 0};
    ZSTD_outBuffer out{into, count, 0};
    wanted_ = ZSTD_decompressStream(stream_.get(), &out, &in);
    packed.remove_prefix(in.pos);
    return {out.pos, ZSTD_isError(wanted_) == 0};
  }
  bool isComplete() const override { return wanted_ == 0; }
  std::string_view name() const override { return "zstd"; }

 private:
  std::unique_ptr<ZSTD_DStream, foundation::core::except::FreeWith<ZSTD_freeDStream>> stream_{
      ZSTD_createDStream()};
  std::size_t wanted_ = 1;  ///< bytes that the stream expects; 0 between two frames
};

}  // namespace

TableFile::TableFile(const std::u16string& path)
    : name_(path),
      file_(std::make_shared<fs::Descriptor>(open(fl::i18n::to_string(path).c_str(), O_RDONLY | O_CLOEXEC))) {
  if (!*file_) refuse(name_, errno);
  start();
}

TableFile::TableFile(std::u16string name, std::shared_ptr<const fs::Descriptor> file)
    : name_(std::move(name)), file_(std::move(file)), isOwn_(true) {
  start();
}

TableFile::~TableFile() = default;
TableFile::TableFile(TableFile&&) noexcept = default;

void TableFile::start() {
  activity_ = u"Reading " + name_;
  opened_ = fs::identityOf(file_->get());
  const std::string_view magic = peek(4);
  const bool isGzip = magic.starts_with("\x1F\x8B"), isZstd = magic == "\x28\xB5\x2F\xFD";
  if (!isGzip && !isZstd) return;
  if (isGzip) unpacker_ = std::make_unique<GzipUnpacker>();
  if (isZstd) unpacker_ = std::make_unique<ZstdUnpacker>();
  // Read again from the first byte, now by the unpacker.
  unpacker_->buffer.resize(kPieceSize);
  peeked_.clear();
  offset_ = 0;
}

std::size_t TableFile::readPacked(char* into, std::size_t count) {
  const fs::ReadResult got = fs::readAt(file_->get(), offset_, into, std::min(count, kPieceSize));
  if (got.error != 0) refuse(name_, got.error);
  offset_ += got.count;
  corvan::reportProgress({.activity = activity_.c_str(), .done = offset_, .total = opened_.size});
  return got.count;
}

std::size_t TableFile::readUnpacked(char* into, std::size_t count) {
  for (;;) {
    std::string_view& packed = unpacker_->rest;
    if (packed.empty()) {
      packed = {unpacker_->buffer.data(), readPacked(unpacker_->buffer.data(), unpacker_->buffer.size())};
      if (packed.empty() && unpacker_->isComplete()) return 0;
    }
    const bool isAtEnd = packed.empty();
    const auto [unpacked, isSound] = unpacker_->unpack(packed, into, count);
    // At the end of the file the unpacker may still have something to give, but needs nothing more.
    if (!isSound || (isAtEnd && unpacked == 0 && !unpacker_->isComplete()))
      raise("tavlox:record:DamagedCompression", name_, unpacker_->name());
    if (unpacked > 0) return unpacked;
  }
}

std::size_t TableFile::read(char* into, std::size_t count) {
  if (!peeked_.empty()) {
    const std::size_t given = peeked_.copy(into, count);
    peeked_.erase(0, given);
    return given;
  }
  return unpacker_ ? readUnpacked(into, count) : readPacked(into, count);
}

std::string_view TableFile::peek(std::size_t count) {
  // What was peeked at before is read again first, so that a longer look starts at the same byte.
  std::string all = std::move(peeked_);
  peeked_.clear();
  while (all.size() < count) {
    const std::size_t before = all.size();
    all.resize(count);
    const std::size_t got = read(all.data() + before, count - before);
    all.resize(before + got);
    if (got == 0) break;
  }
  peeked_ = std::move(all);
  return std::string_view(peeked_).substr(0, count);
}

void TableFile::requireUnchanged() const {
  // The size alone would miss a table that is written anew with the same number of rows.
  if (!isOwn_ && fs::identityOf(file_->get()) != opened_) raise("tavlox:record:TableChanged", name_);
}

std::string_view TableFile::compression() const { return unpacker_ ? unpacker_->name() : std::string_view(); }

std::u16string TableFile::date() const {
  const std::time_t seconds = opened_.modified / 1'000'000'000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[32];
  return fl::i18n::to_ustring({text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc)});
}

std::shared_ptr<const fs::Descriptor> spooledStandardInput() {
  const std::string folder = fl::i18n::to_string(fs::temp_directory_path());
  auto spool = std::make_shared<fs::Descriptor>(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (!*spool) refuse(u"-", errno);
  std::string piece(kPieceSize, '\0');
  for (std::uint64_t size = 0;;) {
    corvan::reportProgress({.activity = u"Reading standard input", .done = size});
    const ssize_t got = ::read(STDIN_FILENO, piece.data(), piece.size());
    if (got == 0) return spool;
    if (got < 0 && errno == EINTR) continue;
    const int error =
        got < 0 ? errno : fs::writeAt(spool->get(), size, piece.data(), static_cast<std::size_t>(got));
    if (error != 0) refuse(u"-", error);
    size += static_cast<std::uint64_t>(got);
  }
}

}  // namespace tavlox::tables

#include "platform/opc/zip/spool.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "platform/opc/zip/deflater.h"
#include "platform/opc/zip/descriptor.h"
#include "platform/opc/zip/exception.h"
#include "platform/opc/zip/inflater.h"

namespace opc::zip {
namespace {

constexpr std::size_t kMemory = std::size_t{8} << 20;
constexpr std::size_t kReadPiece = std::size_t{64} << 10;

/// A file that has no name, so that nothing is left whatever becomes of the process.
Descriptor openUnlinked(const std::string& folder) {
  Descriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC | O_EXCL, 0600));
  if (file) return file;
  std::string name = folder + "/.spool-XXXXXX";
  file = Descriptor(::mkostemp(name.data(), O_CLOEXEC));
  if (!file) raise("opc:spool:CannotCreate", folder, systemReason(errno));
  ::unlink(name.c_str());
  return file;
}

}  // namespace

struct Spool::State {
  std::string folder;
  std::optional<Deflater> deflater{std::in_place};
  std::vector<char> memory;
  Descriptor file;
  std::uint64_t size = 0, compressedSize = 0;
  std::uint32_t crc = 0;
  bool failed = false;

  void keep(const char* data, std::size_t count);
  void moveToFile();
  void store(std::uint64_t offset, const char* data, std::size_t count);
};

void Spool::State::keep(const char* data, std::size_t count) {
  if (!file && memory.size() + count > kMemory) moveToFile();
  if (file) {
    store(compressedSize, data, count);
  } else {
    memory.insert(memory.end(), data, data + count);
  }
  compressedSize += count;
}

void Spool::State::moveToFile() {
  file = openUnlinked(folder);
  store(0, memory.data(), memory.size());
  memory = {};
}

void Spool::State::store(std::uint64_t offset, const char* data, std::size_t count) {
  const int error = writeAt(file.get(), offset, data, count);
  if (error != 0) raise("opc:spool:CannotWrite", folder, systemReason(error));
}

Spool::Spool(std::string folder) : state_(new State) {
  state_->folder = folder.empty() ? "." : std::move(folder);
}

Spool::~Spool() = default;
Spool::Spool(Spool&&) noexcept = default;
Spool& Spool::operator=(Spool&&) noexcept = default;

void Spool::write(const void* data, std::size_t count) {
  State& state = *state_;
  if (state.failed || isFinished()) raise("opc:spool:Ended", state.folder);
  // Until all of it is kept: what is half written must never be taken for a whole entry.
  state.failed = true;
  state.deflater->deflate(data, count, [&](const char* out, std::size_t size) { state.keep(out, size); });
  state.crc = zip::checksum(state.crc, data, count);
  state.size += count;
  state.failed = false;
}

void Spool::finish() {
  State& state = *state_;
  if (state.failed) raise("opc:spool:Ended", state.folder);
  if (isFinished()) return;
  state.failed = true;
  state.deflater->finish([&](const char* out, std::size_t size) { state.keep(out, size); });
  state.failed = false;
  state.deflater.reset();  // its buffers are many times what a small entry needs
  state.memory.shrink_to_fit();
}

bool Spool::isFinished() const { return !state_->deflater.has_value(); }
std::uint64_t Spool::size() const { return state_->size; }
std::uint64_t Spool::compressedSize() const { return state_->compressedSize; }
std::uint32_t Spool::checksum() const { return state_->crc; }
int Spool::descriptor() const { return state_->file.get(); }

void Spool::readCompressed(std::uint64_t offset, void* into, std::size_t count) const {
  if (count == 0) return;
  const bool inside = offset <= state_->compressedSize && count <= state_->compressedSize - offset;
  if (!isFinished() || !inside) raise("opc:spool:Damaged", state_->folder);
  if (!state_->file) {
    std::memcpy(into, state_->memory.data() + offset, count);
    return;
  }
  const ReadResult result = readAt(state_->file.get(), offset, into, count);
  if (result.error != 0) raise("opc:spool:CannotRead", state_->folder, systemReason(result.error));
  if (result.count < count) raise("opc:spool:Damaged", state_->folder);
}

struct Spool::Reader::State {
  explicit State(const Spool& from) : spool(&from) {}

  const Spool* spool;
  Inflater inflater;
  std::vector<char> input = std::vector<char>(kReadPiece);
  std::uint64_t offset = 0, size = 0;
  std::uint32_t crc = 0;
  bool failed = false, ended = false;

  std::size_t read(void* into, std::size_t count);
  void feed();
  void takeOutput(const void* data, std::size_t count);
  void checkEnd() const;
  [[noreturn]] void damaged() const { raise("opc:spool:Damaged", spool->state_->folder); }
};

std::size_t Spool::Reader::State::read(void* into, std::size_t count) {
  for (;;) {
    const Inflater::Step step = inflater.inflate(into, count);
    switch (step.outcome) {
      case Inflater::Outcome::Produced:
        takeOutput(into, step.produced);
        return step.produced;
      case Inflater::Outcome::NeedsInput:
        feed();
        break;
      case Inflater::Outcome::Ended:
        checkEnd();
        ended = true;
        return 0;
      case Inflater::Outcome::Broken:
        damaged();
    }
  }
}

void Spool::Reader::State::feed() {
  const std::size_t piece = std::min<std::uint64_t>(input.size(), spool->compressedSize() - offset);
  if (piece == 0) damaged();
  spool->readCompressed(offset, input.data(), piece);
  inflater.feed(input.data(), piece);
  offset += piece;
}

void Spool::Reader::State::takeOutput(const void* data, std::size_t count) {
  size += count;
  if (size > spool->size()) damaged();
  crc = zip::checksum(crc, data, count);
}

void Spool::Reader::State::checkEnd() const {
  const bool all = offset == spool->compressedSize() && inflater.unusedInput() == 0;
  if (!all || size != spool->size() || crc != spool->checksum()) damaged();
}

Spool::Reader::Reader(const Spool& spool) : state_(new State(spool)) {
  if (!spool.isFinished()) raise("opc:spool:NotFinished", spool.state_->folder);
}

Spool::Reader::~Reader() = default;
Spool::Reader::Reader(Reader&&) noexcept = default;

std::size_t Spool::Reader::read(void* into, std::size_t count) {
  if (count == 0 || state_->ended) return 0;
  if (state_->failed) state_->damaged();
  state_->failed = true;
  const std::size_t produced = state_->read(into, count);
  state_->failed = false;
  return produced;
}

}  // namespace opc::zip

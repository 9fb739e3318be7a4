#include "platform/zip/spool.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/files/descriptor.h"
#include "platform/zip/deflater.h"
#include "platform/zip/inflater.h"

namespace zip {
using opc::raise;

namespace {

constexpr std::size_t kReadPiece = std::size_t{64} << 10;

}  // namespace

struct Spool::State {
  explicit State(std::shared_ptr<SpoolStorage> shared) : storage(std::move(shared)) {}
  ~State() { storage->giveMemoryBack(memory.size()); }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  const std::shared_ptr<SpoolStorage> storage;
  std::optional<Deflater> deflater{std::in_place};
  std::vector<char> memory;  // all of it, or nothing once there are extents
  std::vector<Extent> extents;
  std::uint64_t size = 0, compressedSize = 0;
  std::uint32_t crc = 0;
  bool isBroken = false;

  const std::string& folder() const { return storage->folder(); }
  void keep(const char* data, std::size_t count);
  bool keepInMemory(const char* data, std::size_t count);
  void store(const char* data, std::size_t count);
};

void Spool::State::keep(const char* data, std::size_t count) {
  if (!keepInMemory(data, count)) store(data, count);
  compressedSize += count;
}

bool Spool::State::keepInMemory(const char* data, std::size_t count) {
  if (!extents.empty()) return false;
  // An allocation that fails only leaves the budget smaller.
  if (storage->takeMemory(count)) {
    memory.insert(memory.end(), data, data + count);
    return true;
  }
  if (memory.empty()) return false;
  store(memory.data(), memory.size());
  storage->giveMemoryBack(memory.size());
  memory = {};
  return false;
}

void Spool::State::store(const char* data, std::size_t count) {
  const std::uint64_t begin = storage->append(data, count);
  if (!extents.empty() && extents.back().end == begin) {
    extents.back().end += count;
  } else {
    extents.push_back({begin, begin + count});
  }
}

Spool::Spool(std::shared_ptr<SpoolStorage> storage) : state_(new State(std::move(storage))) {}
Spool::Spool(std::string folder) : Spool(std::make_shared<SpoolStorage>(std::move(folder))) {}

Spool::~Spool() = default;
Spool::Spool(Spool&&) noexcept = default;
Spool& Spool::operator=(Spool&&) noexcept = default;

void Spool::write(const void* data, std::size_t count) {
  State& state = *state_;
  const bool mayGoOn = !state.isBroken && !isFinished();
  // Until all of it is kept: what is half written must never be taken for a whole entry.
  state.isBroken = true;
  if (!mayGoOn) raise("opc:spool:Ended", state.folder());
  state.deflater->deflate(data, count, [&](const char* out, std::size_t size) { state.keep(out, size); });
  state.crc = zip::checksum(state.crc, data, count);
  state.size += count;
  state.isBroken = false;
}

void Spool::finish() {
  State& state = *state_;
  if (state.isBroken) raise("opc:spool:Ended", state.folder());
  if (isFinished()) return;
  state.isBroken = true;
  state.deflater->finish([&](const char* out, std::size_t size) { state.keep(out, size); });
  state.isBroken = false;
  state.deflater.reset();  // its buffers are many times what a small entry needs
  state.memory.shrink_to_fit();
}

void Spool::abandon() noexcept { state_->isBroken = true; }
bool Spool::isBroken() const { return state_->isBroken; }
bool Spool::isFinished() const { return !state_->deflater.has_value(); }
std::uint64_t Spool::size() const { return state_->size; }
std::uint64_t Spool::compressedSize() const { return state_->compressedSize; }
std::uint32_t Spool::checksum() const { return state_->crc; }
int Spool::descriptor() const { return state_->extents.empty() ? -1 : state_->storage->descriptor(); }
const std::vector<Spool::Extent>& Spool::extents() const { return state_->extents; }

void Spool::readCompressed(std::uint64_t offset, void* into, std::size_t count) const {
  if (count == 0) return;
  const bool inside = offset <= state_->compressedSize && count <= state_->compressedSize - offset;
  if (!isFinished() || !inside) raise("opc:spool:Damaged", state_->folder());
  if (state_->extents.empty()) {
    std::memcpy(into, state_->memory.data() + offset, count);
    return;
  }
  auto* to = static_cast<char*>(into);
  for (const Extent& extent : state_->extents) {
    const std::uint64_t length = extent.end - extent.begin;
    if (offset >= length) {
      offset -= length;
      continue;
    }
    const std::size_t piece = std::min<std::uint64_t>(count, length - offset);
    const fl::filesystem::ReadResult result =
        fl::filesystem::readAt(descriptor(), extent.begin + offset, to, piece);
    if (result.error != 0)
      raise("opc:spool:CannotRead", state_->folder(), fl::filesystem::systemReason(result.error));
    if (result.count < piece) raise("opc:spool:Damaged", state_->folder());
    to += piece;
    count -= piece;
    offset = 0;
    if (count == 0) return;
  }
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
  [[noreturn]] void damaged() const { raise("opc:spool:Damaged", spool->state_->folder()); }
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
  if (!spool.isFinished()) raise("opc:spool:NotFinished", spool.state_->folder());
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

}  // namespace zip

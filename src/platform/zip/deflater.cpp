#include "platform/zip/deflater.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include <isa-l.h>

namespace zip {
namespace {

// Of the library's levels this one comes closest to zlib's usual size on text; the one above it is slower and
// on text that repeats itself even larger.
constexpr int kLevel = 2;
constexpr std::size_t kLevelBuffer = ISAL_DEF_LVL2_DEFAULT;
constexpr std::size_t kOutputBuffer = std::size_t{64} << 10;
constexpr std::size_t kLargestInput = std::size_t{1} << 30;  // the library counts in 32 bits

}  // namespace

struct Deflater::State {
  isal_zstream stream;
  std::unique_ptr<std::uint8_t[]> levelBuffer{new std::uint8_t[kLevelBuffer]};
  std::unique_ptr<std::uint8_t[]> output{new std::uint8_t[kOutputBuffer]};

  /// One call into the library; whatever came out goes to the sink.
  void step(const Sink& sink);
};

void Deflater::State::step(const Sink& sink) {
  const std::uint32_t inputBefore = stream.avail_in;
  const auto stateBefore = stream.internal_state.state;
  stream.next_out = output.get();
  stream.avail_out = kOutputBuffer;
  const int status = isal_deflate(&stream);
  const std::size_t produced = kOutputBuffer - stream.avail_out;
  const bool stuck =
      produced == 0 && stream.avail_in == inputBefore && stream.internal_state.state == stateBefore;
  if (status != COMP_OK || stuck) throw std::logic_error("the deflate library refused a sound stream");
  if (produced > 0) sink(reinterpret_cast<const char*>(output.get()), produced);
}

Deflater::Deflater() : state_(new State) {
  isal_deflate_init(&state_->stream);
  state_->stream.level = kLevel;
  state_->stream.level_buf = state_->levelBuffer.get();
  state_->stream.level_buf_size = kLevelBuffer;
  state_->stream.flush = NO_FLUSH;
}

Deflater::~Deflater() = default;
Deflater::Deflater(Deflater&&) noexcept = default;
Deflater& Deflater::operator=(Deflater&&) noexcept = default;

void Deflater::deflate(const void* data, std::size_t count, const Sink& sink) {
  // The library does not write to its input, only its signature says so.
  auto* from = static_cast<std::uint8_t*>(const_cast<void*>(data));
  while (count > 0) {
    const std::size_t piece = std::min(count, kLargestInput);
    state_->stream.next_in = from;
    state_->stream.avail_in = static_cast<std::uint32_t>(piece);
    while (state_->stream.avail_in > 0) state_->step(sink);
    from += piece;
    count -= piece;
  }
}

void Deflater::finish(const Sink& sink) {
  state_->stream.avail_in = 0;
  state_->stream.end_of_stream = 1;
  while (state_->stream.internal_state.state != ZSTATE_END) state_->step(sink);
}

}  // namespace zip

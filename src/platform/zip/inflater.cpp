#include "platform/zip/inflater.h"

#include <algorithm>
#include <limits>

#include <isa-l.h>

namespace zip {

Inflater::Inflater() : state_(new inflate_state) { isal_inflate_init(state_.get()); }
Inflater::~Inflater() = default;
Inflater::Inflater(Inflater&&) noexcept = default;
Inflater& Inflater::operator=(Inflater&&) noexcept = default;

void Inflater::feed(const void* data, std::size_t count) {
  // The library takes a pointer to mutable bytes but only reads them.
  state_->next_in = static_cast<std::uint8_t*>(const_cast<void*>(data));
  state_->avail_in = static_cast<std::uint32_t>(count);
}

Inflater::Step Inflater::inflate(void* into, std::size_t count) {
  const std::size_t room = std::min<std::size_t>(count, std::numeric_limits<std::int32_t>::max());
  state_->next_out = static_cast<std::uint8_t*>(into);
  state_->avail_out = static_cast<std::uint32_t>(room);
  if (isal_inflate(state_.get()) != ISAL_DECOMP_OK) return {Outcome::Broken, 0};
  const std::size_t produced = room - state_->avail_out;
  if (produced != 0) return {Outcome::Produced, produced};
  if (state_->block_state == ISAL_BLOCK_FINISH) return {Outcome::Ended, 0};
  // The library reports no error on a stream it cannot go on with; standing still with input at hand is one.
  return {state_->avail_in == 0 ? Outcome::NeedsInput : Outcome::Broken, 0};
}

std::size_t Inflater::unusedInput() const {
  // It reads ahead into a register: whole bytes left in there were not part of the stream either.
  return state_->avail_in + static_cast<std::size_t>(std::max(state_->read_in_length, 0)) / 8;
}

std::uint32_t checksum(std::uint32_t soFar, const void* data, std::size_t count) {
  return crc32_gzip_refl(soFar, static_cast<const unsigned char*>(data), count);
}

}  // namespace zip

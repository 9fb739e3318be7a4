#include "platform/text/text_hash.h"

#include <cstdint>
#include <random>

// The header brings the code along: there is nothing to link, and hashing a short text costs no further call.
#define XXH_INLINE_ALL
#include <xxhash.h>

namespace fl::i18n {
namespace {

/// From the system's source of randomness, which gives 32 bits at a time.
std::uint64_t drawSeed() {
  std::random_device random;
  return std::uint64_t{random()} << 32 | random();
}

}  // namespace

std::size_t TextHash::operator()(std::string_view text) const noexcept {
  // The same for the whole process, or a text would not be found again by its hash.
  static const std::uint64_t seed = drawSeed();
  return XXH3_64bits_withSeed(text.data(), text.size(), seed);
}

}  // namespace fl::i18n

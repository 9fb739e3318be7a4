#include "platform/text/text_hash.h"

#include <cstdint>
#include <random>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace fl::i18n {
namespace {

std::uint64_t drawSeed() {
  std::random_device random;
  return std::uint64_t{random()} << 32 | random();
}

}  // namespace

std::size_t TextHash::operator()(std::string_view text) const noexcept {
  static const std::uint64_t seed = drawSeed();
  return XXH3_64bits_withSeed(text.data(), text.size(), seed);
}

}  // namespace fl::i18n

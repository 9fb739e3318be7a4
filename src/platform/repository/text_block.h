#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

/// 64 bytes of text, and questions about them that are answered with one bit for each byte, the lowest for
/// the first. There are two classes that answer alike: one for every processor and one for those with vectors
/// of 16 bytes.
namespace orra {

inline constexpr std::size_t kBlockBytes = 64;

/// Copies up to 64 bytes; blanks stand for those that are missing.
inline void copyBlock(std::string_view text, char* bytes) {
  if (text.size() < kBlockBytes) std::memset(bytes, ' ', kBlockBytes);
  std::memcpy(bytes, text.data(), text.size());
}

class WordBlock {
 public:
  /// Up to 64 bytes; blanks stand for those that are missing.
  explicit WordBlock(std::string_view text) { copyBlock(text, bytes_); }

  /// Which bytes are equal to `byte` once the bits of `set` are set in them. The compiler turns the loop over
  /// eight bytes into a few instructions; multiplying gathers their lowest bits.
  std::uint64_t equal(char byte, char set = 0) const {
    std::uint64_t found = 0;
    for (std::size_t at = 0; at < kBlockBytes; at += 8) found |= equalInEight(bytes_ + at, byte, set) << at;
    return found;
  }

 private:
  static std::uint64_t equalInEight(const char* at, char byte, char set) {
    constexpr std::uint64_t kEach = 0x0101010101010101, kLowSeven = 0x7F * kEach;
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    word = (word | static_cast<unsigned char>(set) * kEach) ^ static_cast<unsigned char>(byte) * kEach;
    // The top bit of each byte that is zero: no sum of seven bits carries into the next byte.
    const std::uint64_t zeros = ~(((word & kLowSeven) + kLowSeven) | word | kLowSeven);
    return (zeros >> 7) * 0x0102040810204080 >> 56;
  }

  char bytes_[kBlockBytes];
};

#ifdef __SSE2__

/// As WordBlock, in a quarter of the time. Every x86-64 processor has these instructions.
class VectorBlock {
 public:
  explicit VectorBlock(std::string_view text) {
    char copy[kBlockBytes];
    const char* bytes = text.data();
    if (text.size() < kBlockBytes) {
      copyBlock(text, copy);
      bytes = copy;
    }
    for (std::size_t i = 0; i < kQuarters; ++i)
      quarters_[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i * sizeof(__m128i)));
  }

  std::uint64_t equal(char byte, char set = 0) const {
    const __m128i asked = _mm_set1_epi8(byte), bits = _mm_set1_epi8(set);
    // Written out: the compiler does not take this loop apart.
    return equal(0, asked, bits) | equal(1, asked, bits) << 16 | equal(2, asked, bits) << 32 |
           equal(3, asked, bits) << 48;
  }

 private:
  std::uint64_t equal(std::size_t quarter, __m128i asked, __m128i bits) const {
    const __m128i equals = _mm_cmpeq_epi8(_mm_or_si128(quarters_[quarter], bits), asked);
    return static_cast<std::uint16_t>(_mm_movemask_epi8(equals));
  }

  static constexpr std::size_t kQuarters = kBlockBytes / sizeof(__m128i);
  __m128i quarters_[kQuarters];
};

using TextBlock = VectorBlock;
#else
using TextBlock = WordBlock;
#endif

}  // namespace orra

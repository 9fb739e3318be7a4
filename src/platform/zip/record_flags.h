#pragma once

#include <cstdint>

/// Bits of the general purpose flags that local headers and central records both carry.
namespace zip {

inline constexpr std::uint16_t kEncrypted = 1U << 0;
inline constexpr std::uint16_t kHasDescriptor = 1U << 3;
inline constexpr std::uint16_t kPatchData = 1U << 5;
inline constexpr std::uint16_t kStrongEncryption = 1U << 6;
inline constexpr std::uint16_t kUtf8Name = 1U << 11;
inline constexpr std::uint16_t kMaskedHeaders = 1U << 13;
inline constexpr std::uint16_t kAnyEncryption = kEncrypted | kStrongEncryption | kMaskedHeaders;

}  // namespace zip

#pragma once

#include <cstdint>

/// The numbers of a ZIP archive, as they lie in its bytes.
namespace zip {

inline std::uint16_t load16(const char* at) {
  const auto* byte = reinterpret_cast<const unsigned char*>(at);
  return static_cast<std::uint16_t>(byte[0] | byte[1] << 8);
}

inline std::uint32_t load32(const char* at) {
  return load16(at) | static_cast<std::uint32_t>(load16(at + 2)) << 16;
}

inline std::uint64_t load64(const char* at) {
  return load32(at) | static_cast<std::uint64_t>(load32(at + 4)) << 32;
}

}  // namespace zip

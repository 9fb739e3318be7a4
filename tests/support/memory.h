#pragma once

#include <sys/resource.h>

namespace support {

/// The most memory that this process has held so far, in KiB.
inline long peakKibibytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

/// The address sanitizer holds on to what was freed, by up to 256 MiB and as much again for its own records.
#ifdef __SANITIZE_ADDRESS__
inline constexpr long kHeldBySanitizer = 512 << 10;
#else
inline constexpr long kHeldBySanitizer = 0;
#endif

}  // namespace support

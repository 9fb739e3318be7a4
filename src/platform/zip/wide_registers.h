#pragma once

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace zip {

#ifdef __x86_64__
[[gnu::target("avx")]] inline void clearUpperHalves() { _mm256_zeroupper(); }

/// To be called after ISA-L has computed. It uses the processor's wide vector registers and leaves their
/// upper halves filled, and as long as they are, instructions of the narrow kind, which all of this program
/// is made of, are slow: a package took half as long again to open.
inline void releaseWideRegisters() {
  if (__builtin_cpu_supports("avx")) clearUpperHalves();
}
#else
inline void releaseWideRegisters() {}
#endif

}  // namespace zip

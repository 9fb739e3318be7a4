#pragma once

#include <cstddef>

/// Frees memory that came from the host's allocator.
extern "C" void utFree(void* memory) noexcept;

namespace zobs {

/// Base of everything that modules register: allocated zero-filled with calloc, freed through utFree by the
/// host, which owns it once it is registered. Raises foundation::core::except::bad_alloc when memory is out.
class HostAllocated {
 public:
  static void* operator new(std::size_t size);
  static void operator delete(void* memory) noexcept;
};

}  // namespace zobs

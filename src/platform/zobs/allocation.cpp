#include "platform/zobs/allocation.h"

#include <cstdlib>

#include "platform/errors/exceptions.h"

void utFree(void* memory) noexcept { std::free(memory); }

namespace zobs {

void* HostAllocated::operator new(std::size_t size) {
  void* const memory = std::calloc(1, size);
  if (memory == nullptr) throw foundation::core::except::bad_alloc();
  return memory;
}

void HostAllocated::operator delete(void* memory) noexcept { utFree(memory); }

}  // namespace zobs

#include "counting_allocator.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocated{0};
std::atomic<std::size_t> failAt{0};

void* allocate(std::size_t size) {
  const std::size_t number = ++allocated;
  void* const memory = number == failAt ? nullptr : std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace counting_allocator {

std::size_t blocks() { return allocated; }
FailAfter::FailAfter(std::size_t successes) { failAt = allocated + successes + 1; }
FailAfter::~FailAfter() { failAt = 0; }

}  // namespace counting_allocator

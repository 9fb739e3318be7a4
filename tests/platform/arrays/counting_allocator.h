#pragma once

#include <cstddef>

/// Replaces the test program's operator new: counts heap blocks, and lets one of them fail.
namespace counting_allocator {

/// Blocks allocated since the start of the program.
std::size_t blocks();

/// While it lives, the allocation after `successes` more raises std::bad_alloc.
class FailAfter {
 public:
  explicit FailAfter(std::size_t successes);
  ~FailAfter();
};

}  // namespace counting_allocator

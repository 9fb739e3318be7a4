#pragma once

#include <new>

namespace foundation::core::except {

/// Out of memory. Raising it allocates nothing.
class bad_alloc : public std::bad_alloc {
 public:
  ~bad_alloc() override;
  const char* what() const noexcept override {
    return "Out of memory. Close other programs or data and try again.";
  }
};

}  // namespace foundation::core::except

#pragma once

namespace foundation::core::except {

/// Makes a std::unique_ptr call a C library's own function, so that the handle is also freed when an error
/// passes: std::unique_ptr<sqlite3, FreeWith<sqlite3_close_v2>>. What the function answers is dropped; where
/// that matters, it is called by hand before.
template <auto Free>
struct FreeWith {
  template <class Handle>
  void operator()(Handle* handle) const noexcept {
    static_cast<void>(Free(handle));
  }
};

}  // namespace foundation::core::except

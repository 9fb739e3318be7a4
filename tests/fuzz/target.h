#pragma once

#include <cstdlib>

#include "platform/errors/package_errors.h"

/// A target is a function `void NAME(std::string_view bytes)`. It returns whatever the bytes are; a promise
/// that does not hold ends the program.
namespace fuzz {

inline void require(bool holds) {
  if (!holds) std::abort();
}

/// Whether the package library does it. An error that is not the library's own is a fault.
bool succeeds(const auto& action) {
  try {
    action();
    return true;
  } catch (const opc::Exception&) {
    return false;
  }
}

}  // namespace fuzz

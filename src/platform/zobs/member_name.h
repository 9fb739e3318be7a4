#pragma once

#include <string>
#include <string_view>

#include "platform/errors/exceptions.h"
#include "platform/zobs/method_info.h"

namespace zobs {

/// Raises Corvan:ObjectSystem:InvalidName for a name under which nothing could be found again.
inline void requireValidName(std::string_view name) {
  if (name.empty() || name.find('.') != std::string_view::npos) {
    foundation::core::except::raise("Corvan:ObjectSystem:InvalidName", name);
  }
}

/// Empty while no name was set.
inline const std::string& nameOf(const COSMethodInfo& method) {
  static const std::string none;
  const Interned* const name = method.getName();
  return name != nullptr ? name->text() : none;
}

}  // namespace zobs

#pragma once

#include <string>
#include <string_view>

namespace zobs {

/// A name that the object system keeps once for the life of the process: equal names are the same pointer.
/// Like the whole object system, names are made on the host thread.
class Interned {
 public:
  Interned() = default;
  /// The empty text while nothing was interned.
  const std::string& text() const;
  explicit operator bool() const { return text_ != nullptr; }
  bool operator==(const Interned&) const = default;

 private:
  friend struct InternedAccess;
  explicit Interned(const std::string* text) : text_(text) {}
  const std::string* text_ = nullptr;
};

namespace internal {
/// A name, or the dotted name of a namespace or class.
Interned makeInterned(std::string_view narrow);
}  // namespace internal

}  // namespace zobs

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace opc {

/// Many short texts in one piece of memory, instead of an allocation for each: a package may have a hundred
/// thousand names. Can be copied; texts are never removed.
class TextStore {
 public:
  /// Where a text lies: bytes from the start of the store. Stays right when texts are added.
  struct Location {
    std::size_t begin = 0, size = 0;
  };

  void reserve(std::size_t bytes) { texts_.reserve(bytes); }
  Location add(std::string_view text) {
    texts_.append(text);
    return {texts_.size() - text.size(), text.size()};
  }
  /// Valid until a text is added.
  std::string_view at(Location text) const { return std::string_view(texts_).substr(text.begin, text.size); }

 private:
  std::string texts_;
};

}  // namespace opc

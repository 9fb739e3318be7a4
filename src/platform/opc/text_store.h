#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace opc {

/// Many short texts in one piece of memory, instead of an allocation for each. Can be copied; texts are never
/// removed.
class TextStore {
 public:
  struct Place {
    std::size_t begin = 0, size = 0;
  };

  void reserve(std::size_t bytes) { texts_.reserve(bytes); }
  Place add(std::string_view text) {
    texts_.append(text);
    return {texts_.size() - text.size(), text.size()};
  }
  /// Valid until a text is added.
  std::string_view at(Place place) const { return std::string_view(texts_).substr(place.begin, place.size); }

 private:
  std::string texts_;
};

/// Finds strings in a hash map by a view, without a copy.
struct TextHash {
  using is_transparent = void;
  // Not noexcept, so that the standard library keeps the hashes of long keys instead of computing them again
  // whenever it walks over one.
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

}  // namespace opc

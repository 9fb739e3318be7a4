#pragma once

#include <cstddef>
#include <string_view>

namespace fl::i18n {

/// The hash of a text, for containers whose texts come from a file. It starts from a number drawn anew in
/// every process, so nobody can prepare names that collide; without that, a small file with 100,000 of them
/// keeps its reader busy for seconds. Containers of std::string with this hash are searched by a view,
/// without a copy.
struct TextHash {
  using is_transparent = void;
  using is_avalanching = void;  // tells Boost's containers that the bits need no further mixing
  std::size_t operator()(std::string_view text) const noexcept;
};

}  // namespace fl::i18n

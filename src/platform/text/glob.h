#pragma once

#include <string_view>

namespace fl::i18n {

/// Whether the text is what the glob describes: `*` stands for any characters, also none, `?` for one, all
/// others, also brackets, which names of signals are full of, for themselves.
bool matchesGlob(std::u16string_view glob, std::u16string_view text);

}  // namespace fl::i18n

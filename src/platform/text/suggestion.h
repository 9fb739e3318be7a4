#pragma once

#include <span>
#include <string>
#include <string_view>

namespace fl::i18n {

/// The candidate that a mistyped word is most likely meant to be: the one from which the fewest letters
/// differ, are missing, added or swapped with their neighbours, whatever the case of ASCII letters. Nothing
/// (an empty text) if even the nearest one differs in more than a third of its letters.
std::u16string closest(std::u16string_view word, std::span<const std::u16string> candidates);

/// "did you mean "WORD"?", or nothing.
std::u16string didYouMean(std::u16string_view word, std::span<const std::u16string> candidates);

}  // namespace fl::i18n

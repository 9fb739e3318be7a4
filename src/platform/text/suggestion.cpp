#include "platform/text/suggestion.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace fl::i18n {
namespace {

char16_t lowered(char16_t letter) { return letter >= u'A' && letter <= u'Z' ? letter - u'A' + u'a' : letter; }

/// The optimal string alignment distance (Damerau and Levenshtein, each pair of letters swapped once at
/// most).
std::size_t distance(std::u16string_view a, std::u16string_view b) {
  const auto isSame = [&](std::size_t i, std::size_t j) { return lowered(a[i]) == lowered(b[j]); };
  // Rows of the table for the first i letters of `a` against every beginning of `b`; two rows back for swaps.
  std::vector<std::size_t> beforeLast, last(b.size() + 1), row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (isSame(i - 1, j - 1) ? 0 : 1)});
      const bool isSwapped = i > 1 && j > 1 && isSame(i - 1, j - 2) && isSame(i - 2, j - 1);
      if (isSwapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
    beforeLast = std::exchange(last, row);
  }
  return last.back();
}

}  // namespace

std::u16string closest(std::u16string_view word, std::span<const std::u16string> candidates) {
  std::u16string best;
  std::size_t fewest = 0;
  for (const std::u16string& candidate : candidates) {
    // Names of a thousand letters are not typed by hand, and would take a million steps each.
    if (candidate.size() > 200 || word.size() > 200) continue;
    const std::size_t differing = distance(word, candidate);
    if (differing > std::max<std::size_t>(1, candidate.size() / 3)) continue;
    if (!best.empty() && differing >= fewest) continue;
    best = candidate;
    fewest = differing;
  }
  return best;
}

std::u16string didYouMean(std::u16string_view word, std::span<const std::u16string> candidates) {
  const std::u16string meant = closest(word, candidates);
  return meant.empty() ? meant : u"did you mean \"" + meant + u"\"?";
}

}  // namespace fl::i18n

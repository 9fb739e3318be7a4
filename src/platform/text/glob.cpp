#include "platform/text/glob.h"

namespace fl::i18n {
namespace {

/// Two for a character that is written as a pair of surrogates.
std::size_t unitsOf(std::u16string_view text) {
  const bool isPair = text.size() > 1 && (text[0] & 0xFC00) == 0xD800 && (text[1] & 0xFC00) == 0xDC00;
  return isPair ? 2 : 1;
}

}  // namespace

bool matchesGlob(std::u16string_view glob, std::u16string_view text) {
  // Where the last star stands, and how much of the text it stands for so far: when the rest does not fit,
  // it takes one character more. Earlier stars need not be tried again.
  std::size_t at = 0, star = std::u16string_view::npos, taken = 0;
  for (std::size_t next = 0; next < text.size();) {
    if (at < glob.size() && glob[at] == u'*') {
      star = at++;
      taken = next;
    } else if (at < glob.size() && (glob[at] == u'?' || glob[at] == text[next])) {
      next += glob[at++] == u'?' ? unitsOf(text.substr(next)) : 1;
    } else if (star != std::u16string_view::npos) {
      at = star + 1;
      next = ++taken;
    } else {
      return false;
    }
  }
  return glob.find_first_not_of(u'*', at) == std::u16string_view::npos;
}

}  // namespace fl::i18n

// Both directions are the same loop: read one code point, append it in the other form. The two overloads of
// `nextCodePoint` know what is ill-formed, the two of `append` know how a point is written, and `convert` is
// told what to do about a sequence that is ill-formed: raise an error or put U+FFFD in its place.

#include "platform/text/conversion.h"

#include <cstdint>
#include <optional>
#include <type_traits>

namespace fl::i18n {
namespace {

// What readers show for something that could not be read.
constexpr char32_t kReplacement = 0xFFFD;

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

/// What a lead byte announces. The bounds of the second byte exclude overlong forms and surrogates.
struct SequenceForm {
  int continuationBytes;
  unsigned char firstMinimum, firstMaximum;
  char32_t leadBits;
};

/// The form that a lead byte announces (Unicode 15, table 3-7), or nothing for a byte that leads none: C0 and
/// C1 could only begin overlong forms, and F5 and above points beyond U+10FFFF.
std::optional<SequenceForm> formOf(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return SequenceForm{1, 0x80, 0xBF, lead & 0x1Fu};
  if (lead == 0xE0) return SequenceForm{2, 0xA0, 0xBF, 0};
  if (lead == 0xED) return SequenceForm{2, 0x80, 0x9F, 0xD};
  if (lead >= 0xE1 && lead <= 0xEF) return SequenceForm{2, 0x80, 0xBF, lead & 0x0Fu};
  if (lead == 0xF0) return SequenceForm{3, 0x90, 0xBF, 0};
  if (lead >= 0xF1 && lead <= 0xF3) return SequenceForm{3, 0x80, 0xBF, lead & 0x07u};
  if (lead == 0xF4) return SequenceForm{3, 0x80, 0x8F, 4};
  return std::nullopt;
}

/// Reads one code point and moves `at` past it. Of an ill-formed sequence it reads nothing and moves `at`
/// past its longest sound start, so that it shows as one U+FFFD, as the Unicode standard recommends (3.9),
/// and what follows is read in full.
std::optional<char32_t> nextCodePoint(std::string_view narrow, std::size_t& at) {
  const auto lead = static_cast<unsigned char>(narrow[at++]);
  if (lead < 0x80) return lead;
  const auto form = formOf(lead);
  if (!form) return std::nullopt;
  char32_t point = form->leadBits;
  for (int i = 0; i < form->continuationBytes; ++i) {
    if (at == narrow.size()) return std::nullopt;
    const auto byte = static_cast<unsigned char>(narrow[at]);
    const unsigned char minimum = i == 0 ? form->firstMinimum : 0x80;
    const unsigned char maximum = i == 0 ? form->firstMaximum : 0xBF;
    // Not passed over: a byte that does not go on with this sequence may begin the next one.
    if (byte < minimum || byte > maximum) return std::nullopt;
    point = (point << 6) | (byte & 0x3Fu);
    ++at;
  }
  return point;
}

/// The same for UTF-16, where only a surrogate without its other half is ill-formed.
std::optional<char32_t> nextCodePoint(std::u16string_view text, std::size_t& at) {
  const char32_t unit = text[at++];
  if (isLowSurrogate(unit)) return std::nullopt;
  if (!isHighSurrogate(unit)) return unit;
  if (at == text.size() || !isLowSurrogate(text[at])) return std::nullopt;
  return 0x10000 + ((unit - 0xD800) << 10) + (static_cast<char32_t>(text[at++]) - 0xDC00);
}

/// Appends a code point, which is no surrogate, as one unit or as a surrogate pair.
void append(std::u16string& out, char32_t point) {
  if (point < 0x10000) {
    out.push_back(static_cast<char16_t>(point));
    return;
  }
  out.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
  out.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
}

/// Appends a code point, which is no surrogate, as one to four bytes.
void append(std::string& out, char32_t point) {
  if (point < 0x80) {
    out.push_back(static_cast<char>(point));
    return;
  }
  // Each byte that follows carries six bits; the lead byte carries the rest and says how many follow.
  const int continuationBytes = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
  const char32_t lead[] = {0, 0xC0, 0xE0, 0xF0};
  out.push_back(static_cast<char>(lead[continuationBytes] | (point >> (6 * continuationBytes))));
  for (int i = continuationBytes - 1; i >= 0; --i) {
    out.push_back(static_cast<char>(0x80 | ((point >> (6 * i)) & 0x3F)));
  }
}

/// Whether eight units are all ASCII. They are gathered in one number without a branch, so that the compiler
/// takes them as one vector.
constexpr std::size_t kBlock = 8;
template <class Unit>
bool isAscii(const Unit* block) {
  unsigned all = 0;
  for (std::size_t i = 0; i < kBlock; ++i) {
    all |= static_cast<std::make_unsigned_t<std::conditional_t<sizeof(Unit) == 1, char, short>>>(block[i]);
  }
  return all < 0x80;
}

/// How many units at the beginning are ASCII. Most texts are ASCII throughout: this part is recognised, and
/// below copied, many units at a time and needs no conversion.
template <class In>
std::size_t asciiPrefix(In text) {
  std::size_t at = 0;
  while (text.size() - at >= kBlock && isAscii(text.data() + at)) at += kBlock;
  // What is less than a block; many names are shorter than one.
  while (at < text.size() && static_cast<char32_t>(text[at]) < 0x80) ++at;
  return at;
}

/// `onIllFormed` is called with the offset at which an ill-formed sequence begins, in units of the input, and
/// gives the code point to put in its place, or raises. `out` is replaced.
template <class Out, class In, class OnIllFormed>
void convert(In text, Out& out, const OnIllFormed& onIllFormed) {
  // Enough for most texts. Only UTF-16 beyond ASCII becomes longer as UTF-8, and then the text grows.
  out.resize(text.size());
  std::size_t at = 0;
  for (; text.size() - at >= kBlock && isAscii(text.data() + at); at += kBlock) {
    for (std::size_t i = at; i < at + kBlock; ++i) out[i] = static_cast<typename Out::value_type>(text[i]);
  }
  for (; at < text.size() && static_cast<char32_t>(text[at]) < 0x80; ++at) {
    out[at] = static_cast<typename Out::value_type>(text[at]);
  }
  out.resize(at);
  while (at < text.size()) {
    const std::size_t start = at;
    const auto point = nextCodePoint(text, at);
    append(out, point ? *point : onIllFormed(start));
  }
}

template <class Out, class In, class OnIllFormed>
Out convert(In text, const OnIllFormed& onIllFormed) {
  Out out;
  convert(text, out, onIllFormed);
  return out;
}

/// Without making the converted text: the answer costs no memory.
template <class In>
bool wellFormed(In text) {
  for (std::size_t at = asciiPrefix(text); at < text.size();) {
    if (!nextCodePoint(text, at)) return false;
  }
  return true;
}

char32_t replace(std::size_t) { return kReplacement; }

}  // namespace

std::u16string to_ustring(std::string_view narrow) {
  std::u16string text;
  to_ustring(narrow, text);
  return text;
}

void to_ustring(std::string_view narrow, std::u16string& text) {
  convert(narrow, text, [](std::size_t at) -> char32_t {
    throw ConversionError("The text is not well-formed UTF-8 at byte " + std::to_string(at) + ".");
  });
}

std::string to_string(std::u16string_view text) {
  return convert<std::string>(text, [](std::size_t at) -> char32_t {
    throw ConversionError("The text has a lone surrogate at code unit " + std::to_string(at) + ".");
  });
}

std::u16string to_ustring_lossy(std::string_view narrow) { return convert<std::u16string>(narrow, replace); }
std::string to_string_lossy(std::u16string_view text) { return convert<std::string>(text, replace); }

bool is_well_formed(std::string_view narrow) noexcept { return wellFormed(narrow); }
bool is_well_formed(std::u16string_view text) noexcept { return wellFormed(text); }

}  // namespace fl::i18n

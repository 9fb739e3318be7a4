#include "platform/opc/xml_name.h"

#include <algorithm>
#include <string>

#include "platform/text/conversion.h"

namespace opc::xml {
namespace {

struct Range {
  char32_t first, last;
};

// XML 1.0, fifth edition, [4] and [4a], without the colon.
constexpr Range kStart[] = {
    {'A', 'Z'},       {'_', '_'},       {'a', 'z'},       {0xC0, 0xD6},     {0xD8, 0xF6},
    {0xF8, 0x2FF},    {0x370, 0x37D},   {0x37F, 0x1FFF},  {0x200C, 0x200D}, {0x2070, 0x218F},
    {0x2C00, 0x2FEF}, {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF},
};
constexpr Range kFurther[] = {{'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}};

template <std::size_t N>
bool isIn(const Range (&ranges)[N], char32_t character) {
  return std::any_of(ranges, ranges + N,
                     [=](Range range) { return range.first <= character && character <= range.last; });
}

char32_t nextCharacter(const std::u16string& text, std::size_t& at) {
  const char16_t unit = text[at++];
  if (unit < 0xD800 || unit > 0xDBFF) return unit;
  return 0x10000 + ((char32_t{unit} - 0xD800) << 10) + (text[at++] - 0xDC00);
}

bool isAsciiStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }

bool isAsciiFurther(char c) { return isAsciiStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; }

}  // namespace

bool isNcName(std::string_view text) {
  // The names that documents really have, of which there may be hundreds of thousands.
  if (!text.empty() && isAsciiStart(text[0]) && std::ranges::all_of(text, isAsciiFurther)) return true;
  if (text.empty() || !fl::i18n::is_well_formed(text)) return false;
  const std::u16string wide = fl::i18n::to_ustring(text);
  for (std::size_t at = 0; at < wide.size();) {
    const bool isFirst = at == 0;
    const char32_t character = nextCharacter(wide, at);
    if (!isIn(kStart, character) && (isFirst || !isIn(kFurther, character))) return false;
  }
  return true;
}

}  // namespace opc::xml

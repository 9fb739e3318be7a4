#include "platform/opc/xml_writer.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "platform/errors/package_errors.h"
#include "platform/text/conversion.h"

namespace opc::xml {
namespace {

enum class Inside { Text, Attribute };

// What a reader would not get back as it was: markup, line ends, which XML normalises (XML 1.0, 2.11), and
// white space in attributes (3.3.3).
constexpr struct {
  char character;
  std::string_view reference;
  bool isForText;  // or only for attributes
} kReferences[] = {
    {'&', "&amp;", true},  {'<', "&lt;", true},    {'>', "&gt;", true},  // "]]>" may not stand in text
    {'\r', "&#13;", true}, {'"', "&quot;", false}, {'\t', "&#9;", false}, {'\n', "&#10;", false},
};

void append(std::string& document, std::string_view text, Inside inside) {
  // Byte by byte: what is written otherwise is ASCII, which is no part of a longer UTF-8 character.
  for (const char character : text) {
    const auto found =
        std::ranges::find(kReferences, character, [](const auto& row) { return row.character; });
    const bool isWrittenSo =
        found != std::end(kReferences) && (found->isForText || inside == Inside::Attribute);
    isWrittenSo ? document.append(found->reference) : document.append(1, character);
  }
}

/// What XML 1.0 has no way to write, not even as a reference (production 2). Surrogates have been checked
/// before.
bool isUnwritable(char16_t unit) {
  const bool isControl = unit < 0x20 && unit != u'\t' && unit != u'\n' && unit != u'\r';
  return isControl || unit >= 0xFFFE;
}

/// The usual name of a character, such as "U+0007".
std::string codeOf(char16_t unit) {
  char code[8];
  static_cast<void>(std::snprintf(code, sizeof code, "U+%04X", unsigned{unit}));
  return code;
}

}  // namespace

std::string writeElement(std::string_view name, std::span<const WrittenAttribute> attributes,
                         std::string_view text) {
  std::string element("<");
  element.append(name);
  for (const auto& [attribute, value] : attributes) {
    element.append(" ").append(attribute).append("=\"");
    append(element, value, Inside::Attribute);
    element += '"';
  }
  if (text.empty()) return element.append("/>");
  element += '>';
  append(element, text, Inside::Text);
  return element.append("</").append(name).append(">");
}

std::string writeText(std::string_view text) {
  std::string written;
  append(written, text, Inside::Text);
  return written;
}

std::string toXmlText(std::u16string_view text, std::string_view packagePath) {
  if (!fl::i18n::is_well_formed(text)) raise("opc:xml:IllFormedText", packagePath);
  const auto unwritable = std::ranges::find_if(text, isUnwritable);
  if (unwritable != text.end()) raise("opc:xml:UnwritableCharacter", packagePath, codeOf(*unwritable));
  return fl::i18n::to_string(text);
}

}  // namespace opc::xml

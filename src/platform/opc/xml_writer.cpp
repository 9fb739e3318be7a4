#include "platform/opc/xml_writer.h"

#include <algorithm>

#include "platform/errors/package_errors.h"
#include "platform/text/conversion.h"

namespace opc::xml {
namespace {

enum class Inside { Text, Attribute };

/// What a character is written as; null if as itself.
const char* referenceFor(char character, Inside inside) {
  const bool isAttribute = inside == Inside::Attribute;
  switch (character) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";  // "]]>" may not stand in text
    case '\r':
      return "&#13;";
    case '"':
      return isAttribute ? "&quot;" : nullptr;
    case '\t':
      return isAttribute ? "&#9;" : nullptr;
    case '\n':
      return isAttribute ? "&#10;" : nullptr;
    default:
      return nullptr;
  }
}

void append(std::string& document, std::string_view text, Inside inside) {
  for (const char character : text) {
    if (const char* reference = referenceFor(character, inside)) {
      document += reference;
    } else {
      document += character;
    }
  }
}

bool isUnwritable(char16_t unit) {
  const bool isControl = unit < 0x20 && unit != u'\t' && unit != u'\n' && unit != u'\r';
  return isControl || unit >= 0xFFFE;
}

std::string codeOf(char16_t unit) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string code = "U+";
  for (int shift = 12; shift >= 0; shift -= 4) code += kDigits[unit >> shift & 15];
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

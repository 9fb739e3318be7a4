#include "platform/opc/xml_writer.h"

#include <algorithm>
#include <cstdio>

#include "platform/errors/package_errors.h"
#include "platform/text/conversion.h"

namespace opc::xml {
namespace {

enum class Inside { Text, Attribute };

// Of the documents with very many elements; more only costs a further allocation.
constexpr std::size_t kUsualElement = 200;

/// How a byte is written that a reader would not get back as it was: markup, line ends, which XML normalises
/// (XML 1.0, 2.11), and white space in attributes (3.3.3). Empty for all others.
std::string_view referenceTo(char byte, Inside inside) {
  const bool isInAttribute = inside == Inside::Attribute;
  switch (byte) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";  // "]]>" may not stand in text
    case '\r':
      return "&#13;";
    case '"':
      return isInAttribute ? "&quot;" : "";
    case '\t':
      return isInAttribute ? "&#9;" : "";
    case '\n':
      return isInAttribute ? "&#10;" : "";
    default:
      return {};
  }
}

void append(std::string& document, std::string_view text, Inside inside) {
  // Byte by byte: what is written otherwise is ASCII, which is no part of a longer UTF-8 character.
  std::size_t written = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::string_view reference = referenceTo(text[at], inside);
    if (reference.empty()) continue;
    document.append(text, written, at - written).append(reference);
    written = at + 1;
  }
  document.append(text, written);
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
  std::string element;
  element.reserve(kUsualElement);
  element.append("<").append(name);
  for (const auto& [attribute, value] : attributes) {
    element.append(" ").append(attribute).append("=\"");
    append(element, value, Inside::Attribute);
    element += '"';
  }
  if (text.empty()) {
    element.append("/>");
    return element;  // what append gives would be copied
  }
  element += '>';
  append(element, text, Inside::Text);
  element.append("</").append(name).append(">");
  return element;
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

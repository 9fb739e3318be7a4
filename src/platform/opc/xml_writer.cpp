#include "platform/opc/xml_writer.h"

#include <optional>

#include "platform/errors/package_errors.h"
#include "platform/text/conversion.h"

namespace opc::xml {
namespace {

bool isControl(char16_t unit) { return unit < 0x20 && unit != u'\t' && unit != u'\n' && unit != u'\r'; }

[[noreturn]] void raiseUnwritable(char16_t unit, std::string_view packagePath) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string code = "U+";
  for (int shift = 12; shift >= 0; shift -= 4) code += kDigits[unit >> shift & 15];
  raise("opc:xml:UnwritableCharacter", packagePath, code);
}

/// The first character of well-formed UTF-8 that XML 1.0 has no place for.
std::optional<char16_t> unwritableIn(std::string_view text) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (isControl(byte)) return byte;
    // U+FFFE and U+FFFF are EF BF BE and EF BF BF.
    if (byte != 0xEF || text.substr(at, 2) != "\xEF\xBF") continue;
    const auto last = static_cast<unsigned char>(text[at + 2]);
    if (last >= 0xBE) return static_cast<char16_t>(0xFF00 + last + 0x40);
  }
  return std::nullopt;
}

}  // namespace

Writer::Writer(std::string_view packagePath, Start start) : packagePath_(packagePath) {
  if (start == Start::Document) document_ = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";
}

Writer& Writer::open(std::string_view name) {
  endTag();
  document_.append("<").append(name);
  open_.emplace_back(name);
  isTagOpen_ = true;
  return *this;
}

Writer& Writer::attribute(std::string_view name, std::string_view value) {
  document_.append(" ").append(name).append("=\"");
  append(value, Inside::Attribute);
  document_ += '"';
  return *this;
}

Writer& Writer::text(std::string_view value) {
  if (value.empty()) return *this;
  endTag();
  append(value, Inside::Text);
  return *this;
}

Writer& Writer::close() {
  if (isTagOpen_) {
    document_ += "/>";
  } else {
    document_.append("</").append(open_.back()).append(">");
  }
  isTagOpen_ = false;
  open_.pop_back();
  return *this;
}

void Writer::endTag() {
  if (isTagOpen_) document_ += '>';
  isTagOpen_ = false;
}

const char* Writer::referenceFor(char character, Inside inside) {
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

void Writer::append(std::string_view value, Inside inside) {
  if (!fl::i18n::is_well_formed(value)) raise("opc:xml:IllFormedText", packagePath_);
  if (const auto unwritable = unwritableIn(value)) raiseUnwritable(*unwritable, packagePath_);
  for (const char character : value) {
    if (const char* reference = referenceFor(character, inside)) {
      document_ += reference;
    } else {
      document_ += character;
    }
  }
}

std::string toXmlText(std::u16string_view text, std::string_view packagePath) {
  if (!fl::i18n::is_well_formed(text)) raise("opc:xml:IllFormedText", packagePath);
  std::string narrow = fl::i18n::to_string(text);
  if (const auto unwritable = unwritableIn(narrow)) raiseUnwritable(*unwritable, packagePath);
  return narrow;
}

}  // namespace opc::xml

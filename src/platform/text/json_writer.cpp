#include "platform/text/json_writer.h"

#include <charconv>
#include <cmath>
#include <utility>

#include "platform/text/conversion.h"

namespace fl::i18n {
namespace {

/// RFC 8259, section 7: four hexadecimal digits, those of a UTF-16 code unit.
void appendUnicodeEscape(std::string& text, unsigned unit) {
  constexpr char kHex[] = "0123456789abcdef";
  text += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) text += kHex[(unit >> shift) & 0xF];
}

/// Not by a stream or printf, which follow the locale: JSON has a point in every language. 32 characters hold
/// the longest number of each type (24 for a double).
template <class Number>
void appendNumber(std::string& text, Number number) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  text.append(digits, end);
}

/// Whether a unit of a text stands for itself, as UTF-8 and without an escape. That is so of nearly all.
/// Without a branch, so that the compiler takes several units as one vector.
template <class Unit>
bool isPlain(Unit unit) {
  return (unit >= 0x20) & (unit < 0x7F) & (unit != '"') & (unit != '\\');
}

/// Copies the text to `narrow` if all of it is plain; else false.
bool narrowPlain(std::u16string_view text, char* narrow) {
  // Two loops of a fixed length over each block, since the compiler makes vectors of those alone.
  constexpr std::size_t kBlock = 8;
  std::size_t at = 0;
  for (; text.size() - at >= kBlock; at += kBlock) {
    const char16_t* const block = text.data() + at;
    char16_t others = 0;
    for (std::size_t i = 0; i < kBlock; ++i) others |= isPlain(block[i]) ? 0 : 1;
    if (others != 0) return false;
    for (std::size_t i = 0; i < kBlock; ++i) narrow[at + i] = static_cast<char>(block[i]);
  }
  for (; at < text.size() && isPlain(text[at]); ++at) narrow[at] = static_cast<char>(text[at]);
  return at == text.size();
}

}  // namespace

// Called before every value. A value that follows its member's name needs no comma, since the name, itself
// written as a value, has put it. The outermost value needs none either.
void JsonWriter::separate() {
  if (std::exchange(afterMember_, false) || hasElements_.empty()) return;
  if (hasElements_.back()) text_ += ',';
  hasElements_.back() = true;
}

JsonWriter& JsonWriter::open(char bracket) {
  separate();
  text_ += bracket;
  hasElements_.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
  text_ += bracket;
  hasElements_.pop_back();
  return *this;
}

JsonWriter& JsonWriter::beginObject() { return open('{'); }
JsonWriter& JsonWriter::endObject() { return close('}'); }
JsonWriter& JsonWriter::beginArray() { return open('['); }
JsonWriter& JsonWriter::endArray() { return close(']'); }

JsonWriter& JsonWriter::member(std::string_view name) {
  value(name);
  text_ += ':';
  afterMember_ = true;
  return *this;
}

JsonWriter& JsonWriter::value(std::string_view narrow) {
  separate();
  text_ += '"';
  appendEscaped(narrow);
  text_ += '"';
  return *this;
}

JsonWriter& JsonWriter::value(std::u16string_view text) {
  separate();
  // Nearly all texts are plain: they are written in place, between their quotes.
  const std::size_t begin = text_.size();
  text_.resize(begin + text.size() + 2, '"');
  if (narrowPlain(text, text_.data() + begin + 1)) return *this;
  text_.resize(begin + 1);
  // JSON is UTF-8, in which a lone surrogate cannot be written, and leaving it out would make two different
  // texts equal. In escapes nothing of it is lost.
  if (is_well_formed(text)) {
    appendEscaped(to_string(text));
  } else {
    for (const char16_t unit : text) appendUnicodeEscape(text_, unit);
  }
  text_ += '"';
  return *this;
}

JsonWriter& JsonWriter::value(bool logical) {
  separate();
  text_ += logical ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::value(std::int64_t number) {
  separate();
  appendNumber(text_, number);
  return *this;
}

JsonWriter& JsonWriter::value(std::uint64_t number) {
  separate();
  appendNumber(text_, number);
  return *this;
}

JsonWriter& JsonWriter::value(double number) {
  separate();
  // JSON has no word for infinities and NaN (RFC 8259, section 6).
  if (std::isfinite(number)) {
    appendNumber(text_, number);
  } else {
    text_ += "null";
  }
  return *this;
}

JsonWriter& JsonWriter::append(std::string_view json) {
  text_ += json;
  return *this;
}

std::string JsonWriter::take() { return std::exchange(text_, {}); }

void JsonWriter::appendEscaped(std::string_view narrow) {
  for (std::size_t i = 0; i < narrow.size(); ++i) {
    const std::size_t start = i;
    while (i < narrow.size() && isPlain(narrow[i])) ++i;
    text_.append(narrow, start, i - start);
    if (i == narrow.size()) break;
    const auto byte = static_cast<unsigned char>(narrow[i]);
    // In UTF-8 the control characters from U+0080 to U+009F are C2 and their own byte. A caller that does not
    // keep to well-formed texts may end one after C2.
    const bool isTwoByteControl =
        byte == 0xC2 && i + 1 < narrow.size() && static_cast<unsigned char>(narrow[i + 1]) < 0xA0;
    if (byte == '"' || byte == '\\') {
      text_ += '\\';
      text_ += narrow[i];
    } else if (byte < 0x20 || byte == 0x7F) {
      appendUnicodeEscape(text_, byte);
    } else if (isTwoByteControl) {
      appendUnicodeEscape(text_, static_cast<unsigned char>(narrow[++i]));
    } else {
      // Also each byte of a longer sequence: beyond ASCII nothing else needs an escape.
      text_ += narrow[i];
    }
  }
}

}  // namespace fl::i18n

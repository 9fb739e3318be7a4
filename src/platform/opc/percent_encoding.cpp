#include "platform/opc/percent_encoding.h"

#include <algorithm>

namespace opc::percent {
namespace {

/// The value of a hex digit, or -1.
int hexValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

/// Not the library's `tolower`, which depends on the locale.
constexpr char lowerOf(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

std::string encode(std::string_view bytes, const Literals& literals) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(bytes.size());
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    // Most of a name stays as it is, and is copied at once.
    const std::size_t start = at;
    while (at < bytes.size() && literals.contains(bytes[at])) ++at;
    encoded.append(bytes, start, at - start);
    if (at == bytes.size()) break;
    const auto byte = static_cast<unsigned char>(bytes[at]);
    const char escape[] = {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    encoded.append(escape, sizeof escape);
  }
  return encoded;
}

bool isEncodedPrintable(std::string_view text, const Literals& literals) {
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (literals.contains(text[at])) continue;
    if (text[at] != '%' || text.size() - at < 3) return false;
    const int high = hexValue(text[at + 1]), low = hexValue(text[at + 2]);
    // Printable ASCII is 0x20 to 0x7E. `encode` writes upper-case digits, and encodes no literal.
    if (high < 2 || high > 7 || low < 0 || text[at + 2] > 'F') return false;
    const int byte = high * 16 + low;
    if (byte > '~' || literals.contains(static_cast<char>(byte))) return false;
    at += 2;
  }
  return true;
}

std::optional<std::string> decode(std::string_view encoded) {
  std::string bytes;
  bytes.reserve(encoded.size());
  for (std::size_t at = 0; at < encoded.size(); ++at) {
    const std::size_t start = at;
    at = std::min(encoded.find('%', at), encoded.size());
    bytes.append(encoded, start, at - start);
    if (at == encoded.size()) break;
    if (encoded.size() - at < 3) return std::nullopt;
    const int high = hexValue(encoded[at + 1]), low = hexValue(encoded[at + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return bytes;
}

std::string toLower(std::string_view text) {
  std::string lower(text);
  std::ranges::transform(lower, lower.begin(), lowerOf);
  return lower;
}

bool equalsIgnoringCase(std::string_view one, std::string_view other) {
  return std::ranges::equal(one, other, {}, lowerOf, lowerOf);
}

}  // namespace opc::percent

#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

/// Percent-encoding (RFC 3986, 2.1) of bytes, and the letter case of what is encoded so.
namespace opc::percent {

/// The bytes that stand for themselves. A table, because every byte of every name is looked up.
class Literals {
 public:
  /// ASCII letters and digits, and these.
  constexpr explicit Literals(std::string_view further) {
    constexpr std::string_view kAlphanumeric =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    for (const char character : kAlphanumeric) members_[static_cast<unsigned char>(character)] = true;
    for (const char character : further) members_[static_cast<unsigned char>(character)] = true;
  }
  constexpr bool contains(char byte) const { return members_[static_cast<unsigned char>(byte)]; }

 private:
  std::array<bool, 256> members_{};
};

/// RFC 3986 pchar: what a path segment carries as it is.
inline constexpr Literals kSegmentLiterals("-._~!$&'()*+,;=:@");
/// The same and the slash.
inline constexpr Literals kPathLiterals("/-._~!$&'()*+,;=:@");
/// RFC 9110 tchar without "%": what a media type carries as it is.
inline constexpr Literals kTokenLiterals("!#$&'*+-.^_`|~");

/// Every byte that is not literal becomes "%XX" with upper-case hex.
std::string encode(std::string_view bytes, const Literals& literals);

/// Whether a text is exactly what `encode` makes of printable ASCII. If not, it may still be what it makes of
/// other bytes.
bool isEncodedPrintable(std::string_view text, const Literals& literals);

/// Decodes once. Nothing if a "%" is not followed by two hex digits.
std::optional<std::string> decode(std::string_view encoded);

/// ASCII letters in lower case; other bytes stay.
std::string toLower(std::string_view text);
/// Whether two texts are the same but for the case of ASCII letters.
bool equalsIgnoringCase(std::string_view one, std::string_view other);

}  // namespace opc::percent

#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Percent-encoding (RFC 3986, 2.1) of bytes.
namespace opc::percent {

/// Whether a byte stands for itself.
using IsLiteral = bool (*)(unsigned char);

/// RFC 3986 pchar: what a path segment carries as it is.
bool isSegmentCharacter(unsigned char byte);
/// RFC 9110 tchar without "%": what a media type carries as it is.
bool isTokenCharacter(unsigned char byte);

/// Every byte that is not literal becomes "%XX" with upper-case hex.
std::string encode(std::string_view bytes, IsLiteral isLiteral);

/// Decodes once. Nothing if a "%" is not followed by two hex digits.
std::optional<std::string> decode(std::string_view encoded);

/// ASCII letters in lower case; other bytes stay.
std::string toLower(std::string_view text);

}  // namespace opc::percent

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace opc::model {

/// A media type, "type/subtype" (RFC 9110, 8.3.1; parameters are not allowed by the conventions). Decoded
/// text for callers; what a media type cannot carry, and "%", is percent-encoded in the stored subtype.
/// Copies share the text, because thousands of parts have one type.
class ContentType {
 public:
  /// From decoded text. Everything after the "/" is the subtype, so what looks like a parameter is encoded as
  /// part of it. Raises opc::Exception, naming the text, unless it is a token, one "/" and a subtype, and for
  /// NUL and lone surrogates.
  explicit ContentType(std::u16string_view decoded);

  /// From stored text; nothing if it is not two tokens with a "/" between them.
  static std::optional<ContentType> tryFromEncoded(std::string_view encoded);

  /// As documents have it: ASCII.
  const std::string& encoded() const { return *encoded_; }
  /// Decoded, what follows the "/". A subtype that is not sound percent-encoding of UTF-8 is given as it
  /// stands: a media type may well have a "%" that means nothing.
  std::u16string getSubType() const;

  /// Media types are compared without regard to ASCII case.
  bool operator==(const ContentType& other) const;

 private:
  explicit ContentType(std::string encoded);
  std::shared_ptr<const std::string> encoded_;
};

}  // namespace opc::model

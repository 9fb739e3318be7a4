#pragma once

#include <string>
#include <string_view>

namespace opc::model {

/// A media type, "type/subtype" (RFC 9110, 8.3.1; parameters are not allowed by the conventions). Decoded text for
/// callers; characters that a media type cannot carry are stored percent-encoded.
class ContentType {
 public:
  /// From decoded text, encoding what needs it. Raises opc::Exception unless it is type "/" subtype.
  explicit ContentType(std::u16string_view decoded);

  /// From stored text. Raises opc::Exception if it is not a media type.
  static ContentType fromEncoded(std::string_view encoded);

  const std::string& encoded() const { return encoded_; }
  std::u16string text() const;
  std::u16string getType() const;
  /// Decoded, what follows the "/".
  std::u16string getSubType() const;

  /// Media types are compared without regard to ASCII case.
  bool operator==(const ContentType& other) const;

 private:
  ContentType() = default;
  std::string encoded_;
};

}  // namespace opc::model

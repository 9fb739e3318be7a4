#pragma once

#include <string>
#include <string_view>

namespace opc::model {

/// Where a relationship leads, as decoded text.
class URI {
 public:
  /// Raises opc::Exception for a text that no new target may be (empty, NUL, lone surrogates).
  explicit URI(std::u16string_view text);

  /// The target of a relationship that stands in a document; that one may be empty.
  static URI asWritten(std::u16string text);

  const std::u16string& text() const { return text_; }
  bool operator==(const URI&) const = default;

 private:
  URI() = default;
  std::u16string text_;
};

}  // namespace opc::model

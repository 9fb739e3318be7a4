#pragma once

#include <string>
#include <string_view>

namespace opc::model {

/// Where a relationship leads, as decoded text.
class URI {
 public:
  /// Raises opc::Exception for a text that no target can carry (empty, NUL, lone surrogates).
  explicit URI(std::u16string_view text);

  const std::u16string& text() const { return text_; }
  bool operator==(const URI&) const = default;

 private:
  std::u16string text_;
};

}  // namespace opc::model

#pragma once

#include <string>
#include <string_view>

namespace opc::model {

/// The absolute name of a part. Callers see decoded text ("/user/my run (1).csv"); the package stores ASCII,
/// percent-encoded with upper-case hex ("/user/my%20run%20(1).csv"). Two names are equal when their encoded
/// forms are equal ignoring ASCII case. Nothing is Unicode-normalised.
class PartName {
 public:
  /// From decoded text. Raises opc::Exception for what no part may be called: no leading "/", empty segments,
  /// segments ending in ".", backslash, NUL, lone surrogates, the name of a relationship part, more than 16 KiB
  /// encoded.
  explicit PartName(std::u16string_view decoded);

  /// From stored text, decoded exactly once and then checked. Raises likewise, and for bad percent-encoding.
  static PartName fromEncoded(std::string_view encoded);

  const std::u16string& text() const { return text_; }
  const std::string& encoded() const { return encoded_; }

  /// The encoded form in lower case: what names are compared, sorted and looked up by.
  const std::string& key() const { return key_; }
  bool operator==(const PartName& other) const { return key_ == other.key_; }

  /// The name of the relationship part of this part ("/a/_rels/b.txt.rels"), encoded.
  std::string relationshipPartName() const;

 private:
  PartName(std::u16string text, std::string encoded);
  std::u16string text_;
  std::string encoded_, key_;
};

}  // namespace opc::model

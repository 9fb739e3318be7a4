#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace opc::model {

/// The absolute name of a part. Callers see decoded text ("/user/my run (1).csv"); the package stores ASCII,
/// percent-encoded with upper-case hex ("/user/my%20run%20(1).csv"). What a path segment can carry (RFC 3986,
/// pchar) stands as it is. Two names are equal when their encoded forms are equal ignoring ASCII case.
/// Nothing is Unicode-normalised. Copies share the texts.
class PartName {
 public:
  /// From decoded text. Raises opc::Exception, naming the text, for what no part may be called: no leading
  /// "/", a path above the root, empty segments, segments ending in ".", backslash, NUL, lone surrogates, the
  /// name of a relationship part, more than 16 KiB encoded.
  explicit PartName(std::u16string_view decoded);
  /// The same; nothing for what no part may be called.
  static std::optional<PartName> tryFromText(std::u16string_view decoded);

  /// From stored text, decoded exactly once and then checked; nothing for what no part may be called, nor for
  /// bad percent-encoding, an encoded "/" or "\" and bytes that are not UTF-8. Other spellings of a name
  /// ("%41" for "A", lower-case hex, characters that should have been encoded, as careless writers leave
  /// them) give the same name.
  static std::optional<PartName> tryFromEncoded(std::string_view encoded);
  /// Only the `text` of what `tryFromEncoded` gives.
  static std::optional<std::u16string> tryDecode(std::string_view encoded);
  /// Only the `key` of it.
  static std::optional<std::string> tryKey(std::string_view encoded);
  /// Whether the name of an entry, which has no leading "/", is the key but for that, as most are.
  static bool isKeyOfEntry(std::string_view name);

  /// Decoded, for callers and messages.
  const std::u16string& text() const { return texts_->text; }
  /// In canonical form, for documents and new entries. The entry of a part may spell it otherwise.
  const std::string& encoded() const { return texts_->encoded; }

  /// The encoded form in lower case: what names are compared, sorted and looked up by.
  const std::string& key() const { return texts_->key; }
  bool operator==(const PartName& other) const { return key() == other.key(); }

 private:
  struct Texts {
    std::u16string text;
    std::string encoded, key;
  };
  PartName(std::u16string text, std::string encoded);

  std::shared_ptr<const Texts> texts_;
};

/// The name of the relationship part of a part given by its encoded name ("/a/_rels/b.txt.rels" for
/// "/a/b.txt"); of the package for an empty one.
std::string relationshipPartNameOf(std::string_view encodedName);

/// Whether two neighbouring segments of a name are what every relationship part ends in, "_rels/….rels".
bool isRelationshipPart(std::string_view folder, std::string_view file);

/// The key of any absolute name, relationship parts included: decoded once, encoded anew, in lower case.
/// Nothing for what is no absolute name or is badly encoded.
std::optional<std::string> nameKey(std::string_view encoded);

}  // namespace opc::model

#pragma once

#include <cstdint>
#include <memory>
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

  /// Where the target of an internal relationship leads, for a source given by its encoded name (empty for
  /// the package). It is resolved (RFC 3986, 5.2) before it is decoded, once; a fragment is left out. If the
  /// outcome is a part name, the result is its decoded text. Everything else matches no part and reads as a
  /// path above the root, which no part can have: "/../x" for a target that climbs there, "/../" and the
  /// target as written for one with a query, a scheme, an authority, a backslash, an encoded slash or dot
  /// segment, an empty segment, or a bad percent-encoding.
  static URI resolved(std::string_view source, std::string_view target);

  /// May be empty for a target that was read.
  const std::u16string& text() const { return text_; }
  bool operator==(const URI&) const = default;

 private:
  URI() = default;
  std::u16string text_;
};

/// Internal targets are inside the package, external ones anything else, such as a web address.
enum class TargetMode : std::uint8_t { Internal, External };

/// One typed link from a package or part to a target. The target of an internal relationship is resolved,
/// absolute, decoded text, whatever the document wrote; one that climbs above the root is kept but matches no
/// part. The target of an external relationship is the text as written, and is never a part. Copies share the
/// texts, because listings of many thousand relationships are copied.
class Relationship {
 public:
  using Type = std::shared_ptr<const std::u16string>;
  /// The ID is UTF-8. Relationships of one type may share its text.
  Relationship(std::string id, Type type, URI target, TargetMode mode);

  const std::string& getID() const { return texts_->id; }
  const std::u16string& getType() const { return *texts_->type; }
  const URI& getTarget() const { return texts_->target; }
  TargetMode getTargetMode() const { return mode_; }

 private:
  struct Texts {
    std::string id;
    Type type;
    URI target;
  };
  std::shared_ptr<const Texts> texts_;
  TargetMode mode_;
};

/// Which relationships a listing leaves out.
enum class ExcludeMode { None = 0, External = 1 };

}  // namespace opc::model

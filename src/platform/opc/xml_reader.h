#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace opc::xml {

/// Where a document is, for messages: the package's path and the document's name in it, both UTF-8. The texts
/// must outlive the call they are given to.
struct Location {
  std::string_view package, part;
};

/// What the prefix "xml" stands for in every document, declared or not.
inline constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";

/// A name with its namespace resolved. Valid during the call that hands it out, like every text below.
struct Name {
  std::string_view space, local, prefix;

  /// With its prefix.
  std::string written() const {
    return prefix.empty() ? std::string(local) : std::string(prefix).append(":").append(local);
  }
  bool is(std::string_view otherSpace, std::string_view otherLocal) const {
    return local == otherLocal && space == otherSpace;
  }
};

struct Attribute {
  std::string_view space, local, value;
};

/// The attributes of one element; namespace declarations are not among them.
class Attributes {
 public:
  explicit Attributes(std::span<const Attribute> list) : list_(list) {}

  /// The value of an attribute without a namespace, or of one in `space`.
  // Here, so that the comparisons with a literal become those of a few bytes.
  std::optional<std::string_view> find(std::string_view local, std::string_view space = {}) const {
    for (const Attribute& attribute : list_) {
      if (attribute.local == local && attribute.space == space) return attribute.value;
    }
    return std::nullopt;
  }

 private:
  std::span<const Attribute> list_;
};

/// A piece of a document's text, from one byte to before another; in UTF-8, also where the document was
/// UTF-16.
struct Span {
  std::size_t begin = 0, end = 0;
};

/// Is told what a document consists of, in its order. All texts are UTF-8. It may raise.
class Handler {
 public:
  virtual ~Handler();
  /// Comes first, unless the document is read piece by piece: all of it, which the spans below are pieces of.
  virtual void begin(std::string_view document);
  /// Comes before the element that carries the declaration.
  virtual void declare(std::string_view prefix, std::string_view space);
  /// For an element that is written as one empty tag, the tag is all of it.
  virtual void start(const Name& name, const Attributes& attributes, Span tag) = 0;
  /// The tag of an element that is written as one empty tag is the empty piece behind that.
  virtual void end(Span tag) = 0;
  /// A run of text may come in several pieces.
  virtual void text(std::string_view piece) = 0;
};

/// Reads one document, strictly: XML 1.0 with namespaces, in UTF-8 or UTF-16 with or without a byte-order
/// mark. A document type declaration, elements nested deeper than `depthLimit` and any other encoding are
/// refused, so there are no entities beyond the five of XML itself. Raises PackageOpenFailed, naming package
/// and part.
void read(std::string_view bytes, const Location& location, int depthLimit, Handler& handler);

/// Gives the next bytes of a document, up to `count`, and 0 at its end. May raise.
using Source = std::function<std::size_t(char* into, std::size_t count)>;

/// The same for a document that is never in memory as a whole, unless it is UTF-16.
void read(const Source& source, const Location& location, int depthLimit, Handler& handler);

}  // namespace opc::xml

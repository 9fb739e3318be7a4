#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/opc/document_place.h"

namespace opc::xml {

/// A namespace declaration that stands on an element; an empty prefix declares the default.
struct Declaration {
  std::string prefix, space;
};

/// A name with the prefix it is written with.
struct QualifiedName {
  std::string space, local, prefix;

  std::string written() const { return prefix.empty() ? local : prefix + ":" + local; }
};

/// One element of a small document that is kept whole, so that editing one element leaves the others as they
/// are. All texts are UTF-8.
struct Element {
  struct Attribute {
    QualifiedName name;
    std::string value;
  };
  using Child = std::variant<std::string, Element>;

  QualifiedName name;
  std::vector<Declaration> declarations;
  std::vector<Attribute> attributes;
  std::vector<Child> children;

  /// The first child element of that name, or null.
  Element* find(std::string_view space, std::string_view local);
  const Element* find(std::string_view space, std::string_view local) const;
  /// All text below, in order.
  std::string text() const;
};

/// Raises as `xml::read`.
Element readElement(std::string_view bytes, const DocumentPlace& place, int depthLimit);
/// A whole document with this root, in UTF-8. Raises opc::Exception, naming the package, for a text that XML
/// cannot carry.
std::string writeDocument(const Element& root, std::string_view packagePath);

}  // namespace opc::xml

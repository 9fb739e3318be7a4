#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace opc::xml {

/// What a new document begins with.
inline constexpr std::string_view kDeclaration =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n";

/// Name, prefix included, and value, as readers are to get it.
using WrittenAttribute = std::pair<std::string_view, std::string_view>;

/// One element in UTF-8, `<name a="b">text</name>`, or `<name a="b"/>` without a text. Names are given as
/// they are to be written, prefixes included; the texts must be such as XML can carry (see `toXmlText`).
/// Every reader gets back exactly these texts: carriage returns, and in attributes tabs and line feeds, are
/// written as references.
std::string writeElement(std::string_view name, std::span<const WrittenAttribute> attributes,
                         std::string_view text = {});
inline std::string writeElement(std::string_view name, std::initializer_list<WrittenAttribute> attributes,
                                std::string_view text = {}) {
  return writeElement(name, std::span(attributes.begin(), attributes.size()), text);
}

/// A text as it stands between the tags of an element, with references where a reader would take it for
/// markup.
std::string writeText(std::string_view text);

/// UTF-16 as UTF-8 for a document. Raises opc::Exception, naming the package, for what XML 1.0 cannot carry:
/// most control characters, U+FFFE, U+FFFF and ill-formed text.
std::string toXmlText(std::u16string_view text, std::string_view packagePath);

}  // namespace opc::xml

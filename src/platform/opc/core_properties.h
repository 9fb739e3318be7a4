#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/opc/xml_reader.h"

namespace opc {

namespace model {

/// The core properties (Dublin Core and the conventions' own) that this system knows how to set.
enum class CoreProperty { Description, Version, Creator, Created };

}  // namespace model

// The document of a package's core properties ("/docProps/core.xml"), as text. One that is malformed or of
// another kind raises PackageOpenFailed, naming package and part.

/// A document without properties, with the prefixes that they usually have.
std::string newCoreProperties();

/// Nothing if the document does not have the property. Where it has it twice, the first counts.
std::optional<std::u16string> coreProperty(std::string_view document, model::CoreProperty property,
                                           const xml::Location& location, int depthLimit);

/// The document with the first of that property set, or one added at the end, and without any further ones;
/// every other byte stays as it was. Raises opc::Exception, naming the package, for a text that XML cannot
/// carry. `Created` takes a W3C date and time ("2026-11-21T09:30:00Z"), whose form is not checked.
std::string withCoreProperty(std::string_view document, model::CoreProperty property,
                             std::u16string_view text, const xml::Location& location, int depthLimit);

}  // namespace opc

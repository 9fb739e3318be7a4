#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/opc/core_property.h"
#include "platform/opc/document_place.h"
#include "platform/opc/xml_element.h"
#include "platform/zip/limits.h"

namespace opc {

/// The core properties of a package ("/docProps/core.xml"). Setting one keeps every other property, unknown
/// elements, attributes and the order; comments and processing instructions are not kept.
class CoreProperties {
 public:
  /// No properties yet.
  CoreProperties();

  /// Raises PackageOpenFailed, with the rule that is broken, naming package and part.
  static CoreProperties parse(std::string_view bytes, const DocumentPlace& place,
                              const zip::Limits& limits = {});

  /// Nothing if the property is missing. Where a document has it twice, the first counts.
  std::optional<std::u16string> get(model::CoreProperty property) const;

  /// Sets the first and removes the others. Raises opc::Exception, naming the package, for a text that XML
  /// cannot carry. `Created` takes a W3C date and time
  /// ("2026-11-21T09:30:00Z"); its form is not checked.
  void set(model::CoreProperty property, std::u16string_view text, std::string_view packagePath);

  std::string toBytes() const;

 private:
  explicit CoreProperties(xml::Element root) : root_(std::move(root)) {}
  xml::Element root_;
};

}  // namespace opc

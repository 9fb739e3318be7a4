#include "platform/opc/core_properties.h"

#include <algorithm>

#include "platform/errors/package_errors.h"
#include "platform/opc/xml_writer.h"
#include "platform/text/conversion.h"

namespace opc {
namespace {

constexpr std::string_view kOwnSpace =
    "http://schemas.openxmlformats.org/package/2006/metadata/core-properties";
constexpr std::string_view kElementsSpace = "http://purl.org/dc/elements/1.1/";
constexpr std::string_view kTermsSpace = "http://purl.org/dc/terms/";
constexpr std::string_view kSchemaSpace = "http://www.w3.org/2001/XMLSchema-instance";

struct Place {
  std::string_view space, local, usualPrefix;
};

Place placeOf(model::CoreProperty property) {
  switch (property) {
    case model::CoreProperty::Description:
      return {kElementsSpace, "description", "dc"};
    case model::CoreProperty::Version:
      return {kOwnSpace, "version", "cp"};
    case model::CoreProperty::Creator:
      return {kElementsSpace, "creator", "dc"};
    case model::CoreProperty::Created:
      return {kTermsSpace, "created", "dcterms"};
  }
  return {};
}

bool declares(const xml::Element& element, std::string_view prefix) {
  return std::any_of(element.declarations.begin(), element.declarations.end(),
                     [&](const xml::Declaration& declaration) { return declaration.prefix == prefix; });
}

/// A prefix that stands for the namespace in a new child of the root; declared on the root if there is none
/// yet.
std::string prefixFor(xml::Element& root, std::string_view space, std::string_view usualPrefix) {
  for (const xml::Declaration& declaration : root.declarations) {
    // Not the default namespace: attributes cannot use it.
    if (declaration.space == space && !declaration.prefix.empty()) return declaration.prefix;
  }
  std::string prefix(usualPrefix);
  while (declares(root, prefix)) prefix += '_';
  root.declarations.push_back({prefix, std::string(space)});
  return prefix;
}

xml::Element& addProperty(xml::Element& root, const Place& place) {
  xml::Element element;
  const std::string prefix = prefixFor(root, place.space, place.usualPrefix);
  element.name = {std::string(place.space), std::string(place.local), prefix};
  if (place.space == kTermsSpace) {
    // The conventions want dates marked as such, with a type named by its prefix.
    const std::string schema = prefixFor(root, kSchemaSpace, "xsi");
    element.attributes.push_back({{std::string(kSchemaSpace), "type", schema}, prefix + ":W3CDTF"});
  }
  root.children.emplace_back(std::move(element));
  return std::get<xml::Element>(root.children.back());
}

/// Leaves one element of that name, so that every reader sees the same text.
void eraseAfterFirst(xml::Element& root, const Place& place) {
  const xml::Element* first = root.find(place.space, place.local);
  const auto isFurther = [&](const xml::Element::Child& child) {
    const auto* element = std::get_if<xml::Element>(&child);
    return element != nullptr && element != first && element->name.local == place.local &&
           element->name.space == place.space;
  };
  for (std::size_t i = root.children.size(); i-- > 0;) {
    if (isFurther(root.children[i]))
      root.children.erase(root.children.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

}  // namespace

CoreProperties::CoreProperties() {
  root_.name = {std::string(kOwnSpace), "coreProperties", "cp"};
  root_.declarations = {{"cp", std::string(kOwnSpace)},
                        {"dc", std::string(kElementsSpace)},
                        {"dcterms", std::string(kTermsSpace)},
                        {"xsi", std::string(kSchemaSpace)}};
}

CoreProperties CoreProperties::parse(std::string_view bytes, const DocumentPlace& place,
                                     const zip::Limits& limits) {
  xml::Element root = xml::readElement(bytes, place, limits.xmlDepth);
  if (root.name.space != kOwnSpace || root.name.local != "coreProperties") {
    refuse("opc:coreProperties:WrongRoot", place.package, place.part, root.name.local);
  }
  return CoreProperties(std::move(root));
}

std::optional<std::u16string> CoreProperties::get(model::CoreProperty property) const {
  const Place place = placeOf(property);
  const xml::Element* element = root_.find(place.space, place.local);
  if (element == nullptr) return std::nullopt;
  return fl::i18n::to_ustring(element->text());
}

void CoreProperties::set(model::CoreProperty property, std::u16string_view text,
                         std::string_view packagePath) {
  const Place place = placeOf(property);
  std::string narrow = xml::toXmlText(text, packagePath);
  xml::Element* element = root_.find(place.space, place.local);
  if (element == nullptr) element = &addProperty(root_, place);
  eraseAfterFirst(root_, place);
  element->children.clear();
  element->children.emplace_back(std::move(narrow));
}

std::string CoreProperties::toBytes() const {
  // Every text was read from XML or checked when it was set, so nothing in here can be refused.
  return xml::writeDocument(root_, {});
}

}  // namespace opc

#include "platform/opc/package_core_properties.h"

#include <string>

#include "platform/errors/package_errors.h"
#include "platform/opc/core_properties.h"
#include "platform/opc/document_place.h"

namespace opc {

namespace {

using model::PartName;

constexpr std::u16string_view kRelationshipType =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";
constexpr std::u16string_view kContentType = u"application/vnd.openxmlformats-package.core-properties+xml";
// A list of properties is a few lines; what is larger is none.
constexpr std::uint64_t kLargestDocument = std::uint64_t{16} << 20;

std::optional<PartName> corePropertiesPart(const model::PackageState& state) {
  const PackageContents& contents = state.contents();
  for (const auto& link : contents.relationships().relationshipsByType(kRelationshipType)) {
    if (link.getTargetMode() == model::TargetMode::External) continue;
    // A target above the root is no part name and matches no part.
    if (!link.getTarget().text().starts_with(u'/') || link.getTarget().text().starts_with(u"/../")) continue;
    const PartName name(link.getTarget().text());
    if (contents.find(name.key())) return name;
  }
  return std::nullopt;
}

CoreProperties readPart(const model::PackageState& state, const PartName& name, const zip::Limits& limits) {
  const std::string bytes = state.readWhole(name, kLargestDocument);
  return CoreProperties::parse(bytes, DocumentPlace{state.path(), name.encoded()}, limits);
}

PartName freeName(const PackageContents& contents) {
  for (int number = 0;; ++number) {
    const std::string suffix = number == 0 ? "" : std::to_string(number);
    const auto name = PartName::fromEncoded("/docProps/core" + suffix + ".xml");
    if (!contents.find(name.key()) && !contents.index().isNameOfItem(name.key())) return name;
  }
}

PartName createPart(model::PackageState& state) {
  PackageContents& contents = state.editContents();
  const PartName name = freeName(contents);
  contents.create(name, model::ContentType(kContentType));
  contents.addRelationship(kRelationshipType, model::URI(name.text()), {});
  return name;
}

}  // namespace

std::optional<std::u16string> coreProperty(const model::PackageState& state, model::CoreProperty property,
                                           const zip::Limits& limits) {
  const auto part = corePropertiesPart(state);
  if (!part) return std::nullopt;
  return readPart(state, *part, limits).get(property);
}

void setCoreProperty(model::PackageState& state, model::CoreProperty property, std::u16string_view text,
                     const zip::Limits& limits) {
  state.editContents();
  const auto part = corePropertiesPart(state);
  CoreProperties properties = part ? readPart(state, *part, limits) : CoreProperties();
  properties.set(property, text, state.path());
  const std::string bytes = properties.toBytes();
  if (bytes.size() > kLargestDocument) {
    raise("opc:package:PropertiesTooLarge", state.path(), kLargestDocument);
  }
  // Only now: a refused text must not leave an empty part behind.
  state.write(part ? *part : createPart(state), bytes);
}

}  // namespace opc

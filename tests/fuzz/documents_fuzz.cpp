// Reads every kind of document; what can be read must be written so that it reads the same.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/errors/package_errors.h"
#include "platform/opc/content_types_document.h"
#include "platform/opc/core_properties.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationships_document.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void readContentTypes(std::string_view bytes) {
  auto document = opc::ContentTypesDocument::parse(bytes, "p");
  document.contentTypeOf("/a/b.xml");
  const std::string written = document.toBytes();
  require(opc::ContentTypesDocument::parse(written, "p").toBytes() == written);
}

/// An internal target is either the name of a part or a text that no part can have.
void checkTarget(const opc::model::Relationship& link) {
  const std::u16string& text = link.getTarget().text();
  if (link.getTargetMode() == opc::model::TargetMode::External || text.starts_with(u"/../")) return;
  require(opc::model::PartName(text).text() == text);
}

void readRelationships(std::string_view bytes) {
  auto document = opc::RelationshipsDocument::parse(bytes, "/a/b", "p");
  for (const auto& link : document.relationships()) checkTarget(link);
  document.add(u"t", opc::model::URI(u"/a"), "", "p");
  const std::string written = document.toBytes();
  const auto again = opc::RelationshipsDocument::parse(written, "/a/b", "p");
  require(again.toBytes() == written && again.size() == document.size());
  for (const auto& link : document.relationships()) {
    require(again.find(link.getID())->getTarget() == link.getTarget());
  }
}

void readCoreProperties(std::string_view bytes) {
  using opc::model::CoreProperty;
  const opc::xml::Location location{"p", "c"};
  const std::string written = opc::withCoreProperty(bytes, CoreProperty::Created, u"2026", location, 64);
  require(opc::coreProperty(written, CoreProperty::Created, location, 64) == u"2026");
  // What another property says is not touched.
  require(opc::coreProperty(written, CoreProperty::Version, location, 64) ==
          opc::coreProperty(bytes, CoreProperty::Version, location, 64));
}

void readName(std::string_view bytes) {
  const auto name = opc::model::PartName::tryFromEncoded(bytes);
  if (!name) return;
  require(opc::model::PartName(name->text()).encoded() == name->encoded());
  require(opc::model::nameKey(bytes) == name->key());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  void (*const kKinds[])(std::string_view) = {readContentTypes, readRelationships, readCoreProperties,
                                              readName};
  try {
    kKinds[data[0] % 4](std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1));
  } catch (const opc::Exception&) {
  }
  return 0;
}

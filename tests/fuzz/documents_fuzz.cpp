// The documents and names of a package. What can be read must be written so that it reads the same.

#include <cstring>
#include <string>

#include "platform/opc/content_types_document.h"
#include "platform/opc/core_properties.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationships_document.h"
#include "tests/fuzz/target.h"

namespace {

using fuzz::require;
using opc::model::PartName;

/// An internal target is either the name of a part or a text that no part can have.
void checkTarget(const opc::model::Relationship& link) {
  const std::u16string& text = link.getTarget().text();
  if (link.getTargetMode() == opc::model::TargetMode::External || text.starts_with(u"/../")) return;
  require(PartName(text).text() == text);
}

/// Stored as the name says, it is the same name again.
void checkName(const PartName& name) {
  const auto again = PartName::tryFromEncoded(name.encoded());
  require(again && again->text() == name.text() && again->encoded() == name.encoded());
}

}  // namespace

void contentTypes(std::string_view bytes) {
  fuzz::succeeds([&] {
    auto document = opc::ContentTypesDocument::parse(bytes, "p");
    const opc::model::ContentType* const before = document.contentTypeOf("/a/b.xml");
    const std::string type = before != nullptr ? before->encoded() : "";
    document.setOverride("/new.bin", *opc::model::ContentType::tryFromEncoded("a/b"));
    const std::string written = document.toBytes();
    const auto again = opc::ContentTypesDocument::parse(written, "p");
    require(again.toBytes() == written && again.contentTypeOf("/NEW.bin")->encoded() == "a/b");
    require(type.empty() || again.contentTypeOf("/a/b.xml")->encoded() == type);
  });
}

void relationships(std::string_view bytes) {
  fuzz::succeeds([&] {
    auto document = opc::RelationshipsDocument::parse(bytes, "/a/b", "p");
    for (const auto& link : document.relationships()) checkTarget(link);
    document.add(u"t", opc::model::URI(u"/a"), "", "p");
    const std::string written = document.toBytes();
    const auto again = opc::RelationshipsDocument::parse(written, "/a/b", "p");
    require(again.toBytes() == written && again.size() == document.size());
    for (const auto& link : document.relationships())
      require(again.find(link.getID())->getTarget() == link.getTarget());
  });
}

void coreProperties(std::string_view bytes) {
  using opc::model::CoreProperty;
  const opc::xml::Location location{"p", "c"};
  fuzz::succeeds([&] {
    const std::string written = opc::withCoreProperty(bytes, CoreProperty::Created, u"2026", location, 64);
    require(opc::coreProperty(written, CoreProperty::Created, location, 64) == u"2026");
    // What another property says is not touched.
    require(opc::coreProperty(written, CoreProperty::Version, location, 64) ==
            opc::coreProperty(bytes, CoreProperty::Version, location, 64));
  });
}

void partNames(std::string_view bytes) {
  if (const auto name = PartName::tryFromEncoded(bytes)) {
    require(opc::model::nameKey(bytes) == name->key());
    checkName(*name);
    checkName(PartName(name->text()));
  }
  std::u16string text(bytes.size() / 2, u'\0');
  std::memcpy(text.data(), bytes.data(), 2 * text.size());
  fuzz::succeeds([&] { checkName(PartName(text)); });
}

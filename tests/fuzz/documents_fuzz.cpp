// The documents and names of a package. What can be read must be written so that it reads the same.

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/opc/content_types_document.h"
#include "platform/opc/core_properties.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationships_document.h"
#include "platform/opc/xml_plain.h"
#include "platform/text/conversion.h"
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

/// What a reading reports, or how it is refused, as one text. White space below the root means nothing.
class Report : public opc::xml::Handler {
 public:
  static constexpr std::string_view kRefused = "refused ";
  static std::string of(const auto& read) {
    Report report;
    try {
      read(report);
    } catch (const opc::Exception& refusal) {
      report.text_.insert(0, kRefused);
      report.add("!", refusal.GetID());
      for (const std::u16string& each : refusal.GetArguments()) report.add(",", fl::i18n::to_string(each));
    }
    return report.text_;
  }

 private:
  void declare(std::string_view prefix, std::string_view space) override {
    add("@", prefix);
    add("=", space);
  }
  void start(const opc::xml::Name& name, const opc::xml::Attributes& attributes,
             opc::xml::Span tag) override {
    ++depth_;
    add("<", name.space);
    add(":", name.written());
    for (const char* each : {"Id", "Type", "Target", "a", "b"})
      add(each, attributes.find(each).value_or("-"));
    add(tag);
  }
  void end(opc::xml::Span tag) override {
    --depth_;
    add(tag);
  }
  void text(std::string_view piece) override {
    for (const char c : piece) {
      if (depth_ > 1 || std::string_view(" \t\n").find(c) == std::string_view::npos) text_ += c;
    }
  }
  void add(const char* what, std::string_view text) { text_.append(what).append(text); }
  void add(opc::xml::Span tag) { add(">", std::to_string(tag.begin) + '-' + std::to_string(tag.end)); }

  std::string text_;
  int depth_ = 0;
};

}  // namespace

/// The quick reader of lists and the parser agree on every document, whole or in pieces.
void plainLists(std::string_view bytes) {
  const opc::xml::Location location{"p", "c"};
  const int depthLimit = bytes.size() % 7 == 0 ? 1 : 3;
  const auto parsed =
      Report::of([&](Report& report) { opc::xml::readByParser(bytes, location, depthLimit, report); });
  require(parsed == Report::of([&](Report& report) { opc::xml::read(bytes, location, depthLimit, report); }));
  std::string_view left = bytes;
  const opc::xml::Source pieces = [&](char* into, std::size_t count) {
    const std::size_t step = std::min({count, left.size(), 1 + left.size() % 97});
    std::memcpy(into, left.data(), step);
    left.remove_prefix(step);
    return step;
  };
  const auto inPieces =
      Report::of([&](Report& report) { opc::xml::read(pieces, location, depthLimit, report); });
  // Of a refused document the parser may report more text when it is given pieces, and another of its faults.
  require(parsed == inPieces ||
          (parsed.starts_with(Report::kRefused) && inPieces.starts_with(Report::kRefused)));
}

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
  const std::string_view entry = bytes.substr(bytes.starts_with('/') ? 1 : 0);
  const std::string absolute = std::string("/").append(entry);
  require(PartName::isKeyOfEntry(entry) == (PartName::tryKey(absolute) == absolute));
  if (const auto name = PartName::tryFromEncoded(bytes)) {
    require(opc::model::nameKey(bytes) == name->key());
    checkName(*name);
    checkName(PartName(name->text()));
  }
  std::u16string text(bytes.size() / 2, u'\0');
  std::memcpy(text.data(), bytes.data(), 2 * text.size());
  fuzz::succeeds([&] { checkName(PartName(text)); });
}

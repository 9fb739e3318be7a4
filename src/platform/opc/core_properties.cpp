#include "platform/opc/core_properties.h"

#include <vector>

#include "platform/errors/package_errors.h"
#include "platform/opc/xml_list.h"
#include "platform/opc/xml_writer.h"
#include "platform/text/conversion.h"

// A property is set in the text of the document. One reading finds where its elements stand and which
// prefixes the root declares; then only these pieces of text are replaced. So the properties that this
// program does not know stay as another program wrote them.

namespace opc {
namespace {

constexpr std::string_view kOwnSpace =
    "http://schemas.openxmlformats.org/package/2006/metadata/core-properties";
constexpr std::string_view kElementsSpace = "http://purl.org/dc/elements/1.1/";
constexpr std::string_view kTermsSpace = "http://purl.org/dc/terms/";
constexpr std::string_view kSchemaSpace = "http://www.w3.org/2001/XMLSchema-instance";

struct PropertyName {
  std::string_view space, local, usualPrefix;
};

/// The element of a property, and the prefix that it usually has. The conventions take some from Dublin
/// Core.
PropertyName nameOf(model::CoreProperty property) {
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

/// Finds the elements of one property, directly below the root, and what else is needed to edit them.
class PropertyReader : public xml::Handler {
 public:
  /// One element: its tags, which are one and an empty piece behind it if it is one empty tag.
  struct Found {
    xml::Span startTag, endTag;
    std::string name, text;  ///< the name as it is written
  };

  PropertyReader(const PropertyName& wanted, const xml::Location& location)
      : wanted_(wanted), location_(location) {}

  const std::vector<Found>& found() const { return found_; }
  xml::ListText takeText() { return std::move(text_); }
  /// A prefix that the root declares for this namespace; empty if there is none.
  std::string prefixOf(std::string_view space) const {
    for (const auto& [prefix, declared] : declarations_) {
      if (declared == space) return prefix;
    }
    return {};
  }

  void begin(std::string_view document) override { document_ = document; }
  void declare(std::string_view prefix, std::string_view space) override {
    // Not the default namespace: attributes cannot use it.
    if (depth_ == 0 && !prefix.empty()) declarations_.emplace_back(prefix, space);
  }
  void start(const xml::Name& name, const xml::Attributes&, xml::Span tag) override {
    ++depth_;
    if (depth_ == 1) {
      root_ = name.written();
      if (name.is(kOwnSpace, "coreProperties")) return;
      refuse("opc:coreProperties:WrongRoot", location_.package, location_.part, name.local, name.space);
    }
    // Properties stand directly below the root; what is called so further down is another element's content.
    if (depth_ != 2) return;
    isInside_ = name.is(wanted_.space, wanted_.local);
    if (isInside_) found_.push_back({tag, {}, name.written(), {}});
  }
  void end(xml::Span tag) override {
    --depth_;
    if (depth_ == 0) text_ = xml::ListText(document_, root_, tag);
    if (depth_ != 1 || !isInside_) return;
    found_.back().endTag = tag;
    isInside_ = false;
  }
  void text(std::string_view piece) override {
    // Text of elements inside belongs to it, and may come in pieces.
    if (isInside_) found_.back().text.append(piece);
  }

 private:
  const PropertyName wanted_;
  const xml::Location location_;
  std::string_view document_;
  std::string root_;
  std::vector<std::pair<std::string, std::string>> declarations_;  // prefix and namespace, of the root
  std::vector<Found> found_;
  xml::ListText text_;
  int depth_ = 0;
  bool isInside_ = false;
};

/// Puts the text between the tags of an element that is there.
void setText(xml::ListText& document, const PropertyReader::Found& element, std::string_view text) {
  std::string written = xml::writeText(text);
  const bool isEmptyTag = element.endTag.begin == element.endTag.end;
  if (!isEmptyTag) return document.replace({element.startTag.end, element.endTag.begin}, std::move(written));
  // "/>" becomes ">text</name>".
  document.replace({element.startTag.end - 2, element.startTag.end},
                   ">" + written + "</" + element.name + ">");
}

/// A new element. What the root does not declare, it declares itself.
std::string newElement(const PropertyReader& reader, const PropertyName& name, std::string_view text) {
  std::vector<xml::WrittenAttribute> attributes;
  const auto prefixFor = [&](std::string_view space, std::string_view usual, std::string_view declaration) {
    // A prefix of the root is used as it is; a missing one is declared on the element itself.
    const std::string known = reader.prefixOf(space);
    if (known.empty()) attributes.emplace_back(declaration, space);
    return known.empty() ? std::string(usual) : known;
  };
  const std::string declaration = "xmlns:" + std::string(name.usualPrefix);
  const std::string prefix = prefixFor(name.space, name.usualPrefix, declaration);
  std::string typeAttribute, type;
  if (name.space == kTermsSpace) {
    // The conventions want dates to say that they are some, with a type named by its prefix.
    typeAttribute = prefixFor(kSchemaSpace, "xsi", "xmlns:xsi") + ":type";
    type = prefix + ":W3CDTF";
    attributes.emplace_back(typeAttribute, type);
  }
  return xml::writeElement(prefix + ":" + std::string(name.local), attributes, text);
}

}  // namespace

std::string newCoreProperties() {
  return std::string(xml::kDeclaration) +
         xml::writeElement("cp:coreProperties", {{"xmlns:cp", kOwnSpace},
                                                 {"xmlns:dc", kElementsSpace},
                                                 {"xmlns:dcterms", kTermsSpace},
                                                 {"xmlns:xsi", kSchemaSpace}});
}

std::optional<std::u16string> coreProperty(std::string_view document, model::CoreProperty property,
                                           const xml::Location& location, int depthLimit) {
  PropertyReader reader(nameOf(property), location);
  xml::read(document, location, depthLimit, reader);
  if (reader.found().empty()) return std::nullopt;
  return fl::i18n::to_ustring(reader.found().front().text);
}

std::string withCoreProperty(std::string_view document, model::CoreProperty property,
                             std::u16string_view text, const xml::Location& location, int depthLimit) {
  const std::string narrow = xml::toXmlText(text, location.package);
  PropertyReader reader(nameOf(property), location);
  xml::read(document, location, depthLimit, reader);
  xml::ListText edited = reader.takeText();
  const auto& found = reader.found();
  if (found.empty()) edited.append(newElement(reader, nameOf(property), narrow));
  if (!found.empty()) setText(edited, found.front(), narrow);
  // Every reader is to see the same text.
  for (std::size_t further = 1; further < found.size(); ++further) {
    edited.cut({found[further].startTag.begin, found[further].endTag.end});
  }
  return edited.toBytes();
}

}  // namespace opc

#include "platform/opc/content_types_document.h"

#include "platform/opc/part_name.h"
#include "platform/opc/percent_encoding.h"
#include "platform/opc/xml_list_reader.h"
#include "platform/opc/xml_writer.h"
#include "platform/opc/zip/exception.h"

namespace opc {
namespace {

constexpr std::string_view kNamespace = "http://schemas.openxmlformats.org/package/2006/content-types";
constexpr std::string_view kRelationshipsType = "application/vnd.openxmlformats-package.relationships+xml";
constexpr std::string_view kName = "[Content_Types].xml";
constexpr std::size_t kBytesPerItem = 96;  // of a usual document, a guess to reserve by

/// What an extension is compared by: without a leading dot, encoded as it would be in a name, in lower case.
std::string extensionKey(std::string_view written) {
  if (!written.empty() && written[0] == '.') written.remove_prefix(1);
  const std::optional<std::string> decoded = percent::decode(written);
  return percent::toLower(percent::encode(decoded ? *decoded : written, percent::kSegmentLiterals));
}

/// What follows the last "." of the last segment; nothing without one.
std::string_view extensionOf(std::string_view key) {
  const std::size_t dot = key.rfind('.'), slash = key.rfind('/');
  if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) return {};
  return key.substr(dot + 1);
}

std::string overrideKey(std::string_view encodedName) {
  std::optional<std::string> key = model::nameKey(encodedName);
  return key ? *std::move(key) : percent::toLower(encodedName);
}

}  // namespace

class ContentTypesDocument::Reader : public xml::ListReader {
 public:
  Reader(ContentTypesDocument& document, std::string_view packagePath)
      : ListReader(kNamespace), document_(document), package_(packagePath) {}

 private:
  void readRoot(const xml::Name& name, const xml::Attributes&) override {
    if (!name.is(kNamespace, "Types")) refuse("opc:contentTypes:WrongRoot", package_, name.local);
  }

  void readItem(const xml::Name& name, const xml::Attributes& attributes) override {
    if (name.local == "Default") return readDefault(attributes);
    if (name.local == "Override") return readOverride(attributes);
    refuseElement(name);
  }

  void refuseElement(const xml::Name& name) const override {
    refuse("opc:contentTypes:UnexpectedElement", package_, name.local);
  }
  void refuseText() const override { refuse("opc:contentTypes:UnexpectedText", package_); }

  std::string_view required(const xml::Attributes& attributes, std::string_view name) const {
    const auto value = attributes.find(name);
    if (!value) refuse("opc:contentTypes:MissingAttribute", package_, name);
    return *value;
  }

  /// Equal texts give one type, which is checked and kept once.
  const model::ContentType& type(const xml::Attributes& attributes) {
    const std::string_view written = required(attributes, "ContentType");
    if (const auto known = types_.find(written); known != types_.end()) return known->second;
    std::optional<model::ContentType> type = model::ContentType::tryFromEncoded(written);
    if (!type) refuse("opc:contentTypes:NoContentType", package_, written);
    return types_.emplace(written, *std::move(type)).first->second;
  }

  void readDefault(const xml::Attributes& attributes) {
    const std::string_view written = required(attributes, "Extension");
    if (!document_.append(Kind::Default, extensionKey(written), written, type(attributes))) {
      refuse("opc:contentTypes:DuplicateDefault", package_, written);
    }
  }

  void readOverride(const xml::Attributes& attributes) {
    const std::string_view written = required(attributes, "PartName");
    const model::ContentType& itsType = type(attributes);
    std::optional<std::string> key = model::nameKey(written);
    if (!key) refuse("opc:contentTypes:BadPartName", package_, written);
    if (!document_.append(Kind::Override, *std::move(key), written, itsType)) {
      refuse("opc:contentTypes:DuplicateOverride", package_, written);
    }
  }

  ContentTypesDocument& document_;
  const std::string_view package_;
  std::unordered_map<std::string, model::ContentType, TextHash, std::equal_to<>> types_;
};

ContentTypesDocument::ContentTypesDocument() {
  append(Kind::Default, "rels", "rels", model::ContentType::fromEncoded(kRelationshipsType));
}

ContentTypesDocument ContentTypesDocument::parse(std::string_view bytes, std::string_view packagePath,
                                                 const zip::Limits& limits) {
  if (bytes.size() > limits.contentTypeBytes)
    refuse("opc:contentTypes:TooLarge", packagePath, limits.contentTypeBytes);
  ContentTypesDocument document{NoItems()};
  document.overrides_.reserve(bytes.size() / kBytesPerItem);
  document.items_.reserve(bytes.size() / kBytesPerItem);
  Reader reader(document, packagePath);
  xml::read(bytes, {packagePath, kName}, limits.xmlDepth, reader);
  return document;
}

bool ContentTypesDocument::append(Kind kind, std::string key, std::string_view written,
                                  const model::ContentType& type) {
  Places& places = kind == Kind::Default ? defaults_ : overrides_;
  if (!places.try_emplace(std::move(key), items_.size()).second) return false;
  items_.emplace_back(Item{kind, written_.add(written), type});
  return true;
}

const model::ContentType* ContentTypesDocument::contentTypeOf(std::string_view encodedName) const {
  return contentTypeOfKey(overrideKey(encodedName));
}

const model::ContentType* ContentTypesDocument::contentTypeOfKey(std::string_view key) const {
  if (const auto found = overrides_.find(key); found != overrides_.end()) return &items_[found->second]->type;
  const std::string_view extension = extensionOf(key);
  if (extension.empty()) return nullptr;
  const auto found = defaults_.find(extension);
  return found == defaults_.end() ? nullptr : &items_[found->second]->type;
}

void ContentTypesDocument::setOverride(std::string_view encodedName, const model::ContentType& type) {
  std::string key = overrideKey(encodedName);
  if (const auto found = overrides_.find(key); found != overrides_.end()) {
    items_[found->second]->type = type;
    return;
  }
  append(Kind::Override, std::move(key), encodedName, type);
}

void ContentTypesDocument::removeOverride(std::string_view encodedName) {
  const auto found = overrides_.find(overrideKey(encodedName));
  if (found == overrides_.end()) return;
  items_[found->second].reset();
  overrides_.erase(found);
}

std::string ContentTypesDocument::toBytes() const {
  // Names and types are ASCII or were read from XML, so nothing in here can be refused.
  xml::Writer writer({});
  writer.open("Types").attribute("xmlns", kNamespace);
  for (const std::optional<Item>& item : items_) {
    if (!item) continue;
    const bool isDefault = item->kind == Kind::Default;
    writer.open(isDefault ? "Default" : "Override")
        .attribute(isDefault ? "Extension" : "PartName", written_.at(item->written));
    writer.attribute("ContentType", item->type.encoded()).close();
  }
  return writer.close().take();
}

}  // namespace opc

#include "platform/opc/content_types_document.h"

#include "platform/errors/package_errors.h"
#include "platform/opc/part_name.h"
#include "platform/opc/percent_encoding.h"
#include "platform/opc/xml_writer.h"

namespace opc {
namespace {

constexpr std::string_view kNamespace = "http://schemas.openxmlformats.org/package/2006/content-types";
constexpr std::string_view kRoot = "Types";
constexpr std::size_t kBytesPerItem = 96;  // of a usual document, a guess to reserve by

/// What an extension is compared by: without a leading dot, encoded as it would be in a name, in lower case.
/// Text that is badly encoded is taken for decoded text.
std::string extensionKey(std::string_view written) {
  if (!written.empty() && written[0] == '.') written.remove_prefix(1);
  const std::optional<std::string> decoded = percent::decode(written);
  return percent::toLower(percent::encode(decoded ? *decoded : written, percent::kSegmentLiterals));
}

/// A name that has no key has no override; it may still have an extension, which a default is for.
std::string overrideKey(std::string_view encodedName) {
  std::optional<std::string> key = model::nameKey(encodedName);
  return key ? *std::move(key) : percent::toLower(encodedName);
}

}  // namespace

std::string_view extensionOf(std::string_view key) {
  const std::size_t dot = key.rfind('.'), slash = key.rfind('/');
  if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash)) return {};
  return key.substr(dot + 1);
}

// Reading.

ContentTypesReader::ContentTypesReader(std::string_view packagePath)
    : ListReader(kNamespace), package_(packagePath) {}

void ContentTypesReader::readRoot(const xml::Name& name, const xml::Attributes&) {
  if (name.is(kNamespace, kRoot)) return;
  refuse("opc:contentTypes:WrongRoot", package_, name.local, name.space);
}

void ContentTypesReader::readItem(const xml::Name& name, const xml::Attributes& attributes) {
  isIgnored_ = false;
  if (name.local == "Default") return readDefault(attributes);
  if (name.local == "Override") return readOverride(attributes);
  refuseElement(name);
}

void ContentTypesReader::refuseElement(const xml::Name& name) const {
  refuse("opc:contentTypes:UnexpectedElement", package_, name.local);
}

void ContentTypesReader::refuseText() const { refuse("opc:contentTypes:UnexpectedText", package_); }

std::string_view ContentTypesReader::required(const xml::Attributes& attributes,
                                              std::string_view name) const {
  const auto value = attributes.find(name);
  if (!value) refuse("opc:contentTypes:MissingAttribute", package_, name);
  return *value;
}

/// Equal texts give one type, which is checked and kept once.
const model::ContentType& ContentTypesReader::type(const xml::Attributes& attributes) {
  const std::string_view written = required(attributes, "ContentType");
  if (type_ && written == written_) return *type_;
  auto known = types_.find(written);
  if (known == types_.end()) {
    std::optional<model::ContentType> type = model::ContentType::tryFromEncoded(written);
    if (!type) refuse("opc:contentTypes:NoContentType", package_, written);
    known = types_.emplace(written, *std::move(type)).first;
  }
  written_ = written;
  return type_.emplace(known->second);
}

void ContentTypesReader::readDefault(const xml::Attributes& attributes) {
  const std::string_view written = required(attributes, "Extension");
  if (addDefault(extensionKey(written), type(attributes))) return;
  refuse("opc:contentTypes:DuplicateDefault", package_, written);
}

void ContentTypesReader::readOverride(const xml::Attributes& attributes) {
  const std::string_view written = required(attributes, "PartName");
  const model::ContentType& itsType = type(attributes);
  // Careless writers leave the slash out. Nobody is called so: the text is kept, and is about no part.
  isIgnored_ = !written.starts_with('/');
  if (isIgnored_ || addOverride(written, itsType)) return;
  refuse("opc:contentTypes:DuplicateOverride", package_, written);
}

std::string ContentTypesReader::keyOf(std::string_view written) const {
  // Not `PartName`: relationship parts may be named here too, and have names that no part may have.
  std::optional<std::string> key = model::nameKey(written);
  if (!key) refuse("opc:contentTypes:BadPartName", package_, written);
  return *std::move(key);
}

/// Fills a list from its document.
class ContentTypesDocument::Reader : public ContentTypesReader {
 public:
  Reader(ContentTypesDocument& document, std::string_view packagePath)
      : ContentTypesReader(packagePath), document_(document) {}

 private:
  bool addDefault(std::string_view extension, const model::ContentType& type) override {
    return document_.append(Kind::Default, extension, type, {});
  }
  bool addOverride(std::string_view written, const model::ContentType& type) override {
    return document_.append(Kind::Override, keyOf(written), type, {});
  }
  void endItem(xml::Span item) override {
    // Only the end of an item tells which piece of the document it is.
    if (!isIgnored()) document_.items_.back().written = item;
  }
  void endRoot(xml::ListText text) override { document_.text_ = std::move(text); }

  ContentTypesDocument& document_;
};

// Changing.

ContentTypesDocument ContentTypesDocument::ofNewPackage() {
  ContentTypesDocument document;
  document.text_ = xml::ListText::empty(kRoot, kNamespace);
  const model::ContentType type(kRelationshipsType);
  const xml::Span written = document.text_.append(
      xml::writeElement("Default", {{"Extension", "rels"}, {"ContentType", type.encoded()}}));
  document.append(Kind::Default, "rels", type, written);
  return document;
}

ContentTypesDocument ContentTypesDocument::parse(std::string_view bytes, std::string_view packagePath,
                                                 const zip::Limits& limits) {
  ContentTypesDocument document;
  // Large packages may have a hundred thousand overrides: growing step by step would copy them many times.
  document.items_.reserve(bytes.size() / kBytesPerItem);
  document.texts_.reserve(bytes.size() / 2);  // the rest is markup
  Reader reader(document, packagePath);
  xml::read(bytes, {packagePath, ContentTypesReader::kName}, limits.xmlDepth, reader);
  return document;
}

bool ContentTypesDocument::append(Kind kind, std::string_view key, const model::ContentType& type,
                                  xml::Span written) {
  // The index compares keys by their position, so the item must stand there before the index is asked.
  items_.push_back({texts_.add(key), type, written});
  fl::i18n::TextIndex& index = kind == Kind::Default ? defaults_ : overrides_;
  const bool isNew = index.add(items_.size() - 1, keyAt());
  if (!isNew) items_.pop_back();
  return isNew;
}

const ContentTypesDocument::Item* ContentTypesDocument::find(Kind kind, std::string_view key) const {
  const fl::i18n::TextIndex& index = kind == Kind::Default ? defaults_ : overrides_;
  const auto found = index.find(key, keyAt());
  return found ? &items_[*found] : nullptr;
}

const model::ContentType* ContentTypesDocument::contentTypeOf(std::string_view encodedName) const {
  const std::string key = overrideKey(encodedName);
  const Item* item = find(Kind::Override, key);
  // The conventions ask for this order: the override decides, the default only where there is none.
  if (item == nullptr && !extensionOf(key).empty()) item = find(Kind::Default, extensionOf(key));
  return item == nullptr ? nullptr : &item->type;
}

void ContentTypesDocument::setOverride(std::string_view encodedName, const model::ContentType& type) {
  const std::string key = overrideKey(encodedName);
  // Cut out and added anew, so that the text of all other items stays as it was.
  cut(key);
  const xml::Span written = text_.append(xml::writeElement(
      text_.prefixed("Override"), {{"PartName", encodedName}, {"ContentType", type.encoded()}}));
  append(Kind::Override, key, type, written);
}

void ContentTypesDocument::removeOverride(std::string_view encodedName) { cut(overrideKey(encodedName)); }

void ContentTypesDocument::cut(std::string_view key) {
  const Item* item = find(Kind::Override, key);
  if (item == nullptr) return;
  text_.cut(item->written);
  overrides_.remove(key, keyAt());
}

}  // namespace opc

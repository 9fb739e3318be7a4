#include "platform/opc/content_types_document.h"

#include <boost/unordered/unordered_flat_map.hpp>

#include "platform/errors/package_errors.h"
#include "platform/opc/part_name.h"
#include "platform/opc/percent_encoding.h"
#include "platform/opc/xml_writer.h"
#include "platform/text/text_hash.h"

namespace opc {
namespace {

constexpr std::string_view kNamespace = "http://schemas.openxmlformats.org/package/2006/content-types";
constexpr std::string_view kRoot = "Types";
constexpr std::string_view kName = "[Content_Types].xml";
constexpr std::size_t kBytesPerItem = 96;  // of a usual document, a guess to reserve by

/// What an extension is compared by: without a leading dot, encoded as it would be in a name, in lower case.
/// Text that is badly encoded is taken for decoded text.
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

/// A name that has no key has no override; it may still have an extension, which a default is for.
std::string overrideKey(std::string_view encodedName) {
  std::optional<std::string> key = model::nameKey(encodedName);
  return key ? *std::move(key) : percent::toLower(encodedName);
}

}  // namespace

/// Fills a list from its document, item by item, and refuses what would give a part two types: a second
/// default of one extension, a second override of one name (ECMA-376 part 2, content types stream).
class ContentTypesDocument::Reader : public xml::ListReader {
 public:
  Reader(ContentTypesDocument& document, std::string_view packagePath)
      : ListReader(kNamespace), document_(document), package_(packagePath) {}

 private:
  void readRoot(const xml::Name& name, const xml::Attributes&) override {
    if (name.is(kNamespace, kRoot)) return;
    refuse("opc:contentTypes:WrongRoot", package_, name.local, name.space);
  }

  void readItem(const xml::Name& name, const xml::Attributes& attributes) override {
    isIgnored_ = false;
    if (name.local == "Default") return readDefault(attributes);
    if (name.local == "Override") return readOverride(attributes);
    refuseElement(name);
  }

  void endItem(xml::Span item) override {
    // Only the end of an item tells which piece of the document it is.
    if (!isIgnored_) document_.items_.back().written = item;
  }
  void endRoot(xml::ListText text) override { document_.text_ = std::move(text); }

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
    if (!document_.append(Kind::Default, extensionKey(written), type(attributes), {})) {
      refuse("opc:contentTypes:DuplicateDefault", package_, written);
    }
  }

  void readOverride(const xml::Attributes& attributes) {
    const std::string_view written = required(attributes, "PartName");
    const model::ContentType& itsType = type(attributes);
    // Careless writers leave the slash out. Nobody is called so: the text is kept, and is about no part.
    isIgnored_ = !written.starts_with('/');
    if (isIgnored_) return;
    // Not `PartName`: relationship parts may be named here too, and have names that no part may have.
    const std::optional<std::string> key = model::nameKey(written);
    if (!key) refuse("opc:contentTypes:BadPartName", package_, written);
    if (!document_.append(Kind::Override, *key, itsType, {})) {
      refuse("opc:contentTypes:DuplicateOverride", package_, written);
    }
  }

  ContentTypesDocument& document_;
  const std::string_view package_;
  bool isIgnored_ = false;  // the present item
  boost::unordered_flat_map<std::string, model::ContentType, fl::i18n::TextHash, std::equal_to<>> types_;
};

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
  if (bytes.size() > limits.contentTypeBytes)
    refuse("opc:contentTypes:TooLarge", packagePath, limits.contentTypeBytes);
  ContentTypesDocument document;
  // Large packages may have a hundred thousand overrides: growing step by step would copy them many times.
  document.items_.reserve(bytes.size() / kBytesPerItem);
  document.texts_.reserve(bytes.size() / 2);  // the rest is markup
  Reader reader(document, packagePath);
  xml::read(bytes, {packagePath, kName}, limits.xmlDepth, reader);
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
  return contentTypeOfKey(overrideKey(encodedName));
}

const model::ContentType* ContentTypesDocument::contentTypeOfKey(std::string_view key) const {
  const Item* item = find(Kind::Override, key);
  // The conventions ask for this order: the override decides, the default only where there is none.
  if (item == nullptr && !extensionOf(key).empty()) item = find(Kind::Default, extensionOf(key));
  return item == nullptr ? nullptr : &item->type;
}

void ContentTypesDocument::setOverride(std::string_view encodedName, const model::ContentType& type) {
  // Cut out and added anew, so that the text of all other items stays as it was.
  removeOverride(encodedName);
  const xml::Span written = text_.append(xml::writeElement(
      text_.prefixed("Override"), {{"PartName", encodedName}, {"ContentType", type.encoded()}}));
  append(Kind::Override, overrideKey(encodedName), type, written);
}

void ContentTypesDocument::removeOverride(std::string_view encodedName) {
  const std::string key = overrideKey(encodedName);
  const Item* item = find(Kind::Override, key);
  if (item == nullptr) return;
  text_.cut(item->written);
  overrides_.remove(key, keyAt());
}

}  // namespace opc

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include "platform/opc/content_type.h"
#include "platform/opc/text_store.h"
#include "platform/opc/xml_list.h"
#include "platform/text/text_hash.h"
#include "platform/text/text_index.h"
#include "platform/zip/limits.h"

namespace opc {

/// The content type of every relationship part.
inline constexpr std::u16string_view kRelationshipsType =
    u"application/vnd.openxmlformats-package.relationships+xml";

/// Reads the rules of a content-type list ("[Content_Types].xml"), item by item, and refuses what would give
/// a part two types: a second default of one extension, a second override of one name (ECMA-376 part 2,
/// content types stream). What the items are kept in decides which are the second.
///
/// A default written ".json", with the dot, is taken for "json", and an override whose name has no leading
/// "/" has no effect, since writers in the wild do so. Elements and attributes of foreign namespaces are
/// skipped.
class ContentTypesReader : public xml::ListReader {
 public:
  static constexpr std::string_view kName = "[Content_Types].xml";
  explicit ContentTypesReader(std::string_view packagePath);

 protected:
  /// False for a second one. The extension is what `extensionOf` gives of a key.
  virtual bool addDefault(std::string_view extension, const model::ContentType& type) = 0;
  /// False for a second one. The name starts with "/"; copies of one type share their text.
  virtual bool addOverride(std::string_view written, const model::ContentType& type) = 0;
  /// The key of that name. Refuses what is no name.
  std::string keyOf(std::string_view written) const;
  void endItem(xml::Span) override {}
  void endRoot(xml::ListText) override {}
  /// Whether the present item has no effect.
  bool isIgnored() const { return isIgnored_; }

 private:
  void readRoot(const xml::Name& name, const xml::Attributes& attributes) override;
  void readItem(const xml::Name& name, const xml::Attributes& attributes) override;
  void refuseElement(const xml::Name& name) const override;
  void refuseText() const override;
  std::string_view required(const xml::Attributes& attributes, std::string_view name) const;
  const model::ContentType& type(const xml::Attributes& attributes);
  void readDefault(const xml::Attributes& attributes);
  void readOverride(const xml::Attributes& attributes);

  const std::string_view package_;
  bool isIgnored_ = false;
  // The type of the last item, which most often is that of the next, and of all.
  std::string written_;
  std::optional<model::ContentType> type_;
  boost::unordered_flat_map<std::string, model::ContentType, fl::i18n::TextHash, std::equal_to<>> types_;
};

/// What follows the last "." of the last segment of a name's key; nothing without one.
std::string_view extensionOf(std::string_view key);

/// The content-type list of a package while it is changed: a type for one part (override) or for every part
/// with an extension (default). Items keep their order. Names are given encoded, as an entry's name with a
/// leading "/" or as `PartName::encoded` or `PartName::key`; case does not matter. Relationship parts may be
/// named here as well. Writing keeps everything that was not removed as it was written, what the reader skips
/// included.
class ContentTypesDocument {
 public:
  /// No types, and no document either.
  ContentTypesDocument() = default;
  /// The list of a new package: relationship parts and nothing else.
  static ContentTypesDocument ofNewPackage();

  /// Raises PackageOpenFailed, with the rule that is broken, naming the package (UTF-8).
  static ContentTypesDocument parse(std::string_view bytes, std::string_view packagePath,
                                    const zip::Limits& limits = {});

  /// The type of a part: its override, else the default of its extension (what follows the last "." of the
  /// last segment), else null. Valid until the list changes.
  const model::ContentType* contentTypeOf(std::string_view encodedName) const;

  /// Adds the part's override at the end; another that it has goes. The name must be canonical ASCII.
  void setOverride(std::string_view encodedName, const model::ContentType& type);
  /// Removing what is not there is no error.
  void removeOverride(std::string_view encodedName);

  /// The document in UTF-8.
  std::string toBytes() const { return text_.toBytes(); }

 private:
  class Reader;
  /// What an item speaks of: all parts with an extension, or one part.
  enum class Kind { Default, Override };
  /// One element of the list, and where it stands in the text.
  struct Item {
    TextStore::Location key;  ///< lower-case extension, or name key
    model::ContentType type;
    xml::Span written;
  };
  /// Whether the key was not there yet; otherwise nothing changes.
  bool append(Kind kind, std::string_view key, const model::ContentType& type, xml::Span written);
  const Item* find(Kind kind, std::string_view key) const;
  /// Takes out the override of a key, if there is one.
  void cut(std::string_view key);
  /// For the indexes, which hold positions and ask here for the key at one.
  auto keyAt() const {
    return [this](std::size_t index) { return texts_.at(items_[index].key); };
  }

  xml::ListText text_;
  // Removed items stay where they are, so that the others keep their indexes.
  std::vector<Item> items_;
  TextStore texts_;
  fl::i18n::TextIndex defaults_, overrides_;
};

}  // namespace opc

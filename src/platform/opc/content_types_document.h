#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/content_type.h"
#include "platform/opc/text_store.h"
#include "platform/opc/xml_list.h"
#include "platform/text/text_index.h"
#include "platform/zip/limits.h"

namespace opc {

/// The content type of every relationship part.
inline constexpr std::u16string_view kRelationshipsType =
    u"application/vnd.openxmlformats-package.relationships+xml";

/// The content-type list of a package ("[Content_Types].xml"): a type for one part (override) or for every
/// part with an extension (default). Items keep their order. Names are given encoded, as an entry's name with
/// a leading "/" or as `PartName::encoded` or `PartName::key`; case does not matter. Relationship parts may
/// be named here as well.
///
/// A default written ".json", with the dot, is taken for "json", and an override whose name has no leading
/// "/" has no effect, since writers in the wild do so. Elements and attributes of foreign namespaces are
/// skipped. Writing keeps everything that was not removed as it was written, the skipped included.
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
  /// The same for a name that is known to be a key, as `PartName::key` gives it.
  const model::ContentType* contentTypeOfKey(std::string_view key) const;

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

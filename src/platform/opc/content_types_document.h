#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/content_type.h"
#include "platform/opc/document_place.h"
#include "platform/opc/text_store.h"
#include "platform/opc/xml_list_text.h"
#include "platform/zip/limits.h"
#include "platform/zip/place_table.h"

namespace opc {

/// The content-type list of a package ("[Content_Types].xml"): a type for one part (override) or for every
/// part with an extension (default). Items keep their order. Names are given encoded, as an entry's name with
/// a leading "/" or as `PartName::encoded` or `PartName::key`; case does not matter. Relationship parts may
/// be named here as well.
///
/// A default written ".json", with the dot, is taken for "json", since writers in the wild do so. Elements
/// and attributes of foreign namespaces are skipped. Writing keeps everything that was not removed as it was
/// written, the skipped included.
class ContentTypesDocument {
 public:
  /// The list of a new package: relationship parts and nothing else.
  ContentTypesDocument();

  /// Raises PackageOpenFailed, with the rule that is broken, naming the package (UTF-8).
  static ContentTypesDocument parse(std::string_view bytes, std::string_view packagePath,
                                    const zip::Limits& limits = {});

  /// The type of a part: its override, else the default of its extension (what follows the last "." of the
  /// last segment), else null. Valid until the list changes.
  const model::ContentType* contentTypeOf(std::string_view encodedName) const;
  /// The same for a name that is known to be a key, as `PartName::key` gives it.
  const model::ContentType* contentTypeOfKey(std::string_view key) const;

  /// Adds the part's override at the end, in the place of another. The name must be canonical ASCII.
  void setOverride(std::string_view encodedName, const model::ContentType& type);
  /// Removing what is not there is no error.
  void removeOverride(std::string_view encodedName);

  std::string toBytes() const { return text_.toBytes(); }

 private:
  class Reader;
  enum class Kind { Default, Override };
  struct Item {
    TextStore::Place key;  ///< lower-case extension, or name key
    model::ContentType type;
    xml::Span written;
  };
  struct Read {};
  explicit ContentTypesDocument(Read);
  /// Whether the key was not there yet; otherwise nothing changes.
  bool append(Kind kind, std::string_view key, const model::ContentType& type, xml::Span written);
  const Item* find(Kind kind, std::string_view key) const;
  std::string_view keyAt(std::size_t place) const { return texts_.at(items_[place].key); }

  xml::ListText text_;
  // Removed items stay where they are, so that the others keep their places.
  std::vector<Item> items_;
  TextStore texts_;
  zip::PlaceTable defaults_, overrides_;
};

}  // namespace opc

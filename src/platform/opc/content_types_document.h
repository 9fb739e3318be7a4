#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/opc/content_type.h"
#include "platform/opc/document_place.h"
#include "platform/opc/text_store.h"
#include "platform/opc/zip/limits.h"

namespace opc {

/// The content-type list of a package ("[Content_Types].xml"): a type for one part (override) or for every
/// part with an extension (default). Items keep their order. Names are given encoded, as an entry's name with
/// a leading "/" or as `PartName::encoded` or `PartName::key`; case does not matter. Relationship parts may
/// be named here as well.
///
/// A default written ".json", with the dot, is taken for "json", since writers in the wild do so. Elements
/// and attributes of foreign namespaces are skipped; they are not written back.
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

  /// Replaces the part's override in its place, or adds one at the end. The name must be canonical ASCII.
  void setOverride(std::string_view encodedName, const model::ContentType& type);
  /// Removing what is not there is no error.
  void removeOverride(std::string_view encodedName);

  std::string toBytes() const;

 private:
  class Reader;
  enum class Kind { Default, Override };
  struct Item {
    Kind kind;
    TextStore::Place written;  ///< the extension or part name, as the document has it
    model::ContentType type;
  };
  using Places = std::unordered_map<std::string, std::size_t, TextHash, std::equal_to<>>;
  struct NoItems {};
  explicit ContentTypesDocument(NoItems) {}
  /// Whether the key was not there yet; otherwise nothing changes.
  bool append(Kind kind, std::string key, std::string_view written, const model::ContentType& type);

  // A removed override leaves an empty place, so that the others keep theirs.
  std::vector<std::optional<Item>> items_;
  TextStore written_;
  Places defaults_, overrides_;  // by lower-case extension, by name key
};

}  // namespace opc

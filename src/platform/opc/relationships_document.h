#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/opc/document_place.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationship.h"
#include "platform/opc/text_store.h"
#include "platform/opc/zip/limits.h"

namespace opc {

/// The relationships of one source, the package or a part, in the order of their document ("…/_rels/….rels").
///
/// Internal targets are resolved against the source and decoded; see `resolveTarget` for those that lead to
/// no part. External targets are as written, always.
///
/// Elements and attributes of foreign namespaces are skipped (markup-compatibility extras occur in the wild),
/// but xml:base is refused, since it would change where targets lead. Writing keeps each relationship's
/// target as it was written, and leaves the skipped extras out.
class RelationshipsDocument {
 public:
  /// No relationships yet. `source` is the encoded name of the part, or empty for the package.
  explicit RelationshipsDocument(std::string source = {});

  /// Raises PackageOpenFailed, with the rule that is broken, naming the package (UTF-8) and the document.
  static RelationshipsDocument parse(std::string_view bytes, std::string source, std::string_view packagePath,
                                     const zip::Limits& limits = {});

  /// The encoded name of the document: "/_rels/.rels", "/a/_rels/b.txt.rels".
  std::string partName() const;

  std::size_t size() const { return byId_.size(); }
  bool isEmpty() const { return byId_.empty(); }

  /// In the order of the document.
  std::vector<model::Relationship> relationships(model::ExcludeMode exclude = model::ExcludeMode::None) const;
  std::vector<model::Relationship> relationshipsByType(std::u16string_view type) const;
  /// Null if there is none. Valid until the document changes.
  const model::Relationship* find(std::string_view id) const;

  /// Adds an internal relationship at the end; its target is written absolute. An empty ID asks for the
  /// lowest free "rIdN". Raises opc::Exception, naming the package, if the ID is taken or is not an XML name,
  /// or the type cannot be written; and as PartName does if the target is no part name.
  const model::Relationship& add(std::u16string_view type, const model::URI& target, std::string_view id,
                                 std::string_view packagePath);
  /// Whether there was one of that ID.
  bool remove(std::string_view id);

  std::string toBytes() const;

 private:
  class Reader;
  struct Item {
    model::Relationship link;
    TextStore::Place writtenTarget;
    bool isRemoved = false;
  };
  /// Whether the ID was not there yet; otherwise nothing changes.
  bool append(model::Relationship link, std::string_view writtenTarget);
  std::string lowestFreeId();

  std::string source_;
  // Removed items stay where they are, so that the others keep their places.
  std::vector<Item> items_;
  TextStore writtenTargets_;
  // The keys lie in the relationships' texts, which copies of this share.
  std::unordered_map<std::string_view, std::size_t> byId_;
  std::uint64_t nextNumber_ = 1;  // every rIdN below is taken or among the freed
  std::set<std::uint64_t> freedNumbers_;
};

}  // namespace opc

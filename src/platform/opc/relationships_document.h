#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/part_name.h"
#include "platform/opc/relationship.h"
#include "platform/opc/text_store.h"
#include "platform/opc/xml_list.h"
#include "platform/text/text_index.h"
#include "platform/zip/limits.h"

namespace opc {

/// The relationships of one source, the package or a part, in the order of their document ("…/_rels/….rels").
///
/// Internal targets are resolved against the source and decoded; see `URI::resolved` for those that lead to
/// no part. External targets are as written, always.
///
/// Elements and attributes of foreign namespaces are skipped (markup-compatibility extras occur in the wild),
/// but xml:base is refused, since it would change where targets lead. Writing keeps everything that was not
/// removed as it was written, the skipped extras included.
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
  bool isEmpty() const { return size() == 0; }

  /// In the order of the document.
  std::vector<model::Relationship> relationships(model::ExcludeMode exclude = model::ExcludeMode::None) const;
  std::vector<model::Relationship> relationshipsByType(std::u16string_view type) const;
  std::optional<model::Relationship> find(std::string_view id) const;

  /// Adds a relationship at the end; an internal target is written absolute, an external one as it is. An
  /// empty ID asks for the lowest free "rIdN". Raises opc::Exception, naming the package, if the ID is taken
  /// or is not an XML name, or the type or an external target cannot be written; and as PartName does if an
  /// internal target is no part name.
  model::Relationship add(std::u16string_view type, const model::URI& target, std::string_view id,
                          std::string_view packagePath, model::TargetMode mode = model::TargetMode::Internal);
  /// Whether there was one of that ID.
  bool remove(std::string_view id);

  /// The document in UTF-8.
  std::string toBytes() const { return text_.toBytes(); }

 private:
  class Reader;
  /// A relationship in the words of the document. What callers see is made when they ask, because most of the
  /// many thousand that a package may have are never looked at.
  struct Item {
    TextStore::Location id, target;
    model::Relationship::Type type;
    model::TargetMode mode;
    xml::Span written;
    bool isRemoved = false;
  };
  /// Whether the ID was not there yet; otherwise nothing changes.
  bool append(std::string_view id, model::Relationship::Type type, std::string_view target,
              model::TargetMode mode, xml::Span written);
  /// A relationship as callers see it, its target resolved.
  model::Relationship linkOf(const Item& item) const;
  /// For the index, which holds positions and asks here for the ID at one.
  auto idAt() const {
    return [this](std::size_t index) { return texts_.at(items_[index].id); };
  }
  std::string lowestFreeId();

  std::string source_;
  xml::ListText text_;
  // Removed items stay where they are, so that the others keep their indexes.
  std::vector<Item> items_;
  TextStore texts_;
  fl::i18n::TextIndex byId_;
  std::uint64_t nextNumber_ = 1;  // every rIdN below is taken or among the freed
  std::set<std::uint64_t> freedNumbers_;
};

}  // namespace opc

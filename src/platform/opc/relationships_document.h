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
  /// The same without the text of the document, of which so many bytes come: enough to look at, in less than
  /// half of the memory. What is read so cannot be changed and written.
  static RelationshipsDocument read(const xml::Source& document, std::size_t bytes, std::string source,
                                    std::string_view packagePath, const zip::Limits& limits);

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
  /// internal target is no part name. Whoever has the name of such a target gives it along.
  model::Relationship add(std::u16string_view type, const model::URI& target, std::string_view id,
                          std::string_view packagePath, model::TargetMode mode = model::TargetMode::Internal,
                          const model::PartName* name = nullptr);
  /// Whether there was one of that ID.
  bool remove(std::string_view id);

  /// The document in UTF-8.
  std::string toBytes() const { return text_.toBytes(); }

 private:
  class Reader;
  /// A relationship in the words of the document. What callers see is made when they ask, because most of the
  /// many thousand that a package may have are never looked at.
  struct Item {
    std::uint32_t begin, idSize, targetSize;  ///< of the ID, which the target follows, in `texts_`
    std::uint32_t type;                       ///< index in `types_`
    model::TargetMode mode;
    bool isRemoved = false;
    TextStore::Location id() const { return {begin, idSize}; }
    TextStore::Location target() const { return {std::size_t{begin} + idSize, targetSize}; }
  };
  /// Finds items by their IDs. Those numbered as nearly every writer numbers them, "rId1" and so on, are
  /// found by the number, which costs far less than looking up a text. `idAt` gives the ID of an item, as for
  /// TextIndex.
  class IdIndex {
   public:
    std::size_t size() const { return numbered_ + others_.size(); }
    void reserve(std::size_t count) { byNumber_.reserve(count); }
    std::optional<std::size_t> find(std::string_view id, const auto& idAt) const;
    /// False, and nothing changed, if another item has the ID. `number` is the N of "rIdN", 0 for another
    /// text.
    bool add(std::size_t index, std::uint64_t number, const auto& idAt);
    void remove(std::string_view id, const auto& idAt);

   private:
    std::vector<std::uint32_t> byNumber_;  // index + 1, or 0
    std::size_t numbered_ = 0;             // how many stand there
    fl::i18n::TextIndex others_;           // other texts, and numbers far above the count
  };
  /// Room for what a document of so many bytes usually holds.
  void reserve(std::size_t bytes);
  /// Whether the ID was not there yet; otherwise nothing changes.
  bool append(std::string_view id, std::uint64_t number, std::size_t type, std::string_view target,
              model::TargetMode mode);
  /// A relationship as callers see it, its target resolved.
  model::Relationship linkOf(const Item& item) const;
  /// For the index, which holds positions and asks here for the ID at one.
  auto idAt() const {
    return [this](std::size_t index) { return texts_.at(items_[index].id()); };
  }
  std::string lowestFreeId();

  std::string source_;
  xml::ListText text_;
  // Removed items stay where they are, so that the others keep their indexes.
  std::vector<Item> items_;
  std::vector<xml::Span> written_;  // where the items stand in the text; none without it
  TextStore texts_;
  std::vector<model::Relationship::Type> types_;
  IdIndex byId_;
  std::uint64_t nextNumber_ = 1;  // every rIdN below is taken or among the freed
  std::set<std::uint64_t> freedNumbers_;
};

}  // namespace opc

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include "platform/files/descriptor.h"
#include "platform/opc/content_types_document.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationships_document.h"
#include "platform/opc/text_store.h"
#include "platform/text/text_hash.h"
#include "platform/text/text_index.h"
#include "platform/zip/directory.h"
#include "platform/zip/limits.h"

namespace opc {

/// The position of an entry in its directory.
using EntryIndex = std::size_t;

/// The relationships of one part, and the entry that holds them. The document is only to be looked at.
struct PartRelationships {
  EntryIndex entry;
  RelationshipsDocument document;
};

/// One part as the opened file has it; its name is that of the entry. Small, because a package may have many.
struct IndexedPart {
  std::uint32_t entry;  ///< an EntryIndex
  std::uint32_t key;    ///< see PackageIndex::keyOf
  const model::ContentType* type;
  std::unique_ptr<const PartRelationships> relationships;  ///< null when the part has none
};

/// What one state of a package file says: directory, content types, relationships and parts. Never changes
/// once it is read, so that every opening of the unchanged file shares one.
///
/// An item is no part, and is only kept, if its name is no part name, if it has no content type or if it is a
/// symbolic link or a folder. A relationship part without its part is kept likewise. The conventions forbid a
/// part whose name is a folder of another's ("/a" and "/a/b"), but packages in the wild have such and other
/// programs read them: both are parts here, and only what is new must not be called so.
class PackageIndex {
 public:
  /// The index of the file that was just opened. It is read unless somebody still holds the one that was read
  /// last and that describes the same file, as happens when one package is opened by several names or first
  /// to look at and then to change. Raises PackageOpenFailed, with the rule that is broken. The relationships
  /// of every part are read here, because malformed ones refuse the package.
  static std::shared_ptr<const PackageIndex> of(const std::shared_ptr<const fl::filesystem::InputFile>& file,
                                                const zip::Limits& limits);
  /// The index of what can be read of a file although it breaks rules, each of which is told. Raises
  /// PackageOpenFailed for a broken directory.
  static std::shared_ptr<const PackageIndex> audit(
      const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Limits& limits,
      const zip::RuleBroken& tell);
  /// Of a package that is not written yet.
  static std::shared_ptr<const PackageIndex> ofNewPackage(const zip::Limits& limits);

  /// Whether this describes the file that was just opened, as it is now, under the same limits.
  bool describes(const fl::filesystem::FileIdentity& current, const zip::Limits& limits) const;
  const zip::Limits& limits() const { return limits_; }

  /// In the order of the directory; none in a new package.
  const std::vector<zip::Entry>& entries() const { return directory_ ? directory_->entries() : kNoEntries; }
  /// The archive's comment and where its directory starts.
  std::string_view comment() const;
  std::uint64_t directoryOffset() const;

  /// The package's own; only to be looked at.
  const RelationshipsDocument& relationships() const { return relationships_; }
  std::optional<EntryIndex> contentTypesEntry() const { return contentTypesEntry_; }
  std::optional<EntryIndex> relationshipsEntry() const { return relationshipsEntry_; }
  /// Of the package and all its parts together.
  std::size_t relationshipCount() const { return relationshipCount_; }

  /// In the order of the directory.
  const std::vector<IndexedPart>& parts() const { return parts_; }
  /// By PartName::key; null if there is none.
  const IndexedPart* find(std::string_view key) const;
  /// PartName::key without the leading "/". Most entries are called so, and then it is their name.
  std::string_view keyOf(const IndexedPart& part) const {
    return part.key == 0 ? entries()[part.entry].name : keyAt(part.key - 1);
  }
  model::PartName nameOf(const IndexedPart& part) const;
  /// Whether an item that is no part has this key. No new part may be called so: it would be saved beside an
  /// entry of an equivalent name.
  bool isNameOfItem(std::string_view key) const { return otherItems_.contains(key); }
  /// The relationship part that is there although the part of this key is not.
  std::optional<EntryIndex> orphanedRelationships(std::string_view key) const;

  /// The documents of the file, read once more to be changed. What is kept here of them is less: nearly every
  /// opening only looks at the package.
  ContentTypesDocument editableContentTypes(
      const std::shared_ptr<const fl::filesystem::InputFile>& file) const;
  /// Of an entry that holds relationships, or of none; `source` as for RelationshipsDocument.
  RelationshipsDocument editableRelationships(const std::shared_ptr<const fl::filesystem::InputFile>& file,
                                              std::optional<EntryIndex> entry, std::string source) const;

 private:
  class Reader;
  class TypeReader;
  PackageIndex() = default;
  /// The part that an entry is; null if it is none.
  const IndexedPart* partOf(EntryIndex entry) const;
  std::string_view keyAt(std::size_t index) const { return keys_.at(otherKeys_[index].text); }

  inline static const std::vector<zip::Entry> kNoEntries;

  fl::filesystem::FileIdentity identity_;
  zip::Limits limits_;
  // The file was so fresh when it was read that a further change might not show in its identity.
  bool mayHaveChangedUnseen_ = false;
  std::optional<zip::Directory> directory_;  // nothing in a new package
  std::deque<model::ContentType> types_;     // that parts have, each once
  RelationshipsDocument relationships_;
  std::optional<EntryIndex> contentTypesEntry_, relationshipsEntry_;
  std::size_t relationshipCount_ = 0;
  std::vector<IndexedPart> parts_;  // in the order of the directory
  // The keys that are not how their entry is called. All others are found by the directory.
  struct OtherKey {
    TextStore::Location text;
    EntryIndex entry;
  };
  TextStore keys_;
  std::vector<OtherKey> otherKeys_;
  fl::i18n::TextIndex byOtherKey_;
  // Keys of what is no part.
  boost::unordered_flat_set<std::string, fl::i18n::TextHash, std::equal_to<>> otherItems_;
  // Relationship parts without a part, by the key of that.
  boost::unordered_flat_map<std::string, EntryIndex, fl::i18n::TextHash, std::equal_to<>> orphans_;
};

}  // namespace opc

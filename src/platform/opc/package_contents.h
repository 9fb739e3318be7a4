#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/opc/content_types_document.h"
#include "platform/opc/package_index.h"
#include "platform/opc/relationships_document.h"
#include "platform/opc/text_store.h"
#include "platform/opc/written_data.h"

namespace opc {

/// What was done to the part of one name since the package was opened.
struct PartChange {
  model::PartName name;
  model::ContentType type;
  /// The part of this name in the opened file. Data and relationships below take the place of its own.
  const IndexedPart* original = nullptr;
  bool isDeleted = false;
  /// Created anew, with nothing of the original; the number orders the new parts, from 1.
  std::uint64_t creation = 0;
  std::shared_ptr<WrittenData> data;
  std::optional<RelationshipsDocument> relationships;
};

/// One part as it is now. Valid until the part is deleted.
struct PartView {
  model::PartName name;
  const model::ContentType& type;
  /// Where its data stands in the opened file; nothing if it is new or was replaced.
  std::optional<EntryPlace> entry;
  /// What replaces it; null together with `entry` for a new part that was never written to, which is empty.
  std::shared_ptr<WrittenData> data;
  /// Null if it has none.
  const RelationshipsDocument* relationships;
};

/// What a package contains now: the index of the opened file and the changes made since, kept beside it.
/// Knows nothing of files. Raises opc::Exception, naming `path`, for what a package may not contain.
class PackageContents {
 public:
  /// Changes beyond the limits are refused, because the saved package could not be opened any more.
  PackageContents(std::string path, std::shared_ptr<const PackageIndex> index, const zip::Limits& limits);

  const zip::Limits& limits() const { return limits_; }
  bool isChanged() const { return isChanged_; }
  const PackageIndex& index() const { return *index_; }

  /// By PartName::key.
  std::optional<PartView> find(const std::string& key) const;
  /// In the order of the file, new ones behind.
  std::vector<model::PartName> names() const;

  void create(const model::PartName& name, const model::ContentType& type);
  /// Deleting what is not there does nothing.
  void remove(const std::string& key);
  /// The part must be there.
  void replaceData(const std::string& key, std::shared_ptr<WrittenData> data);

  const RelationshipsDocument& relationships() const;
  /// The package's relationships whose target is exactly this text, in their order.
  std::vector<model::Relationship> relationshipsByTarget(const std::u16string& target) const;
  model::Relationship addRelationship(std::u16string_view type, const model::URI& target,
                                      std::string_view id);
  void removeRelationship(std::string_view id);
  /// The part must be there.
  model::Relationship addRelationship(const std::string& key, std::u16string_view type,
                                      const model::URI& target, std::string_view id);
  void removeRelationship(const std::string& key, std::string_view id);

  // What saving needs to know.

  /// Whether nothing of the opened file was deleted or replaced, so that the change is all new data.
  bool isOnlyAddition() const { return isOnlyAddition_; }
  const ContentTypesDocument& contentTypes() const;
  bool hasChangedContentTypes() const { return contentTypes_.has_value(); }
  /// Gives a relationship part its content type if the list has another or none for it.
  void typeRelationshipPart(const std::string& encodedName);
  /// Null if they are as in the file.
  const RelationshipsDocument* changedRelationships() const;
  /// The changes to parts, in the order in which new parts were created; those to other parts first.
  std::vector<const PartChange*> partChanges() const;
  /// Relationship parts without a part in whose place there is a part now.
  const std::vector<EntryPlace>& droppedOrphans() const { return droppedOrphans_; }

 private:
  PartChange& change(const std::string& key);
  void checkIsFree(const model::PartName& name);
  void checkEntryCount() const;
  void checkRelationshipCount() const;
  void checkIsNotDerived(const model::PartName& name);
  std::set<std::string_view>& sortedKeys();
  ContentTypesDocument& editContentTypes();
  RelationshipsDocument& editRelationships();
  RelationshipsDocument& editRelationships(const std::string& key);

  std::string path_;
  std::shared_ptr<const PackageIndex> index_;
  zip::Limits limits_;
  std::size_t relationshipCount_;
  std::size_t entryCount_;  // at most so many will be saved
  bool isChanged_ = false;
  bool isOnlyAddition_ = true;
  std::uint64_t creations_ = 0;
  // Never erased from, so that views and keys stay valid.
  std::unordered_map<std::string, PartChange, TextHash, std::equal_to<>> changes_;
  std::optional<ContentTypesDocument> contentTypes_;
  std::optional<RelationshipsDocument> relationships_;
  std::vector<EntryPlace> droppedOrphans_;
  // Of the package's relationships, in their order where targets are equal; only once somebody asks by
  // target, as replacing many files in one go does.
  mutable std::optional<std::multimap<std::u16string, std::string>> idsByTarget_;
  // Of the parts there are, for finding derived names; sorted only once a part is created.
  std::optional<std::set<std::string_view>> sortedKeys_;
};

}  // namespace opc

#include "platform/opc/package_contents.h"

#include <algorithm>
#include <utility>

#include "platform/errors/package_errors.h"

namespace opc {

namespace {

constexpr std::string_view kRelationshipsType = "application/vnd.openxmlformats-package.relationships+xml";

// The list of content types and the package's relationships, which may have to be added.
constexpr std::size_t kDocuments = 2;

PartView viewOf(const PackageIndex& index, const IndexedPart& part) {
  return {index.nameOf(part), part.type, part.entry, nullptr, part.relationships.get()};
}

PartView viewOf(const PartChange& change) {
  PartView view{change.name, change.type, std::nullopt, change.data, nullptr};
  const bool hasOriginal = change.original && change.creation == 0;
  if (hasOriginal && !change.data) view.entry = change.original->entry;
  if (hasOriginal) view.relationships = change.original->relationships.get();
  if (change.relationships) view.relationships = &*change.relationships;
  return view;
}

}  // namespace

PackageContents::PackageContents(std::string path, std::shared_ptr<const PackageIndex> index,
                                 const zip::Limits& limits)
    : path_(std::move(path)),
      index_(std::move(index)),
      limits_(limits),
      relationshipCount_(index_->relationshipCount()),
      entryCount_(index_->entries().size() + kDocuments) {}

std::optional<PartView> PackageContents::find(const std::string& key) const {
  if (const auto found = changes_.find(key); found != changes_.end()) {
    if (found->second.isDeleted) return std::nullopt;
    return viewOf(found->second);
  }
  const IndexedPart* part = index_->find(key);
  if (!part) return std::nullopt;
  return viewOf(*index_, *part);
}

std::vector<model::PartName> PackageContents::names() const {
  std::vector<model::PartName> names;
  for (const IndexedPart& part : index_->parts()) {
    const auto found = changes_.find(index_->keyOf(part));
    const bool isGone = found != changes_.end() && (found->second.isDeleted || found->second.creation != 0);
    if (!isGone) names.push_back(index_->nameOf(part));
  }
  for (const PartChange* change : partChanges()) {
    if (change->creation != 0 && !change->isDeleted) names.push_back(change->name);
  }
  return names;
}

void PackageContents::create(const model::PartName& name, const model::ContentType& type) {
  checkIsFree(name);
  checkIsNotDerived(name);
  checkEntryCount();
  const auto [place, isNew] = changes_.try_emplace(name.key(), PartChange{name, type, {}, {}, {}, {}, {}});
  if (!isNew) place->second = PartChange{name, type, place->second.original, false, 0, nullptr, std::nullopt};
  place->second.creation = ++creations_;
  ++entryCount_;
  sortedKeys().insert(place->first);
  editContentTypes().setOverride(name.encoded(), type);
  // A new part starts without relationships, also where some were left behind.
  if (const auto orphan = index_->orphanedRelationships(name.key())) {
    if (isNew) droppedOrphans_.push_back(*orphan);
    isOnlyAddition_ = false;
  }
}

void PackageContents::checkEntryCount() const {
  if (entryCount_ >= limits_.entries) raise("opc:package:TooManyEntries", path_, limits_.entries);
}

void PackageContents::checkRelationshipCount() const {
  if (relationshipCount_ < limits_.relationships) return;
  raise("opc:package:TooManyRelationships", path_, limits_.relationships);
}

void PackageContents::checkIsFree(const model::PartName& name) {
  if (find(name.key())) raise("opc:part:Exists", path_, name.text());
  if (index_->isNameOfItem(name.key())) raise("opc:part:NameOfItem", path_, name.text());
}

// Neither "/a" when there is "/a/b", nor "/a/b" when there is "/a".
void PackageContents::checkIsNotDerived(const model::PartName& name) {
  const std::string& key = name.key();
  for (std::size_t slash = key.rfind('/'); slash > 0; slash = key.rfind('/', slash - 1)) {
    const auto other = find(key.substr(0, slash));
    if (other) raise("opc:part:DerivedName", path_, name.text(), other->name.text());
  }
  const std::string folder = key + '/';
  const auto next = sortedKeys().lower_bound(folder);
  if (next == sortedKeys().end() || !next->starts_with(folder)) return;
  raise("opc:part:DerivedName", path_, name.text(), find(std::string(*next))->name.text());
}

std::set<std::string_view>& PackageContents::sortedKeys() {
  if (sortedKeys_) return *sortedKeys_;
  sortedKeys_.emplace();
  for (const IndexedPart& part : index_->parts()) {
    if (!changes_.contains(index_->keyOf(part))) sortedKeys_->insert(index_->keyOf(part));
  }
  for (const auto& [key, change] : changes_) {
    if (!change.isDeleted) sortedKeys_->insert(key);
  }
  return *sortedKeys_;
}

PartChange& PackageContents::change(const std::string& key) {
  const auto found = changes_.find(key);
  if (found != changes_.end()) return found->second;
  const IndexedPart* part = index_->find(key);
  return changes_.try_emplace(key, PartChange{index_->nameOf(*part), part->type, part, {}, {}, {}, {}})
      .first->second;
}

void PackageContents::remove(const std::string& key) {
  const auto view = find(key);
  if (!view) return;
  if (view->relationships) relationshipCount_ -= view->relationships->size();
  --entryCount_;
  if (sortedKeys_) sortedKeys_->erase(key);
  PartChange& part = change(key);
  editContentTypes().removeOverride(key);
  editContentTypes().removeOverride(part.name.relationshipPartName());
  part.isDeleted = true;
  part.data.reset();
  part.relationships.reset();
  if (part.original) isOnlyAddition_ = false;
}

void PackageContents::replaceData(const std::string& key, std::shared_ptr<WrittenData> data) {
  PartChange& part = change(key);
  isChanged_ = true;
  part.data = std::move(data);
  if (part.original) isOnlyAddition_ = false;
}

ContentTypesDocument& PackageContents::editContentTypes() {
  isChanged_ = true;
  if (!contentTypes_) contentTypes_ = index_->contentTypes();
  return *contentTypes_;
}

const ContentTypesDocument& PackageContents::contentTypes() const {
  return contentTypes_ ? *contentTypes_ : index_->contentTypes();
}

void PackageContents::typeRelationshipPart(const std::string& encodedName) {
  // An override and never a default, which could make parts of other items.
  const auto type = model::ContentType::fromEncoded(kRelationshipsType);
  const model::ContentType* found = contentTypes().contentTypeOf(encodedName);
  if (!found || !(*found == type)) editContentTypes().setOverride(encodedName, type);
}

const RelationshipsDocument& PackageContents::relationships() const {
  return relationships_ ? *relationships_ : index_->relationships();
}

std::vector<model::Relationship> PackageContents::relationshipsByTarget(const std::u16string& target) const {
  if (!idsByTarget_) {
    idsByTarget_.emplace();
    for (const model::Relationship& link : relationships().relationships()) {
      idsByTarget_->emplace(link.getTarget().text(), link.getID());
    }
  }
  std::vector<model::Relationship> links;
  const auto [begin, end] = idsByTarget_->equal_range(target);
  for (auto entry = begin; entry != end; ++entry) links.push_back(*relationships().find(entry->second));
  return links;
}

const RelationshipsDocument* PackageContents::changedRelationships() const {
  return relationships_ ? &*relationships_ : nullptr;
}

RelationshipsDocument& PackageContents::editRelationships() {
  if (!relationships_) relationships_ = index_->relationships();
  return *relationships_;
}

RelationshipsDocument& PackageContents::editRelationships(const std::string& key) {
  const auto view = find(key);
  PartChange& part = change(key);
  if (part.relationships) return *part.relationships;
  if (view->relationships) return part.relationships.emplace(*view->relationships);
  ++entryCount_;
  return part.relationships.emplace(part.name.encoded());
}

model::Relationship PackageContents::addRelationship(std::u16string_view type, const model::URI& target,
                                                     std::string_view id) {
  checkRelationshipCount();
  model::Relationship added = editRelationships().add(type, target, id, path_);
  ++relationshipCount_;
  isChanged_ = true;  // only now: a refused relationship is no change
  if (idsByTarget_) idsByTarget_->emplace(added.getTarget().text(), added.getID());
  return added;
}

void PackageContents::removeRelationship(std::string_view id) {
  const auto link = relationships().find(id);
  if (!link) return;
  if (idsByTarget_) {
    const auto [begin, end] = idsByTarget_->equal_range(link->getTarget().text());
    idsByTarget_->erase(std::find_if(begin, end, [&](const auto& entry) { return entry.second == id; }));
  }
  editRelationships().remove(id);
  --relationshipCount_;
  isChanged_ = true;
  isOnlyAddition_ = false;
}

model::Relationship PackageContents::addRelationship(const std::string& key, std::u16string_view type,
                                                     const model::URI& target, std::string_view id) {
  checkRelationshipCount();
  if (!find(key)->relationships) checkEntryCount();
  model::Relationship added = editRelationships(key).add(type, target, id, path_);
  ++relationshipCount_;
  isChanged_ = true;
  return added;
}

void PackageContents::removeRelationship(const std::string& key, std::string_view id) {
  const auto view = find(key);
  if (!view->relationships || !view->relationships->find(id)) return;
  editRelationships(key).remove(id);
  --relationshipCount_;
  isChanged_ = true;
  isOnlyAddition_ = false;
}

std::vector<const PartChange*> PackageContents::partChanges() const {
  std::vector<const PartChange*> changes;
  changes.reserve(changes_.size());
  for (const auto& [key, change] : changes_) changes.push_back(&change);
  std::ranges::sort(changes, {}, [](const PartChange* part) {
    return std::pair(part->creation, part->original ? part->original->entry : 0);
  });
  return changes;
}

}  // namespace opc

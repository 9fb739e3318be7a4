#include "platform/opc/open_package.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <unistd.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/entry_reader.h"

// Every question about the package is answered from two layers: what was changed since it was opened and,
// for everything else, the index of the file, which other openings share and which never changes. The
// numbers of entries and relationships are counted along with the changes, so that whoever goes past a limit
// learns it from that very request, not when everything is saved.

namespace opc {

using model::PartName;
using model::Relationship;

namespace {

// The list of content types and the package's relationships. Counted although they may be there already: the
// count is an upper bound.
constexpr std::size_t kDocuments = 2;

const RelationshipsDocument* relationshipsOf(const IndexedPart& part) {
  return part.relationships ? &part.relationships->document : nullptr;
}

std::string_view withoutSlash(std::string_view key) { return key.substr(1); }

/// With the slash behind it; empty for what lies in the root.
std::string_view folderOf(std::string_view keyWithoutSlash) {
  return keyWithoutSlash.substr(0, keyWithoutSlash.rfind('/') + 1);
}

}  // namespace

OpenPackage::OpenPackage(std::shared_ptr<const fl::filesystem::InputFile> file,
                         std::shared_ptr<const PackageIndex> index, Access access)
    : OpenPackage(file->path(), std::move(index), file->identity()) {
  file_ = std::move(file);
  access_ = access;
}

OpenPackage::OpenPackage(std::string path, std::shared_ptr<const PackageIndex> index,
                         std::optional<fl::filesystem::FileIdentity> replaced)
    : path_(std::move(path)),
      access_(Access::Change),
      index_(std::move(index)),
      replaced_(replaced),
      relationshipCount_(index_->relationshipCount()),
      entryCount_(index_->entries().size() + kDocuments) {}

void OpenPackage::close() {
  // Also if saving fails: the package is closed in any case.
  struct Closer {
    OpenPackage& package;
    ~Closer() { package.closeWithoutSaving(); }
  } closer{*this};
  // A new package is written even if nothing was put into it.
  if (access_ == Access::Change && (isChanged_ || !file_)) save();
}

void OpenPackage::closeWithoutSaving() noexcept {
  folders_.reset();  // points into what goes below
  changes_.clear();
  contentTypes_.reset();
  relationships_.reset();
  idsByTarget_.reset();
  spoolStorage_.reset();
  index_.reset();
  file_.reset();
}

void OpenPackage::checkIsOpen() const {
  if (!index_) raise("opc:package:Closed", path_);
}

void OpenPackage::checkMayChange() const {
  checkIsOpen();
  if (access_ == Access::Read) raise("opc:package:NotModifiable", path_);
}

// Looking.

std::optional<PartView> OpenPackage::find(std::string_view key) const {
  checkIsOpen();
  const auto found = changes_.find(key);
  if (found == changes_.end()) {
    const IndexedPart* part = index_->find(key);
    if (!part) return std::nullopt;
    return PartView{part->type, &index_->entries()[part->entry], nullptr, relationshipsOf(*part)};
  }
  const PartChange& change = found->second;
  if (change.isDeleted) return std::nullopt;
  PartView view{&change.type, nullptr, change.data, nullptr};
  // A part that was created anew has nothing of the one in the file.
  if (change.creation == 0) {
    if (!change.data) view.entry = &index_->entries()[change.original->entry];
    view.relationships = relationshipsOf(*change.original);
  }
  if (change.relationships) view.relationships = change.relationships.get();
  return view;
}

bool OpenPackage::hasKey(std::string_view key) const {
  checkIsOpen();
  const auto found = changes_.find(key);
  return found == changes_.end() ? index_->find(key) != nullptr : !found->second.isDeleted;
}

bool OpenPackage::has(const PartName& name) const { return hasKey(name.key()); }

bool OpenPackage::isFree(const PartName& name) const {
  return !has(name) && !index_->isNameOfItem(name.key());
}

PartView OpenPackage::part(const PartName& name) const {
  auto view = find(name.key());
  if (!view) raise("opc:part:NotFound", path_, name.text());
  return *std::move(view);
}

// That of the change, if there is one: a part that was created anew may be spelled otherwise than the old
// one.
std::optional<PartName> OpenPackage::findName(const PartName& name) const {
  checkIsOpen();
  const auto found = changes_.find(name.key());
  if (found != changes_.end())
    return found->second.isDeleted ? std::nullopt : std::optional(found->second.name);
  const IndexedPart* part = index_->find(name.key());
  if (!part) return std::nullopt;
  // Most are asked for as they are spelled, and a name shares its texts with its copies.
  const std::string_view spelled = index_->entries()[part->entry].name;
  return spelled == withoutSlash(name.encoded()) ? name : index_->nameOf(*part);
}

PartName OpenPackage::storedName(const PartName& name) const {
  auto found = findName(name);
  if (!found) raise("opc:part:NotFound", path_, name.text());
  return *std::move(found);
}

const RelationshipsDocument* OpenPackage::relationships(const PartName* source) const {
  checkIsOpen();
  if (source) return part(*source).relationships;
  return relationships_ ? &*relationships_ : &index_->relationships();
}

std::vector<Relationship> OpenPackage::relationshipsByTarget(const std::u16string& target) const {
  const RelationshipsDocument& document = *relationships(nullptr);
  if (!idsByTarget_) {
    idsByTarget_.emplace();
    for (const Relationship& link : document.relationships()) {
      idsByTarget_->emplace(link.getTarget().text(), link.getID());
    }
  }
  std::vector<Relationship> links;
  // Equal keys keep the order in which they were put in, which is that of the document.
  const auto [begin, end] = idsByTarget_->equal_range(target);
  for (auto found = begin; found != end; ++found) links.push_back(*document.find(found->second));
  return links;
}

void OpenPackage::checkIsComplete(const zip::Spool& data, const PartName& name) const {
  if (data.isBroken()) raise("opc:part:LostData", path_, name.text());
  if (!data.isFinished()) raise("opc:part:StillWritten", path_, name.text());
}

std::string OpenPackage::readWhole(const PartName& name, std::uint64_t limit) const {
  const PartView view = part(name);
  if (view.entry) return zip::readWhole(file_, *view.entry, limit);
  std::string bytes;
  // Created, but never written to.
  if (!view.data) return bytes;
  checkIsComplete(*view.data, name);
  if (view.data->size() > limit) raise("opc:part:TooLarge", path_, name.text(), limit);
  bytes.resize(view.data->size());
  zip::Spool::Reader reader(*view.data);
  std::size_t filled = 0;
  while (const std::size_t got = reader.read(bytes.data() + filled, bytes.size() - filled)) filled += got;
  return bytes;
}

void OpenPackage::countInflated(std::uint64_t bytes) {
  // Of all streams together, since many small ones fill a disk or take time as well as a large one.
  inflated_ += bytes;
  const std::uint64_t limit = index_->limits().inflatedBytesPerOpen;
  if (inflated_ > limit) raise("opc:package:TooMuchData", path_, limit);
}

// Changing.

void OpenPackage::prepareChange() {
  checkMayChange();
  contentTypes();
  packageRelationships();
}

void OpenPackage::checkCanCreate(const PartName& name) {
  checkMayChange();
  if (freeKey_ == name.key()) return;
  // The most telling reason first: a name that is taken by a part is not free either.
  if (has(name)) raise("opc:part:Exists", path_, name.text());
  if (!isFree(name)) raise("opc:part:NameOfItem", path_, name.text());
  checkIsNotDerived(name);
  checkEntryCount();
  freeKey_ = name.key();
}

void OpenPackage::create(const PartName& name, const model::ContentType& type,
                         std::shared_ptr<zip::Spool> data) {
  checkCanCreate(name);
  prepareChange();
  if (data) data->finish();
  putNew(name, type, std::move(data));
}

void OpenPackage::recreate(const PartName& name, const model::ContentType& type,
                           std::shared_ptr<zip::Spool> data) {
  prepareChange();
  part(name);
  data->finish();  // a full disk may show only now, when the old part is still there
  remove(name);
  putNew(name, type, std::move(data));
}

void OpenPackage::putNew(const PartName& name, const model::ContentType& type,
                         std::shared_ptr<zip::Spool> data) {
  freeKey_.clear();
  const auto [created, isNew] = changes_.insert_or_assign(
      name.key(),
      PartChange{name, type, index_->find(name.key()), false, ++creations_, std::move(data), nullptr});
  ++entryCount_;
  if (folders_) ++(*folders_)[folderOf(withoutSlash(created->first))];
  editContentTypes().setOverride(name.encoded(), type);
  // A new part starts without relationships, also where some were left behind.
  const auto orphan = index_->orphanedRelationships(name.key());
  if (!orphan) return;
  // Once: a part of this name may have been created and removed before.
  if (isNew) droppedOrphans_.push_back(*orphan);
  isOnlyAddition_ = false;
}

void OpenPackage::checkEntryCount() const {
  const std::uint64_t limit = index_->limits().entries;
  if (entryCount_ >= limit) raise("opc:package:TooManyEntries", path_, limit);
}

// Neither "/a" when there is "/a/b", nor "/a/b" when there is "/a". The folders above a name are few, and
// are looked up one by one; the names below it lie in folders whose names begin with it.
void OpenPackage::checkIsNotDerived(const PartName& name) {
  const auto raiseBeside = [&](std::string_view key) {
    const PartName other = storedName(PartName::tryFromEncoded(key).value());
    raise("opc:part:DerivedName", path_, name.text(), other.text());
  };
  const std::string& key = name.key();
  for (std::size_t slash = key.rfind('/'); slash > 0; slash = key.rfind('/', slash - 1)) {
    const std::string_view folder = std::string_view(key).substr(0, slash);
    if (hasKey(folder)) raiseBeside(folder);
  }
  const std::string folder = std::string(withoutSlash(key)) + '/';
  // If any folder's name starts with it, the first that does not come before it does.
  const auto next = folders().lower_bound(folder);
  if (next == folders().end() || !next->first.starts_with(folder)) return;
  std::string_view first;
  forEachKey([&](std::string_view other) {
    if (other.starts_with(folder) && (first.empty() || other < first)) first = other;
  });
  raiseBeside(std::string("/").append(first));
}

void OpenPackage::forEachKey(const auto& visit) const {
  std::string key;
  for (const IndexedPart& part : index_->parts()) {
    key.assign("/").append(index_->keyOf(part));
    if (!changes_.contains(key)) visit(index_->keyOf(part));
  }
  for (const auto& [changed, change] : changes_) {
    if (!change.isDeleted) visit(withoutSlash(changed));
  }
}

std::map<std::string_view, std::size_t>& OpenPackage::folders() {
  if (folders_) return *folders_;
  std::map<std::string_view, std::size_t> counted;
  forEachKey([&](std::string_view key) { ++counted[folderOf(key)]; });
  return folders_.emplace(std::move(counted));
}

OpenPackage::PartChange& OpenPackage::change(const PartName& name) {
  const auto found = changes_.find(name.key());
  if (found != changes_.end()) return found->second;
  const IndexedPart* part = index_->find(name.key());
  // Callers have found the part, so without a change it is one of the file.
  PartChange unchanged{index_->nameOf(*part), *part->type, part, false, 0, nullptr, nullptr};
  return changes_.emplace(name.key(), std::move(unchanged)).first->second;
}

void OpenPackage::remove(const PartName& name) {
  prepareChange();
  const auto view = find(name.key());
  if (!view) return;
  freeKey_.clear();
  // The part's relationships go with it.
  if (view->relationships) relationshipCount_ -= view->relationships->size();
  --entryCount_;
  if (folders_) {
    const auto folder = folders_->find(folderOf(withoutSlash(name.key())));
    if (--folder->second == 0) folders_->erase(folder);
  }
  PartChange& part = change(name);
  editContentTypes().removeOverride(name.key());
  // Some writers name relationship parts there too; one left behind would be about nothing.
  editContentTypes().removeOverride(model::relationshipPartNameOf(part.name.encoded()));
  part.isDeleted = true;
  part.data.reset();
  part.relationships.reset();
  if (part.original) isOnlyAddition_ = false;
}

std::shared_ptr<zip::Spool> OpenPackage::startData() {
  checkMayChange();
  return std::make_shared<zip::Spool>(spoolStorage());
}

std::shared_ptr<zip::Spool> OpenPackage::replaceData(const PartName& name) {
  checkMayChange();
  part(name);
  PartChange& part = change(name);
  // Until this is finished, reading the part raises: the old data is given up, and the new is not whole.
  part.data = startData();
  isChanged_ = true;
  if (part.original) isOnlyAddition_ = false;
  return part.data;
}

// Beside the package, where the data goes in the end anyway and the temporary folder's size does not matter.
// In a folder that cannot be written the data is kept elsewhere, and it is the save that fails.
const std::shared_ptr<zip::SpoolStorage>& OpenPackage::spoolStorage() {
  if (spoolStorage_) return spoolStorage_;
  std::error_code ignored;
  const std::filesystem::path target = std::filesystem::weakly_canonical(path_, ignored);
  std::filesystem::path folder = target.parent_path();
  if (access(folder.c_str(), W_OK | X_OK) != 0) folder = std::filesystem::temp_directory_path(ignored);
  spoolStorage_ = std::make_shared<zip::SpoolStorage>(folder.string());
  return spoolStorage_;
}

ContentTypesDocument& OpenPackage::editContentTypes() {
  ContentTypesDocument& document = contentTypes();
  isChanged_ = areContentTypesChanged_ = true;  // only now: what cannot be read is not changed
  return document;
}

ContentTypesDocument& OpenPackage::contentTypes() {
  if (!contentTypes_) contentTypes_ = index_->editableContentTypes(file_);
  return *contentTypes_;
}

RelationshipsDocument& OpenPackage::packageRelationships() {
  if (!relationships_) {
    relationships_ = index_->editableRelationships(file_, index_->relationshipsEntry(), {});
  }
  return *relationships_;
}

RelationshipsDocument& OpenPackage::editRelationships(const PartName* source) {
  if (!source) {
    RelationshipsDocument& document = packageRelationships();
    areRelationshipsChanged_ = true;
    return document;
  }
  const RelationshipsDocument* before = relationships(source);
  PartChange& part = change(*source);
  if (part.relationships) return *part.relationships;
  if (before) {
    part.relationships = std::make_unique<RelationshipsDocument>(
        index_->editableRelationships(file_, part.original->relationships->entry, part.name.encoded()));
    return *part.relationships;
  }
  // The first relationship of a part makes its relationship part.
  ++entryCount_;
  freeKey_.clear();
  part.relationships = std::make_unique<RelationshipsDocument>(part.name.encoded());
  return *part.relationships;
}

Relationship OpenPackage::addRelationship(const PartName* source, std::u16string_view type,
                                          const model::URI& target, std::string_view id,
                                          model::TargetMode mode, const PartName* name) {
  prepareChange();
  // Also raises if the source is gone.
  const bool hasDocument = relationships(source) != nullptr;
  const std::size_t limit = index_->limits().relationships;
  if (relationshipCount_ >= limit) raise("opc:package:TooManyRelationships", path_, limit);
  // A first relationship adds an entry as well.
  if (!hasDocument) checkEntryCount();
  Relationship added = editRelationships(source).add(type, target, id, path_, mode, name);
  ++relationshipCount_;
  isChanged_ = true;  // only now: a refused relationship is no change
  if (!source && idsByTarget_) idsByTarget_->emplace(added.getTarget().text(), added.getID());
  return added;
}

void OpenPackage::removeRelationship(const PartName* source, std::string_view id) {
  prepareChange();
  const RelationshipsDocument* document = relationships(source);
  const auto link = document ? document->find(id) : std::nullopt;
  if (!link) return;
  if (!source && idsByTarget_) {
    const auto [begin, end] = idsByTarget_->equal_range(link->getTarget().text());
    idsByTarget_->erase(std::find_if(begin, end, [&](const auto& known) { return known.second == id; }));
  }
  editRelationships(source).remove(id);
  --relationshipCount_;
  isChanged_ = true;
  isOnlyAddition_ = false;
}

}  // namespace opc

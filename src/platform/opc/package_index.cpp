#include "platform/opc/package_index.h"

#include <chrono>
#include <mutex>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/opc/item_names.h"
#include "platform/zip/entry_reader.h"

namespace opc {

namespace {

// File systems stamp with the kernel's tick. Of a file that changed less than a tick before it was read, a
// second change of the same size would go unseen.
constexpr std::int64_t kClockTick = 20'000'000;  // nanoseconds

bool isJustChanged(const fl::filesystem::FileIdentity& identity) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() - identity.changed < kClockTick;
}

}  // namespace

/// Reads an index, entry by entry.
class PackageIndex::Reader {
 public:
  Reader(const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Limits& limits,
         PackageIndex& index)
      : file_(file), limits_(limits), index_(index) {}

  void read() {
    index_.identity_ = file_->identity();
    index_.limits_ = limits_;
    index_.mayHaveChangedUnseen_ = isJustChanged(file_->identity());
    index_.directory_ = zip::Directory::read(*file_, limits_);
    sortItems();
    readContentTypes();
    index_.parts_.reserve(partItems_.size());
    index_.partsByKey_.reserve(partItems_.size());
    for (const EntryPlace place : partItems_) addItem(place);
    for (const EntryPlace place : relationshipItems_) addRelationships(place);
  }

 private:
  const zip::Entry& entryAt(EntryPlace place) const { return index_.entries()[place]; }

  void sortItems() {
    const auto& entries = index_.entries();
    for (EntryPlace place = 0; place < entries.size(); ++place) {
      sortItem(place, kindOfItem(entries[place].name));
    }
  }

  void sortItem(EntryPlace place, ItemKind kind) {
    const zip::Entry& entry = entryAt(place);
    if (kind == ItemKind::InterleavedPiece) {
      refuse("opc:package:InterleavedPart", file_->path(), entry.name);
    }
    if (kind == ItemKind::Folder) return;
    if (kind == ItemKind::Relationships) return relationshipItems_.push_back(place);
    if (entry.isSymbolicLink) return keepOther(partNameOfItem(entry.name));
    if (kind == ItemKind::Other) return partItems_.push_back(place);
    if (index_.contentTypesEntry_) refuse("opc:package:ContentTypesTwice", file_->path());
    index_.contentTypesEntry_ = place;
  }

  void keepOther(const std::optional<model::PartName>& name) {
    if (name) index_.otherItems_.insert(name->key());
  }

  void readContentTypes() {
    if (!index_.contentTypesEntry_) refuse("opc:package:ContentTypesMissing", file_->path());
    const std::string bytes =
        zip::readWhole(file_, entryAt(*index_.contentTypesEntry_), limits_.contentTypeBytes);
    index_.contentTypes_ = ContentTypesDocument::parse(bytes, file_->path(), limits_);
  }

  void addItem(EntryPlace place) {
    const auto key = keyOfItem(entryAt(place).name);
    if (!key) return;
    const model::ContentType* type = index_.contentTypes_.contentTypeOfKey(*key);
    const bool isTaken = type ? index_.otherItems_.contains(*key) : !index_.otherItems_.insert(*key).second;
    if (isTaken) refuseEquivalent(place);
    if (!type) return;
    index_.parts_.push_back({place, index_.keys_.add(*key), *type, {}, {}});
    const auto keyAt = [this](std::size_t at) { return index_.keyOf(index_.parts_[at]); };
    if (!index_.partsByKey_.add(index_.parts_.size() - 1, keyAt)) refuseEquivalent(place);
  }

  void addRelationships(EntryPlace place) {
    const auto source = sourceOfRelationships(entryAt(place).name);
    if (!source) return;
    if (!relationshipSources_.insert(*source).second) refuseEquivalent(place);
    if (source->empty()) {
      index_.relationshipsEntry_ = place;
      index_.relationships_ = readRelationships(place, {});
      return;
    }
    const IndexedPart* found = index_.find(*source);
    if (!found) {
      index_.orphans_.emplace(*source, place);
      return;
    }
    IndexedPart& part = index_.parts_[static_cast<std::size_t>(found - index_.parts_.data())];
    part.relationshipsEntry = place;
    part.relationships = std::make_shared<const RelationshipsDocument>(
        readRelationships(place, index_.nameOf(part).encoded()));
  }

  // The limits hold for all relationships of the package together. A link in the place of a document says
  // nothing, but it gives way when the document is written.
  RelationshipsDocument readRelationships(EntryPlace place, const std::string& source) {
    if (entryAt(place).isSymbolicLink) return RelationshipsDocument(source);
    const std::string bytes = zip::readWhole(file_, entryAt(place), limits_.relationshipBytes);
    auto document = RelationshipsDocument::parse(bytes, source, file_->path(), limits_);
    limits_.relationshipBytes -= bytes.size();
    limits_.relationships -= document.size();
    index_.relationshipCount_ += document.size();
    return document;
  }

  [[noreturn]] void refuseEquivalent(EntryPlace place) {
    refuse("opc:package:EquivalentNames", file_->path(), entryAt(place).name);
  }

  std::shared_ptr<const fl::filesystem::InputFile> file_;
  zip::Limits limits_;  // what is left of them
  PackageIndex& index_;
  std::vector<EntryPlace> partItems_, relationshipItems_;
  std::unordered_set<std::string> relationshipSources_;
};

std::shared_ptr<const PackageIndex> PackageIndex::read(
    const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Limits& limits) {
  const std::shared_ptr<PackageIndex> index(new PackageIndex);
  Reader(file, limits, *index).read();
  return index;
}

std::shared_ptr<const PackageIndex> PackageIndex::ofNewPackage() {
  return std::shared_ptr<const PackageIndex>(new PackageIndex);
}

std::shared_ptr<const PackageIndex> PackageIndex::of(
    const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Limits& limits) {
  static constinit std::mutex mutex;
  static constinit std::weak_ptr<const PackageIndex> lastRead;
  {
    const std::lock_guard lock(mutex);
    auto known = lastRead.lock();
    if (known && known->describes(file->identity(), limits)) return known;
  }
  auto index = read(file, limits);
  const std::lock_guard lock(mutex);
  lastRead = index;
  return index;
}

bool PackageIndex::describes(const fl::filesystem::FileIdentity& current, const zip::Limits& limits) const {
  return identity_ == current && limits_ == limits && !mayHaveChangedUnseen_;
}

const std::vector<zip::Entry>& PackageIndex::entries() const {
  static const std::vector<zip::Entry> kNone;
  return directory_ ? directory_->entries() : kNone;
}

std::string_view PackageIndex::comment() const {
  return directory_ ? directory_->comment() : std::string_view();
}

std::uint64_t PackageIndex::directoryOffset() const { return directory_ ? directory_->offset() : 0; }

const IndexedPart* PackageIndex::find(std::string_view key) const {
  const auto found = partsByKey_.find(key, [this](std::size_t place) { return keyOf(parts_[place]); });
  return found ? &parts_[*found] : nullptr;
}

model::PartName PackageIndex::nameOf(const IndexedPart& part) const {
  return partNameOfItem(entries()[part.entry].name).value();
}

std::optional<EntryPlace> PackageIndex::orphanedRelationships(const std::string& key) const {
  const auto found = orphans_.find(key);
  if (found == orphans_.end()) return std::nullopt;
  return found->second;
}

}  // namespace opc

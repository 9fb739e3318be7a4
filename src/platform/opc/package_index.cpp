#include "platform/opc/package_index.h"

#include <chrono>
#include <cstdint>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/opc/percent_encoding.h"
#include "platform/zip/entry_reader.h"

// How a file becomes an index. The entries of its directory are first told apart by their names alone. Then
// the list of content types is read, because it decides which of the remaining entries are parts, and after
// the parts the relationships, because each relationship part belongs to one of them.
//
// The rules are those of the conventions for packages in ZIP files (ECMA-376 part 2). A file is refused
// where programs could disagree about what it contains; what merely is no part is kept and copied when the
// package is saved.

namespace opc {

namespace {

// File systems stamp with the kernel's tick. Of a file that changed less than a tick before it was read, a
// second change of the same size would go unseen.
constexpr std::int64_t kClockTick = 20'000'000;  // nanoseconds

bool isJustChanged(const fl::filesystem::FileIdentity& identity) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() - identity.changed < kClockTick;
}

/// What the name of an entry says about it.
enum class ItemKind {
  Folder,            ///< ends in "/"
  ContentTypes,      ///< "[Content_Types].xml"
  InterleavedPiece,  ///< ".../[0].piece", ".../[7].last.piece"
  Relationships,     ///< in a folder "_rels", with the extension "rels"
  Other,
};

std::string_view lastSegment(std::string_view name) { return name.substr(name.rfind('/') + 1); }

std::string_view folderOf(std::string_view name) {
  const std::size_t slash = name.rfind('/');
  return slash == std::string_view::npos ? std::string_view() : name.substr(0, slash);
}

/// The name of a part that is cut into several entries, which the conventions allow for streaming.
bool isPiece(std::string_view segment) {
  if (!segment.starts_with('[')) return false;
  const std::size_t close = segment.find_first_not_of("0123456789", 1);
  if (close == std::string_view::npos || close == 1 || segment[close] != ']') return false;
  const std::string_view rest = segment.substr(close + 1);
  return percent::equalsIgnoringCase(rest, ".piece") || percent::equalsIgnoringCase(rest, ".last.piece");
}

ItemKind kindOf(std::string_view name) {
  if (name.ends_with('/')) return ItemKind::Folder;
  if (percent::equalsIgnoringCase(name, "[Content_Types].xml")) return ItemKind::ContentTypes;
  if (isPiece(lastSegment(name))) return ItemKind::InterleavedPiece;
  const bool isRelationships = model::isRelationshipPart(lastSegment(folderOf(name)), lastSegment(name));
  return isRelationships ? ItemKind::Relationships : ItemKind::Other;
}

/// PartName::key of an entry's name; nothing if no part can be called so.
std::optional<std::string> keyOfItem(std::string_view name) {
  return model::PartName::tryKey(std::string("/").append(name));
}

/// The key of the part whose relationships an entry of that kind holds: empty text for the package
/// ("_rels/.rels"), nothing if no part can be called so.
std::optional<std::string> sourceOfRelationships(std::string_view name) {
  const std::string_view folder = folderOf(folderOf(name));
  std::string_view base = lastSegment(name);
  base.remove_suffix(std::string_view(".rels").size());
  if (folder.empty() && base.empty()) return std::string();
  std::string source(folder);
  if (!source.empty()) source += '/';
  return keyOfItem(source.append(base));
}

}  // namespace

/// Reads an index, entry by entry.
class PackageIndex::Reader {
 public:
  Reader(const std::shared_ptr<const fl::filesystem::InputFile>& file, PackageIndex& index,
         const zip::RuleBroken& tell)
      : file_(file), remaining_(index.limits_), index_(index), tell_(tell) {}

  void read() {
    index_.identity_ = file_->identity();
    index_.mayHaveChangedUnseen_ = isJustChanged(file_->identity());
    index_.directory_ = zip::Directory::read(*file_, remaining_);
    for (EntryIndex entry = 0; entry < index_.entries().size(); ++entry) {
      zip::holds(tell_, &at(entry), [&] { sortItem(entry); });
    }
    const auto list = index_.contentTypesEntry_;
    zip::holds(tell_, list ? &at(*list) : nullptr, [&] { readContentTypes(); });
    // Nearly all of them will be parts.
    index_.parts_.reserve(partItems_.size());
    index_.partsByKey_.reserve(partItems_.size());
    // Grown step by step, long names would take twice their room.
    std::size_t nameBytes = 0;
    for (const EntryIndex entry : partItems_) nameBytes += at(entry).name.size() + 1;
    index_.keys_.reserve(nameBytes);
    for (const EntryIndex entry : partItems_) {
      zip::holds(tell_, &at(entry), [&] { addItem(entry); });
    }
    for (const EntryIndex entry : relationshipItems_) {
      zip::holds(tell_, &at(entry), [&] { addRelationships(entry); });
    }
  }

 private:
  const zip::Entry& at(EntryIndex entry) const { return index_.entries()[entry]; }

  void sortItem(EntryIndex entry) {
    const ItemKind kind = kindOf(at(entry).name);
    if (kind == ItemKind::InterleavedPiece) {
      refuse("opc:package:InterleavedPart", file_->path(), at(entry).name);
    }
    // Archivers add entries for folders; they hold nothing and are in nobody's way.
    if (kind == ItemKind::Folder) return;
    if (kind == ItemKind::Relationships) return relationshipItems_.push_back(entry);
    // A link may lead out of the package, so it is no part; its name is taken all the same.
    if (at(entry).isSymbolicLink) return keepLink(keyOfItem(at(entry).name));
    if (kind == ItemKind::Other) return partItems_.push_back(entry);
    // Names that differ only in case: programs would disagree about which one counts.
    if (index_.contentTypesEntry_) refuse("opc:package:ContentTypesTwice", file_->path());
    index_.contentTypesEntry_ = entry;
  }

  void keepLink(std::optional<std::string> key) {
    if (key) index_.otherItems_.insert(*std::move(key));
  }

  void readContentTypes() {
    if (!index_.contentTypesEntry_) refuse("opc:package:ContentTypesMissing", file_->path());
    const std::string bytes = readWhole(*index_.contentTypesEntry_, remaining_.contentTypeBytes);
    index_.contentTypes_ = ContentTypesDocument::parse(bytes, file_->path(), remaining_);
  }

  void addItem(EntryIndex entry) {
    const auto key = keyOfItem(at(entry).name);
    if (!key) return;
    const model::ContentType* type = index_.contentTypes_.contentTypeOfKey(*key);
    // Equivalent names may not occur twice. Between two parts the index below finds that out.
    const bool isTaken = type ? index_.otherItems_.contains(*key) : !index_.otherItems_.insert(*key).second;
    if (isTaken) refuseEquivalent(entry);
    // Without a content type it is no part.
    if (!type) return;
    index_.parts_.push_back({entry, index_.keys_.add(*key), *type, {}, {}});
    const auto keyAt = [this](std::size_t part) { return index_.keyOf(index_.parts_[part]); };
    if (!index_.partsByKey_.add(index_.parts_.size() - 1, keyAt)) refuseEquivalent(entry);
  }

  void addRelationships(EntryIndex entry) {
    const auto source = sourceOfRelationships(at(entry).name);
    if (!source) return;
    // "_rels/.rels" holds the relationships of the package itself.
    if (source->empty()) {
      claim(index_.relationshipsEntry_, entry);
      index_.relationships_ = readRelationships(entry, {});
      return;
    }
    const IndexedPart* found = index_.find(*source);
    // Kept for saving, but nobody's relationships.
    if (!found) {
      if (!index_.orphans_.emplace(*source, entry).second) refuseEquivalent(entry);
      return;
    }
    // The same part once more, to be completed.
    IndexedPart& part = index_.parts_[static_cast<std::size_t>(found - index_.parts_.data())];
    claim(part.relationshipsEntry, entry);
    part.relationships = std::make_shared<const RelationshipsDocument>(
        readRelationships(entry, index_.nameOf(part).encoded()));
  }

  /// Refuses the second of two relationship parts of one source, whose names are then equivalent.
  void claim(std::optional<EntryIndex>& relationshipsEntry, EntryIndex entry) {
    if (relationshipsEntry) refuseEquivalent(entry);
    relationshipsEntry = entry;
  }

  // The limits hold for all relationships of the package together. A symbolic link instead of a document says
  // nothing, but it gives way when the document is written.
  RelationshipsDocument readRelationships(EntryIndex entry, const std::string& source) {
    if (at(entry).isSymbolicLink) return RelationshipsDocument(source);
    const std::string bytes = readWhole(entry, remaining_.relationshipBytes);
    auto document = RelationshipsDocument::parse(bytes, source, file_->path(), remaining_);
    remaining_.relationshipBytes -= bytes.size();
    remaining_.relationships -= document.size();
    index_.relationshipCount_ += document.size();
    return document;
  }

  std::string readWhole(EntryIndex entry, std::uint64_t limit) {
    try {
      return zip::readWhole(file_, at(entry), limit);
    } catch (const Exception& broken) {  // data that does not match its checksum, for one
      throw model::PackageOpenFailed(broken.GetID(), broken.GetArguments(), broken.causes());
    }
  }

  [[noreturn]] void refuseEquivalent(EntryIndex entry) {
    refuse("opc:package:EquivalentNames", file_->path(), at(entry).name);
  }

  const std::shared_ptr<const fl::filesystem::InputFile>& file_;
  /// The limits, less what was read so far.
  zip::Limits remaining_;
  PackageIndex& index_;
  const zip::RuleBroken& tell_;
  std::vector<EntryIndex> partItems_, relationshipItems_;
};

std::shared_ptr<const PackageIndex> PackageIndex::ofNewPackage(const zip::Limits& limits) {
  const std::shared_ptr<PackageIndex> index(new PackageIndex);
  index->limits_ = limits;
  index->contentTypes_ = ContentTypesDocument::ofNewPackage();
  return index;
}

std::shared_ptr<const PackageIndex> PackageIndex::of(
    const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Limits& limits) {
  // Not owned: an index that nobody uses any more gives its memory back.
  static constinit std::weak_ptr<const PackageIndex> lastRead;
  // A hit saves reading a directory and parsing thousands of documents.
  if (auto known = lastRead.lock(); known && known->describes(file->identity(), limits)) return known;
  // The first broken rule refuses the package.
  const auto index = audit(file, limits, [](const auto& broken, const zip::Entry*) { throw broken; });
  lastRead = index;
  return index;
}

std::shared_ptr<const PackageIndex> PackageIndex::audit(
    const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Limits& limits,
    const zip::RuleBroken& tell) {
  const std::shared_ptr<PackageIndex> index(new PackageIndex);
  index->limits_ = limits;
  Reader(file, *index, tell).read();
  return index;
}

bool PackageIndex::describes(const fl::filesystem::FileIdentity& current, const zip::Limits& limits) const {
  // An index of a file that may have changed unseen describes none: such a file is read again.
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
  const auto found = partsByKey_.find(key, [this](std::size_t part) { return keyOf(parts_[part]); });
  return found ? &parts_[*found] : nullptr;
}

model::PartName PackageIndex::nameOf(const IndexedPart& part) const {
  // Made when asked for, because few of many thousand names ever are. It has a value: the entry became a
  // part because its name is a part name.
  return model::PartName::tryFromEncoded(std::string("/").append(entries()[part.entry].name)).value();
}

std::optional<EntryIndex> PackageIndex::orphanedRelationships(std::string_view key) const {
  const auto found = orphans_.find(key);
  if (found == orphans_.end()) return std::nullopt;
  return found->second;
}

}  // namespace opc

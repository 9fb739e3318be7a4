#include "platform/opc/package_index.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/opc/percent_encoding.h"
#include "platform/zip/entry_reader.h"

// How a file becomes an index. The entries of its directory are first told apart by their names alone. What
// may be a part is found by its key from then on, and the list of content types, which is read next, gives it
// its type or leaves it without one: then it is none. After the parts come the relationships, because each
// relationship part belongs to one of them. Of these documents, which may be as large as the directory, only
// a window is in memory, and what is kept of them is what an opening that changes nothing asks for.
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
  // Most names end in a letter that none of the others does.
  if (std::string_view("/lLeEsS").find(name.back()) == std::string_view::npos) return ItemKind::Other;
  if (name.ends_with('/')) return ItemKind::Folder;
  if (percent::equalsIgnoringCase(name, "[Content_Types].xml")) return ItemKind::ContentTypes;
  const std::string_view segment = lastSegment(name);
  if (isPiece(segment)) return ItemKind::InterleavedPiece;
  const bool isRelationships = model::isRelationshipPart(lastSegment(folderOf(name)), segment);
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
    // Nearly all of them will be parts.
    index_.parts_.reserve(index_.entries().size());
    for (EntryIndex entry = 0; entry < index_.entries().size(); ++entry) {
      zip::holds(tell_, &at(entry), [&] { sortItem(entry); });
    }
    checkLinks();
    const auto list = index_.contentTypesEntry_;
    zip::holds(tell_, list ? &at(*list) : nullptr, [&] { readContentTypes(); });
    removeWhatHasNoType();
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
    if (kind == ItemKind::Other) return addItem(entry);
    // Names that differ only in case: programs would disagree about which one counts.
    if (index_.contentTypesEntry_) refuse("opc:package:ContentTypesTwice", file_->path());
    index_.contentTypesEntry_ = entry;
  }

  void keepLink(std::optional<std::string> key) {
    if (key) index_.otherItems_.insert(*std::move(key));
  }

  /// Equivalent names may not occur twice, among links and other items neither.
  void checkLinks() {
    if (index_.otherItems_.empty()) return;
    for (const IndexedPart& part : index_.parts_) {
      if (!index_.otherItems_.contains(slashed(index_.keyOf(part)))) continue;
      zip::holds(tell_, &at(part.entry), [&] { refuseEquivalent(part.entry); });
    }
  }

  /// What may be a part; its type is not known yet.
  void addItem(EntryIndex entry) {
    std::uint32_t key = 0;
    if (!model::PartName::isKeyOfEntry(at(entry).name)) {
      const auto other = keyOfItem(at(entry).name);
      if (!other) return;
      if (index_.find(*other) != nullptr) refuseEquivalent(entry);
      key = addOtherKey(entry, std::string_view(*other).substr(1));
    } else if (!index_.otherKeys_.empty() && index_.find(slashed(at(entry).name)) != nullptr) {
      // Among items that are called by their keys the directory has found the equal ones.
      refuseEquivalent(entry);
    }
    index_.parts_.push_back({static_cast<std::uint32_t>(entry), key, nullptr, nullptr});
  }

  std::uint32_t addOtherKey(EntryIndex entry, std::string_view key) {
    index_.otherKeys_.push_back({index_.keys_.add(key), entry});
    const std::size_t count = index_.otherKeys_.size();
    index_.byOtherKey_.add(count - 1, [this](std::size_t index) { return index_.keyAt(index); });
    return static_cast<std::uint32_t>(count);
  }

  void readContentTypes();

  /// Without a content type an item is no part, but its name is taken.
  void removeWhatHasNoType() {
    const auto hasNoType = [](const IndexedPart& part) { return part.type == nullptr; };
    if (std::ranges::none_of(index_.parts_, hasNoType)) return;
    for (const IndexedPart& part : index_.parts_) {
      if (hasNoType(part)) index_.otherItems_.emplace(slashed(index_.keyOf(part)));
    }
    std::erase_if(index_.parts_, hasNoType);
  }

  void addRelationships(EntryIndex entry) {
    const auto source = sourceOfRelationships(at(entry).name);
    if (!source) return;
    // "_rels/.rels" holds the relationships of the package itself.
    if (source->empty()) {
      if (index_.relationshipsEntry_) refuseEquivalent(entry);
      index_.relationshipsEntry_ = entry;
      index_.relationships_ = readRelationships(entry, {});
      return;
    }
    const IndexedPart* found = index_.find(*source);
    // Kept for saving, but nobody's relationships.
    if (!found) {
      if (!index_.orphans_.emplace(*source, entry).second) refuseEquivalent(entry);
      return;
    }
    if (found->relationships) refuseEquivalent(entry);
    // The same part once more, to be completed.
    IndexedPart& part = index_.parts_[static_cast<std::size_t>(found - index_.parts_.data())];
    const std::string name = index_.nameOf(part).encoded();
    auto own = std::make_unique<PartRelationships>(PartRelationships{entry, RelationshipsDocument(name)});
    RelationshipsDocument& document = own->document;
    // The part's before it is read: a malformed document is one all the same.
    part.relationships = std::move(own);
    document = readRelationships(entry, name);
  }

  // The limits hold for all relationships of the package together. A symbolic link instead of a document says
  // nothing, but it gives way when the document is written.
  RelationshipsDocument readRelationships(EntryIndex entry, const std::string& source) {
    if (at(entry).isSymbolicLink) return RelationshipsDocument(source);
    RelationshipsDocument document;
    readDocument(entry, remaining_.relationshipBytes, [&](const xml::Source& bytes) {
      document = RelationshipsDocument::read(bytes, at(entry).size, source, file_->path(), remaining_);
    });
    remaining_.relationshipBytes -= at(entry).size;
    remaining_.relationships -= document.size();
    index_.relationshipCount_ += document.size();
    return document;
  }

  /// Has all of a document read, window by window.
  template <class Read>
  void readDocument(EntryIndex entry, std::uint64_t limit, const Read& read) try {
    if (at(entry).size > limit) raise("opc:zip:EntryTooLarge", file_->path(), at(entry).name, limit);
    zip::EntryReader reader(file_, at(entry));
    try {
      read([&](char* into, std::size_t count) { return reader.read(into, count); });
    } catch (const model::PackageOpenFailed&) {
      // Damaged data makes a malformed document. That shows at the end of the data, and is what is said then.
      std::array<char, 4096> rest;
      while (reader.read(rest.data(), rest.size()) != 0) {
      }
      throw;
    }
  } catch (const model::PackageOpenFailed&) {
    throw;
  } catch (const Exception& broken) {  // data that does not match its checksum, for one
    throw model::PackageOpenFailed(broken.GetID(), broken.GetArguments(), broken.causes());
  }

  [[noreturn]] void refuseEquivalent(EntryIndex entry) {
    refuse("opc:package:EquivalentNames", file_->path(), at(entry).name);
  }

  /// With the "/" that names of parts have and those of entries have not; valid until the next call.
  const std::string& slashed(std::string_view itemName) { return slashed_.assign("/").append(itemName); }

  const std::shared_ptr<const fl::filesystem::InputFile>& file_;
  /// The limits, less what was read so far.
  zip::Limits remaining_;
  PackageIndex& index_;
  const zip::RuleBroken& tell_;
  std::vector<EntryIndex> relationshipItems_;
  std::string slashed_;
};

/// Gives the items of an index their types.
class PackageIndex::TypeReader : public ContentTypesReader {
 public:
  TypeReader(PackageIndex& index, std::string_view packagePath)
      : ContentTypesReader(packagePath), index_(index) {}

  /// What the overrides have left without a type.
  void applyDefaults() {
    if (defaults_.empty()) return;
    for (IndexedPart& part : index_.parts_) {
      if (part.type != nullptr) continue;
      const auto found = defaults_.find(extensionOf(index_.keyOf(part)));
      if (found != defaults_.end() && !found->first.empty()) part.type = found->second;
    }
  }

 private:
  bool addDefault(std::string_view extension, const model::ContentType& type) override {
    return defaults_.emplace(extension, kept(type)).second;
  }

  bool addOverride(std::string_view written, const model::ContentType& type) override {
    const auto position = partOf(written);
    if (!position) return ofNoPart_.insert(keyOf(written)).second;
    next_ = *position + 1;
    IndexedPart& part = index_.parts_[*position];
    if (part.type != nullptr) return false;
    part.type = kept(type);
    return true;
  }

  std::optional<std::size_t> partOf(std::string_view written) const {
    // Most writers list the parts as they store them: then names need not even be looked up.
    if (next_ < index_.parts_.size() &&
        written.substr(1) == index_.entries()[index_.parts_[next_].entry].name) {
      return next_;
    }
    const IndexedPart* found = index_.find(keyOf(written));
    if (found == nullptr) return std::nullopt;
    return static_cast<std::size_t>(found - index_.parts_.data());
  }

  /// The type as the index has it. Copies share their text, by which it is known.
  const model::ContentType* kept(const model::ContentType& type) {
    const std::string* const text = &type.encoded();
    // Most often that of the item before.
    if (last_ != nullptr && &last_->encoded() == text) return last_;
    auto [known, isNew] = kept_.emplace(text, nullptr);
    if (isNew) known->second = &index_.types_.emplace_back(type);
    return last_ = known->second;
  }

  PackageIndex& index_;
  std::size_t next_ = 0;  // position of the part that most likely comes next
  boost::unordered_flat_map<std::string, const model::ContentType*, fl::i18n::TextHash, std::equal_to<>>
      defaults_;
  boost::unordered_flat_map<const std::string*, const model::ContentType*> kept_;
  const model::ContentType* last_ = nullptr;  // of those
  boost::unordered_flat_set<std::string, fl::i18n::TextHash, std::equal_to<>> ofNoPart_;
};

void PackageIndex::Reader::readContentTypes() {
  if (!index_.contentTypesEntry_) refuse("opc:package:ContentTypesMissing", file_->path());
  TypeReader reader(index_, file_->path());
  readDocument(*index_.contentTypesEntry_, remaining_.contentTypeBytes, [&](const xml::Source& bytes) {
    xml::read(bytes, {file_->path(), ContentTypesReader::kName}, remaining_.xmlDepth, reader);
  });
  reader.applyDefaults();
}

std::shared_ptr<const PackageIndex> PackageIndex::ofNewPackage(const zip::Limits& limits) {
  const std::shared_ptr<PackageIndex> index(new PackageIndex);
  index->limits_ = limits;
  return index;
}

std::shared_ptr<const PackageIndex> PackageIndex::of(
    const std::shared_ptr<const fl::filesystem::InputFile>& file, const zip::Limits& limits) {
  // Not owned: an index that nobody uses any more gives its memory back.
  static constinit std::weak_ptr<const PackageIndex> lastRead;
  // A hit saves reading a directory and parsing thousands of documents.
  if (auto known = lastRead.lock(); known && known->describes(file->identity(), limits)) return known;
  // The first broken rule refuses the package.
  auto index = audit(file, limits, [](const auto& broken, const zip::Entry*) { throw broken; });
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

std::string_view PackageIndex::comment() const {
  return directory_ ? directory_->comment() : std::string_view();
}

std::uint64_t PackageIndex::directoryOffset() const { return directory_ ? directory_->offset() : 0; }

const IndexedPart* PackageIndex::find(std::string_view key) const {
  if (key.empty() || !directory_) return nullptr;
  key.remove_prefix(1);
  // What is called like a key has that key.
  if (const auto entry = directory_->find(key)) {
    if (const IndexedPart* part = partOf(*entry)) return part;
  }
  const auto other = byOtherKey_.find(key, [this](std::size_t index) { return keyAt(index); });
  return other ? partOf(otherKeys_[*other].entry) : nullptr;
}

const IndexedPart* PackageIndex::partOf(EntryIndex entry) const {
  const auto found = std::ranges::lower_bound(parts_, entry, {}, &IndexedPart::entry);
  return found != parts_.end() && found->entry == entry ? &*found : nullptr;
}

model::PartName PackageIndex::nameOf(const IndexedPart& part) const {
  // Made when asked for, because few of many thousand names ever are. It has a value: the entry became a
  // part because its name is a part name.
  return model::PartName::tryFromEncoded(std::string("/").append(entries()[part.entry].name)).value();
}

ContentTypesDocument PackageIndex::editableContentTypes(
    const std::shared_ptr<const fl::filesystem::InputFile>& file) const {
  if (!contentTypesEntry_) return ContentTypesDocument::ofNewPackage();
  const std::string bytes = zip::readWhole(file, entries()[*contentTypesEntry_], limits_.contentTypeBytes);
  return ContentTypesDocument::parse(bytes, file->path(), limits_);
}

RelationshipsDocument PackageIndex::editableRelationships(
    const std::shared_ptr<const fl::filesystem::InputFile>& file, std::optional<EntryIndex> entry,
    std::string source) const {
  if (!entry || entries()[*entry].isSymbolicLink) return RelationshipsDocument(std::move(source));
  const std::string bytes = zip::readWhole(file, entries()[*entry], limits_.relationshipBytes);
  return RelationshipsDocument::parse(bytes, std::move(source), file->path(), limits_);
}

std::optional<EntryIndex> PackageIndex::orphanedRelationships(std::string_view key) const {
  const auto found = orphans_.find(key);
  if (found == orphans_.end()) return std::nullopt;
  return found->second;
}

}  // namespace opc

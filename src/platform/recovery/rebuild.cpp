#include "platform/recovery/rebuild.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include "platform/errors/package_errors.h"
#include "platform/export_file/data_export_file.h"
#include "platform/files/filesystem.h"
#include "platform/opc/content_types_document.h"
#include "platform/opc/percent_encoding.h"
#include "platform/opc/relationships_document.h"
#include "platform/recovery/salvage.h"
#include "platform/recovery/session_form.h"
#include "platform/text/conversion.h"
#include "platform/text/text_hash.h"
#include "platform/zip/entry_reader.h"

// How a damaged package becomes a new one. First everything is decided, while nothing is written: which items
// are sound (findItems), which of those are content types and relationships and which are parts (sortItems),
// what the sound documents say (readDocuments), what each part is called (nameItems), what leads to it
// (collectLinks), and whether readers would accept it there (checkForm). Only then is the new package made:
// parts, then what had to be set aside, then the readable elements of damaged lists, and the relationships
// last, since a relationship is written only if its target is there.
namespace tavlox::recovery {
namespace {

using fl::filesystem::InputFile;
using fl::i18n::to_ustring_lossy;
using foundation::core::except::except_with_causes;
using opc::model::ContentType;
using opc::model::Part;
using opc::model::PartName;
using opc::model::Relationship;
using zip::Entry;
using Existing = opc::model::Package::Existing;

template <class Value>
using ByName = boost::unordered_flat_map<std::string, Value, fl::i18n::TextHash, std::equal_to<>>;

// In lower case, as documents are looked up: the case of a name in a package does not count.
constexpr std::string_view kContentTypesItem = "[content_types].xml";
constexpr char16_t kUserFiles[] = u"UserAssetsPartRelType";

/// A sound item on its way to become a part.
/// A pointer into the list of what was found, which does not change once items are sorted.
struct Item {
  const FoundEntry* found;
  PartName name;
  /// Why it cannot be the part that it was.
  std::optional<except_with_causes> problem = std::nullopt;
};

/// A relationship on its way into the new package; without an ID it gets a free one.
struct Link {
  std::u16string type, target;
  std::string id;
  opc::model::TargetMode mode = opc::model::TargetMode::Internal;
};

/// The content type that a user file of this name gets: readers recognise user files by it.
std::u16string userFileType(const std::u16string& name) {
  return std::u16string(DataExportFile::contentType) + u"+" + fl::filesystem::extract_extension(name);
}

class Rebuilding {
 public:
  Rebuilding(const std::u16string& damaged, const std::u16string& target, const zip::Limits& limits)
      : limits_(limits),
        file_(std::make_shared<const InputFile>(fl::i18n::to_string(damaged))),
        target_(target, limits) {}

  Rebuilt run(Existing existing) {
    // The order matters: each step uses what the ones before it found out.
    findItems();
    sortItems();
    readDocuments();
    nameItems();
    collectLinks();
    checkForm();
    target_.create(existing);
    for (const Item& item : items_) keep(item);
    for (const auto& [item, why] : aside_) keepAside(*item, why);
    for (const FoundEntry* damaged : damaged_) keepElements(*damaged);
    // Raised before the package is closed, so that nothing is saved and no empty package replaces another.
    if (result_.parts == 0) opc::raise("recovery:recover:NothingFound", file_->path());
    addLinks();
    target_.close();
    return std::move(result_);
  }

 private:
  void tell(Severity severity, const Entry& entry, const except_with_causes& rule) {
    result_.findings.push_back({severity, rule, to_ustring_lossy(entry.name), entry.headerOffset});
  }
  /// Of the package as a whole.
  void tell(Severity severity, const except_with_causes& rule) {
    result_.findings.push_back({severity, rule, {}});
  }

  /// A sound directory is believed: what it does not name was deleted.
  void findItems() {
    try {
      directory_.emplace(zip::Directory::read(*file_, limits_));
    } catch (const opc::model::PackageOpenFailed& refusal) {
      // A disk that cannot be read is no damage of the package: trying again may help, guessing does not.
      if (refusal.GetID() == "opc:zip:ReadFailed") throw;
      tell(Severity::Note, refusal);
    }
    found_ = directory_ ? checkEntries(file_, *directory_, limits_) : findEntries(file_, limits_);
  }

  void sortItems() {
    // Four sorts: damaged items, of which elements may still be readable; symbolic links, which may point out
    // of the package and are not kept; documents, which are asked for by name later; and all others, which
    // become parts.
    for (const FoundEntry& found : found_.list) {
      const std::string_view name = found.entry.name;
      const bool isOtherDocument = isDocument(found.otherName);
      // Folders have no data, and packages have no folders: their parts' names say all of it.
      if (name.ends_with('/') && !found.damage) continue;
      if (found.damage) {
        tell(Severity::Error, found.entry, *found.damage);
        damaged_.push_back(&found);
      } else if (found.entry.isSymbolicLink) {
        tell(Severity::Error, found.entry, rule("recovery:recover:SymbolicLink", name));
      } else if ((isDocument(name) || isOtherDocument) && !found.isDoubtful) {
        documents_.emplace(opc::percent::toLower(isOtherDocument ? found.otherName : name), &found);
      } else {
        // A name of its own until nameItems gives the true one, because a part name cannot be empty.
        const std::string provisional = "/item-" + std::to_string(found.entry.headerOffset);
        items_.push_back({&found, PartName(to_ustring_lossy(provisional))});
      }
    }
  }

  /// Takes the document out of those that nobody asked for yet, and reads it.
  template <class Parse>
  auto readDocument(const std::string& name, std::uint64_t limit, const Parse& parse)
      -> std::optional<decltype(parse(std::string()))> {
    const auto document = documents_.find(opc::percent::toLower(name));
    if (document == documents_.end()) return std::nullopt;
    const Entry& entry = document->second->entry;
    // Those that stay in the list until the end belong to no part that was found: addLinks tells of them.
    documents_.erase(document);
    try {
      return parse(zip::readWhole(file_, entry, limit));
    } catch (const opc::Exception& broken) {
      tell(Severity::Error, entry, broken);
      return std::nullopt;
    }
  }

  /// Empty text for the package itself, else the name of the part that the relationships start from.
  std::optional<opc::RelationshipsDocument> relationshipsOf(const std::string& source) {
    return readDocument(opc::model::relationshipPartNameOf(source).substr(1), limits_.relationshipBytes,
                        [&](const std::string& bytes) {
                          return opc::RelationshipsDocument::parse(bytes, source, file_->path(), limits_);
                        });
  }

  void readDocuments() {
    types_ =
        readDocument(std::string(kContentTypesItem), limits_.contentTypeBytes, [&](const std::string& bytes) {
          return opc::ContentTypesDocument::parse(bytes, file_->path(), limits_);
        });
    const auto relationships = relationshipsOf({});
    if (!types_) tell(Severity::Note, rule("recovery:recover:TypesRebuilt"));
    if (!relationships) return tell(Severity::Note, rule("recovery:recover:LinksRebuilt"));
    // From here on the names that sessions have are not needed to guess what leads where.
    areLinksKnown_ = true;
    takeLinks(*relationships, links_);
    for (const Link& link : links_) {
      if (link.mode == opc::model::TargetMode::Internal) targets_.insert(link.target);
    }
  }

  static void takeLinks(const opc::RelationshipsDocument& document, std::vector<Link>& links) {
    for (const Relationship& link : document.relationships())
      links.push_back({link.getType(), link.getTarget().text(), link.getID(), link.getTargetMode()});
  }

  void nameItems() {
    for (Item& item : items_) {
      const Entry& entry = item.found->entry;
      const auto own = PartName::tryFromEncoded(std::string("/").append(entry.name));
      const auto other = item.found->otherName.empty()
                             ? std::nullopt
                             : PartName::tryFromEncoded(std::string("/").append(item.found->otherName));
      const int ownRank = rankOf(own), otherRank = rankOf(other);
      // The local header is preferred where both names are known equally well: it lies next to the data.
      if (own || other) item.name = ownRank >= otherRank ? *own : *other;
      if (item.found->isDoubtful) item.problem = rule("recovery:recover:Doubtful", entry.name);
      if (!own && !other) item.problem = rule("recovery:recover:NameOfNoPart", entry.name);
      if (item.found->otherName.empty()) continue;
      // Which name is right is a guess if nothing else in the package tells.
      tell(ownRank == otherRank ? Severity::Error : Severity::Note, entry,
           rule("recovery:recover:TwoNames", entry.name, item.found->otherName, item.name.text()));
    }
  }

  /// How much the rest of the package knows of a name.
  int rankOf(const std::optional<PartName>& name) const {
    // A target of a relationship says more than a content type: types may be given for a whole extension.
    if (!name) return -1;
    const bool hasType = types_ && types_->contentTypeOf(name->encoded()) != nullptr;
    return (targets_.contains(name->text()) ? 2 : 0) + (hasType ? 1 : 0);
  }

  const ContentType* originalTypeOf(const PartName& name) const {
    return types_ ? types_->contentTypeOf(name.encoded()) : nullptr;
  }

  /// What part of a session this is, as far as name and content type tell.
  const Role* roleOf(const PartName& name) const {
    const ContentType* const type = originalTypeOf(name);
    return roleOfPart(name.text(), type ? to_ustring_lossy(type->encoded()) : std::u16string());
  }

  /// Without the package's relationships: those that a writer of sessions makes for parts of these names.
  void collectLinks() {
    if (areLinksKnown_) return;
    for (const Item& item : items_) {
      const Role* const role = roleOf(item.name);
      if (role == nullptr || item.problem) continue;
      links_.push_back({std::u16string(role->relationshipType), item.name.text(), {}});
    }
  }

  /// A part that readers would refuse must not be where they look for it.
  void checkForm() {
    ByName<Item*> byName;
    for (Item& item : items_) {
      if (!item.problem) byName.emplace(item.name.key(), &item);
    }
    std::vector<const Link*> ordered;
    for (const Link& link : links_) ordered.push_back(&link);
    // The run list first, then the signals, then their samples, as SessionForm has to see them: the roles lie
    // in that order in one table, so that their addresses sort them. What has no role is null and comes
    // first.
    std::ranges::stable_sort(ordered, std::less<>(),
                             [](const Link* link) { return roleOfRelationship(link->type); });
    SessionForm form(file_);
    for (const Link* link : ordered) {
      const auto name = nameOf(*link);
      // A target without an item is told of when the links are written.
      const auto item = name ? byName.find(name->key()) : byName.end();
      if (item == byName.end() || item->second->problem) continue;
      if (const Role* role = roleOfRelationship(link->type)) roles_.emplace(name->key(), role);
      // The first is enough to keep it aside.
      form.audit(link->type, name->text(), item->second->found->entry,
                 [&](Severity, const except_with_causes& problem) {
                   if (!item->second->problem) item->second->problem = problem;
                 });
    }
  }

  /// The part that a link is to lead to; nothing for one that can lead to none.
  static std::optional<PartName> nameOf(const Link& link) {
    if (link.mode == opc::model::TargetMode::External) return std::nullopt;
    return PartName::tryFromText(link.target);
  }

  ContentType typeOf(const Item& item) {
    // What the damaged package says of its own part goes before anything that can be guessed.
    if (const ContentType* type = originalTypeOf(item.name)) return *type;
    const auto linked = roles_.find(item.name.key());
    const Role* const role = linked == roles_.end() ? roleOf(item.name) : linked->second;
    if (role != nullptr) {
      const bool isUserFile = role->relationshipType == kUserFiles;
      return ContentType(isUserFile ? userFileType(item.name.text()) : std::u16string(role->contentType));
    }
    tell(types_ ? Severity::Note : Severity::Error, item.found->entry,
         rule("recovery:recover:TypeUnknown", item.name.text()));
    return ContentType(u"application/octet-stream");
  }

  /// Makes the item a part under its own name. If that cannot be, it is kept aside when all others have
  /// theirs.
  void keep(const Item& item) {
    std::optional<except_with_causes> problem = item.problem;
    try {
      // Created before its data is copied: a name that is refused costs no reading.
      if (!problem) parts_.push_back(target_.createPart(item.name, typeOf(item), {}));
    } catch (const opc::Exception& refusal) {
      problem = refusal;  // another item has the name, or a name that excludes it
    }
    if (problem) {
      aside_.emplace_back(&item, *std::move(problem));
    } else {
      copy(item, parts_.back());
    }
  }

  void copy(const Item& item, Part& part) {
    const auto output = part.getOutputStream();
    zip::EntryReader reader(file_, item.found->entry);
    while (const std::size_t got = reader.read(block_.data(), block_.size()))
      output->write(block_.data(), got);
    ++result_.parts;
  }

  void keepAside(const Item& item, const except_with_causes& why) {
    tell(Severity::Error, item.found->entry, why);
    // A relationship that led here leads to nothing now, which needs no finding of its own.
    toldOf_.insert(item.name.text());
    auto part = createAside(item.name);
    if (!part) return;
    copy(item, *part);
    tell(Severity::Note, item.found->entry,
         rule("recovery:recover:KeptAside", item.name.text(), part->getName().text()));
  }

  /// A user file of that name below "/user/recovered", or of a name like it.
  std::optional<Part> createAside(const PartName& name) {
    // Several damaged items may have one name; whoever makes thousands of them gets ten.
    constexpr int kMostAlike = 10;
    const std::u16string folder = fl::filesystem::extract_parent_path(name.text());
    const std::u16string file = fl::filesystem::extract_filename(name.text());
    for (int number = 1; number <= kMostAlike; ++number) {
      const std::u16string prefix = number == 1 ? u"" : to_ustring_lossy(std::to_string(number) + "-");
      const std::u16string aside = fl::filesystem::concatenate(u"/user/recovered" + folder, prefix + file);
      try {
        Part part = target_.createPart(PartName(aside), ContentType(userFileType(aside)), {});
        links_.push_back({kUserFiles, aside, {}});
        return part;
      } catch (const opc::Exception&) {
        // Taken, or too long; the next may be free.
      }
    }
    return std::nullopt;
  }

  /// What is readable of a damaged list becomes a JSON array again, but as a user file: with elements missing
  /// it must not pass for the session's.
  void keepElements(const FoundEntry& damaged) {
    const auto name = PartName::tryFromEncoded(std::string("/").append(damaged.entry.name));
    if (!name) return;
    toldOf_.insert(name->text());
    const Role* const role = roleOf(*name);
    // Only lists have elements that mean something without the others; half of a table or a picture does not.
    const bool isList = role != nullptr && (role->relationshipType == relationship_types::kRunData ||
                                            role->relationshipType == relationship_types::kSignalsData);
    if (!isList) return;
    std::optional<Part> part;
    std::shared_ptr<opc::OutputStream> output;
    std::string_view separator = "[";
    const auto count = forEachReadableElement(file_, damaged.entry, [&](std::string_view text, auto, auto) {
      // Created with the first element: a list without a readable one leaves no empty file behind.
      if (!part && (part = createAside(*name))) output = part->getOutputStream();
      if (!output) return;
      output->write(separator.data(), separator.size());
      separator = ",\n";
      output->write(text.data(), text.size());
    });
    if (!output) return;
    output->write("]\n", 2);
    ++result_.parts;
    tell(Severity::Note, damaged.entry,
         rule("recovery:recover:ElementsKept", count, name->text(), part->getName().text()));
  }

  void addLinks() {
    for (const Link& link : links_) addLink(target_, link);
    for (Part& part : parts_) {
      // A part that was kept aside is not asked: the documents that belong to it belong to its old name.
      const auto document = relationshipsOf(part.getName().encoded());
      std::vector<Link> links;
      if (document) takeLinks(*document, links);
      for (const Link& link : links) addLink(part, link);
    }
    for (const auto& [name, document] : documents_) {
      tell(Severity::Note, document->entry, rule("recovery:recover:Orphan", name));
    }
  }

  /// A link to what was lost goes with it, and is told of unless that was.
  void addLink(opc::model::RelationshipSource& source, const Link& link) {
    const auto name = nameOf(link);
    // What a session or a user file is reached by must lead to a part; others may lead anywhere.
    const bool isPromise = roleOfRelationship(link.type) != nullptr;
    if (link.mode == opc::model::TargetMode::External && !isPromise) {
      source.createExternalRelationship(link.type, link.target, link.id);
    } else if (name && target_.hasPart(*name)) {
      source.createInternalRelationship(link.type, opc::model::URI(link.target), link.id);
    } else if (!toldOf_.contains(link.target)) {
      tell(Severity::Error, rule("recovery:check:MissingTarget", link.id, link.type, link.target));
    }
  }

  const zip::Limits limits_;
  std::shared_ptr<const InputFile> file_;
  opc::model::Package target_;
  std::optional<zip::Directory> directory_;
  FoundEntries found_;
  ByName<const FoundEntry*> documents_;  ///< sound ones that nobody asked for yet, by name in lower case
  std::vector<const FoundEntry*> damaged_;
  std::vector<Item> items_;
  std::vector<std::pair<const Item*, except_with_causes>> aside_;
  std::optional<opc::ContentTypesDocument> types_;
  bool areLinksKnown_ = false;
  std::vector<Link> links_;
  std::set<std::u16string> targets_, toldOf_;  ///< what links lead to; what was lost and told of
  ByName<const Role*> roles_;                  ///< of the parts that links lead to
  std::vector<Part> parts_;                    ///< of the new package, but for those kept aside
  std::vector<char> block_ = std::vector<char>(std::size_t{256} << 10);
  Rebuilt result_;
};

}  // namespace

Rebuilt rebuild(const std::u16string& damaged, const std::u16string& target, Existing existing,
                const zip::Limits& limits) {
  if (fl::filesystem::exists(target)) {
    // By device and inode, so that a link or another spelling of the path does not make the source the
    // target.
    const auto one = InputFile(fl::i18n::to_string(damaged)).identity();
    const auto other = InputFile(fl::i18n::to_string(target)).identity();
    if (one.device == other.device && one.inode == other.inode) {
      opc::raise("recovery:recover:SameFile", target);
    }
  }
  return Rebuilding(damaged, target, limits).run(existing);
}

}  // namespace tavlox::recovery

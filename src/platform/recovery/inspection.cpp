#include "platform/recovery/inspection.h"

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/export_file/data_export_file.h"
#include "platform/opc/content_types_document.h"
#include "platform/opc/package_index.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationships_document.h"
#include "platform/recovery/salvage.h"
#include "platform/recovery/session_form.h"
#include "platform/text/conversion.h"
#include "platform/zip/entry_reader.h"
#include "platform/zip/records.h"

namespace tavlox::recovery {
namespace {

using fl::i18n::to_ustring_lossy;
using opc::PackageIndex;
using opc::model::PartName;
using opc::model::Relationship;
using zip::Entry;

/// The part of this name, decoded, as the file has it; null if there is none.
const opc::IndexedPart* partNamed(const PackageIndex& index, const std::u16string& text) {
  const auto name = PartName::tryFromText(text);
  return name ? index.find(name->key()) : nullptr;
}

/// The part that a relationship leads to; null if there is none.
const opc::IndexedPart* targetOf(const PackageIndex& index, const Relationship& link) {
  return partNamed(index, link.getTarget().text());
}

/// The encoded name of the part whose relationships an item of that name holds; empty for the package.
std::string sourceOfRelationships(std::string_view item) {
  const std::size_t name = item.rfind('/') + 1;
  const std::size_t folder = name - std::string_view("_rels/").size();
  std::string source = std::string("/").append(item.substr(0, folder)).append(item.substr(name));
  source.resize(source.size() - std::string_view(".rels").size());
  return source == "/" ? std::string() : source;
}

/// One check of one package. It goes from the outside in, and stops where the next layer has nothing to stand
/// on: without a sound directory it is not known which items there are, and without content types no item is
/// a part.
class Inspection {
 public:
  Inspection(const std::u16string& path, const zip::Limits& limits)
      : limits_(limits),
        file_(std::make_shared<const fl::filesystem::InputFile>(fl::i18n::to_string(path))) {}

  Findings run() {
    const auto tell = [this](const opc::Exception& rule, const Entry* entry) { addOnce(rule, entry); };
    directory_ = zip::Directory::audit(*file_, limits_, tell);
    // Without a directory the items are still looked for, so that the report says what recovery would save.
    found_ = directory_ ? checkEntries(file_, *directory_, limits_) : findEntries(file_, limits_);
    for (const FoundEntry& found : found_.list) {
      if (found.damage) addOnce(*found.damage, &found.entry);
    }
    if (!directory_) {
      addBrokenDocuments();
      return std::move(findings_);
    }
    addUnusedBytes();
    const std::size_t before = findings_.size();
    const std::shared_ptr<const PackageIndex> index = PackageIndex::audit(file_, limits_, tell);
    if (index->parts().empty() && findings_.size() != before) {
      addBrokenDocuments();
      return std::move(findings_);
    }
    addItemsThatAreNoParts(*index);
    addSessionParts(*index);
    for (const opc::IndexedPart& part : index->parts()) {
      if (part.relationships) addMissingTargets(*index, part);
    }
    return std::move(findings_);
  }

 private:
  void add(Severity severity, const foundation::core::except::except_with_causes& rule, const Entry& entry) {
    findings_.push_back({severity, rule, to_ustring_lossy(entry.name), entry.headerOffset});
  }

  /// An error, unless another step found it too: each reads what the steps before it have read. The entry is
  /// null for the file as a whole.
  void addOnce(const opc::Exception& rule, const Entry* entry) {
    if (!known_.emplace(rule.GetID(), rule.GetArguments(), entry ? entry->headerOffset : 0).second) return;
    if (entry) return add(Severity::Error, rule, *entry);
    findings_.push_back({Severity::Error, rule, {}});
  }

  /// Reads each list of content types and each relationship part by itself, where it is not known which of
  /// them count.
  void addBrokenDocuments() {
    for (const FoundEntry& found : found_.list) {
      const Entry& entry = found.entry;
      if (found.damage || !isDocument(entry.name)) continue;
      try {
        // Of the two kinds only relationship parts lie in a folder.
        if (entry.name.find('/') == entry.name.npos) {
          const std::string bytes = zip::readWhole(file_, entry, limits_.contentTypeBytes);
          opc::ContentTypesDocument::parse(bytes, file_->path(), limits_);
        } else {
          const std::string bytes = zip::readWhole(file_, entry, limits_.relationshipBytes);
          opc::RelationshipsDocument::parse(bytes, sourceOfRelationships(entry.name), file_->path(), limits_);
        }
      } catch (const opc::Exception& broken) {
        addOnce(broken, &entry);
      }
    }
  }

  /// Bytes that belong to no item: kept by readers, and lost when the package is saved.
  void addUnusedBytes() {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> used;
    for (const Entry& entry : directory_->entries()) used.emplace_back(entry.headerOffset, entry.endOffset);
    // A directory need not list its items in the order in which they lie in the file.
    std::sort(used.begin(), used.end());
    // Ends the last gap. Its own end does not count: what is behind it is looked at below.
    used.emplace_back(directory_->offset(), 0);
    std::uint64_t end = 0;
    for (const auto& [begin, nextEnd] : used) {
      if (begin > end) {
        findings_.push_back({Severity::Note, rule("recovery:check:UnusedBytes", begin - end, end), {}, end});
      }
      end = nextEnd;
    }
    const std::uint64_t archiveEnd = endOfArchive();
    if (file_->size() == archiveEnd) return;
    findings_.push_back({Severity::Note,
                         rule("recovery:check:TrailingBytes", file_->size() - archiveEnd, archiveEnd),
                         {},
                         archiveEnd});
  }

  /// Past the end record, which lies in the last bytes of the file. A comment that ends in its signature is
  /// refused.
  std::uint64_t endOfArchive() const {
    constexpr std::size_t kMostTrailing = 16;
    // The record's length is fixed but for the comment, so its signature lies at a known distance from its
    // end.
    const std::uint64_t smallest = zip::kEndSize + directory_->comment().size();
    for (std::uint64_t behind = 0; behind < kMostTrailing; ++behind) {
      std::array<char, 4> signature{};
      file_->read(file_->size() - behind - smallest, signature.data(), signature.size());
      if (zip::load32(signature.data()) == zip::kEndSignature) return file_->size() - behind;
    }
    return file_->size() - kMostTrailing;
  }

  /// Readers pass over these in silence; someone who misses a file wants to know why it is not listed.
  void addItemsThatAreNoParts(const PackageIndex& index) {
    // Documents that are in use are no parts either, and need no finding.
    std::set<std::optional<opc::EntryIndex>> documents{index.contentTypesEntry(), index.relationshipsEntry()};
    for (const opc::IndexedPart& part : index.parts()) {
      if (part.relationships) documents.insert(part.relationships->entry);
    }
    for (opc::EntryIndex i = 0; i < index.entries().size(); ++i) {
      const Entry& entry = index.entries()[i];
      const std::string name = std::string("/").append(entry.name);
      const auto key = PartName::tryKey(name);
      // Folders are passed over as readers do: other tools add them for every path.
      if (name.ends_with('/') || documents.contains(i)) continue;
      if (isDocument(entry.name)) {
        add(Severity::Note, rule("recovery:check:OrphanedRelationships", entry.name), entry);
      } else if (entry.isSymbolicLink) {
        add(Severity::Note, rule("recovery:check:ItemIsLink", entry.name), entry);
      } else if (!key) {
        add(Severity::Note, rule("recovery:check:NameOfNoPart", entry.name), entry);
      } else if (index.find(*key) == nullptr) {
        add(Severity::Note, rule("recovery:check:NoContentType", entry.name), entry);
      } else {
        addDerivedName(index, *key, entry);
      }
    }
  }

  void addDerivedName(const PackageIndex& index, const std::string& key, const Entry& entry) {
    // ECMA-376 part 2 forbids a part name that continues another one by a segment: "/a" excludes "/a/b".
    // Readers let it pass, since files have it; every shorter name is tried.
    for (std::size_t slash = key.rfind('/'); slash > 0; slash = key.rfind('/', slash - 1)) {
      const opc::IndexedPart* const folder = index.find(std::string_view(key).substr(0, slash));
      if (folder == nullptr) continue;
      const Entry& other = index.entries()[folder->entry];
      return add(Severity::Note, rule("recovery:check:DerivedName", entry.name, other.name), entry);
    }
  }

  /// What the relationships of the package lead to: run list first, then signals, then what rests on them.
  void addSessionParts(const PackageIndex& index) {
    std::set<std::u16string_view> seen;
    SessionForm form(file_, [&](const std::u16string& name) { return partNamed(index, name) != nullptr; });
    std::vector<Relationship> links = index.relationships().relationships();
    const auto roleOf = [](const Relationship& link) { return roleOfRelationship(link.getType()); };
    // Addresses in the table of roles, which has the run list before the signals and these before their
    // samples.
    std::ranges::stable_sort(links, std::less<>(), roleOf);
    for (const Relationship& link : links) {
      const Role* const role = roleOf(link);
      // An external target is no part. Where a session needs one it counts as missing.
      if (link.getTargetMode() == opc::model::TargetMode::External && role == nullptr) continue;
      const opc::IndexedPart* const part =
          link.getTargetMode() == opc::model::TargetMode::External ? nullptr : targetOf(index, link);
      if (part == nullptr) {
        addMissingTarget(role ? Severity::Error : Severity::Note, link, index.relationshipsEntry());
        continue;
      }
      // Damaged data was told already; its form would be judged by bytes that are not the writer's.
      if (role == nullptr || found_.list[part->entry].damage) continue;
      const Entry& entry = index.entries()[part->entry];
      const std::u16string name = index.nameOf(*part).text();
      if (role->isOnce && !seen.insert(role->relationshipType).second) {
        add(Severity::Note, rule("recovery:check:FurtherPart", name, role->relationshipType), entry);
      }
      const std::size_t before = findings_.size();
      form.audit(link.getType(), name, entry,
                 [&](Severity severity, const auto& problem) { add(severity, problem, entry); });
      if (findings_.size() != before) continue;
      if (role->relationshipType == relationship_types::kSignalsData && !form.hasRunList()) {
        add(Severity::Note, rule("recovery:check:SignalsWithoutRuns", name), entry);
      }
    }
  }

  /// Notes only: what a part's own relationships mean is known to whoever wrote the part.
  void addMissingTargets(const PackageIndex& index, const opc::IndexedPart& part) {
    const auto& [document, links] = *part.relationships;
    for (const Relationship& link : links.relationships(opc::model::ExcludeMode::External)) {
      if (targetOf(index, link) == nullptr) addMissingTarget(Severity::Note, link, document);
    }
  }

  void addMissingTarget(Severity severity, const Relationship& link,
                        std::optional<opc::EntryIndex> document) {
    const auto broken =
        rule("recovery:check:MissingTarget", link.getID(), link.getType(), link.getTarget().text());
    if (document) return add(severity, broken, directory_->entries()[*document]);
    findings_.push_back({severity, broken, {}});
  }

  const zip::Limits limits_;
  std::shared_ptr<const fl::filesystem::InputFile> file_;
  std::optional<zip::Directory> directory_;
  FoundEntries found_;
  std::set<std::tuple<std::string, foundation::core::except::Arguments, std::uint64_t>> known_;
  Findings findings_;
};

}  // namespace

Findings inspect(const std::u16string& path, const zip::Limits& limits) {
  return Inspection(path, limits).run();
}

}  // namespace tavlox::recovery

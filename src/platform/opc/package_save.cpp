#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/errors/package_errors.h"
#include "platform/files/durable_file.h"
#include "platform/opc/open_package.h"
#include "platform/opc/percent_encoding.h"
#include "platform/zip/writer.h"

// Saving has two steps. The plan is made from the changes alone: it says for every entry of the opened file
// whether it is kept, left out or replaced, lists what is new, and checks that the result could be opened
// again. Only then is the output opened, so that a refusal leaves no trace in the folder. The rest is
// copying.

namespace opc {

namespace {

constexpr std::string_view kContentTypesItem = "[Content_Types].xml";

/// The name of the entry that holds a part of this encoded name.
std::string_view itemNameOf(std::string_view encodedName) { return encodedName.substr(1); }

std::optional<EntryIndex> relationshipsEntryOf(const IndexedPart& part) {
  return part.relationships ? std::optional(part.relationships->entry) : std::nullopt;
}

}  // namespace

/// How a changed package is written: what happens to each entry of the opened file, and what is added.
///
/// Entries that were not touched are copied compressed, in their order, with their comments and extra fields;
/// changed documents and replaced data stand where the old ones stood; what is new follows. The bytes of
/// deleted and replaced parts are never in the new file. Where nothing was deleted and the file system can
/// share blocks, what is new is appended to a clone.
class OpenPackage::SavePlan {
 public:
  explicit SavePlan(OpenPackage& package) : package_(package), emptyPart_(package.spoolStorage()) {
    emptyPart_.finish();
    fates_.resize(entries().size());
    // Parts come first: what they do to relationship parts decides about the list of content types, which
    // comes last.
    for (const PartChange* change : changesInOrder()) planPart(*change);
    for (const EntryIndex orphan : package.droppedOrphans_) leaveOut(orphan);
    if (package.areRelationshipsChanged_) {
      putRelationships(*package.relationships_, index().relationshipsEntry());
    }
    planContentTypes();
    checkRelationshipBytes();
    checkTwins();
  }

  /// To an output that is a clone of the opened file, or empty.
  void write(zip::Writer& writer, bool isClone) const {
    for (EntryIndex index = 0; index < fates_.size(); ++index) {
      const zip::Entry& entry = entries()[index];
      const Fate& fate = fates_[index];
      if (fate.replacement) {
        writer.add(entry.name, *fate.replacement);
      } else if (!fate.isLeftOut) {
        // In a clone the bytes are there already, and only the record is written.
        isClone ? writer.keep(entry) : writer.copy(*package_.file_, entry);
      }
    }
    for (const auto& [name, content] : additions_) writer.add(name, *content);
    writer.finish(index().comment());
  }

  /// A clone keeps the bytes of the documents it replaces. That is fine for a while, but a package that is
  /// added to again and again must not become mostly waste.
  bool mayClone() const {
    if (!package_.file_ || !package_.isOnlyAddition_) return false;
    std::uint64_t live = 0;
    for (EntryIndex index = 0; index < fates_.size(); ++index) {
      const zip::Entry& entry = entries()[index];
      if (!fates_[index].replacement) live += entry.endOffset - entry.headerOffset;
    }
    // Everything in front of the old directory that the new one will not refer to.
    const std::uint64_t waste = index().directoryOffset() - live;
    return waste <= live / 8;
  }

 private:
  /// What becomes of one entry of the opened file; it is kept if neither member says otherwise.
  struct Fate {
    bool isLeftOut = false;
    const zip::Spool* replacement = nullptr;
  };

  const PackageIndex& index() const { return *package_.index_; }
  const std::vector<zip::Entry>& entries() const { return index().entries(); }
  void leaveOut(EntryIndex entry) { fates_[entry].isLeftOut = true; }

  /// Those to parts of the file first, in its order, then new parts in the order of their creation.
  std::vector<const PartChange*> changesInOrder() const {
    std::vector<const PartChange*> changes;
    changes.reserve(package_.changes_.size());
    for (const auto& [key, change] : package_.changes_) changes.push_back(&change);
    std::ranges::sort(changes, {}, [](const PartChange* part) {
      // Changes to parts of the file have no number, and so come first.
      return std::pair(part->creation, part->original ? part->original->entry : 0);
    });
    return changes;
  }

  void planPart(const PartChange& part) {
    const IndexedPart* original = part.original;
    const bool leavesOriginal = part.isDeleted || part.creation != 0;
    // Whether deleted or created anew: nothing of the old part may stay, nor its relationships.
    if (original && leavesOriginal) {
      leaveOut(original->entry);
      if (original->relationships) leaveOut(original->relationships->entry);
    }
    if (part.isDeleted) return;
    planData(part);
    if (!part.relationships) return;
    // A part that was created anew has no relationship part whose position it could take.
    const auto old = leavesOriginal ? std::nullopt : relationshipsEntryOf(*original);
    if (part.relationships->isEmpty()) {
      // A document without relationships would say nothing.
      if (old) leaveOut(*old);
      return;
    }
    putRelationships(*part.relationships, old);
  }

  /// A new part is added at the end; new data of an old part stands where the old data stood.
  void planData(const PartChange& part) {
    if (part.creation != 0) {
      additions_.emplace_back(itemNameOf(part.name.encoded()), part.data ? &finished(part) : &emptyPart_);
    } else if (part.data) {
      fates_[part.original->entry].replacement = &finished(part);
    }
  }

  /// Ends the data, whose stream may still be open. Raises if some of it was lost.
  const zip::Spool& finished(const PartChange& part) {
    if (part.data->isBroken()) raise("opc:part:LostData", package_.path_, part.name.text());
    part.data->finish();
    return *part.data;
  }

  void putRelationships(const RelationshipsDocument& document, std::optional<EntryIndex> old) {
    const std::string name = document.partName();
    giveType(name);
    const std::string bytes = document.toBytes();
    relationshipBytes_ += bytes.size();
    put(std::string(itemNameOf(name)), old, bytes);
  }

  /// An override and never a default, which could make parts of other items.
  void giveType(const std::string& relationshipPart) {
    const model::ContentType type(kRelationshipsType);
    const model::ContentType* found = package_.contentTypes().contentTypeOf(relationshipPart);
    if (!found || !(*found == type)) package_.editContentTypes().setOverride(relationshipPart, type);
  }

  // What is saved must be openable again, so what the reader refuses is not written.
  void checkRelationshipBytes() {
    const auto count = [this](std::optional<EntryIndex> entry) {
      if (!entry || fates_[*entry].isLeftOut || fates_[*entry].replacement) return;
      relationshipBytes_ += entries()[*entry].size;
    };
    count(index().relationshipsEntry());
    // Those of changed parts were counted when they were planned.
    for (const IndexedPart& part : index().parts()) count(relationshipsEntryOf(part));
    const std::uint64_t limit = index().limits().relationshipBytes;
    if (relationshipBytes_ > limit) raise("opc:package:RelationshipsTooLarge", package_.path_, limit);
  }

  // Many programs take "\\" for "/" when they unpack. An item of the file that is called so is kept, but none
  // is added that would then overwrite it, or be overwritten.
  void checkTwins() const {
    std::map<std::string, std::string_view> unpacked;
    for (EntryIndex entry = 0; entry < fates_.size(); ++entry) {
      const std::string_view name = entries()[entry].name;
      if (fates_[entry].isLeftOut || name.find('\\') == std::string_view::npos) continue;
      std::string path = percent::toLower(name);
      std::ranges::replace(path, '\\', '/');
      unpacked.emplace(std::move(path), name);
    }
    if (unpacked.empty()) return;
    for (const auto& [name, content] : additions_) {
      const auto twin = unpacked.find(percent::toLower(name));
      if (twin != unpacked.end()) raise("opc:save:HiddenTwin", package_.path_, name, twin->second);
    }
  }

  // After the relationship parts, which may need a type.
  void planContentTypes() {
    const auto old = index().contentTypesEntry();
    // Unchanged, so the entry is copied like any other.
    if (old && !package_.areContentTypesChanged_) return;
    const std::string bytes = package_.contentTypes().toBytes();
    const std::uint64_t limit = index().limits().contentTypeBytes;
    if (bytes.size() > limit) raise("opc:package:ContentTypesTooLarge", package_.path_, limit);
    put(std::string(kContentTypesItem), old, bytes);
  }

  // New documents stand before the new parts, where readers look first.
  void put(std::string name, std::optional<EntryIndex> old, const std::string& bytes) {
    zip::Spool& document = documents_.emplace_back(package_.spoolStorage());
    document.write(bytes.data(), bytes.size());
    document.finish();
    if (old) {
      fates_[*old].replacement = &document;
    } else {
      additions_.emplace_front(std::move(name), &document);
    }
  }

  OpenPackage& package_;
  zip::Spool emptyPart_;
  /// Of all relationship parts that will be in the new file.
  std::uint64_t relationshipBytes_ = 0;
  std::vector<Fate> fates_;
  /// What follows the entries of the opened file: names and data.
  std::deque<std::pair<std::string, const zip::Spool*>> additions_;
  // Referred to from above, so they must not move.
  std::deque<zip::Spool> documents_;
};

void OpenPackage::save() {
  using fl::filesystem::DurableFile;
  const SavePlan plan(*this);
  const auto start = plan.mayClone() ? DurableFile::Start::CloneOrEmpty : DurableFile::Start::Empty;
  DurableFile output = replaced_ ? DurableFile(path_, *replaced_, start) : DurableFile(path_);
  // In a clone new entries take the place of the old directory.
  zip::Writer writer(output.descriptor(), path_, output.isClone() ? index_->directoryOffset() : 0);
  plan.write(writer, output.isClone());
  // Until here the original was not touched.
  output.commit();
}

}  // namespace opc

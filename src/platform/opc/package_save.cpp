#include "platform/opc/package_save.h"

#include <cstdint>
#include <deque>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/errors/package_errors.h"
#include "platform/files/durable_file.h"
#include "platform/opc/item_names.h"
#include "platform/zip/writer.h"

namespace opc {

namespace {

constexpr std::string_view kContentTypesItem = "[Content_Types].xml";

/// What happens to each entry of the opened file, and what is added.
class SavePlan {
 public:
  SavePlan(const std::string& path, PackageContents& contents,
           const std::shared_ptr<zip::SpoolStorage>& storage)
      : path_(path), contents_(contents), storage_(storage), emptyPart_(storage) {
    emptyPart_.finish();
    fates_.resize(entries().size());
    for (const PartChange* change : contents.partChanges()) planPart(*change);
    for (const EntryPlace orphan : contents.droppedOrphans()) leaveOut(orphan);
    planPackageRelationships();
    planContentTypes();
    checkRelationshipBytes();
  }

  void write(zip::Writer& writer, const fl::filesystem::InputFile* file, bool isClone) const {
    for (EntryPlace place = 0; place < fates_.size(); ++place) {
      const zip::Entry& entry = entries()[place];
      const Fate& fate = fates_[place];
      if (fate.replacement) {
        writer.add(entry.name, *fate.replacement);
      } else if (!fate.isLeftOut) {
        isClone ? writer.keep(entry) : writer.copy(*file, entry);
      }
    }
    for (const auto& [name, content] : additions_) writer.add(name, *content);
    writer.finish(contents_.index().comment());
  }

  /// A clone keeps the bytes of the documents it replaces. That is fine for a while, but a package that is
  /// added to again and again must not become mostly waste.
  bool mayClone() const {
    if (!contents_.isOnlyAddition()) return false;
    std::uint64_t live = 0;
    for (EntryPlace place = 0; place < fates_.size(); ++place) {
      const zip::Entry& entry = entries()[place];
      if (!fates_[place].replacement) live += entry.endOffset - entry.headerOffset;
    }
    const std::uint64_t waste = contents_.index().directoryOffset() - live;
    return waste <= live / 8;
  }

 private:
  struct Fate {
    bool isLeftOut = false;
    const zip::Spool* replacement = nullptr;
  };

  const std::vector<zip::Entry>& entries() const { return contents_.index().entries(); }
  void leaveOut(EntryPlace place) { fates_[place].isLeftOut = true; }

  void planPart(const PartChange& part) {
    const IndexedPart* original = part.original;
    const bool leavesOriginal = part.isDeleted || part.creation != 0;
    if (original && leavesOriginal) {
      leaveOut(original->entry);
      if (original->relationshipsEntry) leaveOut(*original->relationshipsEntry);
    }
    if (part.isDeleted) return;
    planData(part);
    if (!part.relationships) return;
    const auto old = leavesOriginal ? std::nullopt : original->relationshipsEntry;
    if (part.relationships->isEmpty()) {
      if (old) leaveOut(*old);
      return;
    }
    putRelationships(*part.relationships, old);
  }

  void planData(const PartChange& part) {
    if (part.creation != 0) {
      additions_.emplace_back(itemNameOf(part.name.encoded()), part.data ? &finished(part) : &emptyPart_);
    } else if (part.data) {
      fates_[part.original->entry].replacement = &finished(part);
    }
  }

  const zip::Spool& finished(const PartChange& part) {
    if (part.data->isBroken) raise("opc:part:LostData", path_, part.name.text());
    part.data->spool.finish();
    return part.data->spool;
  }

  void planPackageRelationships() {
    const RelationshipsDocument* changed = contents_.changedRelationships();
    if (changed) putRelationships(*changed, contents_.index().relationshipsEntry());
  }

  void putRelationships(const RelationshipsDocument& document, std::optional<EntryPlace> old) {
    const std::string name = document.partName();
    contents_.typeRelationshipPart(name);
    const std::string bytes = document.toBytes();
    relationshipBytes_ += bytes.size();
    put(std::string(itemNameOf(name)), old, bytes);
  }

  // What is saved must be openable again, so what the reader refuses is not written.
  void checkRelationshipBytes() {
    const auto count = [this](std::optional<EntryPlace> place) {
      if (!place || fates_[*place].isLeftOut || fates_[*place].replacement) return;
      relationshipBytes_ += entries()[*place].size;
    };
    count(contents_.index().relationshipsEntry());
    for (const IndexedPart& part : contents_.index().parts()) count(part.relationshipsEntry);
    const std::uint64_t limit = contents_.limits().relationshipBytes;
    if (relationshipBytes_ > limit) raise("opc:package:RelationshipsTooLarge", path_, limit);
  }

  // Last of the documents, because relationship parts may need a type.
  void planContentTypes() {
    const auto old = contents_.index().contentTypesEntry();
    if (old && !contents_.hasChangedContentTypes()) return;
    const std::string bytes = contents_.contentTypes().toBytes();
    const std::uint64_t limit = contents_.limits().contentTypeBytes;
    if (bytes.size() > limit) raise("opc:package:ContentTypesTooLarge", path_, limit);
    put(std::string(kContentTypesItem), old, bytes);
  }

  // New documents stand before the new parts, where readers look first.
  void put(std::string name, std::optional<EntryPlace> old, const std::string& bytes) {
    zip::Spool& document = documents_.emplace_back(storage_);
    document.write(bytes.data(), bytes.size());
    document.finish();
    if (old) {
      fates_[*old].replacement = &document;
    } else {
      additions_.emplace_front(std::move(name), &document);
    }
  }

  const std::string& path_;
  PackageContents& contents_;
  const std::shared_ptr<zip::SpoolStorage>& storage_;
  zip::Spool emptyPart_;
  std::uint64_t relationshipBytes_ = 0;
  std::vector<Fate> fates_;
  std::deque<std::pair<std::string, const zip::Spool*>> additions_;
  std::deque<zip::Spool> documents_;
};

void replacePackage(const std::string& path, const SavePlan& plan, const fl::filesystem::InputFile& file,
                    std::uint64_t directoryOffset) {
  using Start = fl::filesystem::DurableFile::Start;
  fl::filesystem::DurableFile output(path, file.identity(),
                                     plan.mayClone() ? Start::CloneOrEmpty : Start::Empty);
  zip::Writer writer(output.descriptor(), path, output.isClone() ? directoryOffset : 0);
  plan.write(writer, &file, output.isClone());
  output.commit();
}

void createPackage(const std::string& path, const SavePlan& plan, fl::filesystem::DurableFile output) {
  zip::Writer writer(output.descriptor(), path);
  plan.write(writer, nullptr, false);
  output.commit();
}

}  // namespace

void savePackage(const std::string& path, PackageContents& contents,
                 const std::shared_ptr<const fl::filesystem::InputFile>& file,
                 const std::optional<fl::filesystem::FileIdentity>& replaced,
                 const std::shared_ptr<zip::SpoolStorage>& storage) {
  const SavePlan plan(path, contents, storage);
  if (file) return replacePackage(path, plan, *file, contents.index().directoryOffset());
  using fl::filesystem::DurableFile;
  createPackage(path, plan,
                replaced ? DurableFile(path, *replaced, DurableFile::Start::Empty) : DurableFile(path));
}

}  // namespace opc

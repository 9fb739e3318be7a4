#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/unordered/unordered_map.hpp>

#include "platform/files/descriptor.h"
#include "platform/opc/package_index.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationships_document.h"
#include "platform/text/text_hash.h"
#include "platform/zip/spool.h"

namespace opc {

/// One part as it is now: what its changes say, else what the file says. Valid until the package changes.
struct PartView {
  const model::ContentType* type;
  /// Its data in the opened file; null if it is new or was replaced.
  const zip::Entry* entry;
  /// What replaces that; null together with `entry` for a new part that was never written to, which is empty.
  std::shared_ptr<zip::Spool> data;
  /// Null if it has none.
  const RelationshipsDocument* relationships;

  /// Bytes of the data, of new data those written so far.
  std::uint64_t size() const { return entry ? entry->size : data ? data->size() : 0; }
};

/// One opening of a package, from `open` to `close`: the index of the file, and the changes made since, which
/// are kept beside it. Package, parts and streams share it, so that those which outlive the closing find out
/// and say so. Everything below raises opc::Exception, naming the package, once it is closed, and whatever
/// changes it also if it was opened for reading.
class OpenPackage {
 public:
  /// What may be done to the package.
  enum class Access { Read, Change };

  /// A package that was read from `file`.
  OpenPackage(std::shared_ptr<const fl::filesystem::InputFile> file,
              std::shared_ptr<const PackageIndex> index, Access access);
  /// A new package, to be written to `path` (UTF-8) in place of `replaced`, or of nothing.
  OpenPackage(std::string path, std::shared_ptr<const PackageIndex> index,
              std::optional<fl::filesystem::FileIdentity> replaced);

  /// Writes the changes, if there are any, to the path, all or nothing, and drops file and changes in any
  /// case.
  void close();
  void closeWithoutSaving() noexcept;

  const std::string& path() const { return path_; }
  /// For callers that must know before they do something else.
  void checkIsOpen() const;
  void checkMayChange() const;

  bool has(const model::PartName& name) const;
  /// Whether neither a part nor anything else in the file has this name.
  bool isFree(const model::PartName& name) const;
  /// Raises if the part is not there (any more).
  PartView part(const model::PartName& name) const;
  /// The same name as the file spells it.
  model::PartName storedName(const model::PartName& name) const;
  /// The same, or nothing if there is no such part.
  std::optional<model::PartName> findName(const model::PartName& name) const;
  /// Of a part, or of the package for null. Null if there are none; raises if there is no such part.
  const RelationshipsDocument* relationships(const model::PartName* source) const;
  /// Of the package, those whose target is exactly this text, in their order.
  std::vector<model::Relationship> relationshipsByTarget(const std::u16string& target) const;

  /// All of a small part. Raises if it is larger than `limit`.
  std::string readWhole(const model::PartName& name, std::uint64_t limit) const;
  /// Raises unless all of a part's new data is there.
  void checkIsComplete(const zip::Spool& data, const model::PartName& name) const;
  const std::shared_ptr<const fl::filesystem::InputFile>& file() const { return file_; }
  /// Raises once all streams of this opening together have given more than the limit.
  void countInflated(std::uint64_t bytes);

  /// Raises if no part of this name can be created.
  void checkCanCreate(const model::PartName& name);
  /// Null for `data` makes an empty part.
  void create(const model::PartName& name, const model::ContentType& type, std::shared_ptr<zip::Spool> data);
  /// The same in place of a part that is there, whose relationships go with it.
  void recreate(const model::PartName& name, const model::ContentType& type,
                std::shared_ptr<zip::Spool> data);
  /// Deleting what is not there does nothing. The part's relationships and its content type go with it.
  void remove(const model::PartName& name);
  /// Data that is no part's yet.
  std::shared_ptr<zip::Spool> startData();
  /// Where the part's new data is to be written.
  std::shared_ptr<zip::Spool> replaceData(const model::PartName& name);
  /// Adds to the relationships of a part, or of the package for null; see RelationshipsDocument::add.
  model::Relationship addRelationship(const model::PartName* source, std::u16string_view type,
                                      const model::URI& target, std::string_view id, model::TargetMode mode,
                                      const model::PartName* name = nullptr);
  /// Removing what is not there does nothing.
  void removeRelationship(const model::PartName* source, std::string_view id);

 private:
  class SavePlan;

  /// What was done to the part of one name since the package was opened.
  struct PartChange {
    model::PartName name;
    model::ContentType type;
    /// The part of this name in the opened file. Data and relationships below take the place of its own.
    const IndexedPart* original;
    bool isDeleted = false;
    /// Created anew, with nothing of the original; the number orders the new parts, from 1.
    std::uint64_t creation = 0;
    std::shared_ptr<zip::Spool> data;
    std::unique_ptr<RelationshipsDocument> relationships;  // few parts have any, and it is large
  };

  /// Before every change: raises unless the package may be changed, and reads the documents that changes
  /// edit. A change takes several of the calls above, and if the file cannot be read any more that must show
  /// before the first of them, or half of the change would be saved.
  void prepareChange();
  /// The part of this key as it is now.
  std::optional<PartView> find(std::string_view key) const;
  bool hasKey(std::string_view key) const;
  /// What was done to a part that is there; a record of nothing if this is the first change.
  PartChange& change(const model::PartName& name);
  void putNew(const model::PartName& name, const model::ContentType& type, std::shared_ptr<zip::Spool> data);
  ContentTypesDocument& editContentTypes();
  RelationshipsDocument& editRelationships(const model::PartName* source);
  /// The documents of the package as they are now, changed or not; read once more before the first change.
  ContentTypesDocument& contentTypes();
  RelationshipsDocument& packageRelationships();
  const std::shared_ptr<zip::SpoolStorage>& spoolStorage();
  /// Raises if there is "/a" and this is "/a/b", or the other way round (ECMA-376 part 2, part naming).
  void checkIsNotDerived(const model::PartName& name);
  void checkEntryCount() const;
  /// Calls `visit` with the keys of all parts there are, without the leading "/".
  void forEachKey(const auto& visit) const;
  /// How many parts lie directly in each folder that has any. A folder's key is that of a part up to its last
  /// "/", without the leading one.
  std::map<std::string_view, std::size_t>& folders();
  /// Writes everything to the path, see SavePlan.
  void save();

  std::string path_;
  Access access_;
  std::shared_ptr<const fl::filesystem::InputFile> file_;  // null for a new package
  std::shared_ptr<const PackageIndex> index_;              // null once closed
  std::optional<fl::filesystem::FileIdentity> replaced_;   // what saving replaces
  std::size_t relationshipCount_;
  std::size_t entryCount_;  // at most so many will be saved
  std::uint64_t inflated_ = 0;

  // Whether there is anything to save.
  bool isChanged_ = false;
  bool isOnlyAddition_ = true;  // nothing of the file was deleted or replaced
  // How many parts were created, including those that were deleted again.
  std::uint64_t creations_ = 0;
  // By key. Never erased from, so that views and keys stay valid.
  boost::unordered_map<std::string, PartChange, fl::i18n::TextHash, std::equal_to<>> changes_;
  // Nothing before the first change, until when the documents of the file hold.
  std::optional<ContentTypesDocument> contentTypes_;
  bool areContentTypesChanged_ = false;
  std::optional<RelationshipsDocument> relationships_;
  bool areRelationshipsChanged_ = false;
  // Relationship parts without a part, now that a part of that name was created.
  std::vector<EntryIndex> droppedOrphans_;
  // Of the package's relationships, in their order where targets are equal; only once somebody asks by
  // target, as replacing many files in one go does.
  mutable std::optional<std::multimap<std::u16string, std::string>> idsByTarget_;
  // For finding derived names: counted only once a part is created, and kept up to date from then on. Most
  // packages have few folders, whatever the number of their parts.
  std::optional<std::map<std::string_view, std::size_t>> folders_;
  // Of the name that was found free last, if nothing has changed since: who creates a part asks for it before
  // and after the data is read.
  std::string freeKey_;
  // For all new data of this opening.
  std::shared_ptr<zip::SpoolStorage> spoolStorage_;
};

}  // namespace opc

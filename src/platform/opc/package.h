#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors/package_errors.h"
#include "platform/opc/core_properties.h"
#include "platform/opc/part.h"
#include "platform/opc/relationship.h"
#include "platform/zip/limits.h"

namespace opc {

class PackageIndex;

}  // namespace opc

namespace opc::interfaces {

/// Read 0, Create 1, Modify 2: the values are the interface.
enum class OpenMode { Read = 0, Create = 1, Modify = 2 };

}  // namespace opc::interfaces

namespace opc::model {

/// One package file after the Open Packaging Conventions (ECMA-376, part 2). Parts are found by name,
/// relationships in the order of their document. Changes are kept beside the file and written by `close`, all
/// at once and durably, or not at all. An unchanged file is reopened without reading its directory, content
/// types and relationships again.
class Package final : public RelationshipSource {
 public:
  /// Binds the package to a path; nothing is opened.
  explicit Package(std::u16string path, const zip::Limits& limits = {});
  /// Closes without saving.
  ~Package();
  Package(const Package&) = delete;
  Package& operator=(const Package&) = delete;

  /// As it was given to the constructor.
  const std::u16string& path() const { return path_; }

  /// Raises PackageNotFound or PackageOpenFailed; the latter's identifier says which rule the file breaks.
  /// Create is `create()`. Raises opc::Exception if the package is open already.
  void open(interfaces::OpenMode mode);
  /// What `create` makes of a file that is there already.
  enum class Existing { Refuse, Replace };
  /// Starts an empty package, which `close` writes. With Refuse, or if there is no file now, the path must
  /// not exist by then. With Replace the file keeps its owner, mode and extended attributes, and `close`
  /// fails if it may not be written or somebody changed it since. Raises PackageOpenFailed if what is there
  /// is no regular file or cannot be read.
  void create(Existing existing = Existing::Refuse);
  /// Also true for a package that is being created.
  bool isOpen() const { return open_ != nullptr; }

  /// Saves the changes, if there are any, and closes. Writing a value that was there already is a change;
  /// deleting what is not there, and a request that was refused, is none. The package is closed in any case;
  /// if saving fails opc::Exception says why, and the file is as it was. Closing a closed package does
  /// nothing.
  void close();
  void closeWithoutSaving() noexcept;

  /// What was read of the file; null before it is first opened. The same object as long as the file is
  /// unchanged.
  const std::shared_ptr<const PackageIndex>& index() const { return index_; }

  /// Whether there is a part of this name or an equivalent one.
  bool hasPart(const PartName& name) const;
  /// Raises opc::Exception if there is no such part.
  Part getPart(const PartName& name) const;
  /// The part that a relationship leads to. Nothing for an external one, a target that is missing, climbs
  /// above the root or is no part name: such a relationship is sound, it only reaches no part.
  std::optional<Part> findPart(const Relationship& link) const;
  /// A part of this data, or an empty one until its output stream is written to. Raises opc::Exception if the
  /// name is taken by an equivalent one, is derived from another part's name or another is derived from it,
  /// the package has as many entries as can be opened, or is not open for modification.
  Part createPart(const PartName& name, const ContentType& type, const StandardPartInfo& info,
                  const PartData& data = nullptr);
  /// Raises as `createPart` would.
  void checkCanCreate(const PartName& name) const;
  /// Puts a new part in the place of one that is there, whose data and relationships go. Raises
  /// opc::Exception if there is none or the package is not open for modification.
  Part replacePart(const PartName& name, const ContentType& type, const PartData& data);
  /// Takes data in before it is a part's: whoever replaces a part writes all of the new data here first, so
  /// that a failure on the way leaves the old part as it is. What no part is made of is not saved.
  PartData startData();
  /// Removes the part, its relationship part and its content type. Deleting a missing part is no error.
  void deletePart(const PartName& name);

  /// Nothing when the package has no core-properties part or the part does not have the property.
  std::optional<std::u16string> getCoreProperty(CoreProperty property) const;
  /// Keeps every other property. Creates the core-properties part when it is missing: where a relationship
  /// to it leads already, else as "/docProps/core.xml" or the next free name, in place of any relationships
  /// that can lead to no part (external, above the root, a name that is taken by what is no part).
  void setCoreProperty(CoreProperty property, std::u16string_view text);

  /// Those whose target is exactly this text, in the order of the document. Indexed, so cheap to call
  /// repeatedly.
  std::vector<Relationship> getRelationshipsByTarget(const URI& target) const;

 private:
  OpenPackage& opened() const override;
  const PartName* part() const override { return nullptr; }
  std::optional<PartName> corePropertiesPart() const;
  PartName createCorePropertiesPart();

  std::u16string path_;
  zip::Limits limits_;
  std::shared_ptr<const PackageIndex> index_;  // outlives the openings
  std::shared_ptr<OpenPackage> open_;          // null while closed
};

/// Why the last `close` of this process failed, nothing if it did not. Modules tell their hosts no more than
/// that a package could not be saved; here a host learns whether it is worth trying again.
const std::optional<Exception>& lastFailedSave();

/// The rule that the file breaks, nothing if it is a sound package. For hosts as well: a module's error names
/// the file alone.
std::optional<Exception> brokenRule(const std::u16string& path);

}  // namespace opc::model

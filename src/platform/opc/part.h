#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/opc/content_type.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationship.h"
#include "platform/opc/streams.h"

namespace opc::model {

/// What relationships start from: the package, or a part.
class RelationshipSource {
 public:
  /// In the order of the document. A copy, so that a caller may delete while walking it.
  std::vector<Relationship> getRelationships(ExcludeMode exclude) const;
  /// Those of exactly this type, internal and external.
  std::vector<Relationship> getRelationshipsByType(std::u16string_view type) const;

  /// Adds a link to a part of this package, which need not exist. An empty ID asks for the lowest free
  /// "rIdN". Raises opc::Exception if the ID is taken, is not an XML name, the target is no part name, the
  /// package has as many relationships as can be opened, or the source cannot be changed.
  Relationship createInternalRelationship(std::u16string_view type, const URI& target, std::string_view id);
  Relationship createInternalRelationship(std::u16string_view type, const PartName& target,
                                          std::string_view id);
  /// The same for a link to something else than a part of this package. The target is kept as it is given.
  Relationship createExternalRelationship(std::u16string_view type, std::u16string_view target,
                                          std::string_view id);

  /// Deleting an ID that is not there is no error.
  void deleteRelationship(std::string_view id);

 protected:
  ~RelationshipSource() = default;

 private:
  /// Raises opc::Exception if there is none.
  virtual OpenPackage& opened() const = 0;
  /// Null for the package itself.
  virtual const PartName* part() const = 0;
};

/// Normal is deflate, or stored where deflating makes the data no smaller.
enum class CompressionType { Normal = 0 };

/// How a new part is kept. The size is a hint; the data decides.
struct StandardPartInfo {
  CompressionType compressionType = CompressionType::Normal;
  std::uint64_t size = 0;
};

/// Data on its way into a package.
using PartData = std::shared_ptr<OutputStream>;

/// One part of an open package. A handle: cheap to copy, and no longer usable once its package is closed or
/// the part deleted; everything but its name then raises opc::Exception. Copies share one input stream.
class Part final : public RelationshipSource {
 public:
  /// The name as the package spells it, also when the part was asked for in another letter case.
  const PartName& getName() const;
  ContentType getContentType() const;
  /// Bytes of uncompressed data; of new data, those written so far.
  std::uint64_t getSize() const;
  /// Bytes that the data takes in the file; of new data 0, since it is not there yet.
  std::uint64_t getCompressedSize() const;

  /// This handle's one input stream; asking again gives the same one, where it stands. Data written since the
  /// package was opened can be read once its output stream is gone.
  std::shared_ptr<InputStream> getInputStream() const;

  /// Replaces the part's data by what is written; the data ends when the last reference to the stream goes or
  /// the package is saved. Raises opc::Exception if the package is not open for modification.
  std::shared_ptr<OutputStream> getOutputStream();

 private:
  friend class Package;
  struct Handle;
  Part(std::shared_ptr<OpenPackage> package, PartName name);
  OpenPackage& opened() const override;
  const PartName* part() const override;

  std::shared_ptr<Handle> handle_;
};

}  // namespace opc::model

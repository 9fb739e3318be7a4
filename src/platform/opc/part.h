#pragma once

#include <cstdint>
#include <memory>

#include "platform/opc/content_type.h"
#include "platform/opc/part_name.h"
#include "platform/opc/relationship.h"
#include "platform/opc/streams.h"

namespace opc::model {

class PackageState;

/// Normal is deflate, or stored where deflating makes the data no smaller.
enum class CompressionType { Normal = 0 };

/// How a new part is kept. The size is a hint; the data decides.
struct StandardPartInfo {
  CompressionType compressionType = CompressionType::Normal;
  std::uint64_t size = 0;
};

/// One part of an open package. A handle: cheap to copy, and no longer usable once its package is closed or
/// the part deleted; everything but its name then raises opc::Exception. Copies share one input stream.
class Part : public RelationshipSource {
 public:
  const PartName& getName() const;
  ContentType getContentType() const;
  std::uint64_t getSize() const;

  /// This handle's one input stream; asking again gives the same one, where it stands. Data written since the
  /// package was opened can be read once its output stream is gone.
  std::shared_ptr<InputStream> getInputStream() const;

  /// Replaces the part's data by what is written; the data ends when the last reference to the stream goes or
  /// the package is saved. Raises opc::Exception if the package is not open for modification.
  std::shared_ptr<OutputStream> getOutputStream();

  std::vector<Relationship> getRelationships(ExcludeMode exclude) const override;
  std::vector<Relationship> getRelationshipsByType(std::u16string_view type) const override;
  Relationship createInternalRelationship(std::u16string_view type, const URI& target,
                                          std::string_view id) override;
  void deleteRelationship(std::string_view id) override;

 private:
  friend class Package;
  struct Handle;
  Part(std::shared_ptr<PackageState> state, const PartName& name);

  std::shared_ptr<Handle> handle_;
};

}  // namespace opc::model

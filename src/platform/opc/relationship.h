#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/opc/uri.h"

namespace opc::model {

enum class TargetMode { Internal, External };

/// One typed link from a package or part to a target. The target of an internal relationship is resolved,
/// absolute, decoded text, whatever the document wrote; one that climbs above the root is kept but matches no
/// part. The target of an external relationship is the text as written, and is never a part. Copies share the
/// texts, because listings of many thousand relationships are copied.
class Relationship {
 public:
  using Type = std::shared_ptr<const std::u16string>;
  /// Relationships of one type may share it.
  Relationship(std::string id, Type type, URI target, TargetMode mode);

  const std::string& getID() const { return texts_->id; }
  const std::u16string& getType() const { return *texts_->type; }
  const URI& getTarget() const { return texts_->target; }
  TargetMode getTargetMode() const { return mode_; }

 private:
  struct Texts {
    std::string id;
    Type type;
    URI target;
  };
  std::shared_ptr<const Texts> texts_;
  TargetMode mode_;
};

/// Which relationships a listing leaves out.
enum class ExcludeMode { None = 0, External = 1 };

/// What relationships start from: the package, or a part.
class RelationshipSource {
 public:
  virtual ~RelationshipSource();

  /// In the order of the document. A copy, so that a caller may delete while walking it.
  virtual std::vector<Relationship> getRelationships(ExcludeMode exclude) const = 0;
  virtual std::vector<Relationship> getRelationshipsByType(std::u16string_view type) const = 0;

  /// Adds a link to a part of this package, which need not exist. An empty ID asks for the lowest free
  /// "rIdN". Raises opc::Exception if the ID is taken, is not an XML name, the target is no part name, the
  /// package has as many relationships as can be opened, or the source cannot be changed.
  virtual Relationship createInternalRelationship(std::u16string_view type, const URI& target,
                                                  std::string_view id) = 0;

  /// Deleting an ID that is not there is no error.
  virtual void deleteRelationship(std::string_view id) = 0;
};

}  // namespace opc::model

#include "platform/opc/relationship.h"

#include <utility>

namespace opc::model {

Relationship::Relationship(std::string id, Type type, URI target, TargetMode mode)
    : texts_(std::make_shared<const Texts>(Texts{std::move(id), std::move(type), std::move(target)})),
      mode_(mode) {}

RelationshipSource::~RelationshipSource() = default;

}  // namespace opc::model

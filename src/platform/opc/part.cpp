#include "platform/opc/part.h"

#include <utility>

#include "platform/opc/open_package.h"

namespace opc::model {

std::vector<Relationship> RelationshipSource::getRelationships(ExcludeMode exclude) const {
  const RelationshipsDocument* document = opened().relationships(part());
  return document ? document->relationships(exclude) : std::vector<Relationship>();
}

std::vector<Relationship> RelationshipSource::getRelationshipsByType(std::u16string_view type) const {
  const RelationshipsDocument* document = opened().relationships(part());
  return document ? document->relationshipsByType(type) : std::vector<Relationship>();
}

Relationship RelationshipSource::createInternalRelationship(std::u16string_view type, const URI& target,
                                                            std::string_view id) {
  return opened().addRelationship(part(), type, target, id, TargetMode::Internal);
}

Relationship RelationshipSource::createInternalRelationship(std::u16string_view type, const PartName& target,
                                                            std::string_view id) {
  return opened().addRelationship(part(), type, URI::asWritten(target.text()), id, TargetMode::Internal,
                                  &target);
}

Relationship RelationshipSource::createExternalRelationship(std::u16string_view type,
                                                            std::u16string_view target, std::string_view id) {
  return opened().addRelationship(part(), type, URI::asWritten(std::u16string(target)), id,
                                  TargetMode::External);
}

void RelationshipSource::deleteRelationship(std::string_view id) { opened().removeRelationship(part(), id); }

/// What the copies of a part share.
struct Part::Handle {
  std::shared_ptr<OpenPackage> package;
  PartName name;
  std::shared_ptr<InputStream> input;
};

Part::Part(std::shared_ptr<OpenPackage> package, PartName name)
    : handle_(std::make_shared<Handle>(Handle{std::move(package), std::move(name), nullptr})) {}

OpenPackage& Part::opened() const { return *handle_->package; }

const PartName* Part::part() const { return &handle_->name; }

const PartName& Part::getName() const { return handle_->name; }

ContentType Part::getContentType() const { return *opened().part(handle_->name).type; }

std::uint64_t Part::getSize() const { return opened().part(handle_->name).size(); }

std::uint64_t Part::getCompressedSize() const {
  const PartView part = opened().part(handle_->name);
  return part.entry ? part.entry->compressedSize : 0;
}

std::shared_ptr<InputStream> Part::getInputStream() const {
  if (handle_->input) {
    opened().part(handle_->name);  // raises if the part is gone, which a stream from before must not hide
  } else {
    handle_->input = std::make_shared<InputStream>(handle_->package, handle_->name);
  }
  return handle_->input;
}

std::shared_ptr<OutputStream> Part::getOutputStream() {
  auto output = std::make_shared<OutputStream>(handle_->package, opened().replaceData(handle_->name));
  // What was read before is not this part's data any more.
  handle_->input.reset();
  return output;
}

}  // namespace opc::model

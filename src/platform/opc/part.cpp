#include "platform/opc/part.h"

#include <utility>

#include "platform/opc/package_state.h"

namespace opc::model {

struct Part::Handle {
  std::shared_ptr<PackageState> state;
  PartName name;
  std::shared_ptr<InputStream> input;
};

Part::Part(std::shared_ptr<PackageState> state, const PartName& name)
    : handle_(std::make_shared<Handle>(Handle{std::move(state), name, nullptr})) {}

const PartName& Part::getName() const { return handle_->name; }

ContentType Part::getContentType() const { return handle_->state->part(handle_->name).type; }

std::uint64_t Part::getSize() const {
  const PartView view = handle_->state->part(handle_->name);
  if (view.entry) return handle_->state->contents().index().entries()[*view.entry].size;
  return view.data ? view.data->spool.size() : 0;
}

std::shared_ptr<InputStream> Part::getInputStream() const {
  handle_->state->part(handle_->name);
  if (!handle_->input) handle_->input = handle_->state->openInput(handle_->name);
  return handle_->input;
}

std::shared_ptr<OutputStream> Part::getOutputStream() {
  auto output = handle_->state->openOutput(handle_->name);
  // What was read before is not this part's data any more.
  handle_->input.reset();
  return output;
}

std::vector<Relationship> Part::getRelationships(ExcludeMode exclude) const {
  const PartView view = handle_->state->part(handle_->name);
  return view.relationships ? view.relationships->relationships(exclude) : std::vector<Relationship>();
}

std::vector<Relationship> Part::getRelationshipsByType(std::u16string_view type) const {
  const PartView view = handle_->state->part(handle_->name);
  return view.relationships ? view.relationships->relationshipsByType(type) : std::vector<Relationship>();
}

Relationship Part::createInternalRelationship(std::u16string_view type, const URI& target,
                                              std::string_view id) {
  PackageContents& contents = handle_->state->editContents();
  handle_->state->part(handle_->name);
  return contents.addRelationship(handle_->name.key(), type, target, id);
}

void Part::deleteRelationship(std::string_view id) {
  PackageContents& contents = handle_->state->editContents();
  handle_->state->part(handle_->name);
  contents.removeRelationship(handle_->name.key(), id);
}

}  // namespace opc::model

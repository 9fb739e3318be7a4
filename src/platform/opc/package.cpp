#include "platform/opc/package.h"

#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/opc/package_core_properties.h"
#include "platform/opc/package_index.h"
#include "platform/opc/package_state.h"
#include "platform/text/conversion.h"

namespace opc::model {

namespace {

using interfaces::OpenMode;

// A path that is not well-formed cannot name a file.
std::string narrowPath(const std::u16string& path) {
  if (!fl::i18n::is_well_formed(path)) throw PackageNotFound(fl::i18n::to_string_lossy(path));
  return fl::i18n::to_string(path);
}

/// Nothing if there is no such file.
std::optional<fl::filesystem::FileIdentity> identityOfFile(const std::string& path) {
  try {
    return fl::filesystem::InputFile(path).identity();
  } catch (const PackageNotFound&) {
    return std::nullopt;
  }
}

std::shared_ptr<const PackageIndex> indexOf(const std::shared_ptr<const fl::filesystem::InputFile>& file,
                                            const zip::Limits& limits) {
  try {
    return PackageIndex::of(file, limits);
  } catch (const PackageOpenFailed&) {
    throw;
  } catch (const Exception& broken) {  // data that does not match its checksum, for one
    throw PackageOpenFailed(broken.GetID(), broken.GetArguments(), broken.causes());
  }
}

}  // namespace

Package::Package(std::u16string path, const zip::Limits& limits) : path_(std::move(path)), limits_(limits) {}

Package::~Package() {
  if (state_) state_->close();
}

const std::u16string& Package::path() const { return path_; }

bool Package::isOpen() const { return state_ && state_->isOpen(); }

void Package::open(OpenMode mode) {
  if (mode == OpenMode::Create) return create();
  if (isOpen()) raise("opc:package:AlreadyOpen", path_);
  state_ = openState(mode);
}

void Package::create(Existing existing) {
  if (isOpen()) raise("opc:package:AlreadyOpen", path_);
  const std::string path = narrowPath(path_);
  const auto replaced = existing == Existing::Replace ? identityOfFile(path) : std::nullopt;
  index_ = PackageIndex::ofNewPackage();
  state_ =
      std::make_shared<PackageState>(path, PackageState::Access::Change, limits_, nullptr, index_, replaced);
}

std::shared_ptr<PackageState> Package::openState(OpenMode mode) {
  using Access = PackageState::Access;
  const std::string path = narrowPath(path_);
  auto file = std::make_shared<const fl::filesystem::InputFile>(path);
  if (!index_ || !index_->describes(file->identity(), limits_)) index_ = indexOf(file, limits_);
  const Access access = mode == OpenMode::Modify ? Access::Change : Access::Read;
  return std::make_shared<PackageState>(path, access, limits_, std::move(file), index_);
}

void Package::close() {
  if (!isOpen()) return;
  const std::shared_ptr<PackageState> state = std::move(state_);
  struct Closer {
    PackageState& state;
    ~Closer() { state.close(); }
  } closer{*state};
  if (state->needsSaving()) state->save();
}

PackageState& Package::state() const {
  if (!state_) raise("opc:package:Closed", path_);
  return *state_;
}

std::vector<PartName> Package::getPartNames() const { return state().contents().names(); }

bool Package::hasPart(const PartName& name) const { return state().contents().find(name.key()).has_value(); }

Part Package::getPart(const PartName& name) const { return Part(state_, state().part(name).name); }

Part Package::createPart(const PartName& name, const ContentType& type, const StandardPartInfo&) {
  state().editContents().create(name, type);
  return Part(state_, name);
}

void Package::deletePart(const PartName& name) { state().editContents().remove(name.key()); }

std::optional<std::u16string> Package::getCoreProperty(CoreProperty property) const {
  return coreProperty(state(), property, limits_);
}

void Package::setCoreProperty(CoreProperty property, std::u16string_view text) {
  opc::setCoreProperty(state(), property, text, limits_);
}

std::vector<Relationship> Package::getRelationships(ExcludeMode exclude) const {
  return state().contents().relationships().relationships(exclude);
}

std::vector<Relationship> Package::getRelationshipsByType(std::u16string_view type) const {
  return state().contents().relationships().relationshipsByType(type);
}

std::vector<Relationship> Package::getRelationshipsByTarget(const URI& target) const {
  return state().contents().relationshipsByTarget(target.text());
}

Relationship Package::createInternalRelationship(std::u16string_view type, const URI& target,
                                                 std::string_view id) {
  return state().editContents().addRelationship(type, target, id);
}

void Package::deleteRelationship(std::string_view id) { state().editContents().removeRelationship(id); }

}  // namespace opc::model

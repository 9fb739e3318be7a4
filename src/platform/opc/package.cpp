#include "platform/opc/package.h"

#include <utility>

#include "platform/errors/package_errors.h"
#include "platform/opc/open_package.h"
#include "platform/text/conversion.h"

namespace opc::model {

namespace {

using fl::filesystem::InputFile;
using interfaces::OpenMode;

constexpr std::u16string_view kCorePropertiesRelationship =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";
constexpr std::u16string_view kCorePropertiesType =
    u"application/vnd.openxmlformats-package.core-properties+xml";
// A list of properties is a few lines; what is larger is none.
constexpr std::uint64_t kLargestCoreProperties = std::uint64_t{16} << 20;

// A path that is not well-formed cannot name a file.
std::string narrowPath(const std::u16string& path) {
  if (!fl::i18n::is_well_formed(path)) throw PackageNotFound(fl::i18n::to_string_lossy(path));
  return fl::i18n::to_string(path);
}

/// Nothing if there is no such file.
std::optional<fl::filesystem::FileIdentity> identityOfFile(const std::string& path) {
  try {
    return InputFile(path).identity();
  } catch (const PackageNotFound&) {
    return std::nullopt;
  }
}

/// The name of the part that a relationship promises; nothing if there can be none.
std::optional<PartName> targetOf(const Relationship& link) {
  if (link.getTargetMode() == TargetMode::External) return std::nullopt;
  return PartName::tryFromText(link.getTarget().text());
}

/// One for the process, since those who ask are not those who closed the package.
std::optional<Exception>& failedSave() {
  static std::optional<Exception> failure;
  return failure;
}

}  // namespace

Package::Package(std::u16string path, const zip::Limits& limits) : path_(std::move(path)), limits_(limits) {}

Package::~Package() { closeWithoutSaving(); }

void Package::closeWithoutSaving() noexcept {
  if (open_) std::exchange(open_, nullptr)->closeWithoutSaving();
}

void Package::open(OpenMode mode) {
  if (mode == OpenMode::Create) return create();
  if (isOpen()) raise("opc:package:AlreadyOpen", path_);
  auto file = std::make_shared<const InputFile>(narrowPath(path_));
  // The index that this package read is tried first, then the last one that any package of the process did.
  if (!index_ || !index_->describes(file->identity(), limits_)) index_ = PackageIndex::of(file, limits_);
  const auto access = mode == OpenMode::Modify ? OpenPackage::Access::Change : OpenPackage::Access::Read;
  open_ = std::make_shared<OpenPackage>(std::move(file), index_, access);
}

void Package::create(Existing existing) {
  if (isOpen()) raise("opc:package:AlreadyOpen", path_);
  const std::string path = narrowPath(path_);
  // Taken now, so that `close` notices if somebody changes the file in between.
  const auto replaced = existing == Existing::Replace ? identityOfFile(path) : std::nullopt;
  index_ = PackageIndex::ofNewPackage(limits_);
  open_ = std::make_shared<OpenPackage>(path, index_, replaced);
}

void Package::close() {
  // Taken out first, because the package is closed also when saving fails.
  const auto closing = std::exchange(open_, nullptr);
  if (!closing) return;
  failedSave().reset();
  try {
    closing->close();
  } catch (const Exception& failure) {
    failedSave() = failure;
    throw;
  }
}

const std::optional<Exception>& lastFailedSave() { return failedSave(); }

std::optional<Exception> brokenRule(const std::u16string& path) {
  try {
    Package(path).open(interfaces::OpenMode::Read);
  } catch (const Exception& broken) {
    return broken;
  }
  return std::nullopt;
}

OpenPackage& Package::opened() const {
  if (!open_) raise("opc:package:Closed", path_);
  return *open_;
}

bool Package::hasPart(const PartName& name) const { return opened().has(name); }

Part Package::getPart(const PartName& name) const { return Part(open_, opened().storedName(name)); }

std::optional<Part> Package::findPart(const Relationship& link) const {
  // A relationship without a part is no fault of the package, so nothing is raised.
  auto name = targetOf(link);
  if (name) name = opened().findName(*name);
  return name ? std::optional(Part(open_, *std::move(name))) : std::nullopt;
}

Part Package::createPart(const PartName& name, const ContentType& type, const StandardPartInfo&,
                         const PartData& data) {
  // The info is only a hint, and not needed: data is deflated where that makes it smaller.
  opened().create(name, type, data ? data->data_ : nullptr);
  return Part(open_, name);
}

void Package::checkCanCreate(const PartName& name) const { opened().checkCanCreate(name); }

Part Package::replacePart(const PartName& name, const ContentType& type, const PartData& data) {
  opened().recreate(name, type, data->data_);
  return Part(open_, name);
}

PartData Package::startData() { return std::make_shared<OutputStream>(open_, opened().startData()); }

void Package::deletePart(const PartName& name) { opened().remove(name); }

std::vector<Relationship> Package::getRelationshipsByTarget(const URI& target) const {
  return opened().relationshipsByTarget(target.text());
}

/// The part that the package reaches by the standard relationship.
std::optional<PartName> Package::corePropertiesPart() const {
  for (const Relationship& link : getRelationshipsByType(kCorePropertiesRelationship)) {
    if (const auto part = findPart(link)) return part->getName();
  }
  return std::nullopt;
}

std::optional<std::u16string> Package::getCoreProperty(CoreProperty property) const {
  const auto part = corePropertiesPart();
  if (!part) return std::nullopt;
  const std::string document = opened().readWhole(*part, kLargestCoreProperties);
  return coreProperty(document, property, {opened().path(), part->encoded()}, limits_.xmlDepth);
}

void Package::setCoreProperty(CoreProperty property, std::u16string_view text) {
  // Asked first: what is open for reading should say so before it complains about the text.
  opened().checkMayChange();
  const std::string& path = opened().path();
  const auto part = corePropertiesPart();
  const std::string before = part ? opened().readWhole(*part, kLargestCoreProperties) : newCoreProperties();
  const std::string_view name = part ? std::string_view(part->encoded()) : std::string_view();
  const std::string document = withCoreProperty(before, property, text, {path, name}, limits_.xmlDepth);
  if (document.size() > kLargestCoreProperties) {
    raise("opc:package:PropertiesTooLarge", path, kLargestCoreProperties);
  }
  // Only now: a refused text must not leave an empty part behind.
  const PartName target = part ? *part : createCorePropertiesPart();
  getPart(target).getOutputStream()->write(document.data(), document.size());
}

PartName Package::createCorePropertiesPart() {
  const ContentType type(kCorePropertiesType);
  const std::vector<Relationship> dangling = getRelationshipsByType(kCorePropertiesRelationship);
  for (const Relationship& link : dangling) {
    const auto promised = targetOf(link);
    // A relationship that leads to no part yet is made true, instead of adding a second.
    if (promised && opened().isFree(*promised)) return createPart(*promised, type, {}).getName();
  }
  PartName name(u"/docProps/core.xml");
  // The usual name, or the next beside it that nothing has.
  for (int number = 1; !opened().isFree(name); ++number) {
    name = PartName(u"/docProps/core" + fl::i18n::to_ustring(std::to_string(number)) + u".xml");
  }
  createPart(name, type, {});
  // A package has one such relationship. Those that cannot lead to a part give way: beside one of them, other
  // programs would not find the new part.
  for (const Relationship& link : dangling) deleteRelationship(link.getID());
  createInternalRelationship(kCorePropertiesRelationship, URI(name.text()), {});
  return name;
}

}  // namespace opc::model

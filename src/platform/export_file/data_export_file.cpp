#include "platform/export_file/data_export_file.h"

#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

// A thin layer: what a package of any kind does is in platform/opc, and this file knows only which properties
// and relationships make it a TAVLOX file.
namespace tavlox {

using opc::interfaces::OpenMode;
using opc::model::CoreProperty;

DataExportFile::DataExportFile(bool createNew) : createNew_(createNew) {}
DataExportFile::~DataExportFile() = default;

void DataExportFile::initReadPackage(const std::u16string& path) {
  // Asked before the package is made, so that a missing file has an error of its own kind, not one of
  // reading.
  if (!fl::filesystem::exists(path)) throw opc::model::PackageNotFound(fl::i18n::to_string_lossy(path));
  package_ = std::make_unique<opc::model::Package>(path);
}

void DataExportFile::modifyReadPackage(const std::u16string& path) {
  // The same package object is opened again, for whoever closed it in between.
  if (package_ == nullptr || package_->path() != path) initReadPackage(path);
  package_->open(OpenMode::Read);
}

void DataExportFile::modify(const std::u16string& path, Existing existing) {
  package_ = std::make_unique<opc::model::Package>(path);
  if (createNew_) package_->create(existing);
}

opc::model::Package& DataExportFile::getPackageImpl() const {
  if (package_ == nullptr) opc::raise("export_file:file:NotBound");
  return *package_;
}

void DataExportFile::closePackage() {
  if (package_ != nullptr) package_->close();
}

void DataExportFile::getDescription(std::u16string& description) const {
  description = getPackageImpl().getCoreProperty(CoreProperty::Description).value_or(u"");
}

void DataExportFile::setDescription(const std::u16string& description) {
  getPackageImpl().setCoreProperty(CoreProperty::Description, description);
}

void DataExportFile::getVersion(std::u16string& version) const {
  version = getPackageImpl().getCoreProperty(CoreProperty::Version).value_or(u"");
}

std::vector<opc::model::Part> DataExportFile::getPartsByRelationshipType(std::u16string_view type) const {
  const opc::model::Package& package = getPackageImpl();
  std::vector<opc::model::Part> parts;
  for (const opc::model::Relationship& link : package.getRelationshipsByType(type)) {
    // Real packages have relationships whose part was deleted; the other parts are to be found all the same.
    if (auto part = package.findPart(link)) parts.push_back(std::move(*part));
  }
  return parts;
}

}  // namespace tavlox

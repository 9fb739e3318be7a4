#include "assets/add.h"

#include <fstream>
#include <optional>

#include "assets/user_files.h"
#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"
#include "platform/opc/streams.h"

namespace orra::tavloxio::part {

namespace fs = fl::filesystem;
using foundation::core::except::Arguments;
using foundation::core::except::except_with_causes;
using opc::model::ContentType;
using opc::model::PartName;
using opc::model::Relationship;
using opc::model::TargetMode;

namespace {

/// The relationship of the entry that a new one of this name replaces: of those that lead to a part of
/// exactly this name the first. Nothing if there is none, and then creating the new part will fail.
std::optional<Relationship> findReplaced(const opc::model::Package& package, const std::u16string& name) {
  if (!package.hasPart(PartName(name))) return std::nullopt;
  for (const Relationship& link : package.getRelationshipsByTarget(opc::model::URI(name))) {
    if (link.getTargetMode() == TargetMode::Internal) return link;
  }
  return std::nullopt;
}

ContentType contentTypeFor(const std::u16string& diskPath) {
  std::u16string type(tavlox::DataExportFile::contentType);
  return ContentType(type + u"+" + fs::extract_extension(diskPath));
}

/// Makes of what the package library refuses the error of this module.
template <class Step>
void orCannotAdd(const file::ScopedRef& ref, const std::u16string& name, const Step& step) {
  try {
    step();
  } catch (const opc::Exception& refusal) {
    throw except_with_causes("tavlox_io:general:CannotAddEntry",
                             Arguments{fs::extract_filename(name), ref.path()}, {refusal});
  }
}

}  // namespace

std::vector<std::u16string> addPathToPackage(const file::ScopedRef& ref, const std::u16string& diskPath,
                                             const AddOptions& options) {
  if (!fs::exists(diskPath)) return {};
  if (fs::status(diskPath).type == fs::FileType::Regular) return {addToPackage(ref, diskPath, options)};

  std::vector<std::u16string> added;
  const std::u16string folder = fs::make_native_form(diskPath);
  if (folder.empty()) return added;
  fs::DirectoryIterator files(folder);
  while (const auto entry = files.next()) {
    if (entry->type != fs::FileType::Regular && entry->type != fs::FileType::SymbolicLink) continue;
    added.push_back(addToPackage(ref, entry->path, options));
  }
  return added;
}

std::u16string addToPackage(const file::ScopedRef& ref, const std::u16string& diskPath,
                            const AddOptions& options) {
  const std::u16string native = fs::make_native_form(diskPath);
  const std::u16string folder = fs::make_native_form(options.Path.empty() ? kUserFolder : options.Path);
  // The folders above the file on disk are not kept.
  std::u16string name = fs::make_generic_form(fs::concatenate(folder, fs::extract_filename(native)));
  std::ifstream file = fs::open_for_reading(native);
  const std::uint64_t size = fs::status(native).size;
  opc::model::Package& package = ref.package();
  const auto replaced = options.Replace ? findReplaced(package, name) : std::nullopt;
  const ContentType type = contentTypeFor(native);
  // A name that will be refused is refused before gigabytes are read for it.
  if (!replaced) orCannotAdd(ref, name, [&] { package.checkCanCreate(PartName(name)); });
  // All of the file is taken in before the package changes: if that fails, the old entry is still there.
  const opc::model::PartData data = package.startData();
  opc::copyStream(file, native, *data, size);
  orCannotAdd(ref, name, [&] {
    if (replaced) package.replacePart(PartName(name), type, data);
    if (replaced) package.deleteRelationship(replaced->getID());
    if (!replaced) package.createPart(PartName(name), type, {.size = size}, data);
    package.createInternalRelationship(replaced ? replaced->getType() : kUserAssetsRelationshipType,
                                       opc::model::URI(name), "");
  });
  return name;
}

}  // namespace orra::tavloxio::part

#include "assets/add.h"

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
std::optional<Relationship> findReplaced(const opc::model::Package& package, const PartName& name) {
  if (!package.hasPart(name)) return std::nullopt;
  for (const Relationship& link : package.getRelationshipsByTarget(opc::model::URI(name.text()))) {
    if (link.getTargetMode() == TargetMode::Internal) return link;
  }
  return std::nullopt;
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

/// Adds disk files to a package, under the options of one call.
class Adder {
 public:
  Adder(const file::ScopedRef& ref, const AddOptions& options)
      : ref_(ref),
        replaces_(options.Replace),
        folder_(fs::make_native_form(options.Path.empty() ? kUserFolder : options.Path)) {}

  /// Stores one under a user-assets relationship, or the type of the one it replaces. `diskPath` gives it its
  /// name and is what messages call it.
  void add(const std::u16string& diskPath, const fs::OpenFile& file) {
    // The folders above the file on disk are not kept.
    const std::u16string fileName = fs::extract_filename(diskPath);
    const std::u16string path = fs::make_generic_form(fs::concatenate(folder_, fileName));
    opc::model::Package& package = ref_.package();
    std::optional<PartName> name;
    // Where an old entry is looked for, the package library's own error is the one that counts.
    if (replaces_) name.emplace(path);
    if (!replaces_) orCannotAdd(ref_, path, [&] { name.emplace(path); });
    const auto replaced = replaces_ ? findReplaced(package, *name) : std::nullopt;
    const ContentType& type = typeOf(fileName);
    // A name that will be refused is refused before gigabytes are read for it.
    if (!replaced) orCannotAdd(ref_, path, [&] { package.checkCanCreate(*name); });
    // All of the file is taken in before the package changes: if that fails, the old entry is still there.
    const opc::model::PartData data = package.startData();
    opc::copyFile(file, diskPath, *data);
    orCannotAdd(ref_, path, [&] {
      if (replaced) package.replacePart(*name, type, data);
      if (replaced) package.deleteRelationship(replaced->getID());
      if (!replaced) package.createPart(*name, type, {.size = file.size}, data);
      package.createInternalRelationship(replaced ? replaced->getType() : kUserAssetsRelationshipType, *name,
                                         "");
    });
  }

 private:
  /// Most files of a folder have one extension, whose type they share.
  const ContentType& typeOf(const std::u16string& fileName) {
    std::u16string extension = fs::extract_extension(fileName);
    if (type_ && extension == extension_) return *type_;
    const std::u16string type(tavlox::DataExportFile::contentType);
    type_.emplace(type + u"+" + extension);
    extension_ = std::move(extension);
    return *type_;
  }

  const file::ScopedRef& ref_;
  const bool replaces_;
  const std::u16string folder_;
  std::u16string extension_;
  std::optional<ContentType> type_;
};

}  // namespace

void addPathToPackage(const file::ScopedRef& ref, const std::u16string& diskPath, const AddOptions& options) {
  if (!fs::exists(diskPath)) return;
  Adder adder(ref, options);
  const std::u16string native = fs::make_native_form(diskPath);
  if (fs::status(native).type == fs::FileType::Regular)
    return adder.add(native, fs::open_for_reading(native));

  if (native.empty()) return;
  fs::DirectoryIterator files(native);
  while (const auto entry = files.next()) {
    if (entry->type != fs::FileType::Regular && entry->type != fs::FileType::SymbolicLink) continue;
    adder.add(entry->path, files.open(*entry));
  }
}

}  // namespace orra::tavloxio::part

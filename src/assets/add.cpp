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
using opc::model::Part;
using opc::model::PartName;
using opc::model::Relationship;
using opc::model::TargetMode;

namespace {

struct NewEntry {
  Part part;
  Relationship link;
};

/// Removes the entry that the new one replaces and gives the relationship type that it passes on. Nothing is
/// removed, and creating the new part will fail, when no relationship leads to a part of exactly this name.
std::optional<std::u16string> removeReplaced(opc::model::Package& package, const std::u16string& name) {
  if (!package.hasPart(PartName(name))) return std::nullopt;
  for (const Relationship& link : package.getRelationshipsByTarget(opc::model::URI(name))) {
    if (link.getTargetMode() == TargetMode::External) continue;
    removeUserEntry(package, link);
    return link.getType();
  }
  return std::nullopt;
}

ContentType contentTypeFor(const std::u16string& diskPath) {
  std::u16string type(tavlox::DataExportFile::contentType);
  return ContentType(type + u"+" + fs::extract_extension(diskPath));
}

NewEntry createEntry(const file::ScopedRef& ref, const std::u16string& name,
                     const std::u16string& relationshipType, const ContentType& contentType,
                     std::uint64_t size) {
  try {
    Part part = ref.package().createPart(PartName(name), contentType, {.size = size});
    return {part, ref.package().createInternalRelationship(relationshipType, opc::model::URI(name), "")};
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
  // Opened before anything is changed: a file that cannot be read must leave the package as it was.
  std::ifstream file = fs::open_for_reading(native);
  const std::uint64_t size = fs::status(native).size;
  std::optional<std::u16string> replacedType;
  if (options.Replace) replacedType = removeReplaced(ref.package(), name);
  NewEntry entry = createEntry(ref, name, replacedType.value_or(kUserAssetsRelationshipType),
                               contentTypeFor(native), size);
  try {
    opc::copyStream(file, *entry.part.getOutputStream(), size);
  } catch (...) {
    // Half an entry is taken out again, so that what was stored before it is saved. In the place of a
    // replaced one it stays, and the package library will not save it: the file on disk keeps the old entry.
    if (!replacedType) removeUserEntry(ref.package(), entry.link);
    throw;
  }
  return name;
}

}  // namespace orra::tavloxio::part

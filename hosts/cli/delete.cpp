// Removing entries. The module's deleteFile asks nobody: it removes whatever the search selects, the parts of
// the session too, and returns nothing of what it did. So the command lists the entries beforehand, refuses
// to touch anything outside /user unless it is forced, and lists them again afterwards to say what is gone.
#include <algorithm>
#include <functional>
#include <set>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/saving.h"
#include "platform/errors/exceptions.h"
#include "platform/errors/package_errors.h"
#include "platform/files/filesystem.h"
#include "platform/opc/package.h"

namespace tavlox::cli {
namespace {

using Texts = std::vector<std::u16string>;

bool isOutsideUserFolder(const std::u16string& entry) { return !entry.starts_with(kUserFolder); }

/// Whether the search is a bare name, not a path of the package. "~" counts as the module counts it.
bool isByName(const Request& request) {
  return !fl::filesystem::is_absolute_path_when_expanded(request.one("ENTRY"));
}

/// What the module will remove: of a bare name user files only, whatever else is listed under it. Where the
/// entries cannot be listed, the search stands for them.
Texts found(const zobs::COSInterfacePointer& file, const Request& request) {
  const std::u16string& search = request.one("ENTRY");
  Texts entries;
  try {
    entries = listedPaths(file, search);
  } catch (const std::exception&) {
    return {search};
  }
  // The module leaves them alone too: a bare name lists in all folders, but deletes below /user only.
  if (isByName(request)) std::erase_if(entries, isOutsideUserFolder);
  return entries;
}

/// Raises tavlox:cli:NotAUserFile for a path that selects anything outside /user. A bare name cannot.
void refuseOutsideUserFolder(Texts entries, const Request& request) {
  if (isByName(request) || request.has("--force")) return;
  // Left are those that would be lost; the message names them.
  std::erase_if(entries, std::not_fn(isOutsideUserFolder));
  if (entries.empty()) return;
  foundation::core::except::raise("tavlox:cli:NotAUserFile", request.one("FILE"), namesInMessage(entries));
}

/// Of entries that are to be removed, those with a part that anything but a user file's relationship leads
/// to.
Texts sessionPartsAmong(const Texts& entries, const std::u16string& path) {
  opc::model::Package package(path);
  package.open(opc::interfaces::OpenMode::Read);
  Texts parts;
  for (const std::u16string& entry : std::set(entries.begin(), entries.end())) {
    // The module does not tell relationship types, so the package is read itself.
    const auto links = package.getRelationshipsByTarget(opc::model::URI(entry));
    // A user file's own relationship is the usual one; any other shows that the session needs the part. An
    // external target lies outside the package.
    const bool isNeeded = std::ranges::any_of(links, [](const opc::model::Relationship& link) {
      return link.getTargetMode() != opc::model::TargetMode::External && link.getType() != kUserFileType;
    });
    try {
      if (isNeeded && package.hasPart(opc::model::PartName(entry))) parts.push_back(entry);
    } catch (const opc::Exception&) {
      // No part can be called so.
    }
  }
  return parts;
}

/// Of what was found before, that which is no longer listed.
Texts removedOf(Texts before, const zobs::COSInterfacePointer& file, const std::u16string& search) {
  try {
    const Texts left = listedPaths(file, search);
    std::erase_if(before, [kept = std::set<std::u16string_view>(left.begin(), left.end())](const auto& path) {
      return kept.contains(path);
    });
  } catch (const std::exception&) {
    // It is deleted, whether or not the package can be read a moment later.
  }
  return before;
}

ExitCode runDelete(const Request& request) {
  const std::u16string &path = request.one("FILE"), &search = request.one("ENTRY");
  const zobs::COSInterfacePointer file = openFile(request, path);
  const Texts before = found(file, request);
  refuseOutsideUserFolder(before, request);
  // Looked up before the save: afterwards no relationship leads there any more. Told after it: only then it
  // is so.
  const Texts lost = request.has("--force") ? sessionPartsAmong(before, path) : Texts();
  save(request, path, [&] { call(file, "deleteFile", {search}); });
  if (!lost.empty()) warn(request.format, "tavlox:cli:SessionPartsRemoved", path, namesInMessage(lost));
  printPaths(request, "Removed", removedOf(before, file, search));
  return ExitCode::Done;
}

}  // namespace

extern const Command kDelete = {
    .name = "delete",
    .summary = "Remove files of your own from a package",
    .examples = R"(  tavlox delete filter.tavlox notes.txt
  tavlox delete filter.tavlox /user/plots
)",
    .details =
        R"(Prints the full paths of the entries removed. A path of the package stands for an entry or for all in a
folder. A bare file name removes the user files of that name in all folders below /user. What lies
elsewhere belongs to the recorded session: it is removed only with --force.
)",
    .parameters = {{"FILE", Takes::One, "The package to change"},
                   {"ENTRY", Takes::One, "A path of the package or a file name"},
                   {"--force", Takes::Flag, "Remove also what lies outside /user"},
                   kWait},
    .run = runDelete,
    .check = checkWait,
};

}  // namespace tavlox::cli

#include "hosts/cli/entries.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "platform/errors/exceptions.h"

namespace tavlox::cli {
namespace {

/// A bare name deletes user files only, whatever else is listed under it.
void refuseOutsideUserFolder(const std::vector<Entry>& listed, const Request& request) {
  const std::vector<std::u16string> outside = outsideUserFolder(listed);
  if (outside.empty() || request.has("--force") || !isPackagePath(request.one("ENTRY"))) return;
  foundation::core::except::raise("tavlox:cli:NotAUserFile", request.one("FILE"), namesInMessage(outside));
}

std::vector<std::u16string> deleteEntries(const zobs::COSInterfacePointer& file, const Request& request) {
  const std::u16string& search = request.one("ENTRY");
  const std::vector<Entry> before = entriesOf(listing(file, search));
  refuseOutsideUserFolder(before, request);
  call(file, "deleteFile", {search});
  return removedBetween(before, entriesOf(listing(file, search)));
}

/// Entries whose part is missing cannot be listed, but they can be removed.
std::vector<std::u16string> deleteUnlisted(const zobs::COSInterfacePointer& file, const Request& request) {
  call(file, "deleteFile", {request.one("ENTRY")});
  return {request.one("ENTRY")};
}

bool canBeListed(const zobs::COSInterfacePointer& file, const std::u16string& search) {
  try {
    listing(file, search);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

ExitCode runDelete(const Request& request) {
  const std::u16string& path = request.one("FILE");
  const zobs::COSInterfacePointer file = openFile(request, path);
  const bool isBlind = request.has("--force") && !canBeListed(file, request.one("ENTRY"));
  const auto removed = isBlind ? deleteUnlisted(file, request) : deleteEntries(file, request);
  request.format == OutputFormat::Json ? printJson(path, "Removed", removed) : printLines(removed);
  return ExitCode::Done;
}

}  // namespace

const Command kDelete = {
    .name = "delete",
    .summary = "Remove files of your own from a package",
    .examples =
        "  tavlox delete filter.tavlox notes.txt\n"
        "  tavlox delete filter.tavlox /user/plots\n",
    .details =
        "Prints the full paths of the entries removed. A path of the package stands for an entry or for all "
        "in a\n"
        "folder. A bare file name removes the user files of that name in all folders below /user. What lies\n"
        "elsewhere belongs to the recorded session: it is removed only with --force.\n",
    .parameters = {{"FILE", Takes::One, "The package to change"},
                   {"ENTRY", Takes::One, "A path of the package or a file name"},
                   {"--force", Takes::Flag, "Remove also what lies outside /user"}},
    .run = runDelete,
};

}  // namespace tavlox::cli

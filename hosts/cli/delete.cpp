#include <set>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"

namespace tavlox::cli {
namespace {

using Texts = std::vector<std::u16string>;

/// A bare name deletes user files only, whatever else is listed under it.
void refuseOutsideUserFolder(const Texts& listed, const Request& request) {
  const bool isByName = !fl::filesystem::is_absolute_path_when_expanded(request.one("ENTRY"));
  if (isByName || request.has("--force")) return;
  Texts outside = listed;
  std::erase_if(outside, [](const std::u16string& path) { return path.starts_with(kUserFolder); });
  if (outside.empty()) return;
  foundation::core::except::raise("tavlox:cli:NotAUserFile", request.one("FILE"), namesInMessage(outside));
}

/// Deletes what the search finds, and gives the paths that are no longer listed.
Texts deleteEntries(const zobs::COSInterfacePointer& file, const Request& request) {
  const std::u16string& search = request.one("ENTRY");
  Texts removed = listedPaths(file, search);
  refuseOutsideUserFolder(removed, request);
  call(file, "deleteFile", {search});
  const Texts left = listedPaths(file, search);
  std::erase_if(removed, [kept = std::set<std::u16string_view>(left.begin(), left.end())](const auto& path) {
    return kept.contains(path);
  });
  return removed;
}

/// Entries whose part is missing cannot be listed, but they can be removed.
bool canBeListed(const zobs::COSInterfacePointer& file, const std::u16string& search) {
  try {
    listedPaths(file, search);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

ExitCode runDelete(const Request& request) {
  const std::u16string& search = request.one("ENTRY");
  const zobs::COSInterfacePointer file = openFile(request, request.one("FILE"));
  Texts removed;
  if (request.has("--force") && !canBeListed(file, search)) {
    call(file, "deleteFile", {search});
    removed = {search};
  } else {
    removed = deleteEntries(file, request);
  }
  printPaths(request, "Removed", removed);
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
                   {"--force", Takes::Flag, "Remove also what lies outside /user"}},
    .run = runDelete,
};

}  // namespace tavlox::cli

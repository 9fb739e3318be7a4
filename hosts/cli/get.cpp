#include <filesystem>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using foundation::core::except::raise;
using Texts = std::vector<std::u16string>;

/// A link counts even if it leads nowhere: what is written would appear where it points to.
bool isTaken(const std::u16string& path) {
  std::error_code unknown;
  return std::filesystem::exists(std::filesystem::symlink_status(fl::i18n::to_string(path), unknown));
}

/// The module overwrites without asking. Asked for by a path, an entry is written to that path below the
/// folder; by a bare name, only user files are written, to their path less /user/.
void refuseToOverwrite(const Texts& listed, const std::u16string& search, const std::u16string& folder) {
  const bool isByPath = fs::is_absolute_path_when_expanded(search);
  Texts taken;
  for (const std::u16string& entry : listed) {
    // "*" and an empty text list everything, but get no more than what is called so.
    if (!isByPath && (!entry.starts_with(kUserFolder) || fs::extract_filename(entry) != search)) continue;
    const std::u16string target = fs::concatenate(folder, entry.substr(isByPath ? 1 : kUserFolder.size()));
    if (isTaken(target)) taken.push_back(target);
  }
  if (!taken.empty()) raise("tavlox:cli:OutputExists", namesInMessage(taken));
}

ExitCode runGet(const Request& request) {
  const std::u16string& search = request.one("ENTRY");
  const std::u16string folder =
      request.has("--output") ? fs::absolute(request.one("--output")) : fs::current_path();
  const zobs::COSInterfacePointer file = openFile(request, request.one("FILE"));
  if (!request.has("--force")) refuseToOverwrite(listedPaths(file, search), search, folder);
  const corvan::HostArray cells =
      callForArray(file, "getFile", {search, std::u16string(u"OutputPath"), folder});
  Texts written;
  for (std::size_t i = 0; i < cells.elementCount(); ++i) written.emplace_back(cells.cellAt(i).text());
  // The module's answer for a folder whose owner may not write to it.
  if (written == Texts{u""}) raise("tavlox:save:FolderNotWritable", folder);
  printPaths(request, "Written", written);
  return ExitCode::Done;
}

}  // namespace

extern const Command kGet = {
    .name = "get",
    .summary = "Copy entries of a package to disk",
    .examples = R"(  tavlox get filter.tavlox notes.txt
  tavlox get filter.tavlox /user/plots -o copies
)",
    .details =
        R"(Prints the paths of the files written. A path of the package stands for an entry or for all in a folder,
and is kept below the output folder: /user/plots/a.png becomes copies/user/plots/a.png. A bare file
name takes the user files of that name, less /user: copies/plots/a.png. Missing folders are made.
)",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"ENTRY", Takes::One, "A path of the package or a file name"},
                   {"--output", Takes::Value, "The folder to write to; by default the current one", "FOLDER",
                    "-o"},
                   {"--force", Takes::Flag, "Overwrite files that exist"}},
    .run = runGet,
};

}  // namespace tavlox::cli

#include <filesystem>

#include "hosts/cli/entries.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using corvan::HostArray;
using foundation::core::except::raise;

/// A link counts even if it leads nowhere: what is written would appear where it points to.
bool isTaken(const std::u16string& path) {
  std::error_code unknown;
  const auto status = std::filesystem::symlink_status(fl::i18n::to_string(path), unknown);
  return std::filesystem::exists(status);
}

void refuseToOverwrite(const zobs::COSInterfacePointer& file, const std::u16string& search,
                       const std::u16string& folder) {
  std::vector<std::u16string> taken;
  for (const std::u16string& target : extractionTargets(entriesOf(listing(file, search)), search, folder)) {
    if (isTaken(target)) taken.push_back(target);
  }
  if (!taken.empty()) raise("tavlox:cli:OutputExists", namesInMessage(taken));
}

std::vector<std::u16string> textsOf(const HostArray& cells) {
  std::vector<std::u16string> texts;
  for (std::size_t i = 0; i < cells.elementCount(); ++i) texts.emplace_back(cells.cellAt(i).text());
  return texts;
}

ExitCode runGet(const Request& request) {
  const std::u16string &path = request.one("FILE"), &search = request.one("ENTRY");
  const std::u16string folder = request.has("--output") ? fl::filesystem::absolute(request.one("--output"))
                                                        : fl::filesystem::current_path();
  const zobs::COSInterfacePointer file = openFile(request, path);
  if (!request.has("--force")) refuseToOverwrite(file, search, folder);
  const auto written =
      textsOf(std::get<HostArray>(call(file, "getFile", {search, std::u16string(u"OutputPath"), folder})));
  // The module's answer for a folder whose owner may not write to it.
  if (written.size() == 1 && written.front().empty()) raise("tavlox:save:FolderNotWritable", folder);
  request.format == OutputFormat::Json ? printJson(path, "Written", written) : printLines(written);
  return ExitCode::Done;
}

}  // namespace

const Command kGet = {
    .name = "get",
    .summary = "Copy entries of a package to disk",
    .examples =
        "  tavlox get filter.tavlox notes.txt\n"
        "  tavlox get filter.tavlox /user/plots -o copies\n",
    .details =
        "Prints the paths of the files written. A path of the package stands for an entry or for all in a "
        "folder,\n"
        "and is kept below the output folder: /user/plots/a.png becomes copies/user/plots/a.png. A bare "
        "file\n"
        "name takes the user files of that name, less /user: copies/plots/a.png. Missing folders are made.\n",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"ENTRY", Takes::One, "A path of the package or a file name"},
                   {"--output", Takes::Value, "The folder to write to; by default the current one", "FOLDER",
                    "-o"},
                   {"--force", Takes::Flag, "Overwrite files that exist"}},
    .run = runGet,
};

}  // namespace tavlox::cli

#include <fmt/format.h>

#include "hosts/cli/entries.h"
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

/// The files that lie directly in a folder; links are taken for files, as the module does.
Texts filesIn(const std::u16string& folder) {
  fs::DirectoryIterator entries(folder);
  if (!entries.isOpen()) raise("tavlox:cli:CannotReadFolder", folder);
  Texts files;
  while (const auto entry = entries.next()) {
    if (entry->type == fs::FileType::Regular || entry->type == fs::FileType::SymbolicLink)
      files.push_back(entry->path);
  }
  if (files.empty()) raise("tavlox:cli:NoFilesInFolder", folder);
  return files;
}

/// What the module will store of a path on disk. It passes over in silence what it cannot store; people are
/// told.
Texts filesOf(const std::u16string& path) {
  if (!fs::exists(path)) raise("tavlox:general:FileNotFound", path);
  switch (fs::status(path).type) {
    case fs::FileType::Regular:
      return {path};
    case fs::FileType::Directory:
      return filesIn(path);
    default:
      raise("tavlox:cli:NeitherFileNorFolder", path);
  }
}

struct Addition {
  std::u16string diskPath;
  Texts storedNames;
};

/// Every path is looked at before anything is stored.
std::vector<Addition> planAdditions(const Request& request) {
  const std::u16string folder = request.has("--path") ? request.one("--path") : std::u16string();
  std::vector<Addition> additions;
  for (const std::u16string& path : request.all("PATH")) {
    Addition& addition = additions.emplace_back(Addition{.diskPath = path, .storedNames = {}});
    for (const std::u16string& file : filesOf(path)) addition.storedNames.push_back(storedName(folder, file));
  }
  return additions;
}

std::vector<zobs::Value> inputsFor(const Request& request, const std::u16string& diskPath) {
  std::vector<zobs::Value> inputs{diskPath};
  const auto addOption = [&inputs](std::u16string name, std::u16string value) {
    inputs.emplace_back(std::move(name));
    inputs.emplace_back(std::move(value));
  };
  if (request.has("--path")) addOption(u"Path", request.one("--path"));
  if (request.has("--replace")) addOption(u"Replace", u"enable");
  return inputs;
}

/// What was stored although a later path failed.
std::u16string storedBeforeHint(std::size_t paths, const Addition& failed) {
  std::string hint;
  if (paths == 1) hint = "the path before it is stored";
  if (paths > 1) hint = fmt::format("the {} paths before it are stored", paths);
  if (failed.storedNames.size() > 1) {
    hint += fmt::format("{}some files of the folder may be stored, \"tavlox list\" shows which",
                        hint.empty() ? "" : "; ");
  }
  return fl::i18n::to_ustring(hint);
}

ExitCode runAdd(const Request& request) {
  const std::u16string& path = request.one("FILE");
  const zobs::COSInterfacePointer file = openFile(request, path);
  const std::vector<Addition> additions = planAdditions(request);
  Texts stored;
  ExitCode result = ExitCode::Done;
  for (const Addition& addition : additions) {
    try {
      call(file, "addFile", inputsFor(request, addition.diskPath));
    } catch (const std::exception&) {
      const auto done = static_cast<std::size_t>(&addition - additions.data());
      report(std::current_exception(), request.format, path, storedBeforeHint(done, addition));
      result = ExitCode::Failed;
      break;
    }
    stored.insert(stored.end(), addition.storedNames.begin(), addition.storedNames.end());
  }
  if (stored.empty()) return result;
  request.format == OutputFormat::Json ? printJson(path, "Added", stored) : printLines(stored);
  return result;
}

}  // namespace

const Command kAdd = {
    .name = "add",
    .summary = "Store files of your own in a package",
    .examples =
        "  tavlox add filter.tavlox notes.txt filter.cir\n"
        "  tavlox add filter.tavlox plots --path /user/plots\n"
        "  tavlox add filter.tavlox notes.txt --replace\n",
    .details =
        "Prints the full paths of the entries made. A file is stored under its own name, without its "
        "folders. "
        "Of a\n"
        "folder the files directly in it are stored; folders in it are not gone into. The paths are stored "
        "one\n"
        "after the other: if one fails, those before it stay.\n",
    .parameters = {{"FILE", Takes::One, "The package to change"},
                   {"PATH", Takes::OneOrMore, "The files and folders to store"},
                   {"--path", Takes::Value, "The folder of the package to store them in; by default /user",
                    "FOLDER"},
                   {"--replace", Takes::Flag, "Replace entries of the same path"}},
    .run = runAdd,
};

}  // namespace tavlox::cli

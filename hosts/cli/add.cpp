#include <fmt/format.h>

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

/// The files that the module will store of a path on disk. It passes over in silence what it cannot store;
/// people are told.
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
  Texts entries;  ///< full paths; listings do not tell an entry that was replaced from one that was left
};

/// Every path is looked at before anything is stored.
std::vector<Addition> planAdditions(const Request& request) {
  std::u16string folder = request.oneOr("--path", u"");
  if (folder.empty()) folder = kUserFolder;
  std::vector<Addition> additions;
  for (const std::u16string& path : request.all("PATH")) {
    Addition addition{.diskPath = path, .entries = {}};
    for (const std::u16string& file : filesOf(path))
      addition.entries.push_back(fs::concatenate(folder, fs::extract_filename(file)));
    additions.push_back(std::move(addition));
  }
  return additions;
}

void store(const zobs::COSInterfacePointer& file, const Request& request, const std::u16string& diskPath) {
  std::vector<zobs::Value> inputs{diskPath};
  const auto addOption = [&](const char16_t* name, std::u16string value) {
    inputs.insert(inputs.end(), {std::u16string(name), std::move(value)});
  };
  if (request.has("--path")) addOption(u"Path", request.one("--path"));
  if (request.has("--replace")) addOption(u"Replace", u"enable");
  call(file, "addFile", std::move(inputs));
}

/// What was stored although a later path failed.
std::u16string storedBeforeHint(std::size_t paths, const Addition& failed) {
  std::string hint;
  if (paths == 1) hint = "the path before it is stored";
  if (paths > 1) hint = fmt::format("the {} paths before it are stored", paths);
  if (failed.entries.size() > 1) {
    if (!hint.empty()) hint += "; ";
    hint += "some files of the folder may be stored, \"tavlox list\" shows which";
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
      store(file, request, addition.diskPath);
    } catch (const std::exception&) {
      const auto done = static_cast<std::size_t>(&addition - additions.data());
      report(request.format, path, storedBeforeHint(done, addition));
      result = ExitCode::Failed;
      break;
    }
    stored.insert(stored.end(), addition.entries.begin(), addition.entries.end());
  }
  if (!stored.empty()) printPaths(request, "Added", stored);
  return result;
}

}  // namespace

extern const Command kAdd = {
    .name = "add",
    .summary = "Store files of your own in a package",
    .examples = R"(  tavlox add filter.tavlox notes.txt filter.cir
  tavlox add filter.tavlox plots --path /user/plots
  tavlox add filter.tavlox notes.txt --replace
)",
    .details =
        R"(Prints the full paths of the entries made. A file is stored under its own name, without its folders. Of a
folder the files directly in it are stored, and those of its subfolders are not. The paths are stored one
after the other: if one fails, those before it stay.
)",
    .parameters = {{"FILE", Takes::One, "The package to change"},
                   {"PATH", Takes::OneOrMore, "The files and folders to store"},
                   {"--path", Takes::Value, "The folder of the package to store them in; by default /user",
                    "FOLDER"},
                   {"--replace", Takes::Flag, "Replace entries of the same path"}},
    .run = runAdd,
};

}  // namespace tavlox::cli

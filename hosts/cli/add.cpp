#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/saving.h"
#include "hosts/cli/temporary_folder.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using foundation::core::except::except_with_causes;
using foundation::core::except::raise;
using Texts = std::vector<std::u16string>;

/// What one path on disk comes to.
struct Addition {
  std::u16string diskPath;
  Texts files;                               ///< that can be read
  std::vector<except_with_causes> failures;  ///< of those that cannot, one each
  bool isFolder = false;
};

/// Opened as the module will open it: only that tells for certain.
void addIfReadable(const std::u16string& file, Addition& addition) {
  try {
    if (!fs::exists(file)) raise("tavlox:general:FileNotFound", file);
    static_cast<void>(fs::open_for_reading(file));
    addition.files.push_back(file);
  } catch (const except_with_causes& failure) {
    addition.failures.push_back(failure);
  }
}

/// Takes the files that lie directly in a folder; links are taken for files, as the module does.
void addFilesIn(const std::u16string& folder, Addition& addition) {
  fs::DirectoryIterator entries(folder);
  if (!entries.isOpen()) raise("tavlox:cli:CannotReadFolder", folder);
  addition.isFolder = true;
  for (;;) {
    try {
      const auto entry = entries.next();
      if (!entry) break;
      if (entry->type == fs::FileType::Regular || entry->type == fs::FileType::SymbolicLink)
        addIfReadable(entry->path, addition);
    } catch (const fs::Error& failure) {
      if (failure.GetID() != "fl:filesystem:EntryNotUtf8") throw;
      addition.failures.push_back(failure);
    }
  }
  if (addition.files.empty() && addition.failures.empty()) raise("tavlox:cli:NoFilesInFolder", folder);
}

bool isLink(const std::u16string& path) {
  std::error_code unknown;
  return std::filesystem::is_symlink(std::filesystem::path(fl::i18n::to_string(path)), unknown);
}

/// The files that the module will store of a path on disk. It passes over in silence what it cannot store;
/// people are told.
Addition additionOf(const std::u16string& path) {
  Addition addition{.diskPath = path, .files = {}, .failures = {}};
  // A link that leads nowhere is a file that cannot be read; any other name that is missing is a mistake.
  const bool exists = fs::exists(path);
  if (!exists && !isLink(path)) raise("tavlox:general:FileNotFound", path);
  switch (exists ? fs::status(path).type : fs::FileType::Regular) {
    case fs::FileType::Regular:
      addIfReadable(path, addition);
      return addition;
    case fs::FileType::Directory:
      addFilesIn(path, addition);
      return addition;
    default:
      raise("tavlox:cli:NeitherFileNorFolder", path);
  }
}

/// Calls the module, which saves the package once for the whole path.
void store(const zobs::COSInterfacePointer& file, const Request& request, const std::u16string& diskPath) {
  std::vector<zobs::Value> inputs{diskPath};
  const auto addOption = [&](const char16_t* name, std::u16string value) {
    inputs.insert(inputs.end(), {std::u16string(name), std::move(value)});
  };
  if (request.has("--path")) addOption(u"Path", request.one("--path"));
  if (request.has("--replace")) addOption(u"Replace", u"enable");
  save(request, request.one("FILE"), [&] { call(file, "addFile", inputs); });
}

/// The module stores all of a folder up to the first file that it cannot read. So where there is such a file
/// it is given a folder of links to the others: a call for each would save the package as many times.
void storeFiles(const zobs::COSInterfacePointer& file, const Request& request, const Addition& addition) {
  if (addition.files.empty()) return;
  if (addition.failures.empty()) return store(file, request, addition.diskPath);
  const TemporaryFolder links(fs::temp_directory_path());
  for (const std::u16string& path : addition.files) {
    const std::u16string link = fs::concatenate(links.path(), fs::extract_filename(path));
    std::filesystem::create_symlink(fl::i18n::to_string(fs::absolute(path)), fl::i18n::to_string(link));
  }
  try {
    store(file, request, links.path());
  } catch (const except_with_causes& failure) {
    throw links.inTermsOf(addition.diskPath, failure);
  }
}

/// What was stored although a later path failed.
std::u16string storedBeforeHint(std::size_t paths, const Addition& failed) {
  std::string hint;
  if (paths == 1) hint = "the path before it is stored";
  if (paths > 1) hint = fmt::format("the {} paths before it are stored", paths);
  if (failed.isFolder) {
    if (!hint.empty()) hint += "; ";
    hint += "some files of the folder may be stored, \"tavlox list\" shows which";
  }
  return fl::i18n::to_ustring(hint);
}

ExitCode runAdd(const Request& request) {
  const std::u16string& path = request.one("FILE");
  const zobs::COSInterfacePointer file = openFile(request, path);
  const std::u16string asked = request.oneOr("--path", u"");
  const std::u16string folder = asked.empty() ? std::u16string(kUserFolder) : asked;
  // Every path is looked at before anything is stored.
  std::vector<Addition> additions;
  for (const std::u16string& diskPath : request.all("PATH")) additions.push_back(additionOf(diskPath));
  Texts stored;  // full paths; listings do not tell an entry that was replaced from one that was left
  std::size_t storedPaths = 0;
  ExitCode result = ExitCode::Done;
  for (const Addition& addition : additions) {
    for (const except_with_causes& failure : addition.failures) tellError(request.format, failure);
    if (!addition.failures.empty()) result = ExitCode::Failed;
    try {
      storeFiles(file, request, addition);
    } catch (const std::exception&) {
      report(request.format, path, storedBeforeHint(storedPaths, addition));
      result = ExitCode::Failed;
      break;
    }
    if (!addition.files.empty()) ++storedPaths;
    for (const std::u16string& name : addition.files)
      stored.push_back(fs::concatenate(folder, fs::extract_filename(name)));
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
after the other: if one fails, those before it stay. A file that cannot be read and a link that leads
nowhere are reported, the others are still stored, and the exit code is 1.
)",
    .parameters = {{"FILE", Takes::One, "The package to change"},
                   {"PATH", Takes::OneOrMore, "The files and folders to store"},
                   {"--path", Takes::Value, "The folder of the package to store them in; by default /user",
                    "FOLDER"},
                   {"--replace", Takes::Flag, "Replace entries of the same path"},
                   kWait},
    .run = runAdd,
    .check = checkWait,
};

}  // namespace tavlox::cli

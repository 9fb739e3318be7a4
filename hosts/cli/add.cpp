// Storing files of people's own. The module's addFile takes one file, or a folder of which it stores the
// files that lie directly in it, and saves the package once. It passes over what is neither a file nor a
// link, and stops at the first file that it cannot read. People expect otherwise: what is wrong with any path
// is to be known before anything is stored, and one bad file must not keep the others out. So each path is
// first turned into an Addition, the list of files that will be stored and of those that cannot be, and then
// stored by one call of addFile. A folder may hold very many files, of which nearly always all can be read:
// which cannot is found out only when the module fails on one. They are taken out then, and another call
// stores what the first did not come to.
#include <filesystem>
#include <set>

#include <fmt/format.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/saving.h"
#include "hosts/cli/temporary_folder.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/opc/package.h"
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
  bool isFolder = false;                     ///< or a link to one; of a folder a part may be stored
};

/// Adds the file to those that can be read or to the failures. It is opened as the module will open it:
/// access rights alone do not tell whether that works.
void addIfReadable(const std::u16string& file, Addition& addition) {
  try {
    // A link that leads nowhere gets the same identifier as any other missing file.
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
      if (entry->type != fs::FileType::Regular && entry->type != fs::FileType::SymbolicLink) continue;
      // Not opened here as well: there may be very many. One that cannot be opened is passed over later, as
      // one that cannot be read to its end.
      if (entry->type == fs::FileType::Regular) {
        addition.files.push_back(entry->path);
      } else {
        addIfReadable(entry->path, addition);
      }
    } catch (const fs::Error& failure) {
      // The iterator goes on behind a name that is not UTF-8. No other failure can be passed over: there
      // would be no end to it.
      if (failure.GetID() != "fl:filesystem:EntryNotUtf8") throw;
      addition.failures.push_back(failure);
    }
  }
  // The module would report success. Most often the wrong folder was given, or only its subfolders hold
  // files.
  if (addition.files.empty() && addition.failures.empty()) raise("tavlox:cli:NoFilesInFolder", folder);
}

/// Whether the name itself is a symbolic link, wherever it leads; fs::status follows links.
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
  // Followed if it is a link: a link to a folder is stored as the folder.
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
  // Options are given to addFile as pairs of a name and a value, behind the path.
  std::vector<zobs::Value> inputs{diskPath};
  const auto addOption = [&](const char16_t* name, std::u16string value) {
    inputs.insert(inputs.end(), {std::u16string(name), std::move(value)});
  };
  if (request.has("--path")) addOption(u"Path", request.one("--path"));
  if (request.has("--replace")) addOption(u"Replace", u"enable");
  save(request, request.one("FILE"), [&] { call(file, "addFile", inputs); });
}

/// The module stores all of a folder up to the first file that it cannot read. So where only some of an
/// addition's files are to be stored it is given a folder of links to these: a call for each would save the
/// package as many times.
void storeFiles(const zobs::COSInterfacePointer& file, const Request& request, const Addition& addition,
                const Texts& files) {
  if (files.empty()) return;
  if (addition.failures.empty()) return store(file, request, addition.diskPath);
  // Links and not copies: they take no space, and the module follows them and names each entry after its
  // link.
  const TemporaryFolder links(fs::temp_directory_path());
  for (const std::u16string& path : files) {
    // The target is absolute: a relative one would be looked for beside the link.
    const std::u16string link = fs::concatenate(links.path(), fs::extract_filename(path));
    std::filesystem::create_symlink(fl::i18n::to_string(fs::absolute(path)), fl::i18n::to_string(link));
  }
  try {
    store(file, request, links.path());
  } catch (const except_with_causes& failure) {
    // The folder of links is gone when this is read.
    throw links.inTermsOf(addition.diskPath, failure);
  }
}

/// The full path of the entry that a file on disk is stored as.
std::u16string entryOf(const Request& request, const std::u16string& file) {
  const std::u16string folder = request.oneOr("--path", u"");
  return fs::concatenate(folder.empty() ? std::u16string(kUserFolder) : folder, fs::extract_filename(file));
}

bool hasEntry(const opc::model::Package& package, const std::u16string& entry) {
  const auto name = opc::model::PartName::tryFromText(entry);
  return name && package.hasPart(*name);
}

/// Why files cannot be opened, of those that cannot.
std::vector<except_with_causes> failuresToOpen(const Texts& files) {
  Addition tried{.diskPath = {}, .files = {}, .failures = {}};
  for (const std::u16string& file : files) addIfReadable(file, tried);
  return tried.failures;
}

/// Takes out of `files` those that could not be opened or whose reading broke off, and what the module stored
/// before it came there. The errors join the addition's failures and are told. False if it is another error,
/// or about no such file.
bool passOver(const except_with_causes& failure, const Request& request, const opc::model::Package& before,
              Addition& addition, Texts& files) {
  constexpr std::string_view kBrokeOff = "opc:stream:CannotRead";
  const bool isUnopened = failure.GetID() == "fl:filesystem:OpenFailed";
  if (!isUnopened && failure.GetID() != kBrokeOff) return false;
  std::vector<except_with_causes> failures;
  // Where one cannot be opened, others may not either. The module would tell of one after each save.
  if (isUnopened) failures = failuresToOpen(files);
  if (failures.empty()) failures.push_back(failure);
  // Found by the name alone: in a folder of links a file has another path.
  std::set<std::u16string> names;
  for (const except_with_causes& one : failures)
    names.insert(fs::extract_filename(one.GetArguments().at(one.GetID() == kBrokeOff ? 1 : 0)));
  const auto isUnread = [&](const std::u16string& file) {
    return names.contains(fs::extract_filename(file));
  };
  if (std::erase_if(files, isUnread) == 0) return false;
  std::erase_if(addition.files, isUnread);
  for (const except_with_causes& one : failures) {
    addition.failures.push_back(one);
    tellError(request.format, one);
  }
  // Nothing shows which entries were replaced already; replacing one by the same data again changes nothing.
  if (request.has("--replace")) return true;
  opc::model::Package after(request.one("FILE"));
  after.open(opc::interfaces::OpenMode::Read);
  // What was there before stays in the list, so that the module says that it is in the way.
  std::erase_if(files, [&](const std::u16string& file) {
    const std::u16string entry = entryOf(request, file);
    return hasEntry(after, entry) && !hasEntry(before, entry);
  });
  return true;
}

/// Stores all files of the addition that can be read to their end.
void storeReadable(const zobs::COSInterfacePointer& file, const Request& request, Addition& addition) {
  opc::model::Package before(request.one("FILE"));
  // The module finds its directory read already.
  before.open(opc::interfaces::OpenMode::Read);
  for (Texts files = addition.files;;) {
    try {
      return storeFiles(file, request, addition, files);
    } catch (const except_with_causes& failure) {
      if (!passOver(failure, request, before, addition, files)) throw;
    }
  }
}

/// What was stored although a later path failed, as the hint of that failure: every path is a save of its
/// own, and those made are not taken back. Empty if nothing was.
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
  // Opened first: where the package cannot be read, that is the error to tell, whatever is wrong with the
  // paths.
  const zobs::COSInterfacePointer file = openFile(request, path);
  // Every path is looked at before anything is stored: a misspelt one must not leave half of the work done.
  std::vector<Addition> additions;
  for (const std::u16string& diskPath : request.all("PATH")) additions.push_back(additionOf(diskPath));
  Texts stored;  // full paths; listings do not tell an entry that was replaced from one that was left
  std::size_t storedPaths = 0;
  ExitCode result = ExitCode::Done;
  for (Addition& addition : additions) {
    // Told one by one, before the save: each names a file that will be missing in the package.
    for (const except_with_causes& failure : addition.failures) tellError(request.format, failure);
    try {
      storeReadable(file, request, addition);
    } catch (const std::exception&) {
      report(request.format, path, storedBeforeHint(storedPaths, addition));
      // The paths behind it are not tried, so that the hint says exactly what is in the package.
      result = ExitCode::Failed;
      break;
    }
    if (!addition.failures.empty()) result = ExitCode::Failed;
    // A path of which no file could be read was passed over without a save.
    if (!addition.files.empty()) ++storedPaths;
    for (const std::u16string& name : addition.files) stored.push_back(entryOf(request, name));
  }
  // Also after a failure, so that a script learns what is in the package now.
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

// Extracting entries. The module's getFile creates files at once, writes over what is there, and on a failure
// leaves what it has written so far. This command promises more: a file appears complete or not at all,
// nothing is replaced unless asked for, nothing is written outside the output folder, and one bad entry does
// not keep the others from people. The steps: list what the search finds, refuse what is in the way, let the
// module write into a temporary folder, and move what is complete to its path: a folder that is not there yet
// as a whole, any other file by file. The temporary folder lies in the output folder, so that moving is a
// rename within one file system. Between the two the data is synced: after a power failure a name must not
// lead to an empty file, least where it led to an older one before.
//
// The output folder may be shared with other users. Below it every path is therefore walked by descriptors,
// folder by folder without following links: a path that was looked at may lead elsewhere a moment later.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <set>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/temporary_folder.h"
#include "platform/errors/exceptions.h"
#include "platform/errors/package_errors.h"
#include "platform/files/descriptor.h"
#include "platform/files/filesystem.h"
#include "platform/opc/package.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using fl::i18n::to_string;
using foundation::core::except::except_with_causes;
using foundation::core::except::raise;
using Texts = std::vector<std::u16string>;

/// Raises tavlox_io:general:InvalidOutputPath, as the module does, with the reason as the cause.
[[noreturn]] void raiseNotWritten(const std::u16string& path, const std::u16string& reason,
                                  fl::i18n::MessageId<2> failure = "fl:filesystem:ReplaceFailed") {
  const fs::Error cause(failure, {path, reason});
  throw except_with_causes("tavlox_io:general:InvalidOutputPath", {path}, {cause});
}
/// With the system's words for an errno.
[[noreturn]] void raiseNotWritten(const std::u16string& path, int error,
                                  fl::i18n::MessageId<2> failure = "fl:filesystem:ReplaceFailed") {
  raiseNotWritten(path, fl::i18n::to_ustring(fs::systemReason(error)), failure);
}

/// A finished file, by its paths below the temporary folder and below the output folder. They differ for an
/// entry that was extracted by itself: then its own path was asked for, not the bare name.
struct Finished {
  std::u16string source, relative;
};

/// Where finished files come from. Its folders can be moved whole if nothing else is in them.
struct FinishedTree {
  int folder;
  bool canMoveFolders;
};

/// The folder that the files go below. A link given as the folder is followed; below it none is. Folders that
/// are missing are made with the rights that the user gives new ones.
class OutputFolder {
 public:
  explicit OutputFolder(std::u16string path) : path_(std::move(path)) {
    // Noted before they are made: the ones that this run makes are taken back if nothing comes into them.
    for (std::u16string above = path_; !fs::exists(above); above = fs::extract_parent_path(above))
      created_.push_back(above);
    try {
      fs::create_directories(path_);
    } catch (const fs::Error& failure) {
      throw except_with_causes("tavlox_io:general:InvalidOutputPath", {path_}, {failure});
    }
    // Asked before the module is: it would answer such a folder with an empty text and no error.
    if (!fs::status(path_).has(fs::Permissions::OwnerWrite)) raise("tavlox:save:FolderNotWritable", path_);
    folder_ = fs::Descriptor(open(to_string(path_).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder_) raiseNotWritten(path_, errno);
  }
  /// Takes back the folders it made, unless there is something in them.
  ~OutputFolder() {
    // rmdir removes empty folders only, so nothing has to be asked.
    for (const std::u16string& created : created_) rmdir(to_string(created).c_str());
  }
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;

  const std::u16string& path() const { return path_; }
  bool isEmpty() const {
    std::error_code failure;
    return std::filesystem::is_empty(to_string(path_), failure);
  }
  std::u16string pathOf(const std::u16string& relative) const { return fs::concatenate(path_, relative); }

  /// What is at a path below the folder now, or the first link on the way to it.
  struct Found {
    std::u16string path;
    struct stat status;
  };
  std::optional<Found> find(const std::u16string& relative) {
    // Nothing lies below a folder that is not there, and most entries of a package lie in few folders.
    if (!missing_.empty() && relative.starts_with(missing_)) return std::nullopt;
    struct stat status {};
    // Each folder on the way is looked at by itself: fstatat would follow links before the last name.
    for (std::size_t end = relative.find(u'/');; end = relative.find(u'/', end + 1)) {
      const std::u16string step = relative.substr(0, end);
      if (fstatat(folder_.get(), to_string(step).c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (end != relative.npos) missing_ = step + u'/';
        return std::nullopt;
      }
      if (end == relative.npos || S_ISLNK(status.st_mode)) return Found{pathOf(step), status};
    }
  }

  /// What becomes of a file that is already at the path.
  enum class Existing { Keep, Replace };
  /// Moves a finished file to its path below the folder in one step, alone or with the folder that it is in.
  void take(const FinishedTree& from, const Finished& file, Existing existing) {
    const std::u16string& relative = file.relative;
    // A file may have been found more than once.
    if (!enterParent(from, relative) || !taken_.insert(relative).second) return;
    const std::string name = to_string(file.source), target = to_string(fs::extract_filename(relative));
    struct stat old {};
    const bool replaces = existing == Existing::Replace &&
                          fstatat(parent_.get(), target.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0 &&
                          S_ISREG(old.st_mode);
    // Who may read a file is its owner's choice, whatever is in it.
    if (replaces) fchmodat(from.folder, name.c_str(), old.st_mode & 07777, 0);
    // Looking and renaming in one step: a file that appears between the two would be lost.
    const unsigned flags = existing == Existing::Keep ? RENAME_NOREPLACE : 0;
    int done = renameat2(from.folder, name.c_str(), parent_.get(), target.c_str(), flags);
    // Not every file system can look and rename in one step.
    if (done != 0 && flags != 0 && errno == EINVAL && !find(relative))
      done = renameat(from.folder, name.c_str(), parent_.get(), target.c_str());
    if (done == 0) return;
    // Somebody else made it after the look at the beginning.
    if (errno == EEXIST) raise("tavlox:cli:OutputExists", pathOf(relative));
    raiseNotWritten(pathOf(relative), errno);
  }

 private:
  /// Opens the folder that a file goes into, unless the one before went there too. False if it came here as a
  /// whole, and the file with it.
  bool enterParent(const FinishedTree& from, const std::u16string& relative) {
    std::u16string name = fs::extract_parent_path(relative);
    if (parentName_ == name) return static_cast<bool>(parent_);
    missing_.clear();  // from here on folders are made
    parentName_ = std::move(name);
    parent_.reset();
    if (comesWhole(from, to_string(parentName_->substr(0, parentName_->find(u'/'))))) return false;
    openParent(relative);
    return true;
  }

  /// Moves a folder that lies directly below the output folder, unless something of its name is there or the
  /// system cannot look and rename in one step: then the files in it go singly. So do those of folders
  /// further below: each of these takes its rights from the one that it is made in.
  bool comesWhole(const FinishedTree& from, const std::string& name) {
    if (moved_.contains(name)) return true;
    const bool isMoved =
        from.canMoveFolders && !name.empty() &&
        renameat2(from.folder, name.c_str(), folder_.get(), name.c_str(), RENAME_NOREPLACE) == 0;
    if (isMoved) moved_.insert(name);
    return isMoved;
  }

  /// Step by step: between a look at a path and its use somebody could put a link there.
  void openParent(const std::u16string& relative) {
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    parent_ = fs::Descriptor(openat(folder_.get(), ".", kFlags));
    for (std::size_t start = 0; start < parentName_->size();) {
      const std::size_t end = std::min(parentName_->find(u'/', start), parentName_->size());
      const std::string step = to_string(parentName_->substr(start, end - start));
      // Made or found, it must be a folder when it is opened: O_NOFOLLOW refuses a link that came between.
      const bool exists = mkdirat(parent_.get(), step.c_str(), 0777) == 0 || errno == EEXIST;
      if (exists) parent_ = fs::Descriptor(openat(parent_.get(), step.c_str(), kFlags));
      if (!exists || !parent_) raiseNotWritten(pathOf(relative), errno);
      start = end + 1;
    }
  }

  std::u16string path_;
  Texts created_;  // the innermost first
  fs::Descriptor folder_;
  std::u16string missing_;  // the folder that was found missing last, with its "/"
  // Kept open, since most entries of a package lie in few folders; none if it came whole.
  fs::Descriptor parent_;
  std::optional<std::u16string> parentName_;  // relative to the folder
  std::set<std::string> moved_;               // folders
  std::set<std::u16string> taken_;            // files
};

/// An entry that the search finds, and where it goes below the output folder: asked for by a path, an entry
/// keeps its own; asked for by a bare name, only user files are meant, less /user/.
struct Wanted {
  std::u16string entry, relative;
};

/// The entries that a search stands for.
Texts entriesMeant(const zobs::COSInterfacePointer& file, const std::u16string& search) {
  const bool isByPath = fs::is_absolute_path_when_expanded(search);
  Texts entries = listedPaths(file, search);
  // "*" and an empty text list everything, but get no more than what is called so.
  std::erase_if(entries, [&](const std::u16string& entry) {
    return !isByPath && (!entry.starts_with(kUserFolder) || fs::extract_filename(entry) != search);
  });
  return entries;
}

/// What leads out of the package has no place below a folder, and no part.
bool hasPlace(const std::u16string& entry) {
  return entry.starts_with(u'/') && (entry + u'/').find(u"/../") == entry.npos;
}

/// All that an error and its causes name. There may be a cause for each of very many entries, so it is a set.
void addNamed(const except_with_causes& error, std::set<std::u16string>& named) {
  named.insert(error.GetArguments().begin(), error.GetArguments().end());
  for (const except_with_causes& cause : error.causes()) addNamed(cause, named);
}

/// Whether the files cannot be written, rather than one entry not be read.
bool isAboutDisk(const except_with_causes& error) {
  if (error.GetID() != "tavlox_io:general:InvalidOutputPath") return false;
  if (error.causes().empty()) return true;
  const std::string& cause = error.causes().front().GetID();
  return cause == "opc:stream:CannotWrite" || cause.starts_with("fl:");
}

/// One run of the command. The module writes without asking and as it goes, so it is given a temporary folder
/// in the output folder, on the same file system; what is complete is moved from there.
class Extraction {
 public:
  explicit Extraction(const Request& request)
      : request_(request),
        file_(openFile(request, request.one("FILE"))),
        folder_(request.has("--output") ? fs::absolute(request.one("--output")) : fs::current_path()) {
    refuseTargets();
    temporary_.emplace(folder_.path());
    folderMode_ = modeOfNewFolders();
  }

  /// Extracts everything at once if it can: each call of the module opens the package again and walks over
  /// all of its entries.
  ExitCode run() {
    std::vector<Finished> finished;
    for (const std::u16string& search : request_.all("ENTRY")) {
      try {
        for (std::u16string& path : extract(search)) finished.push_back({path, std::move(path)});
      } catch (const except_with_causes& failure) {
        const std::vector<Wanted> wanted = wantedEntries(search);
        const bool isAlone = wanted.size() < 2 && request_.all("ENTRY").size() < 2;
        if (isAlone || isAboutDisk(failure)) throw;
        for (Finished& file : extractTheSound(failure, wanted)) finished.push_back(std::move(file));
      }
    }
    const Texts written = place(finished);
    if (!written.empty()) printPaths(request_, "Written", written);
    return result_;
  }

 private:
  std::vector<Wanted> wantedEntries(const std::u16string& search) const {
    const std::size_t cut = fs::is_absolute_path_when_expanded(search) ? 1 : kUserFolder.size();
    std::vector<Wanted> wanted;
    for (const std::u16string& entry : entriesMeant(file_, search))
      wanted.push_back({entry, entry.substr(cut)});
    return wanted;
  }

  /// Before anything is extracted, which may take long.
  void refuseTargets() {
    // Then nothing can be in the way, and telling what will come takes half as long as extracting it.
    if (folder_.isEmpty()) return;
    struct stat package {};
    // By device and inode, since one file has many paths.
    stat(to_string(request_.one("FILE")).c_str(), &package);
    // All are gathered, so that one run tells of every file in the way.
    std::set<std::u16string> links, taken;
    const auto look = [&](const Wanted& wanted) {
      // An entry without a place is refused later, by itself; nothing can be in its way.
      const auto found = hasPlace(wanted.entry) ? folder_.find(wanted.relative) : std::nullopt;
      if (!found) return;
      (S_ISLNK(found->status.st_mode) ? links : taken).insert(found->path);
      const bool isPackage = found->status.st_dev == package.st_dev && found->status.st_ino == package.st_ino;
      if (isPackage) raiseNotWritten(found->path, u"it is the package that is read");
    };
    for (const std::u16string& search : request_.all("ENTRY"))
      std::ranges::for_each(wantedEntries(search), look);
    const auto named = [](const auto& paths) { return namesInMessage({paths.begin(), paths.end()}); };
    if (!links.empty()) raise("tavlox:cli:LinkInOutput", named(links));
    if (!taken.empty() && !request_.has("--force")) raise("tavlox:cli:OutputExists", named(taken));
  }

  /// Gives the paths written, below the temporary folder. Errors name the files as they were to be.
  Texts extract(const std::u16string& search) const {
    // The module answers with canonical paths: links in the path of the output folder are resolved.
    const std::u16string folder = fs::weakly_canonical(temporary_->path());
    Texts paths;
    try {
      const corvan::HostArray cells =
          callForArray(file_, "getFile", {search, std::u16string(u"OutputPath"), temporary_->path()});
      for (std::size_t i = 0; i < cells.elementCount(); ++i)
        paths.emplace_back(cells.cellAt(i).text().substr(folder.size() + 1));
    } catch (const except_with_causes& error) {
      throw temporary_->inTermsOf(folder_.path(), error);
    }
    return paths;
  }

  /// Keeps what was extracted before the failure, tries the other entries one by one, and reports those that
  /// fail.
  std::vector<Finished> extractTheSound(const except_with_causes& failure,
                                        const std::vector<Wanted>& wanted) {
    opc::model::Package package(request_.one("FILE"));
    package.open(opc::interfaces::OpenMode::Read);
    // What is not finished lies among the files.
    folderMode_.reset();
    std::vector<Finished> finished;
    // A file that is named in the failure may have been written in part, whatever its size.
    std::set<std::u16string> tried, failed;
    addNamed(failure, failed);
    if (wanted.empty()) {
      // What was asked for is not there at all; the other searches go on.
      report(request_.format, request_.one("FILE"));
      result_ = ExitCode::Failed;
    }
    for (const auto& [entry, relative] : wanted) {
      // Several relationships may lead to one entry.
      if (!tried.insert(entry).second) continue;
      try {
        // Asked here: each call of the module walks over all entries, too long if many have no part.
        const bool hasPart = hasPlace(entry) && package.hasPart(opc::model::PartName(entry));
        if (!hasPart) opc::raise("opc:part:NotFound", request_.one("FILE"), entry);
        // The module went over the entries in order and wrote those it came to; the others are asked for
        // singly.
        const bool isThere = fs::exists(fs::concatenate(temporary_->path(), relative));
        const bool isComplete = isThere && !failed.contains(folder_.pathOf(relative));
        const std::u16string source = isComplete ? relative : extract(entry).front();
        finished.push_back({source, relative});
      } catch (const except_with_causes& another) {
        // On a full disk every further entry would fail as well.
        if (isAboutDisk(another)) throw;
        report(request_.format, request_.one("FILE"));
        // The run goes on: the other entries are still of use.
        result_ = ExitCode::Failed;
      }
    }
    return finished;
  }

  /// Gives the final paths, one as often as it was found; it is moved once.
  Texts place(const std::vector<Finished>& finished) {
    using Existing = OutputFolder::Existing;
    const Existing existing = request_.has("--force") ? Existing::Replace : Existing::Keep;
    const std::u16string folder = fs::weakly_canonical(folder_.path());
    Texts written;
    const FinishedTree tree{temporary_->descriptor(), folderMode_.has_value()};
    if (folderMode_) giveMode(*folderMode_, finished);
    if (!finished.empty() && !sync()) raiseNotWritten(folder_.path(), errno, "fl:filesystem:SyncFailed");
    for (const Finished& file : finished) {
      // Between two files: those already in their place stay, and they are whole.
      endIfInterrupted();
      folder_.take(tree, file, existing);
      written.push_back(fs::concatenate(folder, file.relative));
    }
    // The files are in their places now, and are told of in any case.
    if (!finished.empty() && !sync()) {
      const std::u16string reason = fl::i18n::to_ustring(fs::systemReason(errno));
      tellError(request_.format, except_with_causes("tavlox:cli:NotConfirmed", {folder_.path(), reason}));
      result_ = ExitCode::Failed;
    }
    return written;
  }

  /// The mode of a new folder in the output folder: what the user's mask and the rights that the output
  /// folder hands down make of it shows best in one. Nothing if none can be made.
  std::optional<mode_t> modeOfNewFolders() const {
    constexpr char kName[] = "new";
    struct stat status {};
    const int folder = temporary_->descriptor();
    if (mkdirat(folder, kName, 0777) != 0) return std::nullopt;
    const bool isKnown = fstatat(folder, kName, &status, AT_SYMLINK_NOFOLLOW) == 0;
    unlinkat(folder, kName, AT_REMOVEDIR);
    return isKnown ? std::optional(status.st_mode & 07777) : std::nullopt;
  }

  /// The module keeps what folders it makes to this user. Gives those of the finished files that mode.
  void giveMode(mode_t mode, const std::vector<Finished>& finished) const {
    std::set<std::u16string> given;
    std::u16string last;
    for (const Finished& file : finished) {
      std::u16string folder = fs::extract_parent_path(file.relative);
      // Most files lie in the folder of the one before.
      if (folder == last) continue;
      last = folder;
      for (; !folder.empty() && given.insert(folder).second; folder = fs::extract_parent_path(folder))
        fchmodat(temporary_->descriptor(), to_string(folder).c_str(), mode, 0);
    }
  }

  /// Has all that was written reach the disk, data and names: one call for any number of files, since syncing
  /// each would cost a turn of the disk each. False if it fails; errno says why.
  bool sync() const { return syncfs(temporary_->descriptor()) == 0; }

  // The order matters: each member is made with those before it.
  const Request& request_;
  const zobs::COSInterfacePointer file_;
  OutputFolder folder_;
  std::optional<TemporaryFolder> temporary_;  // goes before the folder it lies in
  std::optional<mode_t> folderMode_;          // while whole folders can be moved to their paths
  ExitCode result_ = ExitCode::Done;
};

/// Writes the data of the one entry that is meant to standard output.
ExitCode printEntry(const Request& request) {
  const zobs::COSInterfacePointer file = openFile(request, request.one("FILE"));
  std::set<std::u16string> entries;
  for (const std::u16string& search : request.all("ENTRY")) {
    for (const std::u16string& entry : entriesMeant(file, search)) entries.insert(entry);
  }
  if (entries.empty()) raise("tavlox_io:general:EntryDoesNotExist", request.one("ENTRY"));
  if (entries.size() > 1) {
    raise("tavlox:get:OneEntryOnly", request.one("FILE"), entries.size(),
          namesInMessage({entries.begin(), entries.end()}));
  }
  opc::model::Package package(request.one("FILE"));
  package.open(opc::interfaces::OpenMode::Read);
  if (!hasPlace(*entries.begin())) opc::raise("opc:part:NotFound", request.one("FILE"), *entries.begin());
  const auto input = package.getPart(opc::model::PartName(*entries.begin())).getInputStream();
  std::string piece(std::size_t{64} * 1024, '\0');
  while (const std::size_t count = input->read(piece.data(), piece.size())) {
    print(std::string_view(piece.data(), count));
    endIfInterrupted();
  }
  return ExitCode::Done;
}

ExitCode runGet(const Request& request) {
  // A folder of that name is "./-".
  return request.oneOr("--output", u"") == u"-" ? printEntry(request) : Extraction(request).run();
}

}  // namespace

extern const Command kGet = {
    .name = "get",
    .summary = "Copy entries of a package to disk",
    .examples = R"(  tavlox get filter.tavlox notes.txt
  tavlox get filter.tavlox /user/plots notes.txt -o copies
  tavlox get filter.tavlox /session/runs.json -o - | jq
)",
    .details =
        R"(Prints the paths of the files written. A path of the package stands for an
entry or for all in a folder, and is kept below the output folder:
/user/plots/a.png becomes copies/user/plots/a.png. A bare file name takes the
user files of that name, less /user: copies/plots/a.png. Missing folders are
made. A file appears once it is complete. Nothing is written through a symbolic
link below the output folder. An entry that cannot be read is reported, the
others are still extracted, and the exit code is 1. With "-o -" the data of one
entry goes to standard output.
)",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   {"ENTRY", Takes::OneOrMore, "A path of the package or a file name"},
                   {"--output", Takes::Value, "The folder to write to, or - for standard output", "FOLDER",
                    "-o"},
                   {"--force", Takes::Flag, "Overwrite files that exist"}},
    .run = runGet,
};

}  // namespace tavlox::cli

#include <algorithm>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/many_files.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/session_index/package_rows.h"
#include "platform/session_index/session_index.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using foundation::core::except::except_with_causes;
using session_index::SessionIndex;

// A package is a transaction, whose preparation costs more than starting a process.
constexpr std::size_t kMostInPiece = 32;

/// What became of the packages.
struct Counts {
  std::size_t added = 0, changed = 0, unchanged = 0, removed = 0, unreadable = 0;
  bool isComplete = true;  ///< false if a folder or a process failed
};

struct SearchedFolder {
  std::u16string path;
  session_index::PackageSearch found;
};

/// Raises tavlox:cli:NoPackages: an index that loses all it has because a disk is not there would be of no
/// use.
std::vector<SearchedFolder> searchFolders(const Request& request, Counts& counts) {
  std::vector<SearchedFolder> folders;
  for (const std::u16string& word : request.all("FOLDER")) {
    // One folder has one name in the index, however it is reached.
    const std::u16string path = fs::weakly_canonical(word);
    folders.push_back({path, session_index::findPackages(path, session_index::Depth::Below)});
    const session_index::PackageSearch& found = folders.back().found;
    for (const std::u16string& unread : found.unreadableFolders)
      tellError(request.format, except_with_causes("tavlox:cli:FolderNotRead", {unread}));
    counts.isComplete = counts.isComplete && found.unreadableFolders.empty();
    if (found.packages.empty()) foundation::core::except::raise("tavlox:cli:NoPackages", word);
  }
  return folders;
}

/// Reads packages in several processes and puts them into the index in this one.
void read(const Request& request, const std::vector<std::u16string>& packages, SessionIndex& index,
          Counts& counts) {
  const std::size_t jobs = jobsOf(request);
  const std::size_t inPiece = std::clamp<std::size_t>(packages.size() / (4 * jobs), 1, kMostInPiece);
  const auto pieceOf = [&](std::size_t piece) {
    const auto rest = std::span(packages).subspan(piece * inPiece);
    return rest.first(std::min(inPiece, rest.size()));
  };
  const auto work = [&](std::size_t piece, std::FILE* output) {
    for (const std::u16string& package : pieceOf(piece)) session_index::writePackageRows(package, output);
    return ExitCode::Done;
  };
  shareWork(request, (packages.size() + inPiece - 1) / inPiece, jobs, work, [&](const PieceOfWork& piece) {
    const auto wanted = pieceOf(piece.index);
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      const SessionIndex::Package package = index.take(piece.output);
      counts.added += package.taken == SessionIndex::Taken::Added ? 1 : 0;
      counts.changed += package.taken == SessionIndex::Taken::Changed ? 1 : 0;
      if (package.taken != SessionIndex::Taken::CutOff) continue;
      counts.isComplete = false;
      const std::vector<std::u16string> lost(wanted.begin() + static_cast<std::ptrdiff_t>(i), wanted.end());
      return tellError(request.format, except_with_causes("tavlox:cli:ProcessEnded", {namesInMessage(lost)}));
    }
  });
}

void printCounts(const Request& request, const Counts& counts) {
  const std::pair<const char*, std::size_t> shown[] = {{"Added", counts.added},
                                                       {"Changed", counts.changed},
                                                       {"Unchanged", counts.unchanged},
                                                       {"Removed", counts.removed},
                                                       {"Unreadable", counts.unreadable}};
  if (request.format == OutputFormat::Text) {
    return print(Table{.rowCount = std::size(shown), .row = [&](std::size_t i) {
                         return std::vector{fl::i18n::to_ustring(shown[i].first),
                                            foundation::core::except::toArgument(shown[i].second)};
                       }});
  }
  fl::i18n::JsonWriter json = beginAnswer(request.one("--output"));
  for (const auto& [name, count] : shown) json.member(name).value(static_cast<std::uint64_t>(count));
  json.endObject();
  print(json);
}

ExitCode runIndex(const Request& request) {
  Counts counts;
  const std::vector<SearchedFolder> folders = searchFolders(request, counts);
  SessionIndex index(request.one("--output"), SessionIndex::Access::Update);
  std::vector<std::u16string> packages;
  for (const SearchedFolder& folder : folders) {
    for (const std::u16string& package : folder.found.packages) {
      if (index.isCurrent(package)) {
        ++counts.unchanged;
      } else {
        packages.push_back(package);
      }
    }
  }
  read(request, packages, index, counts);
  for (const SearchedFolder& folder : folders)
    counts.removed += index.dropVanished(folder.path, folder.found);
  counts.unreadable = index.unreadableCount();
  index.finish();
  printCounts(request, counts);
  if (!counts.isComplete) return ExitCode::Failed;
  return counts.unreadable == 0 ? ExitCode::Done : ExitCode::Found;
}

}  // namespace

extern const Command kIndex = {
    .name = "index",
    .summary = "Make many sessions searchable",
    .examples = R"(  tavlox index nightly -o nightly.sqlite
  tavlox search nightly.sqlite "wheel speed"
  sqlite3 nightly.sqlite "select SolverName, count(*) from runs group by 1"
)",
    .details =
        R"(All packages below the folders are put into one SQLite file: their runs and signals, and minimum, maximum and
count of what was recorded. Made again, an index takes only what changed, and loses what is there no more. Packages
that cannot be read are in it with their error: tavlox search INDEX --in files --where "Error is not empty".

Shown are how many packages were added, changed, unchanged and removed, and how many in the index are unreadable.
A file that is no index is never replaced. Whatever ends the program, the index is sound.

Exit code: 0 done; 3 done, and packages are unreadable; 1 it failed, or a folder could not be read.
)",
    .parameters = {{"FOLDER", Takes::OneOrMore, "The folders to look in, and in all below them"},
                   {"--output", Takes::Value, "The index to make or to bring up to date", "INDEX", "-o"},
                   kJobsOption},
    .run = runIndex,
    .check =
        [](const Request& request) {
          jobsOf(request);
          if (!request.has("--output")) foundation::core::except::raise("tavlox:index:NoOutput");
        },
};

}  // namespace tavlox::cli

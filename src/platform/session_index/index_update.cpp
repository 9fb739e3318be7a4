#include "platform/session_index/index_update.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <span>

#include "platform/errors/free_with.h"
#include "platform/files/filesystem.h"
#include "platform/session_index/package_rows.h"

namespace tavlox::session_index {
namespace {

namespace fs = fl::filesystem;
using foundation::core::except::except_with_causes;
using foundation::core::except::FreeWith;
using foundation::core::except::raise;

// Enough that starting a process costs little, few enough that its rows do not take much room.
constexpr std::size_t kMostInPiece = 32;

std::size_t pieceSize(std::size_t packages, std::size_t jobs) {
  // Towards the end all processes should have work.
  return std::clamp<std::size_t>(packages / (4 * jobs), 1, kMostInPiece);
}

}  // namespace

IndexUpdate::IndexUpdate(const std::vector<std::u16string>& folders, const std::u16string& index,
                         std::size_t jobs)
    : folders_(search(folders)),
      index_(index, SessionIndex::Access::Update),
      outdated_(findOutdated()),
      inPiece_(pieceSize(outdated_.size(), jobs)),
      work_((outdated_.size() + inPiece_ - 1) / inPiece_, jobs, [this](std::size_t piece, std::FILE* output) {
        for (const std::u16string& package : packagesOf(piece)) writePackageRows(package, output);
        return 0;
      }) {
  index_.expect(outdated_.size());
}

std::vector<IndexUpdate::Folder> IndexUpdate::search(const std::vector<std::u16string>& folders) {
  std::vector<Folder> searched;
  for (const std::u16string& folder : folders) {
    // One folder has one name in the index, however it is reached.
    const std::u16string path = fs::weakly_canonical(folder);
    searched.push_back({path, findPackages(path, Depth::Below)});
    const PackageSearch& found = searched.back().found;
    for (const std::u16string& unread : found.unreadableFolders)
      problems_.push_back(except_with_causes("tavlox:index:FolderNotRead", {unread}));
    if (found.packages.empty()) raise("tavlox:index:NoPackages", folder);
  }
  return searched;
}

std::vector<std::u16string> IndexUpdate::findOutdated() {
  std::vector<std::u16string> packages;
  for (const Folder& folder : folders_)
    std::ranges::copy(folder.found.packages, std::back_inserter(packages));
  // One folder may lie in another.
  std::ranges::sort(packages);
  packages.erase(std::unique(packages.begin(), packages.end()), packages.end());
  const std::size_t found = packages.size();
  std::erase_if(packages, [&](const std::u16string& package) { return index_.isCurrent(package); });
  counts_.unchanged = found - packages.size();
  return packages;
}

std::span<const std::u16string> IndexUpdate::packagesOf(std::size_t piece) const {
  const auto rest = std::span(outdated_).subspan(piece * inPiece_);
  return rest.first(std::min(inPiece_, rest.size()));
}

bool IndexUpdate::step() {
  const corvan::PieceOfWork* const piece = work_.next();
  piece == nullptr ? finish() : take(*piece);
  return piece != nullptr;
}

bool IndexUpdate::takeRows(std::FILE* rows) {
  const SessionIndex::Package package = index_.take(rows);
  counts_.added += package.taken == SessionIndex::Taken::Added ? 1 : 0;
  counts_.changed += package.taken == SessionIndex::Taken::Changed ? 1 : 0;
  return package.taken != SessionIndex::Taken::CutOff;
}

void IndexUpdate::take(const corvan::PieceOfWork& piece) {
  auto rest = packagesOf(piece.index);
  while (!rest.empty() && takeRows(piece.output)) {
    rest = rest.subspan(1);
    work_.keepBusy();
  }
  // The process ended, and those left get one each: what ended it takes no other package with it.
  corvan::SharedWork alone(rest.size(), 1, [&](std::size_t index, std::FILE* output) {
    writePackageRows(rest[index], output);
    return 0;
  });
  while (const corvan::PieceOfWork* const one = alone.next())
    if (!takeRows(one->output)) takeEnded(rest[one->index]);
}

void IndexUpdate::takeEnded(const std::u16string& package) {
  problems_.push_back(except_with_causes("tavlox:index:ProcessEnded", {package}));
  const std::unique_ptr<std::FILE, FreeWith<std::fclose>> rows(std::tmpfile());
  if (!rows) raise("fl:process:NoSpool", fs::temp_directory_path(), fs::systemReason(errno));
  writeEndedRows(package, rows.get());
  std::rewind(rows.get());
  takeRows(rows.get());
}

void IndexUpdate::finish() {
  for (const Folder& folder : folders_) counts_.removed += index_.dropVanished(folder.path, folder.found);
  counts_.unreadable = index_.unreadableCount();
  index_.finish();
}

}  // namespace tavlox::session_index

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/errors/exceptions.h"
#include "platform/processes/shared_work.h"
#include "platform/session_index/session_index.h"

namespace tavlox::session_index {

/// Brings an index up to date with the packages below some folders: what changed is read, by several
/// processes, and put into the index by this one. An update that is left early has done a part of it, each
/// package as a whole.
class IndexUpdate {
 public:
  /// Looks for the packages, and then makes or opens the index. `jobs` is at least 1. Raises
  /// tavlox:index:NoPackages for a folder without any, since an index that loses all it has because a disk is
  /// not there would be of no use, and what opening an index raises.
  IndexUpdate(const std::vector<std::u16string>& folders, const std::u16string& index, std::size_t jobs);

  /// Takes some more packages. When there are none left it drops those that vanished, makes the index a
  /// single file and gives false.
  bool step();

  /// How many packages were added, and so on; `unreadable` are all in the index that have an error.
  struct Counts {
    std::size_t added = 0, changed = 0, unchanged = 0, removed = 0, unreadable = 0;
  };
  const Counts& counts() const { return counts_; }

  /// What keeps the index from being complete, as far as it is known: tavlox:index:FolderNotRead and
  /// ProcessEnded.
  const std::vector<foundation::core::except::except_with_causes>& problems() const { return problems_; }

 private:
  struct Folder {
    std::u16string path;
    PackageSearch found;
  };
  std::vector<Folder> search(const std::vector<std::u16string>& folders);
  std::vector<std::u16string> findOutdated();
  std::span<const std::u16string> packagesOf(std::size_t piece) const;
  void take(const corvan::PieceOfWork& piece);
  bool takeRows(std::FILE* rows);
  void takeEnded(const std::u16string& package);
  void finish();

  Counts counts_;
  std::vector<foundation::core::except::except_with_causes> problems_;
  std::vector<Folder> folders_;  // looked through before the index is made
  SessionIndex index_;
  std::vector<std::u16string> outdated_;
  std::size_t inPiece_;
  corvan::SharedWork work_;
};

}  // namespace tavlox::session_index

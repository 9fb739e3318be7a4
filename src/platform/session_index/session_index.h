#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/session_index/package_search.h"
#include "platform/session_index/rows.h"
#include "platform/session_index/shown_fields.h"

/// What many sessions hold, in one file that answers at once. docs/session_index.md describes its tables.
namespace tavlox::session_index {

/// An index that is open. Packages are known by their absolute paths. Each call that changes something is a
/// transaction: whatever ends the program, and when the disk is full, the index is as it was before or after
/// one. Others may read it meanwhile; a second indexer waits for the transaction of the first, up to a
/// minute. Every call may raise sqldb:shared:Locked, sqldb:shared:Corrupt and sqldb:shared:Failed.
class SessionIndex {
 public:
  /// To be updated, an index is made if there is no file of that name or an empty one; any other file is left
  /// as it is. Raises tavlox:index:NotFound, NotAnIndex, and OtherVersion for an index whose tables are those
  /// of another version of this library.
  enum class Access { Read, Update };
  SessionIndex(const std::u16string& path, Access access);
  ~SessionIndex();
  SessionIndex(const SessionIndex&) = delete;
  SessionIndex& operator=(const SessionIndex&) = delete;

  /// Whether the package is still the file that was read for the index: size, times and inode are the same,
  /// and it was old enough then for a later change to show in its times.
  bool isCurrent(const std::u16string& package);

  /// Says that so many packages come to be taken. Where they are many, searches are slow from then on until
  /// the end of the update, which makes it several times faster.
  void expect(std::size_t packages);

  /// Puts a package in the place of what the index has of it. `rows` is what writePackageRows wrote, and
  /// stands behind the package afterwards.
  enum class Taken { Added, Changed, Gone, CutOff };
  struct Package {
    Taken taken;        ///< Gone: dropped, or never there; CutOff: the rows end early, nothing was changed
    bool isUnreadable;  ///< and has its error in the index
  };
  Package take(std::FILE* rows);

  /// Drops the packages below the folder that were not found there, but for those in folders that could not
  /// be read. Gives their number.
  std::size_t dropVanished(const std::u16string& folder, const PackageSearch& found);

  /// Ends an update. Makes the index a single file that can be copied and read from anywhere; while it is
  /// updated, others belong to it. Left undone while somebody else has it open.
  void finish();

  /// How many packages have an error.
  std::size_t unreadableCount();

  /// Records whose texts have every one of the words: as words, or from three letters on as pieces of words,
  /// in any case. No words mean all records. `where` is a condition on fieldsOf(subject), or null. The cells
  /// are the values of these fields. In the order of the paths, and within a package in its own.
  void search(Subject subject, const std::u16string& words, const filter::Filter* where,
              const std::function<void(std::span<const Cell>)>& visit);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tavlox::session_index

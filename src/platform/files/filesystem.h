#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include "platform/files/descriptor.h"
#include "platform/files/paths.h"

/// Files and folders under UTF-16 names. Every failure raises Error, whose arguments are the path and the
/// system's reason; so does a name that no file can have.
namespace fl::filesystem {

/// A listing shows links as such; where they are followed, `SymbolicLink` does not occur.
enum class FileType { NotFound, Regular, Directory, SymbolicLink, Other };

/// Permission bits, as the system's own.
enum class Permissions : unsigned { None = 0, OwnerWrite = 0200, OwnerAll = 0700 };

struct FileStatus {
  FileType type = FileType::NotFound;
  unsigned permissions = 0;                ///< the twelve mode bits
  std::uint64_t size = 0;                  ///< bytes
  boost::posix_time::ptime lastWriteTime;  ///< UTC, microseconds, cut from the nanosecond stamp

  bool has(Permissions bits) const;
};

/// Follows symbolic links. A dangling link does not exist, nor does a name that no file can have. Never
/// raises: where the system cannot tell (behind a folder that may not be searched) the answer is true, and
/// `status` says why not.
bool exists(const std::u16string& path);
/// Follows symbolic links. Raises if there is no such file.
FileStatus status(const std::u16string& path);
/// Gives the file exactly these bits. Follows symbolic links.
void set_permissions(const std::u16string& path, Permissions bits);
/// Creates the folder and its missing parents; true if anything was created. What was created before a
/// failure stays.
bool create_directories(const std::u16string& path);
/// Removes a file, a link or an empty folder. False if there was nothing to remove. The link goes, not what
/// it leads to; a folder that is not empty raises.
bool remove(const std::u16string& path);
/// A regular file that is open for reading.
struct OpenFile {
  Descriptor descriptor;
  std::uint64_t size;  ///< bytes, when it was opened
};
/// Raises unless the path leads to a regular file that may be read.
OpenFile open_for_reading(const std::u16string& path);

/// The path seen from `base`, or from the current folder if `base` is empty. "." and ".." stay as they are.
std::u16string absolute(const std::u16string& path, const std::u16string& base = {});
/// Absolute, without ".", ".." and links as far as the path exists, and lexically beyond.
std::u16string weakly_canonical(const std::u16string& path);
/// The current folder of the process.
std::u16string current_path();
/// The folder that temporary files go into (TMPDIR, else /tmp).
std::u16string temp_directory_path();

/// What lies in one folder, "." and ".." left out, in the system's order, one level deep.
class DirectoryIterator {
 public:
  struct Entry {
    std::u16string path;  ///< the folder joined with the name
    FileType type;        ///< links are not followed
  };

  /// A folder that cannot be opened gives an iterator that is not open.
  explicit DirectoryIterator(const std::u16string& folder);
  ~DirectoryIterator();
  bool isOpen() const;
  /// Nothing at the end. Raises Error if the folder cannot be read on, or if a name is not UTF-8 (the
  /// arguments are then the folder and the name; the next call goes on behind it).
  std::optional<Entry> next();

  /// Opens what `next` gave last. A link is looked at before it is followed. Raises as the function below.
  OpenFile open(const Entry& last) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace fl::filesystem

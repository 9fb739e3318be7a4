#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/errors/package_errors.h"
#include "platform/files/descriptor.h"
#include "platform/text/text_index.h"
#include "platform/zip/limits.h"

namespace zip {

/// How the data of an entry is packed, with the numbers of APPNOTE 4.4.5. Archives that use others are
/// refused.
enum class Method : std::uint16_t { Stored = 0, Deflate = 8 };

/// One entry as the central directory gives it, checked against its local header. Its texts are valid as
/// long as the directory, also after that was moved.
struct Entry {
  std::string_view name;           ///< raw bytes, inside the directory's own buffer
  std::string_view centralRecord;  ///< the whole central record, likewise
  std::uint64_t compressedSize = 0, size = 0;
  std::uint64_t headerOffset = 0;  ///< of the local header, in the file
  std::uint64_t dataOffset = 0;    ///< of the first byte of data
  std::uint64_t endOffset = 0;     ///< past the data and its descriptor, where the next item may start
  std::uint32_t checksum = 0;      ///< CRC-32 of the uncompressed data
  Method method = Method::Stored;
  bool isSymbolicLink = false;
};

/// Is told of a broken rule and of the entry that breaks it, null for the archive as a whole; the entry is
/// valid during the call. Opening a package throws the rule here, which ends the audit; whoever wants to know
/// of every broken rule writes it down and returns.
using RuleBroken = std::function<void(const opc::model::PackageOpenFailed& rule, const Entry* entry)>;

/// Whether a check refuses nothing. What it refuses is told, and the checks behind it are made all the same.
template <class Check>
bool holds(const RuleBroken& tell, const Entry* entry, const Check& check) {
  try {
    check();
    return true;
  } catch (const opc::model::PackageOpenFailed& broken) {
    tell(broken, entry);
    return false;
  }
}

/// The audited directory of one archive. Nothing of it is trusted before all of it was checked: bounds,
/// overlaps, local headers against the directory (name, method, sizes, checksum; not times), data
/// descriptors, duplicate names, names with NUL or ".." segments, a second name in an extra field,
/// encryption, several disks, methods, ZIP64 records. The data itself is checked by whoever reads it, see
/// EntryReader.
///
/// Deliberately let pass, since sound archives do it: bytes before the first entry and between entries (as
/// long as offsets count from the start of the file), up to 16 bytes behind the end record (line ends added
/// in transport, padding to a block; lost when the archive is saved), padding in extra fields, data
/// descriptors in each of their four forms, entries said to be deflated that are empty and have no data.
/// Movable, not copyable: the entries point into one buffer.
class Directory {
 public:
  /// Raises PackageOpenFailed, with the identifier of the first rule that is broken; also when the file
  /// cannot be read.
  static Directory read(const fl::filesystem::InputFile& file, const Limits& limits = {});
  /// Tells of every broken rule, as far as the archive can be understood: what lies behind a record that is
  /// cut off, or in a directory that is not found, is not looked at. Gives nothing if a rule is broken.
  /// Raises opc::Exception if the file cannot be read.
  static std::optional<Directory> audit(const fl::filesystem::InputFile& file, const Limits& limits,
                                        const RuleBroken& tell);

  /// In the order of the central directory.
  const std::vector<Entry>& entries() const { return entries_; }
  /// The index of the entry of exactly this name, or nothing.
  std::optional<std::size_t> find(std::string_view name) const {
    return names_.find(name, [this](std::size_t index) { return entries_[index].name; });
  }
  /// The archive's comment: raw bytes, at most 65,535.
  std::string_view comment() const { return comment_; }
  /// Where the central directory starts: new entries may be appended from here on in a clone.
  std::uint64_t offset() const { return offset_; }

 private:
  Directory() = default;
  void readRecords(const fl::filesystem::InputFile& file, std::uint64_t bytes, std::uint64_t declaredEntries,
                   const RuleBroken& tell);
  void checkNamesDiffer(const std::string& path, const RuleBroken& tell);

  std::unique_ptr<char[]> records_;
  std::vector<Entry> entries_;
  fl::i18n::TextIndex names_;
  std::string comment_;
  std::uint64_t offset_ = 0;
};

}  // namespace zip

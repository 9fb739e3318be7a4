#include "platform/zip/directory.h"

#include <algorithm>
#include <array>
#include <optional>

#include <sys/stat.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/local_headers.h"
#include "platform/zip/records.h"

// How an archive is audited. It is read from its end: the end record (APPNOTE 4.3.16) and, where there are
// some, the ZIP64 records in front of it (4.3.14, 4.3.15) say where the central directory lies; the records
// of the directory (4.3.12) say what the entries are; the local header in front of each entry's data must
// then say the same (local_headers.cpp).
//
// The format states nearly everything twice, and programs differ in which statement they believe. An archive
// whose statements contradict each other would show different content to different programs, so it is
// refused, however small the difference.

namespace zip {
namespace {

using fl::filesystem::InputFile;
using opc::refuse;

// ---- The end of the archive, which says where the directory lies.

// The length field has 16 bits.
constexpr std::size_t kLongestComment = 0xFFFF;
constexpr std::size_t kToleratedTrailingBytes = 16;

/// What the end record and its ZIP64 form both give. Offsets into the records are those of APPNOTE 4.3.16
/// and 4.3.14.
struct EndNumbers {
  std::uint64_t thisDisk, directoryDisk, entriesOnDisk, entries, directorySize, directoryOffset;
};

EndNumbers endNumbers(const char* record) {
  return {load16(record + 4),  load16(record + 6),  load16(record + 8),
          load16(record + 10), load32(record + 12), load32(record + 16)};
}

EndNumbers zip64EndNumbers(const char* record) {
  return {load32(record + 16), load32(record + 20), load64(record + 24),
          load64(record + 32), load64(record + 40), load64(record + 48)};
}

/// A number of the short record is either the one of the ZIP64 record or refers to it.
bool agree(const EndNumbers& brief, const EndNumbers& full) {
  const auto agree16 = [](std::uint64_t a, std::uint64_t b) { return a == kInZip64Record || a == b; };
  const auto agree32 = [](std::uint64_t a, std::uint64_t b) { return a == kInZip64Field || a == b; };
  return agree16(brief.thisDisk, full.thisDisk) && agree16(brief.directoryDisk, full.directoryDisk) &&
         agree16(brief.entriesOnDisk, full.entriesOnDisk) && agree16(brief.entries, full.entries) &&
         agree32(brief.directorySize, full.directorySize) &&
         agree32(brief.directoryOffset, full.directoryOffset);
}

/// Finds the end record in the last bytes of the file. Only the last signature counts: a comment that holds
/// another one has readers that disagree about the archive.
std::optional<std::size_t> findEnd(const std::vector<char>& tail) {
  if (tail.size() < kEndSize) return std::nullopt;
  // From behind, because the comment makes the distance from the end unknown.
  for (std::size_t at = tail.size() - kEndSize + 1; at-- > 0;) {
    if (load32(&tail[at]) != kEndSignature) continue;
    const std::size_t end = at + kEndSize + load16(&tail[at + 20]);
    if (end > tail.size() || tail.size() - end > kToleratedTrailingBytes) return std::nullopt;
    return at;
  }
  return std::nullopt;
}

/// The offset of the ZIP64 record that the locator points to. Between the two there may be an extension, but
/// nothing else.
std::uint64_t zip64EndOffset(const InputFile& file, const char* locator, std::uint64_t locatorOffset) {
  if (load32(locator + 4) != 0 || load32(locator + 16) > 1) refuse("opc:zip:SeveralDisks", file.path());
  const std::uint64_t offset = load64(locator + 8);
  if (locatorOffset < kZip64EndSize || offset > locatorOffset - kZip64EndSize) {
    refuse("opc:zip:Zip64EndBroken", file.path());
  }
  return offset;
}

struct EndRecord {
  std::uint64_t entries, directoryOffset, directorySize;
  std::string comment;
};

/// The directory that it describes lies inside the file and touches the end records, so offsets count from
/// the start of the file also where something stands before the first entry.
EndRecord readEndRecord(const InputFile& file, const RuleBroken& tell) {
  const std::uint64_t most = kZip64LocatorSize + kEndSize + kLongestComment + kToleratedTrailingBytes;
  std::vector<char> tail(std::min(file.size(), most));
  const std::uint64_t tailOffset = file.size() - tail.size();
  file.read(tailOffset, tail.data(), tail.size());
  const auto at = findEnd(tail);
  if (!at) refuse("opc:zip:NotAnArchive", file.path());
  const char* record = &tail[*at];

  EndNumbers numbers = endNumbers(record);
  std::uint64_t directoryEnd = tailOffset + *at;
  // The locator has its only position directly in front of the end record. Where there is none, nothing is
  // looked for: whatever else looks like a ZIP64 record is data.
  if (*at >= kZip64LocatorSize && load32(record - kZip64LocatorSize) == kZip64LocatorSignature) {
    const std::uint64_t locatorOffset = directoryEnd - kZip64LocatorSize;
    directoryEnd = zip64EndOffset(file, record - kZip64LocatorSize, locatorOffset);
    std::array<char, kZip64EndSize> full{};
    file.read(directoryEnd, full.data(), full.size());
    // The size field counts what follows it, without the first twelve bytes, and must lead to the locator.
    if (load32(full.data()) != kZip64EndSignature || load64(&full[4]) != locatorOffset - directoryEnd - 12) {
      refuse("opc:zip:Zip64EndBroken", file.path());
    }
    holds(tell, nullptr, [&] {
      if (!agree(numbers, zip64EndNumbers(full.data()))) refuse("opc:zip:EndRecordsDiffer", file.path());
    });
    numbers = zip64EndNumbers(full.data());
  }

  // A package is one file. Counts that differ belong to an archive in several.
  if (numbers.thisDisk != 0 || numbers.directoryDisk != 0 || numbers.entriesOnDisk != numbers.entries) {
    refuse("opc:zip:SeveralDisks", file.path());
  }
  if (numbers.directorySize > directoryEnd ||
      numbers.directoryOffset != directoryEnd - numbers.directorySize) {
    refuse("opc:zip:DirectoryMisplaced", file.path());
  }
  return {numbers.entries, numbers.directoryOffset, numbers.directorySize,
          std::string(record + kEndSize, load16(record + 20))};
}

void checkLimits(const EndRecord& end, const Limits& limits, const std::string& path) {
  if (end.entries > limits.entries) refuse("opc:zip:TooManyEntries", path, limits.entries);
  if (end.directorySize > limits.directoryBytes)
    refuse("opc:zip:DirectoryTooLarge", path, limits.directoryBytes);
  // Before memory is set aside for them.
  if (end.entries > end.directorySize / kCentralSize) refuse("opc:zip:EntryCountDiffers", path, end.entries);
}

// ---- Its records.

/// A central record (APPNOTE 4.3.12) cut into its pieces.
struct Record {
  std::string_view whole, name, extra;

  std::uint16_t flags() const { return load16(whole.data() + 8); }
  std::uint16_t method() const { return load16(whole.data() + 10); }
  /// The upper half of the external attributes holds a Unix mode only if a system with such modes wrote it.
  bool isSymbolicLink() const {
    constexpr int kMadeOnUnix = 3, kMadeOnDarwin = 19;
    const int madeOn = load16(whole.data() + 4) >> 8;
    const mode_t mode = load32(whole.data() + 38) >> 16;
    return (madeOn == kMadeOnUnix || madeOn == kMadeOnDarwin) && S_ISLNK(mode);
  }
};

/// Takes the next record off the front of `rest`.
Record takeRecord(std::string_view& rest, const std::string& path) {
  if (rest.size() < kCentralSize || load32(rest.data()) != kCentralSignature)
    refuse("opc:zip:RecordBroken", path);
  const std::size_t name = load16(rest.data() + 28), extra = load16(rest.data() + 30);
  const std::size_t total = kCentralSize + name + extra + load16(rest.data() + 32);
  if (total > rest.size()) refuse("opc:zip:RecordBroken", path);
  const Record record{rest.substr(0, total), rest.substr(kCentralSize, name),
                      rest.substr(kCentralSize + name, extra)};
  rest.remove_prefix(total);
  return record;
}

/// Whether a segment is "..", whichever slash divides the segments: such a name may lead out of the folder
/// that the archive is unpacked into.
bool hasClimbingSegment(std::string_view name) {
  for (std::size_t at = name.find(".."); at != std::string_view::npos; at = name.find("..", at + 1)) {
    const auto divides = [&](std::size_t index) { return name[index] == '/' || name[index] == '\\'; };
    const bool starts = at == 0 || divides(at - 1);
    const bool ends = at + 2 == name.size() || divides(at + 2);
    if (starts && ends) return true;
  }
  return false;
}

void checkName(std::string_view name, const std::string& path) {
  if (name.empty()) refuse("opc:zip:EmptyName", path);
  // Programs that take names for C strings would see another, shorter name.
  const std::size_t nul = name.find('\0');
  if (nul != std::string_view::npos) refuse("opc:zip:NameWithNul", path, name.substr(0, nul));
  if (hasClimbingSegment(name)) refuse("opc:zip:NameClimbs", path, name);
}

void checkMethod(const Record& record, const std::string& path) {
  if ((record.flags() & kAnyEncryption) != 0) refuse("opc:zip:Encrypted", path, record.name);
  const std::uint16_t method = record.method();
  const bool isKnown = method == static_cast<std::uint16_t>(Method::Stored) ||
                       method == static_cast<std::uint16_t>(Method::Deflate);
  // Patch data is packed like any other but needs an older version of the file, which nobody has.
  if (!isKnown || (record.flags() & kPatchData) != 0) {
    refuse("opc:zip:UnsupportedMethod", path, record.name, method);
  }
}

/// Whether the data is as long as it says, once its method is known.
void checkStoredSizes(const Entry& entry, const std::string& path) {
  if (entry.method != Method::Stored || entry.compressedSize == entry.size) return;
  refuse("opc:zip:StoredSizesDiffer", path, entry.name);
}

/// Sizes, offset and disk, from the ZIP64 field where the record refers to it. The field holds only the
/// numbers that are referred to, in this order (APPNOTE 4.5.3).
void readNumbers(const Record& record, Entry& entry, const std::string& path) {
  entry.compressedSize = load32(record.whole.data() + 20);
  entry.size = load32(record.whole.data() + 24);
  entry.headerOffset = load32(record.whole.data() + 42);
  std::uint64_t disk = load16(record.whole.data() + 34);
  if (!record.extra.empty()) {
    const auto fields = ExtraFields::parse(record.extra);
    if (!fields) refuse("opc:zip:ExtraFieldBroken", path, entry.name);
    if (fields->givesOtherNameThan(entry.name)) refuse("opc:zip:TwoNames", path, entry.name);
    if (fields->zip64) {
      Zip64Numbers numbers(*fields->zip64);
      const bool isWhole = numbers.resolve(entry.size) && numbers.resolve(entry.compressedSize) &&
                           numbers.resolve(entry.headerOffset) && numbers.resolveDisk(disk);
      if (!isWhole) refuse("opc:zip:Zip64FieldBroken", path, entry.name);
    }
  }
  if (disk != 0) refuse("opc:zip:SeveralDisks", path);
}

/// Whether the record says where its entry lies; without that no other check of the entry means anything.
bool readEntry(const Record& record, Entry& entry, const std::string& path, const RuleBroken& tell) {
  entry.name = record.name;
  entry.centralRecord = record.whole;
  entry.method = static_cast<Method>(record.method());
  entry.headerOffset = load32(record.whole.data() + 42);
  entry.checksum = load32(record.whole.data() + 16);
  entry.isSymbolicLink = record.isSymbolicLink();
  holds(tell, &entry, [&] { checkName(record.name, path); });
  const bool isKnown = holds(tell, &entry, [&] { checkMethod(record, path); });
  const bool hasPlace = holds(tell, &entry, [&] { readNumbers(record, entry, path); });
  if (isKnown && hasPlace) holds(tell, &entry, [&] { checkStoredSizes(entry, path); });
  return hasPlace;
}

/// What opening a package does with a broken rule.
void throwRule(const opc::model::PackageOpenFailed& rule, const Entry*) { throw rule; }

}  // namespace

void Directory::readRecords(const InputFile& file, std::uint64_t bytes, std::uint64_t declaredEntries,
                            const RuleBroken& tell) {
  records_ = std::make_unique_for_overwrite<char[]>(bytes);
  file.read(offset_, records_.get(), bytes);
  // Not more than fit into the directory, see `checkLimits`.
  entries_.reserve(declaredEntries);
  std::string_view rest(records_.get(), bytes);
  std::uint64_t count = 0;
  for (; !rest.empty() && count < declaredEntries; ++count) {
    const Record record = takeRecord(rest, file.path());
    if (!readEntry(record, entries_.emplace_back(), file.path(), tell)) entries_.pop_back();
  }
  if (!rest.empty() || count != declaredEntries) {
    refuse("opc:zip:EntryCountDiffers", file.path(), declaredEntries);
  }
}

/// Compares bytes. Names that differ, but are the same by the rules for part names, are found by the
/// package's index.
void Directory::checkNamesDiffer(const std::string& path, const RuleBroken& tell) {
  names_.reserve(entries_.size());
  const auto nameAt = [this](std::size_t index) { return entries_[index].name; };
  for (std::size_t index = 0; index < entries_.size(); ++index) {
    if (names_.add(index, nameAt)) continue;
    holds(tell, &entries_[index], [&] { refuse("opc:zip:DuplicateName", path, entries_[index].name); });
  }
}

std::optional<Directory> Directory::audit(const InputFile& file, const Limits& limits,
                                          const RuleBroken& tell) {
  std::optional<Directory> directory(Directory{});
  bool isSound = true;
  const RuleBroken note = [&](const opc::model::PackageOpenFailed& rule, const Entry* entry) {
    isSound = false;
    tell(rule, entry);
  };
  EndRecord end;
  const bool isFound = holds(note, nullptr, [&] {
    end = readEndRecord(file, note);
    checkLimits(end, limits, file.path());
  });
  if (!isFound) return std::nullopt;
  directory->offset_ = end.directoryOffset;
  directory->comment_ = std::move(end.comment);
  // Behind a record that is cut off there are no others; those before it are looked at all the same.
  holds(note, nullptr, [&] { directory->readRecords(file, end.directorySize, end.entries, note); });
  // Local headers come last: their offsets are taken from records that have been found sound.
  directory->checkNamesDiffer(file.path(), note);
  checkLocalHeaders(file, directory->entries_, directory->offset_, note);
  if (!isSound) directory.reset();
  return directory;
}

Directory Directory::read(const InputFile& file, const Limits& limits) {
  try {
    return *audit(file, limits, throwRule);
  } catch (const opc::model::PackageOpenFailed&) {
    throw;
  } catch (const opc::Exception& failure) {
    // The file could not be read; to whoever opens a package that is a refusal like the others.
    throw opc::model::PackageOpenFailed(failure.GetID(), failure.GetArguments(), failure.causes());
  }
}

}  // namespace zip

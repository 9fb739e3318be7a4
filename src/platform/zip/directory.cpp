#include "platform/zip/directory.h"

#include <sys/stat.h>

#include "platform/errors/package_errors.h"
#include "platform/zip/end_record.h"
#include "platform/zip/entry_names.h"
#include "platform/zip/extra_fields.h"
#include "platform/zip/little_endian.h"
#include "platform/zip/local_headers.h"
#include "platform/zip/record_flags.h"

namespace zip {
using opc::refuse;

namespace {

constexpr std::uint32_t kRecordSignature = 0x02014b50;
constexpr std::size_t kRecordSize = 46;
constexpr std::uint16_t kMadeOnUnix = 3, kMadeOnDarwin = 19;

/// A central record cut into its pieces.
struct Record {
  std::string_view whole, name, extra;

  std::uint16_t flags() const { return load16(whole.data() + 8); }
  std::uint16_t method() const { return load16(whole.data() + 10); }
  bool isSymbolicLink() const {
    const int madeOn = load16(whole.data() + 4) >> 8;
    const mode_t mode = load32(whole.data() + 38) >> 16;
    return (madeOn == kMadeOnUnix || madeOn == kMadeOnDarwin) && S_ISLNK(mode);
  }
};

/// Takes the next record off the front of `rest`.
Record takeRecord(std::string_view& rest, const std::string& path) {
  if (rest.size() < kRecordSize || load32(rest.data()) != kRecordSignature)
    refuse("opc:zip:RecordBroken", path);
  const std::size_t name = load16(rest.data() + 28), extra = load16(rest.data() + 30);
  const std::size_t total = kRecordSize + name + extra + load16(rest.data() + 32);
  if (total > rest.size()) refuse("opc:zip:RecordBroken", path);
  const Record record{rest.substr(0, total), rest.substr(kRecordSize, name),
                      rest.substr(kRecordSize + name, extra)};
  rest.remove_prefix(total);
  return record;
}

Method methodOf(const Record& record, const std::string& path) {
  if ((record.flags() & kAnyEncryption) != 0) refuse("opc:zip:Encrypted", path, record.name);
  const std::uint16_t method = record.method();
  const bool isKnown = method == static_cast<std::uint16_t>(Method::Stored) ||
                       method == static_cast<std::uint16_t>(Method::Deflate);
  if (!isKnown || (record.flags() & kPatchData) != 0) {
    refuse("opc:zip:UnsupportedMethod", path, record.name, method);
  }
  return static_cast<Method>(method);
}

/// Sizes, offset and disk, from the ZIP64 field where the record refers to it.
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
      const bool isWhole = numbers.replaceMark(entry.size, 0xFFFFFFFF) &&
                           numbers.replaceMark(entry.compressedSize, 0xFFFFFFFF) &&
                           numbers.replaceMark(entry.headerOffset, 0xFFFFFFFF) &&
                           numbers.replaceMark(disk, 0xFFFF, 4);
      if (!isWhole) refuse("opc:zip:Zip64FieldBroken", path, entry.name);
    }
  }
  if (disk != 0) refuse("opc:zip:SeveralDisks", path);
}

Entry entryOf(const Record& record, const std::string& path) {
  checkName(record.name, path);
  Entry entry;
  entry.name = record.name;
  entry.centralRecord = record.whole;
  entry.method = methodOf(record, path);
  entry.checksum = load32(record.whole.data() + 16);
  entry.isSymbolicLink = record.isSymbolicLink();
  readNumbers(record, entry, path);
  if (entry.method == Method::Stored && entry.compressedSize != entry.size) {
    refuse("opc:zip:StoredSizesDiffer", path, entry.name);
  }
  return entry;
}

void checkLimits(const EndRecord& end, const Limits& limits, const std::string& path) {
  if (end.entries > limits.entries) refuse("opc:zip:TooManyEntries", path, limits.entries);
  if (end.directorySize > limits.directoryBytes)
    refuse("opc:zip:DirectoryTooLarge", path, limits.directoryBytes);
  // Before memory is set aside for them.
  if (end.entries > end.directorySize / kRecordSize) refuse("opc:zip:EntryCountDiffers", path, end.entries);
}

}  // namespace

void Directory::readRecords(const fl::filesystem::InputFile& file, std::uint64_t bytes,
                            std::uint64_t declaredEntries) {
  records_ = std::make_unique_for_overwrite<char[]>(bytes);
  file.read(offset_, records_.get(), bytes);
  entries_.reserve(declaredEntries);
  std::string_view rest(records_.get(), bytes);
  while (!rest.empty()) {
    if (entries_.size() == declaredEntries) refuse("opc:zip:EntryCountDiffers", file.path(), declaredEntries);
    entries_.push_back(entryOf(takeRecord(rest, file.path()), file.path()));
  }
  if (entries_.size() != declaredEntries) refuse("opc:zip:EntryCountDiffers", file.path(), declaredEntries);
}

Directory Directory::audit(const fl::filesystem::InputFile& file, const Limits& limits) {
  EndRecord end = readEndRecord(file);
  checkLimits(end, limits, file.path());
  Directory directory;
  directory.offset_ = end.directoryOffset;
  directory.comment_ = std::move(end.comment);
  directory.readRecords(file, end.directorySize, end.entries);
  checkNamesDiffer(directory.entries_, file.path());
  checkLocalHeaders(file, directory.entries_, directory.offset_);
  return directory;
}

Directory Directory::read(const fl::filesystem::InputFile& file, const Limits& limits) {
  try {
    return audit(file, limits);
  } catch (const opc::model::PackageOpenFailed&) {
    throw;
  } catch (const opc::Exception& failure) {
    // The file could not be read; to whoever opens a package that is a refusal like the others.
    throw opc::model::PackageOpenFailed(failure.GetID(), failure.GetArguments(), failure.causes());
  }
}

}  // namespace zip

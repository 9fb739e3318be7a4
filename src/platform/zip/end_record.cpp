#include "platform/zip/end_record.h"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "platform/errors/package_errors.h"
#include "platform/zip/little_endian.h"

namespace zip {
using opc::refuse;

namespace {

constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::uint32_t kZip64EndSignature = 0x06064b50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064b50;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kZip64EndSize = 56;
constexpr std::size_t kZip64LocatorSize = 20;
constexpr std::size_t kMaximalComment = 0xFFFF;

/// The counts and places that the end record and its ZIP64 form both give.
struct Numbers {
  std::uint64_t thisDisk, directoryDisk, entriesOnDisk, entries, directorySize, directoryOffset;
};

/// The last bytes of the file, enough for every end record.
struct Tail {
  std::vector<char> bytes;
  std::uint64_t offset;  ///< of the first of them, in the file
};

Tail readTail(const fl::filesystem::InputFile& file) {
  const std::uint64_t most = kZip64LocatorSize + kEndSize + kMaximalComment + kToleratedTrailingBytes;
  Tail tail{std::vector<char>(std::min(file.size(), most)), 0};
  tail.offset = file.size() - tail.bytes.size();
  file.read(tail.offset, tail.bytes.data(), tail.bytes.size());
  return tail;
}

/// Only the last signature counts: a comment that holds another one has readers that disagree about the
/// archive.
std::optional<std::size_t> findEnd(const std::vector<char>& tail) {
  if (tail.size() < kEndSize) return std::nullopt;
  for (std::size_t at = tail.size() - kEndSize + 1; at-- > 0;) {
    if (load32(&tail[at]) != kEndSignature) continue;
    const std::size_t end = at + kEndSize + load16(&tail[at + 20]);
    if (end > tail.size() || tail.size() - end > kToleratedTrailingBytes) return std::nullopt;
    return at;
  }
  return std::nullopt;
}

Numbers endNumbers(const char* record) {
  return {load16(record + 4),  load16(record + 6),  load16(record + 8),
          load16(record + 10), load32(record + 12), load32(record + 16)};
}

Numbers zip64Numbers(const char* record) {
  return {load32(record + 16), load32(record + 20), load64(record + 24),
          load64(record + 32), load64(record + 40), load64(record + 48)};
}

/// A number of the short record is either the one of the ZIP64 record or the mark that refers to it.
bool agrees(std::uint64_t brief, std::uint64_t mark, std::uint64_t full) {
  return brief == mark || brief == full;
}

bool agree(const Numbers& brief, const Numbers& full) {
  return agrees(brief.thisDisk, 0xFFFF, full.thisDisk) &&
         agrees(brief.directoryDisk, 0xFFFF, full.directoryDisk) &&
         agrees(brief.entriesOnDisk, 0xFFFF, full.entriesOnDisk) &&
         agrees(brief.entries, 0xFFFF, full.entries) &&
         agrees(brief.directorySize, 0xFFFFFFFF, full.directorySize) &&
         agrees(brief.directoryOffset, 0xFFFFFFFF, full.directoryOffset);
}

struct Zip64End {
  Numbers numbers;
  std::uint64_t offset;
};

/// Reads the ZIP64 record that the locator, which stands at `locatorOffset`, points to.
Zip64End readZip64End(const fl::filesystem::InputFile& file, const char* locator,
                      std::uint64_t locatorOffset) {
  const std::uint64_t offset = load64(locator + 8);
  if (load32(locator + 4) != 0 || load32(locator + 16) > 1) refuse("opc:zip:SeveralDisks", file.path());
  if (locatorOffset < kZip64EndSize || offset > locatorOffset - kZip64EndSize) {
    refuse("opc:zip:Zip64EndBroken", file.path());
  }
  std::array<char, kZip64EndSize> record{};
  file.read(offset, record.data(), record.size());
  // The record may carry an extension but has to reach the locator exactly.
  const std::uint64_t size = load64(&record[4]);
  if (load32(record.data()) != kZip64EndSignature || size != locatorOffset - offset - 12) {
    refuse("opc:zip:Zip64EndBroken", file.path());
  }
  return {zip64Numbers(record.data()), offset};
}

void checkNumbers(const Numbers& numbers, std::uint64_t directoryEnd, const std::string& path) {
  if (numbers.thisDisk != 0 || numbers.directoryDisk != 0 || numbers.entriesOnDisk != numbers.entries) {
    refuse("opc:zip:SeveralDisks", path);
  }
  if (numbers.directorySize > directoryEnd ||
      numbers.directoryOffset != directoryEnd - numbers.directorySize) {
    refuse("opc:zip:DirectoryMisplaced", path);
  }
}

}  // namespace

EndRecord readEndRecord(const fl::filesystem::InputFile& file) {
  const Tail tail = readTail(file);
  const auto at = findEnd(tail.bytes);
  if (!at) refuse("opc:zip:NotAnArchive", file.path());
  const char* record = &tail.bytes[*at];

  Numbers numbers = endNumbers(record);
  std::uint64_t directoryEnd = tail.offset + *at;
  if (*at >= kZip64LocatorSize && load32(record - kZip64LocatorSize) == kZip64LocatorSignature) {
    const Zip64End full = readZip64End(file, record - kZip64LocatorSize, directoryEnd - kZip64LocatorSize);
    if (!agree(numbers, full.numbers)) refuse("opc:zip:EndRecordsDiffer", file.path());
    numbers = full.numbers;
    directoryEnd = full.offset;
  }
  checkNumbers(numbers, directoryEnd, file.path());
  return {numbers.entries, numbers.directoryOffset, numbers.directorySize,
          std::string(record + kEndSize, load16(record + 20))};
}

}  // namespace zip

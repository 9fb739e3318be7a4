#include "platform/zip/written_records.h"

#include <algorithm>

#include <sys/stat.h>
#include <time.h>

#include "platform/zip/little_endian.h"
#include "platform/zip/record_flags.h"

namespace zip {
namespace {

constexpr std::uint32_t kMark32 = 0xFFFFFFFF;  // "the number stands in the ZIP64 field"
constexpr std::uint16_t kMark16 = 0xFFFF;
constexpr std::uint16_t kZip64Field = 0x0001;
constexpr std::uint16_t kMadeByUnix = 3 << 8;
constexpr std::size_t kCentralRecord = 46;

bool isLarge(std::uint64_t number) { return number >= kMark32; }
std::uint32_t orMark(std::uint64_t number) {
  return isLarge(number) ? kMark32 : static_cast<std::uint32_t>(number);
}

template <class Number>
void append(std::string& to, Number number) {
  for (std::size_t i = 0; i < sizeof number; ++i) to += static_cast<char>(number >> (8 * i) & 0xFF);
}

void store(std::string& in, std::size_t at, std::uint64_t number, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) in[at + i] = static_cast<char>(number >> (8 * i) & 0xFF);
}

std::string field(std::uint16_t id, std::string_view content) {
  std::string whole;
  append(whole, id);
  append(whole, static_cast<std::uint16_t>(content.size()));
  return whole.append(content);
}

/// Unzip tools name ten times the version of the format that an entry needs: 1.0, 2.0 for deflate, 4.5 for
/// ZIP64.
std::uint16_t versionNeeded(const NewEntry& entry, bool isZip64) {
  if (isZip64) return 45;
  return entry.method == Method::Deflate ? 20 : 10;
}

/// The run of numbers that both headers of an entry share.
void appendCommon(std::string& to, const NewEntry& entry, bool sizesAreLarge, bool isZip64) {
  const bool isAscii =
      std::all_of(entry.name.begin(), entry.name.end(), [](unsigned char byte) { return byte < 0x80; });
  append(to, versionNeeded(entry, isZip64));
  append(to, isAscii ? std::uint16_t{0} : kUtf8Name);
  append(to, static_cast<std::uint16_t>(entry.method));
  append(to, entry.modified.time);
  append(to, entry.modified.date);
  append(to, entry.checksum);
  append(to, sizesAreLarge ? kMark32 : static_cast<std::uint32_t>(entry.compressedSize));
  append(to, sizesAreLarge ? kMark32 : static_cast<std::uint32_t>(entry.size));
  append(to, static_cast<std::uint16_t>(entry.name.size()));
}

/// Either both sizes stand in the ZIP64 field or none does: a local header may not hold only one.
bool hasLargeSize(const NewEntry& entry) { return isLarge(entry.size) || isLarge(entry.compressedSize); }

std::string sizesField(const NewEntry& entry) {
  std::string sizes;
  append(sizes, entry.size);
  append(sizes, entry.compressedSize);
  return sizes;
}

/// The extra fields of a central record without their ZIP64 field, and where that one stood.
struct OtherFields {
  std::string bytes;
  std::size_t zip64At = 0;
  bool hadZip64 = false;
};

OtherFields withoutZip64(std::string_view extra) {
  OtherFields others;
  std::size_t at = 0;
  while (extra.size() - at >= 4) {
    const std::size_t length = std::min<std::size_t>(4 + load16(extra.data() + at + 2), extra.size() - at);
    const bool isZip64 = !others.hadZip64 && load16(extra.data() + at) == kZip64Field;
    if (isZip64) {
      others.hadZip64 = true;
      others.zip64At = others.bytes.size();
    } else {
      others.bytes.append(extra.substr(at, length));
    }
    at += length;
  }
  others.bytes.append(extra.substr(at));
  return others;
}

/// The ZIP64 numbers of a record whose offset stands there too: of the others those that hold their mark.
std::string zip64WithOffset(const Entry& entry, std::uint64_t offset) {
  const char* record = entry.centralRecord.data();
  std::string numbers;
  if (load32(record + 24) == kMark32) append(numbers, entry.size);
  if (load32(record + 20) == kMark32) append(numbers, entry.compressedSize);
  append(numbers, offset);
  if (load16(record + 34) == kMark16) append(numbers, std::uint32_t{0});
  return field(kZip64Field, numbers);
}

bool appendRecordWithLargeOffset(std::string& directory, const Entry& entry, std::uint64_t offset) {
  std::string_view record = entry.centralRecord;
  const std::size_t extraAt = kCentralRecord + load16(record.data() + 28);
  const std::size_t extraSize = load16(record.data() + 30);
  OtherFields extra = withoutZip64(record.substr(extraAt, extraSize));
  extra.bytes.insert(extra.zip64At, zip64WithOffset(entry, offset));
  if (extra.bytes.size() > kMark16) return false;

  std::string moved(record.substr(0, extraAt));
  const std::uint16_t version = load16(moved.data() + 6);
  if ((version & 0xFF) < 45) store(moved, 6, (version & 0xFF00) | 45, 2);
  store(moved, 30, extra.bytes.size(), 2);
  store(moved, 42, kMark32, 4);
  directory.append(moved).append(extra.bytes).append(record.substr(extraAt + extraSize));
  return true;
}

std::string zip64End(const DirectoryPlace& place) {
  std::string end;
  append(end, std::uint32_t{0x06064B50});
  append(end, std::uint64_t{44});  // what follows of this record
  append(end, static_cast<std::uint16_t>(kMadeByUnix | 45));
  append(end, std::uint16_t{45});
  append(end, std::uint32_t{0});  // this disk, and the one with the directory
  append(end, std::uint32_t{0});
  append(end, place.entries);
  append(end, place.entries);
  append(end, place.size);
  append(end, place.offset);

  append(end, std::uint32_t{0x07064B50});
  append(end, std::uint32_t{0});
  append(end, place.offset + place.size);
  append(end, std::uint32_t{1});  // disks altogether
  return end;
}

}  // namespace

DosTime dosTimeNow() {
  const time_t now = ::time(nullptr);
  struct tm local {};
  ::localtime_r(&now, &local);
  if (local.tm_year < 80) return {0, 1 << 5 | 1};
  const int year = std::min(local.tm_year - 80, 127);
  return {
      static_cast<std::uint16_t>(local.tm_hour << 11 | local.tm_min << 5 | std::min(local.tm_sec, 59) / 2),
      static_cast<std::uint16_t>(year << 9 | (local.tm_mon + 1) << 5 | local.tm_mday)};
}

std::string localHeader(const NewEntry& entry) {
  const bool isZip64 = hasLargeSize(entry);
  const std::string extra = isZip64 ? field(kZip64Field, sizesField(entry)) : std::string();
  std::string header;
  append(header, std::uint32_t{0x04034B50});
  appendCommon(header, entry, isZip64, isZip64);
  append(header, static_cast<std::uint16_t>(extra.size()));
  return header.append(entry.name).append(extra);
}

void appendCentralRecord(std::string& directory, const NewEntry& entry) {
  std::string numbers = hasLargeSize(entry) ? sizesField(entry) : std::string();
  if (isLarge(entry.headerOffset)) append(numbers, entry.headerOffset);
  const bool isZip64 = !numbers.empty();
  const std::string extra = isZip64 ? field(kZip64Field, numbers) : std::string();

  append(directory, std::uint32_t{0x02014B50});
  append(directory, static_cast<std::uint16_t>(kMadeByUnix | (isZip64 ? 45 : 20)));
  appendCommon(directory, entry, hasLargeSize(entry), isZip64);
  append(directory, static_cast<std::uint16_t>(extra.size()));
  append(directory, std::uint16_t{0});  // no comment
  append(directory, std::uint16_t{0});  // first disk
  append(directory, std::uint16_t{0});  // no internal attributes
  append(directory, static_cast<std::uint32_t>(S_IFREG | 0644) << 16);
  append(directory, orMark(entry.headerOffset));
  directory.append(entry.name).append(extra);
}

bool appendMovedRecord(std::string& directory, const Entry& entry, std::uint64_t offset) {
  // A record that keeps its offset in the ZIP64 field goes on doing so, also where it would no longer have
  // to.
  const bool offsetIsInZip64 = load32(entry.centralRecord.data() + 42) == kMark32;
  if (offsetIsInZip64 || isLarge(offset)) return appendRecordWithLargeOffset(directory, entry, offset);
  const std::size_t start = directory.size();
  directory.append(entry.centralRecord);
  store(directory, start + 42, offset, 4);
  return true;
}

std::string directoryEnd(const DirectoryPlace& place, std::string_view comment) {
  const bool isZip64 = place.entries >= kMark16 || isLarge(place.offset) || isLarge(place.size);
  std::string end = isZip64 ? zip64End(place) : std::string();
  const auto entries = static_cast<std::uint16_t>(std::min<std::uint64_t>(place.entries, kMark16));
  append(end, std::uint32_t{0x06054B50});
  append(end, std::uint32_t{0});  // this disk, and the one with the directory
  append(end, entries);
  append(end, entries);
  append(end, orMark(place.size));
  append(end, orMark(place.offset));
  append(end, static_cast<std::uint16_t>(comment.size()));
  return end.append(comment);
}

}  // namespace zip

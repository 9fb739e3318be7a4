#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/zip/directory.h"

namespace zip {

/// A moment as ZIP keeps it: local time in steps of two seconds, from 1980 to 2107.
struct DosTime {
  std::uint16_t time, date;
};
DosTime dosTimeNow();

/// What the headers of a new entry say.
struct NewEntry {
  std::string_view name;  ///< at most 65,535 bytes
  Method method;
  DosTime modified;
  std::uint32_t checksum;
  std::uint64_t size, compressedSize;
  std::uint64_t headerOffset;
};

std::string localHeader(const NewEntry& entry);
void appendCentralRecord(std::string& directory, const NewEntry& entry);

/// Appends the central record of an entry whose local header now lies at `offset`. Everything else that it
/// says survives byte for byte. False, and nothing appended, if its extra fields have no room for a ZIP64
/// offset.
bool appendMovedRecord(std::string& directory, const Entry& entry, std::uint64_t offset);

/// Where the directory of an archive lies.
struct DirectoryPlace {
  std::uint64_t entries, offset, size;
};

/// What follows the directory: ZIP64 records if a number asks for them, the end record and the comment (at
/// most 65,535 bytes).
std::string directoryEnd(const DirectoryPlace& place, std::string_view comment);

}  // namespace zip

#pragma once

#include <cstdint>
#include <string>

#include "platform/files/descriptor.h"

namespace zip {

/// What the end of an archive says about its directory, ZIP64 values already in place.
struct EndRecord {
  std::uint64_t entries = 0;
  std::uint64_t directoryOffset = 0, directorySize = 0;
  std::string comment;
};

/// Bytes that may follow the end record: line ends added in transport, padding to a block of 16.
/// They are no part of the archive and are lost when it is saved.
inline constexpr std::size_t kToleratedTrailingBytes = 16;

/// Finds and checks the end record. The directory it describes lies inside the file and touches the end
/// records, so offsets count from the start of the file also where something stands before the first entry.
/// Raises PackageOpenFailed if there is no end record, if the ZIP64 record is broken or says something else,
/// if the archive is spread over several disks, or if the directory lies elsewhere.
EndRecord readEndRecord(const fl::filesystem::InputFile& file);

}  // namespace zip

#pragma once

#include <cstddef>
#include <cstdint>

namespace zip {

/// What a package may at most ask of its reader. The defaults are far above what sessions need; they keep a
/// hostile file from taking the machine's memory or time. Changes to a package end at the same numbers of
/// entries and relationships and the same sizes of documents, so that what is saved can be opened again.
struct Limits {
  /// Records in the central directory.
  std::uint64_t entries = 262'144;
  /// 256 bytes for each of so many entries. What is kept of a directory beside itself, the keys of its parts,
  /// is no larger.
  std::uint64_t directoryBytes = std::uint64_t{64} << 20;
  /// Of all relationship parts together, unpacked.
  std::uint64_t relationshipBytes = std::uint64_t{16} << 20;
  /// Of the package and all its parts together.
  std::size_t relationships = 100'000;
  /// Of the list of content types, unpacked.
  std::uint64_t contentTypeBytes = std::uint64_t{64} << 20;
  /// Elements inside each other, the root included.
  int xmlDepth = 64;
  /// What all input streams of one opening together may give: a small package can unpack to terabytes.
  std::uint64_t inflatedBytesPerOpen = std::uint64_t{64} << 30;

  bool operator==(const Limits&) const = default;
};

}  // namespace zip

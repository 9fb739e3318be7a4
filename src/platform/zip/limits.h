#pragma once

#include <cstddef>
#include <cstdint>

namespace zip {

/// What a package may at most ask of its reader. The defaults are far above what sessions need; they keep a
/// hostile file from taking the machine's memory or time.
struct Limits {
  std::uint64_t entries = 262'144;
  /// 256 bytes for each of so many entries. What is kept of a directory beside itself, the keys of its parts,
  /// is no larger.
  std::uint64_t directoryBytes = std::uint64_t{64} << 20;
  std::uint64_t relationshipBytes = std::uint64_t{16} << 20;
  std::size_t relationships = 100'000;
  std::uint64_t contentTypeBytes = std::uint64_t{64} << 20;
  int xmlDepth = 64;
  std::uint64_t inflatedBytesPerOpen = std::uint64_t{64} << 30;

  bool operator==(const Limits&) const = default;
};

}  // namespace zip

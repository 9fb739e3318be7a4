#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace zip {

/// The extra fields of one header that say something about where an entry lies, how long it is or what it is
/// called.
struct ExtraFields {
  std::optional<std::string_view> zip64;  ///< 64-bit numbers, of those fields only that hold their mark
  std::optional<std::string_view>
      unicodePath;  ///< a second name, as version, checksum of the first one, UTF-8

  /// Nothing if a field reaches past the end or one of the two above stands there twice. Up to three bytes of
  /// padding, too few to hold a field, are let pass: aligning tools leave them.
  static std::optional<ExtraFields> parse(std::string_view extra);

  /// Whether some reader would call the entry something else than `name`.
  bool givesOtherNameThan(std::string_view name) const;
};

/// Takes the 64-bit numbers out of a ZIP64 field, front to back.
class Zip64Numbers {
 public:
  explicit Zip64Numbers(std::string_view field) : rest_(field) {}
  /// Replaces `number` by the next one in the field if it is `mark`; false if the field has ended.
  bool replaceMark(std::uint64_t& number, std::uint64_t mark, std::size_t width = 8);

 private:
  std::string_view rest_;
};

}  // namespace zip

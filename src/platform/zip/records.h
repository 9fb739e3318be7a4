#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The records of a ZIP archive as they lie in its bytes: numbers lowest byte first, signatures, flags and
/// extra fields.
namespace zip {

/// Numbers are read and written byte by byte: records lie at any address, and the machine's own byte order
/// does not matter.
inline std::uint16_t load16(const char* at) {
  const auto* byte = reinterpret_cast<const unsigned char*>(at);
  return static_cast<std::uint16_t>(byte[0] | byte[1] << 8);
}

inline std::uint32_t load32(const char* at) {
  return load16(at) | static_cast<std::uint32_t>(load16(at + 2)) << 16;
}

inline std::uint64_t load64(const char* at) {
  return load32(at) | static_cast<std::uint64_t>(load32(at + 4)) << 32;
}

template <class Number>
void store(char* at, Number number) {
  for (std::size_t i = 0; i < sizeof number; ++i) at[i] = static_cast<char>(number >> (8 * i) & 0xFF);
}

template <class Number>
void append(std::string& to, Number number) {
  to.resize(to.size() + sizeof number);
  store(to.data() + to.size() - sizeof number, number);
}

/// What each kind of record starts with: "PK" and two bytes more.
inline constexpr std::uint32_t kLocalSignature = 0x04034b50, kDescriptorSignature = 0x08074b50,
                               kCentralSignature = 0x02014b50, kEndSignature = 0x06054b50,
                               kZip64EndSignature = 0x06064b50, kZip64LocatorSignature = 0x07064b50;
/// Of the records without what varies in length.
inline constexpr std::size_t kLocalSize = 30, kCentralSize = 46, kEndSize = 22, kZip64EndSize = 56,
                             kZip64LocatorSize = 20;

/// Stands where a number is too large for its field: the ZIP64 record or extra field has it.
inline constexpr std::uint32_t kInZip64Field = 0xFFFFFFFF;
inline constexpr std::uint16_t kInZip64Record = 0xFFFF;

/// Bits of the general purpose flags (APPNOTE 4.4.4) that local headers and central records both carry.
inline constexpr std::uint16_t kEncrypted = 1U << 0, kHasDescriptor = 1U << 3, kPatchData = 1U << 5,
                               kStrongEncryption = 1U << 6, kUtf8Name = 1U << 11, kMaskedHeaders = 1U << 13;
/// Any of them makes an entry unreadable: its data, or the fields of its header, are hidden.
inline constexpr std::uint16_t kAnyEncryption = kEncrypted | kStrongEncryption | kMaskedHeaders;

/// Names that are all ASCII are the same in every encoding and carry no flag.
inline bool isAscii(std::string_view name) {
  return std::all_of(name.begin(), name.end(), [](unsigned char byte) { return byte < 0x80; });
}

/// Extra fields (APPNOTE 4.5): number, size and content, one after the other.
inline constexpr std::uint16_t kZip64FieldId = 0x0001, kUnicodePathId = 0x7075;
inline constexpr std::size_t kFieldHeaderSize = 4;

/// The extra fields of one header that say something about where an entry lies, how long it is or what it is
/// called.
struct ExtraFields {
  std::optional<std::string_view> zip64;        ///< 64-bit numbers, of those only that hold kInZip64Field
  std::optional<std::string_view> unicodePath;  ///< version, checksum of the first name, a second in UTF-8

  /// Nothing if a field reaches past the end or one of the two above stands there twice. Up to three bytes of
  /// padding, too few to hold a field, are let pass: aligning tools leave them.
  static std::optional<ExtraFields> parse(std::string_view extra) {
    ExtraFields fields;
    while (extra.size() >= kFieldHeaderSize) {
      const std::uint16_t id = load16(extra.data());
      const std::size_t size = load16(extra.data() + 2);
      extra.remove_prefix(kFieldHeaderSize);
      if (size > extra.size()) return std::nullopt;
      auto* const field = id == kZip64FieldId    ? &fields.zip64
                          : id == kUnicodePathId ? &fields.unicodePath
                                                 : nullptr;
      if (field != nullptr && field->has_value()) return std::nullopt;
      if (field != nullptr) *field = extra.substr(0, size);
      extra.remove_prefix(size);
    }
    return fields;
  }

  /// Whether some reader would call the entry something else than `name`. The checksum in the field tells
  /// careful readers to ignore it when the name was changed since, but not all are careful.
  bool givesOtherNameThan(std::string_view name) const {
    constexpr std::size_t kBeforeName = 5;
    return unicodePath && (unicodePath->size() < kBeforeName || unicodePath->substr(kBeforeName) != name);
  }
};

/// Takes the numbers out of a ZIP64 field (APPNOTE 4.5.3), front to back. The field has no tags: which
/// numbers it holds follows from the record, so they must be asked for in the order of the format.
class Zip64Numbers {
 public:
  explicit Zip64Numbers(std::string_view field) : rest_(field) {}

  /// Replaces `number` by the next in the field if it stands for that; false if the field has ended.
  bool resolve(std::uint64_t& number) {
    if (number != kInZip64Field) return true;
    if (rest_.size() < 8) return false;
    number = load64(rest_.data());
    rest_.remove_prefix(8);
    return true;
  }
  /// The same for the number of a disk, which is narrower.
  bool resolveDisk(std::uint64_t& disk) {
    if (disk != kInZip64Record) return true;
    if (rest_.size() < 4) return false;
    disk = load32(rest_.data());
    rest_.remove_prefix(4);
    return true;
  }

 private:
  std::string_view rest_;
};

}  // namespace zip

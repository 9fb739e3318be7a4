#include "platform/zip/extra_fields.h"

#include "platform/zip/little_endian.h"

namespace zip {
namespace {

constexpr std::uint16_t kZip64 = 0x0001;
constexpr std::uint16_t kUnicodePath = 0x7075;
constexpr std::size_t kFieldHeader = 4;
constexpr std::size_t kUnicodePathHeader = 5;

bool takeOnce(std::optional<std::string_view>& place, std::string_view content) {
  if (place) return false;
  place = content;
  return true;
}

}  // namespace

std::optional<ExtraFields> ExtraFields::parse(std::string_view extra) {
  ExtraFields fields;
  while (extra.size() >= kFieldHeader) {
    const std::uint16_t id = load16(extra.data());
    const std::size_t size = load16(extra.data() + 2);
    extra.remove_prefix(kFieldHeader);
    if (size > extra.size()) return std::nullopt;
    const std::string_view content = extra.substr(0, size);
    extra.remove_prefix(size);
    if (id == kZip64 && !takeOnce(fields.zip64, content)) return std::nullopt;
    if (id == kUnicodePath && !takeOnce(fields.unicodePath, content)) return std::nullopt;
  }
  return fields;
}

bool ExtraFields::givesOtherNameThan(std::string_view name) const {
  if (!unicodePath) return false;
  // The checksum in the field tells careful readers to ignore it when the name was changed since. Not all are
  // careful.
  return unicodePath->size() < kUnicodePathHeader || unicodePath->substr(kUnicodePathHeader) != name;
}

bool Zip64Numbers::replaceMark(std::uint64_t& number, std::uint64_t mark, std::size_t width) {
  if (number != mark) return true;
  if (rest_.size() < width) return false;
  number = width == 8 ? load64(rest_.data()) : load32(rest_.data());
  rest_.remove_prefix(width);
  return true;
}

}  // namespace zip

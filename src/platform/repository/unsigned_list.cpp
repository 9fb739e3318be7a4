#include "platform/repository/unsigned_list.h"

namespace orra {

void appendUnsigned(std::string& packed, std::uint64_t number) {
  for (; number >= 0x80; number >>= 7) packed.push_back(static_cast<char>(number | 0x80));
  packed.push_back(static_cast<char>(number));
}

std::vector<std::uint64_t> unpackUnsigned(std::string_view packed) {
  std::vector<std::uint64_t> list;
  std::uint64_t number = 0;
  unsigned shift = 0;
  for (const char byte : packed) {
    if (shift < 64) number |= static_cast<std::uint64_t>(byte & 0x7F) << shift;
    shift += 7;
    if ((byte & 0x80) != 0) continue;
    list.push_back(number);
    number = 0;
    shift = 0;
  }
  return list;
}

}  // namespace orra

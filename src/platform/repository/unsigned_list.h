#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace orra {

/// Lists of numbers as the repository stores them: each in as few bytes as its value needs, seven bits a
/// byte, lowest first; the top bit says that another byte follows.
void appendUnsigned(std::string& packed, std::uint64_t number);

/// What appendUnsigned wrote; whatever else the bytes are, a list comes out.
std::vector<std::uint64_t> unpackUnsigned(std::string_view packed);

}  // namespace orra

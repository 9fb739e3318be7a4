#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavlox::cli {

/// Tells people which runs there are: "there is no run 7; the file has the runs 1, 2 and 3". Long lists are
/// cut.
std::u16string unknownRunHint(std::int32_t unknown, const std::vector<std::int32_t>& present);

}  // namespace tavlox::cli

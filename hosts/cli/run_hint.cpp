#include "hosts/cli/run_hint.h"

#include <span>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

constexpr std::size_t kMostNamed = 10;

std::string runsThereAre(std::span<const std::int32_t> present) {
  if (present.empty()) return "no runs";
  if (present.size() == 1) return fmt::format("only the run {}", present.front());
  if (present.size() > kMostNamed) {
    const std::string first = fmt::format("{}", fmt::join(present.first(kMostNamed), ", "));
    return fmt::format("the runs {} and {} more", first, present.size() - kMostNamed);
  }
  return fmt::format("the runs {} and {}", fmt::join(present.first(present.size() - 1), ", "),
                     present.back());
}

}  // namespace

std::u16string unknownRunHint(std::int32_t unknown, const std::vector<std::int32_t>& present) {
  return fl::i18n::to_ustring(
      fmt::format("there is no run {}; the file has {}", unknown, runsThereAre(present)));
}

}  // namespace tavlox::cli

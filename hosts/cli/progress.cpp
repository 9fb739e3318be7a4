#include "hosts/cli/progress.h"

#include <algorithm>
#include <cstdio>

#include <fmt/format.h>

#include "hosts/cli/terminal.h"

namespace tavlox::cli {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBarWidth = 20;
constexpr std::size_t kShortestActivity = 10;

bool isShown = false;

/// "[#####...............]  25 %"
std::string bar(std::uint64_t done, std::uint64_t total) {
  const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
  const auto filled = static_cast<std::size_t>(share * kBarWidth);
  return fmt::format("[{:.<{}}] {:3} %", std::string(filled, '#'), kBarWidth, static_cast<int>(share * 100));
}

/// The first `width` characters of UTF-8 text.
std::string cut(const std::string& text, std::size_t width) {
  if (displayWidth(text) <= width) return text;
  std::size_t end = 0;
  for (std::size_t shown = 0; shown <= width; ++end) {
    if (displayWidth(std::string_view(text).substr(end, 1)) == 1 && ++shown > width) break;
  }
  return text.substr(0, end);
}

}  // namespace

std::string progressLine(const corvan::Progress& progress, std::size_t width) {
  const std::string activity = singleLine(progress.activity, Backslashes::Kept);
  if (progress.total == 0) return cut(activity + " ...", width);
  const std::string share = bar(progress.done, progress.total);
  if (width < kShortestActivity + 2 + share.size()) return cut(activity, width);
  return fmt::format("{}  {}", cut(activity, width - share.size() - 2), share);
}

ProgressDisplay::ProgressDisplay()
    : next_(Clock::now() + 1s),
      subscription_(isTerminal(stderr)
                        ? corvan::ProgressListener([this](const auto& progress) { show(progress); })
                        : corvan::ProgressListener()) {}

ProgressDisplay::~ProgressDisplay() { eraseProgress(); }

void ProgressDisplay::show(const corvan::Progress& progress) {
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + 200ms;
  isShown = true;
  // The last column stays free: a full line would move some terminals to the next one.
  const std::string line = progressLine(progress, columnsOf(stderr) - 1);
  printError(fmt::format("\r{}\x1b[K", line));
}

void eraseProgress() {
  if (isShown) printError("\r\x1b[K");
  isShown = false;
}

}  // namespace tavlox::cli

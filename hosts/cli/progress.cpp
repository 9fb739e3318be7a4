#include "hosts/cli/progress.h"

#include <cstdio>

#include <fmt/format.h>

#include "hosts/cli/terminal.h"

namespace tavlox::cli {

using namespace std::chrono_literals;

Progress::Progress() : isWanted_(isTerminal(stderr)), next_(Clock::now() + 1s) {}

Progress::~Progress() {
  if (isShown_) std::fputs("\r\x1b[K", stderr);
}

void Progress::show(const std::u16string& file, std::uint64_t bytes) {
  const Clock::time_point now = Clock::now();
  if (!isWanted_ || now < next_) return;
  next_ = now + 200ms;
  isShown_ = true;
  const std::string line = fmt::format("\r{}: {} MiB read\x1b[K", singleLine(file), bytes >> 20);
  std::fputs(line.c_str(), stderr);
}

}  // namespace tavlox::cli

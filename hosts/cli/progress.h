#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tavlox::cli {

/// Shows how far long work has come: on a terminal's standard error, once it takes longer than a second, and
/// then a few times a second. The line is wiped away at the end.
class Progress {
 public:
  Progress();
  ~Progress();
  void show(const std::u16string& file, std::uint64_t bytes);

 private:
  using Clock = std::chrono::steady_clock;
  bool isWanted_;
  bool isShown_ = false;
  Clock::time_point next_;
};

}  // namespace tavlox::cli

#pragma once

#include <chrono>
#include <string>

#include "platform/progress/progress.h"

namespace tavlox::cli {

/// Shows how far long work of the platform, the module and this program has come: on a terminal's standard
/// error, once it takes longer than a second, and then a few times a second. One stands for the whole run of
/// a command; its line is wiped away before anything else is said, and at the end.
class ProgressDisplay {
 public:
  ProgressDisplay();
  ~ProgressDisplay();

 private:
  using Clock = std::chrono::steady_clock;
  void show(const corvan::Progress& progress);

  Clock::time_point next_;
  corvan::ProgressSubscription subscription_;
};

/// Wipes the line away, if there is one.
void eraseProgress();

/// "Loading signals  [#####...............]  25 %", or the activity alone where no total is known; cut to
/// `width` columns.
std::string progressLine(const corvan::Progress& progress, std::size_t width);

}  // namespace tavlox::cli

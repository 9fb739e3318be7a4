#include "platform/progress/progress.h"

#include <utility>

namespace corvan {
namespace {

// One for the process, and made at its first use: other static variables may report or subscribe before those
// of this file are initialised.
ProgressListener& currentListener() {
  static ProgressListener listener;
  return listener;
}

}  // namespace

void reportProgress(const Progress& progress) {
  if (const ProgressListener& listener = currentListener()) listener(progress);
}

ProgressSubscription::ProgressSubscription(ProgressListener listener)
    : previous_(std::exchange(currentListener(), std::move(listener))) {}

ProgressSubscription::~ProgressSubscription() { currentListener() = std::move(previous_); }

}  // namespace corvan

#include "platform/progress/progress.h"

#include <utility>

namespace corvan {
namespace {

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

#pragma once

#include <cstdint>
#include <functional>

/// How far long work has come. Loops of the platform that may take a while report here; a host that wants to
/// show progress subscribes. Without a subscriber a report costs one comparison.
namespace corvan {

/// One report.
struct Progress {
  const char16_t* activity;  ///< what is being done, in English: u"Loading signals"; valid during the call
  std::uint64_t done = 0;
  std::uint64_t total = 0;  ///< in the unit of `done`; 0 if it is not known
};

/// Called on the thread that does the work, in the midst of it.
using ProgressListener = std::function<void(const Progress&)>;

/// Tells the listener, if there is one. Called often: listeners must be quick. What a listener raises passes
/// through the loop that reports, and so ends its operation.
void reportProgress(const Progress& progress);

/// Subscribes for as long as it lives; afterwards the previous listener is called again. Only the newest
/// subscription hears reports, and subscriptions must end in the reverse order of their beginning.
class ProgressSubscription {
 public:
  explicit ProgressSubscription(ProgressListener listener);
  ~ProgressSubscription();
  ProgressSubscription(const ProgressSubscription&) = delete;
  ProgressSubscription& operator=(const ProgressSubscription&) = delete;

 private:
  ProgressListener previous_;
};

}  // namespace corvan

#include "platform/progress/progress.h"

#include <string>

#include <gtest/gtest.h>

using corvan::ProgressSubscription;
using corvan::reportProgress;

TEST(Progress, ReachesTheLatestSubscriberOnly) {
  std::string heard;
  const auto report = [] { reportProgress({u"Counting", 1, 2}); };
  report();
  {
    const ProgressSubscription outer([&](const corvan::Progress&) { heard += "outer "; });
    {
      const ProgressSubscription inner([&](const corvan::Progress&) { heard += "inner "; });
      report();
    }
    report();
  }
  report();
  EXPECT_EQ(heard, "inner outer ");
}

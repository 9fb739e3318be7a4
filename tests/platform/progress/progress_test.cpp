#include "platform/progress/progress.h"

#include <gtest/gtest.h>

TEST(Progress, ReachesTheLatestSubscriberOnly) {
  std::string heard;
  const auto hear = [&](std::string name) { return [&heard, name](const auto&) { heard += name; }; };
  corvan::reportProgress({u"Counting", 1, 2});
  {
    const corvan::ProgressSubscription outer(hear("outer "));
    {
      const corvan::ProgressSubscription inner(hear("inner "));
      corvan::reportProgress({u"Counting", 1, 2});
    }
    corvan::reportProgress({u"Counting", 1, 2});
  }
  corvan::reportProgress({u"Counting", 1, 2});
  EXPECT_EQ(heard, "inner outer ");
}

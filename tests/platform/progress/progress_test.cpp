#include "platform/progress/progress.h"

#include <gtest/gtest.h>

TEST(Progress, ReachesTheLatestSubscriberOnly) {
  std::string heard;
  const auto hear = [&](char name) { return [&heard, name](const auto&) { heard += name; }; };
  {
    const corvan::ProgressSubscription outer(hear('o'));
    {
      const corvan::ProgressSubscription inner(hear('i'));
      corvan::reportProgress({u"Counting", 1, 2});
    }
    corvan::reportProgress({u"Counting", 1, 2});
  }
  corvan::reportProgress({u"Counting", 1, 2});
  EXPECT_EQ(heard, "io");
}

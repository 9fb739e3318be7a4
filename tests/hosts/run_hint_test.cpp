#include "hosts/cli/run_hint.h"

#include <numeric>

#include <gtest/gtest.h>

namespace {

TEST(RunHint, NamesTheRunsThereAreAndCutsLongLists) {
  std::vector<std::int32_t> hundred(100);
  std::iota(hundred.begin(), hundred.end(), 1);
  struct {
    std::vector<std::int32_t> present;
    const char16_t* hint;
  } const cases[] = {
      {{}, u"there is no run 7; the file has no runs"},
      {{-2}, u"there is no run 7; the file has only the run -2"},
      {{3, 1}, u"there is no run 7; the file has the runs 3 and 1"},
      {{1, 2, 3}, u"there is no run 7; the file has the runs 1, 2 and 3"},
      {hundred, u"there is no run 7; the file has the runs 1, 2, 3, 4, 5, 6, 7, 8, 9, 10 and 90 more"},
  };
  for (const auto& expected : cases)
    EXPECT_EQ(tavlox::cli::unknownRunHint(7, expected.present), expected.hint);
}

}  // namespace

#include <cmath>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "platform/samples/grid.h"
#include "platform/samples/reduction.h"
#include "tests/platform/samples/session_of.h"

using namespace tavlox;
using namespace tavlox::samples;
using support::sessionOf;

namespace {

std::string show(Grid grid) {
  std::string shown;
  while (grid.next()) {
    shown += fmt::format("{}{}:", shown.empty() ? "" : "; ", grid.time());
    for (const double value : grid.values()) shown += std::isnan(value) ? " -" : fmt::format(" {}", value);
  }
  return shown;
}

std::string show(const std::vector<Sample>& samples) {
  std::string shown;
  for (const auto& [time, value] : samples)
    shown += fmt::format("{}{}={}", shown.empty() ? "" : " ", time, value);
  return shown;
}

}  // namespace

TEST(Grid, JoinsRunsOnOtherTimes) {
  const support::SessionFixture files;
  const std::vector<std::string> tables{"t,a\n0,0\n1,10\n1,20\n3,40\n", "t,a,b\n0.5,5,nan\n2.5,7,1\n"};
  const struct {
    const char16_t* dataType;
    std::optional<double> step;
    const char* shown;
  } kGrids[] = {
      {u"double", {}, "0: 0 - -; 0.5: 5 5 -; 1: 20 5.5 -; 2.5: 35 7 1; 3: 40 - -"},
      {u"int8", {}, "0: 0 - -; 0.5: 0 5 -; 1: 20 5 -; 2.5: 20 7 1; 3: 40 - -"},
      {u"double", 1, "0: 0 - -; 1: 20 5.5 -; 2: 30 6.5 -; 3: 40 - -"},
  };
  for (const auto& [dataType, step, shown] : kGrids) {
    const RecordedSession session = sessionOf(files, "s.tavlox", tables, dataType);
    std::vector<RunOnGrid> runs;
    for (const RecordedRun& run : session.runs()) {
      Wanted wanted;
      for (const RecordedSignal& signal : run.signals) wanted.columns.push_back(signal.column);
      const std::vector between(run.signals.size(), betweenSamplesOf(dataType));
      runs.emplace_back(session.read(run, wanted), between);
    }
    EXPECT_EQ(step ? show(Grid(std::move(runs), 0, 3, *step)) : show(Grid(std::move(runs))), shown);
  }
}

TEST(Grid, MeetsTheTimesThatAStepMeans) {
  // 3 * 0.1 is a little above 0.3, and 0.1 + 0.7 a little below 0.8.
  const support::SessionFixture files;
  const RecordedSession session = sessionOf(
      files, "s.tavlox", {"t,a\n0.1,1\n0.2,2\n0.3,3\n0.4,4\n0.5,5\n0.6,6\n0.7,7\n0.8,8\n"}, u"int8");
  std::vector<RunOnGrid> runs;
  runs.emplace_back(session.read(session.runs()[0], {.columns = {2}}), std::vector{Between::Held});
  EXPECT_EQ(show(Grid(std::move(runs), 0.1, 0.8, 0.1)),
            "0.1: 1; 0.2: 2; 0.3: 3; 0.4: 4; 0.5: 5; 0.6: 6; 0.7: 7; 0.8: 8");
}

TEST(Reduction, KeepsFirstSmallestLargestAndLastOfEachBucket) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  const double values[] = {5, 1, 9, 6, kNan, kNan, 3, 3, 2};
  Reduction reduction(0, 8, 4);
  // Left out: what lies outside.
  reduction.add(-1, 100);
  for (int i = 0; i < 9; ++i) reduction.add(i, values[i]);
  reduction.add(9, 100);
  EXPECT_EQ(show(reduction.samples()), "0=5 1=1 2=9 3=6 6=3 8=2");
  EXPECT_TRUE(reduction.buckets()[2].hasGap);
  EXPECT_EQ(reduction.buckets()[2].count, 0u);
  const Reduction half = reduction.halved();
  EXPECT_EQ(show(half.samples()), "0=5 1=1 2=9 3=6 6=3 8=2");
  EXPECT_EQ(show(half.halved().samples()), "0=5 1=1 2=9 8=2");
  EXPECT_TRUE(half.halved().buckets()[0].hasGap);
}

TEST(Reduction, LosesNoSpikeAtAnyLevel) {
  // One sample up and one down in a row, wherever they lie.
  for (int at = 0; at < 999; at += 37) {
    Reduction reduction(0, 999, 100);
    for (int i = 0; i < 1000; ++i) reduction.add(i, i == at ? 7 : i == at + 1 ? -7 : std::sin(i));
    for (int level = 0; level < 7; ++level, reduction = reduction.halved()) {
      const std::string shown = show(reduction.samples());
      EXPECT_NE(shown.find(fmt::format("{}=7", at)), std::string::npos) << at;
      EXPECT_NE(shown.find(fmt::format("{}=-7", at + 1)), std::string::npos) << at;
    }
    EXPECT_EQ(reduction.buckets().size(), 1u);
  }
}

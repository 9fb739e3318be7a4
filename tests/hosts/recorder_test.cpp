#include "hosts/cli/recorder.h"

#include <utility>

#include <gtest/gtest.h>

#include "platform/progress/progress.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

namespace {

using tavlox::SessionWriter;
using tavlox::cli::RecordingPlan;
using tavlox::cli::recordSession;

constexpr std::string_view kGoodTable = "time [s],v [V]\n0,1\n1,2\n";

class Recorder : public testing::Test {
 protected:
  std::string raisedByRecording(const RecordingPlan& plan) {
    return support::raisedBy([&] { recordSession(plan); });
  }
  std::size_t filesInFolder() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder_.path()), {}));
  }

  support::TemporaryFolder folder_;
};

TEST_F(Recorder, NamesRunsAfterTheirFilesAndTakesTheirTimes) {
  folder_.write("hot.v2.csv", "time [ms],v [V],w\n500,1,2\n1000,3,4\n");
  const auto runs = recordSession(
      {.output = folder_.wide("s.tavlox"), .tables = {folder_.wide("hot.v2.csv")}, .description = {}});
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].run.name, u"hot.v2");
  EXPECT_EQ(runs[0].run.startTime, 0.5);
  EXPECT_EQ(runs[0].run.stopTime, 1.0);
  EXPECT_EQ(runs[0].signalCount, 2u);
  EXPECT_EQ(runs[0].rowCount, 2u);
}

TEST_F(Recorder, LeavesNothingBehindWhenALaterTableIsBad) {
  folder_.write("good.csv", kGoodTable);
  folder_.write("bad.csv", "time,v\n0,1\n1,x\n");
  EXPECT_EQ(raisedByRecording({.output = folder_.wide("s.tavlox"),
                               .tables = {folder_.wide("good.csv"), folder_.wide("bad.csv")},
                               .description = {}}),
            "tavlox:record:SampleNotANumber(" + folder_.narrow("bad.csv") + ", 3, 2, x)");
  EXPECT_EQ(filesInFolder(), 2u);
}

TEST_F(Recorder, KeepsThePackageItWasToReplaceWhenATableIsBad) {
  folder_.write("s.tavlox", "an older session");
  folder_.write("bad.csv", "time,v\n");
  raisedByRecording({.output = folder_.wide("s.tavlox"),
                     .tables = {folder_.wide("bad.csv")},
                     .description = {},
                     .existing = SessionWriter::Existing::Replace});
  EXPECT_EQ(folder_.read("s.tavlox"), "an older session");
  EXPECT_EQ(filesInFolder(), 2u);
}

TEST_F(Recorder, RefusesATableThatGrowsWhileItIsRead) {
  const auto table = folder_.write("growing.csv", kGoodTable);
  bool grown = false;
  const corvan::ProgressSubscription growOnce([&](const corvan::Progress&) {
    if (!std::exchange(grown, true)) std::ofstream(table, std::ios::app) << "2,3\n";
  });
  EXPECT_EQ(
      raisedByRecording(
          {.output = folder_.wide("s.tavlox"), .tables = {folder_.wide("growing.csv")}, .description = {}}),
      "tavlox:record:TableChanged(" + folder_.narrow("growing.csv") + ")");
  EXPECT_EQ(filesInFolder(), 1u);
}

TEST_F(Recorder, RefusesFilesThatItCannotUse) {
  folder_.write("good.csv", kGoodTable);
  folder_.write("old.tavlox", "an older session");
  std::filesystem::create_directory(folder_.path() / "folder.csv");
  std::filesystem::create_symlink("good.csv", folder_.path() / "link.tavlox");
  struct {
    const char *output, *table, *raised;
    SessionWriter::Existing existing;
  } const cases[] = {
      {"old.tavlox", "good.csv", "tavlox:record:OutputExists", SessionWriter::Existing::Refuse},
      {"good.csv", "good.csv", "tavlox:record:OutputIsTable", SessionWriter::Existing::Replace},
      {"link.tavlox", "good.csv", "tavlox:record:OutputIsTable", SessionWriter::Existing::Replace},
      {"new.tavlox", "missing.csv", "tavlox:general:FileNotFound", SessionWriter::Existing::Refuse},
      {"new.tavlox", "folder.csv", "tavlox:record:CannotReadTable", SessionWriter::Existing::Refuse},
  };
  for (const auto& expected : cases) {
    const std::string raised = raisedByRecording({.output = folder_.wide(expected.output),
                                                  .tables = {folder_.wide(expected.table)},
                                                  .description = {},
                                                  .existing = expected.existing});
    EXPECT_EQ(raised.substr(0, raised.find('(')), expected.raised)
        << expected.output << " " << expected.table;
  }
  EXPECT_EQ(folder_.read("good.csv"), kGoodTable);
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "new.tavlox"));
}

}  // namespace

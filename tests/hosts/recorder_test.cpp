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
  support::TemporaryFolder folder_;
};

TEST_F(Recorder, RefusesATableThatGrowsWhileItIsRead) {
  const auto table = folder_.write("growing.csv", kGoodTable);
  bool grown = false;
  const corvan::ProgressSubscription growOnce([&](const corvan::Progress&) {
    if (!std::exchange(grown, true)) std::ofstream(table, std::ios::app) << "2,3\n";
  });
  const RecordingPlan plan{
      .output = folder_.wide("s.tavlox"), .tables = {folder_.wide("growing.csv")}, .description = {}};
  EXPECT_EQ(support::raisedBy([&] { recordSession(plan); }),
            "tavlox:record:TableChanged(" + folder_.narrow("growing.csv") + ")");
  EXPECT_EQ(folder_.entryCount(), 1u);
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
    const RecordingPlan plan{.output = folder_.wide(expected.output),
                             .tables = {folder_.wide(expected.table)},
                             .description = {},
                             .existing = expected.existing};
    EXPECT_EQ(support::ruleOf([&] { recordSession(plan); }), expected.raised)
        << expected.output << " " << expected.table;
  }
  EXPECT_EQ(folder_.read("good.csv"), kGoodTable);
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "new.tavlox"));
}

}  // namespace

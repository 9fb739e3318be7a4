#include <fstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "hosts/cli/command.h"
#include "platform/progress/progress.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

namespace {

TEST(Record, RefusesATableThatGrowsWhileItIsRead) {
  const support::TemporaryFolder folder;
  const auto table = folder.write("growing.csv", "time [s],v [V]\n0,1\n1,2\n");
  bool grown = false;
  const corvan::ProgressSubscription growOnce([&](const corvan::Progress&) {
    if (!std::exchange(grown, true)) std::ofstream(table, std::ios::app) << "2,3\n";
  });
  tavlox::cli::Request request;
  request.values = {{"OUT", {folder.wide("s.tavlox")}}, {"TABLE", {folder.wide("growing.csv")}}};
  EXPECT_EQ(support::raisedBy([&] { tavlox::cli::findCommand("record")->run(request); }),
            "tavlox:record:TableChanged(" + table.string() + ")");
  EXPECT_EQ(folder.entryCount(), 1u);
}

}  // namespace

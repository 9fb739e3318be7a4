#include <fstream>

#include "tests/module/queries/query_fixture.h"
#include "tests/support/other_connection.h"

namespace orra::tavloxio {
namespace {

using support::OtherConnection;
using support::raisedBy;
using tavlox::SessionWriter;

TEST_F(Queries, AFileIsLoadedOnceAndAgainWhenItChanges) {
  bind(support::fillTwoRuns);
  allSignals();
  const auto before = databases();
  ASSERT_EQ(before.size(), 1u);
  // What only the database lacks shows whether the file is loaded again.
  const OtherConnection other(*before.begin(), "DELETE FROM runs");
  EXPECT_EQ(raisedBy([&] { run(7); }), "simulation_data_repository:sdr:NoSuchRun()");
  rewrite(support::fillTwoRuns);
  EXPECT_EQ(run(7).fieldAt(0, u"Name").text(), u"");
  EXPECT_EQ(databases().size(), 1u) << "the old one is removed";
  EXPECT_NE(databases(), before);
  cache_.setFilename(sessions_.folder().wide("s.tavlox"));
  EXPECT_TRUE(databases().empty());
}

TEST_F(Queries, ADatabaseThatCannotBeRemovedIsReportedAndForgotten) {
  bind(support::fillTwoRuns);
  run(7);
  const std::filesystem::path database = *databases().begin();
  std::filesystem::remove(database);
  std::filesystem::create_directories(database / "not empty");
  rewrite(support::fillTwoRuns);
  EXPECT_EQ(raisedBy([&] { run(7); }).substr(0, 39), "BRINDD:brindd:DictFuncThrewStdException");
  const std::function<void()> kQueries[] = {[&] { run(7); }, [&] { allSignals(); },
                                            [&] { signalsNamed(u""); }};
  for (const auto& query : kQueries)
    EXPECT_EQ(raisedBy(query), "simulation_data_repository:sdr:InternalError()");
  rewrite(support::fillTwoRuns);
  EXPECT_EQ(run(7).elementCount(), 1u);
}

TEST_F(Queries, LockedAndCorruptDatabasesAreSaidAfterAPause) {
  bind(support::fillTwoRuns);
  run(7);
  {
    const OtherConnection other(*databases().begin(), "BEGIN EXCLUSIVE");
    std::string message;
    const std::string raised = raisedAfterPauses([&] {
      try {
        run(7);
      } catch (const foundation::core::except::IUserException& error) {
        message = error.GetMessageTxt();
        throw;
      }
    });
    EXPECT_EQ(message.find("Try again"), message.rfind("Try again")) << message;
    EXPECT_EQ(raised.substr(0, 39), "sqldb:ssdb:Locked(sqldb:ssdb:Locked, Th") << raised;
    EXPECT_EQ(raised.back(), '1');
    const std::string unpaused = raisedAfterPauses([&] { signalsNamed(u"a"); });
    EXPECT_EQ(unpaused.substr(0, 19), "sqldb:ssdb:Locked(/")
        << "the repository's own, outside of transactions";
    EXPECT_EQ(unpaused.back(), '0');
  }
  std::fstream(*databases().begin(), std::ios::binary | std::ios::in | std::ios::out)
      << std::string(8192, '\xFF');
  EXPECT_EQ(raisedAfterPauses([&] { run(7); }), "simulation_data_repository:sdr:InternalError() 1");
}

}  // namespace
}  // namespace orra::tavloxio

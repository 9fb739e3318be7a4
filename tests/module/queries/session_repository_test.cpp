#include "metadata/session_repository.h"

#include <fstream>

#include "tests/module/queries/query_fixture.h"
#include "tests/support/other_connection.h"

namespace orra::tavloxio {
namespace {

using support::OtherConnection;
using support::raisedBy;
using tavlox::SessionWriter;

TEST_F(Queries, AnUnchangedFileIsLoadedOnce) {
  bind(support::fillTwoRuns);
  allSignals();
  ASSERT_EQ(databases().size(), 1u);
  // A run that only the database has shows whether the file is loaded again.
  const OtherConnection other(databases()[0], "UPDATE runs SET name = 'changed in the database'");
  EXPECT_EQ(run(7).fieldAt(0, u"Name").text(), u"changed in the database");
}

TEST_F(Queries, AChangedFileIsLoadedIntoANewDatabaseAndTheOldOneRemoved) {
  bind(support::fillTwoRuns);
  run(7);
  const auto before = databases();
  rewrite(support::fillTwoRuns);
  run(7);
  ASSERT_EQ(databases().size(), 1u);
  EXPECT_NE(databases(), before);
  cache_.setFilename(sessions_.folder().wide("s.tavlox"));
  EXPECT_TRUE(databases().empty());
}

TEST_F(Queries, ADatabaseThatCannotBeRemovedIsReportedAndForgotten) {
  bind(support::fillTwoRuns);
  run(7);
  const std::filesystem::path database = databases().at(0);
  std::filesystem::remove(database);
  std::filesystem::create_directories(database / "not empty");
  rewrite(support::fillTwoRuns);
  EXPECT_EQ(raisedBy([&] { run(7); }).substr(0, 39), "BRINDD:brindd:DictFuncThrewStdException");
  rewrite(support::fillTwoRuns);
  EXPECT_EQ(run(7).elementCount(), 1u);
}

TEST_F(Queries, ALockedDatabaseIsSaidAfterOnePause) {
  bind(support::fillTwoRuns);
  run(7);
  const OtherConnection other(databases().at(0), "BEGIN EXCLUSIVE");
  const std::string raised = raisedBy([&] { run(7); });
  EXPECT_EQ(raised.substr(0, 39), "sqldb:ssdb:Locked(sqldb:ssdb:Locked, Th") << raised;
  EXPECT_EQ(pauses, 1);
  EXPECT_EQ(raisedBy([&] { signalsNamed(u"a"); }).substr(0, 18), "sqldb:ssdb:Locked(");
  EXPECT_EQ(pauses, 1) << "a search by name runs outside of transactions";
}

TEST_F(Queries, ACorruptDatabaseIsAnInternalError) {
  bind(support::fillTwoRuns);
  run(7);
  {
    std::fstream file(databases().at(0), std::ios::binary | std::ios::in | std::ios::out);
    file << std::string(8192, '\xFF');
  }
  EXPECT_EQ(raisedBy([&] { run(7); }), "simulation_data_repository:sdr:InternalError()");
  EXPECT_EQ(pauses, 1);
}

TEST_F(Queries, TheFirstCollectedErrorDecides) {
  using foundation::core::except::collection;
  collection errors;
  errors.add(foundation::core::except::except_with_causes("other:component:Key", {u"a"}));
  errors.add("sqldb:ssdb:Corrupt", "file", "text");
  EXPECT_EQ(raisedBy([&] { throwCollected(errors); }), "other:component:Key(a)");
  try {
    throwCollected(errors);
  } catch (const collection& raised) {
    EXPECT_EQ(raised.size(), 2u) << "the others ride along";
  }
  raisedBy([&] { throwCollected(collection::get_empty_instance()); });
  EXPECT_EQ(pauses, 2);
}

TEST_F(Queries, ALoadThatFailedIsNotTriedAgainUntilTheFileChanges) {
  cache_.setFilename(sessions_.writeWithPart("s.tavlox", tavlox::relationship_types::kRunData,
                                             R"([{"id": 1}, {"id": "2"}])"));
  EXPECT_EQ(raisedBy([&] { run(1); }).substr(0, 49), "simulation_data_repository:sdr:InvalidSessionData");
  EXPECT_EQ(raisedBy([&] { run(1); }), "tavlox:general:UnableToReadFile()");
}

}  // namespace
}  // namespace orra::tavloxio

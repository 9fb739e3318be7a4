#include <limits>

#include "tests/module/queries/query_fixture.h"

namespace orra::tavloxio {
namespace {

using corvan::HostArray;
using support::raisedBy;
using tavlox::SessionWriter;

TEST_F(Queries, ARunWithEveryMemberFillsEveryField) {
  tavlox::RunRecord full{
      3,  "Set", u"Nominal Ω", u"today", u"drive_line", u"normal", u"Completed", 4'000'000'000u,
      12, -0.5,  10.25,        1.5,      2.5,           3.5,       7.5,          {}};
  for (const Member& key : kMetadataMembers)
    full.metadata[std::string(key.name)] = u"the " + fl::i18n::to_ustring(key.name);
  bind([&](SessionWriter& session) {
    session.addRun({.id = -1});
    session.addRun(full);
  });
  EXPECT_EQ(describeRecord(run(3), 0),
            "id=3 |Name=Nominal Ω|Description=the Description|Tag=the Tag|DateCreated=today|"
            "RunIndex=-294967296 |Model=drive_line|SimMode=normal|StartTime=-0.500000|StopTime=10.250000|"
            "BrinVersion=the BrinVersion|ModelVersion=the ModelVersion|UserID=the UserID|"
            "MachineName=the MachineName|Platform=the Platform|TaskName=the TaskName|"
            "SolverType=the SolverType|SolverName=the SolverName|SolverStepSize=the SolverMaxStepSize|"
            "Status=Completed|StopEventSource=the StopEventSource|"
            "StopEventDescription=the StopEventDescription|ExecutionErrors=the ExecutionErrors|"
            "ExecutionWarnings=the ExecutionWarnings|ModelInitializationTime=1.500000|"
            "ModelExecutionTime=2.500000|ModelTerminationTime=3.500000|ModelTotalElapsedTime=7.500000|"
            "UserString=the UserString|");
  EXPECT_EQ(describeRecord(run(-1), 0),
            "id=-1 |Name=|Description=|Tag=|DateCreated=|RunIndex=0 |Model=|SimMode=|StartTime=0.000000|"
            "StopTime=0.000000|BrinVersion=|ModelVersion=|UserID=|MachineName=|Platform=|TaskName=|"
            "SolverType=|SolverName=|SolverStepSize=|Status=|StopEventSource=|StopEventDescription=|"
            "ExecutionErrors=|ExecutionWarnings=|ModelInitializationTime=0.000000|"
            "ModelExecutionTime=0.000000|ModelTerminationTime=0.000000|ModelTotalElapsedTime=0.000000|"
            "UserString=|");
}

TEST_F(Queries, OnlyARealNumericScalarNamesARun) {
  HostArray two = HostArray::numeric(corvan::NumericClass::UInt8, 1, 1);
  two.mutableValues<std::uint8_t>()[0] = 2;
  const std::pair<HostArray, std::int32_t> kArguments[] = {
      {HostArray::doubleScalar(2.9), 2},
      {HostArray::doubleScalar(-1.5), -1},
      {two, 2},
      {HostArray::doubleScalar(2147483648), 0},
      {HostArray::doubleScalar(std::numeric_limits<double>::quiet_NaN()), 0},
      {HostArray::numeric(corvan::NumericClass::Double, 1, 2), 0},
      {HostArray::numeric(corvan::NumericClass::Double, 0, 0), 0},
      {HostArray::charRow(u"2"), 0},
      {HostArray::logicalScalar(true), 0},
  };
  for (const auto& [argument, identifier] : kArguments)
    EXPECT_EQ(toRunIdentifier(argument), FileRunId{identifier});
}

TEST_F(Queries, UnknownRunsAreRefusedWithoutAPauseAndThoseOfAnEarlierLoadAfterTwo) {
  bind([](SessionWriter& session) { session.setView("{}"); });
  const HostArray none = runIdentifierColumn(cache_);
  EXPECT_EQ(none.numericClass(), corvan::NumericClass::Int32);
  EXPECT_EQ(none.rows() * 10 + none.columns(), 1u) << "0x1";
  EXPECT_EQ(raisedBy([&] { run(7); }), "tavlox:general:UnableToReadFile()") << "a package without runs";
  rewrite(support::fillTwoRuns);
  EXPECT_EQ(runIdentifierColumn(cache_).values<std::int32_t>()[0], 7);
  EXPECT_EQ(raisedAfterPauses([&] { run(0); }), "tavlox:general:UnableToReadFile() 0");
  rewrite([](SessionWriter& session) { session.addRun({.id = 3, .name = u"another"}); });
  EXPECT_EQ(raisedAfterPauses([&] { run(7); }), "simulation_data_repository:sdr:NoSuchRun() 2");
  EXPECT_EQ(run(3).fieldAt(0, u"Name").text(), u"another");
}

}  // namespace
}  // namespace orra::tavloxio

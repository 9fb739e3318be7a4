#include <limits>

#include "tests/module/queries/query_fixture.h"

namespace orra::tavloxio {
namespace {

using corvan::HostArray;
using support::raisedBy;
using tavlox::RunRecord;
using tavlox::SessionWriter;

/// Every member set, each to a value of its own.
RunRecord fullRun() {
  RunRecord run{.id = 3,
                .runClassName = "Set",
                .name = u"Nominal Ω",
                .dateCreated = u"2026-11-15T12:44:29",
                .model = u"drive_line",
                .simMode = u"normal",
                .status = u"Completed",
                .runNumber = 4'000'000'000u,
                .orderIndex = 12,
                .startTime = -0.5,
                .stopTime = 10.25,
                .updateTime = 1.5,
                .simTime = 2.5,
                .termTime = 3.5,
                .totalTime = 7.5};
  for (const char* key :
       {"Description", "Tag", "BrinVersion", "ModelVersion", "UserID", "MachineName", "Platform", "TaskName",
        "SolverType", "SolverName", "SolverMaxStepSize", "StopEventSource", "StopEventDescription",
        "ExecutionErrors", "ExecutionWarnings", "UserString"}) {
    run.metadata[key] = u"the " + fl::i18n::to_ustring(key);
  }
  return run;
}

TEST_F(Queries, ARunWithEveryMemberFillsEveryField) {
  bind([](SessionWriter& session) { session.addRun(fullRun()); });
  EXPECT_EQ(describeRecord(run(3), 0), R"(id=int32[3 ]1x1
Name=Nominal Ω
Description=the Description
Tag=the Tag
DateCreated=2026-11-15T12:44:29
RunIndex=int32[-294967296 ]1x1
Model=drive_line
SimMode=normal
StartTime=double[-0.5]
StopTime=double[10.25]
BrinVersion=the BrinVersion
ModelVersion=the ModelVersion
UserID=the UserID
MachineName=the MachineName
Platform=the Platform
TaskName=the TaskName
SolverType=the SolverType
SolverName=the SolverName
SolverStepSize=the SolverMaxStepSize
Status=Completed
StopEventSource=the StopEventSource
StopEventDescription=the StopEventDescription
ExecutionErrors=the ExecutionErrors
ExecutionWarnings=the ExecutionWarnings
ModelInitializationTime=double[1.5]
ModelExecutionTime=double[2.5]
ModelTerminationTime=double[3.5]
ModelTotalElapsedTime=double[7.5]
UserString=the UserString
)");
}

TEST_F(Queries, ARunWithoutMembersHasEveryFieldEmpty) {
  bind([](SessionWriter& session) { session.addRun({.id = -1}); });
  const HostArray record = run(-1);
  ASSERT_EQ(record.fieldNames().size(), 29u);
  for (std::size_t field = 1; field < 29; ++field) {
    const HostArray& value = record.fieldAt(0, field);
    const bool isText = value.kind() == corvan::ArrayKind::Char;
    EXPECT_TRUE(isText ? value.isEmpty() : value.scalarAsDouble() == 0) << field;
  }
}

TEST_F(Queries, RunIdentifiersAreAColumnAlsoWithoutRuns) {
  bind(support::fillTwoRuns);
  const HostArray identifiers = runIdentifierColumn(cache_);
  EXPECT_EQ(identifiers.numericClass(), corvan::NumericClass::Int32);
  ASSERT_EQ(identifiers.rows(), 2u);
  EXPECT_EQ(identifiers.values<std::int32_t>()[0], 7);

  bind([](SessionWriter& session) { session.setView("{}"); });
  const HostArray none = runIdentifierColumn(cache_);
  EXPECT_EQ(none.numericClass(), corvan::NumericClass::Int32);
  EXPECT_EQ(none.rows(), 0u);
  EXPECT_EQ(none.columns(), 1u);
}

TEST_F(Queries, OnlyARealNumericScalarNamesARun) {
  HostArray two = HostArray::numeric(corvan::NumericClass::UInt8, 1, 1);
  two.mutableValues<std::uint8_t>()[0] = 2;
  const std::pair<HostArray, std::int32_t> kArguments[] = {
      {HostArray::doubleScalar(2.9), 2},
      {HostArray::doubleScalar(-1.5), -1},
      {two, 2},
      {HostArray::doubleScalar(2147483647.5), 2147483647},
      {HostArray::doubleScalar(2147483648), 0},
      {HostArray::doubleScalar(std::numeric_limits<double>::quiet_NaN()), 0},
      {HostArray::numeric(corvan::NumericClass::Double, 1, 2), 0},
      {HostArray::numeric(corvan::NumericClass::Double, 0, 0), 0},
      {HostArray::charRow(u"2"), 0},
      {HostArray::logicalScalar(true), 0},
      {HostArray::cell(1, 1), 0},
  };
  for (const auto& [argument, identifier] : kArguments)
    EXPECT_EQ(toRunIdentifier(argument), FileRunId{identifier});
}

TEST_F(Queries, AnUnknownRunIsRefusedAtOnceWithoutNamingIt) {
  bind([](SessionWriter& session) { session.setView("{}"); });
  EXPECT_EQ(raisedBy([&] { run(7); }), "tavlox:general:UnableToReadFile()") << "a package without runs";
  rewrite(support::fillTwoRuns);
  EXPECT_EQ(raisedAfterPauses([&] { run(0); }), "tavlox:general:UnableToReadFile() 0");
}

TEST_F(Queries, ARunOfAnEarlierLoadIsNoSuchRunAfterTwoPauses) {
  bind(support::fillTwoRuns);
  run(7);
  rewrite([](SessionWriter& session) { session.addRun({.id = 3, .name = u"another"}); });
  EXPECT_EQ(raisedAfterPauses([&] { run(7); }), "simulation_data_repository:sdr:NoSuchRun() 2");
  EXPECT_EQ(run(3).fieldAt(0, u"Name").text(), u"another");
}

}  // namespace
}  // namespace orra::tavloxio

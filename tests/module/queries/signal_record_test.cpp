#include "tests/module/queries/query_fixture.h"

namespace orra::tavloxio {
namespace {

using corvan::HostArray;
using support::raisedBy;
using tavlox::SessionWriter;

TEST_F(Queries, ASignalWithEveryMemberFillsEveryField) {
  bind([](SessionWriter& session) {
    session.addRun({.id = 5});
    session.addRun({.id = 2, .orderIndex = 40});
    session.addSignal({.id = 1,
                       .runID = 2,
                       .name = u"wheel speed",
                       .domainType = u"outport",
                       .description = u"the description",
                       .units = u"rad/s",
                       .displayUnits = u"rpm",
                       .dataTypeLabel = u"double",
                       .sampleTime = u"0.01",
                       .model = u"drive_line",
                       .displayBlockPath = u"drive_line/Wheel",
                       .blockName = u"Wheel",
                       .rootSource = u"root",
                       .timeSource = u"time",
                       .dataSource = u"data",
                       .complexity = 1,
                       .complexCoordSystem = 2,
                       .portIndex = 3,
                       .dimensions = std::vector<std::uint64_t>{1, 3, 4294967295u},
                       .channel = std::vector<std::uint64_t>{7}});
  });
  const HostArray records = allSignals();
  EXPECT_EQ(records.rows(), 1u);
  ASSERT_EQ(records.columns(), 1u);
  EXPECT_EQ(describeRecord(records, 0), R"(Name=wheel speed
RunOrderIndex=int32[40 ]1x1
Domain=Outport
Description=the description
DisplayUnits=rpm
StoredUnits=rad/s
DataType=double
Complexity=complex
ComplexFormat=magnitude
SampleTime=0.01
Model=drive_line
FullBlockPath=drive_line/Wheel
BlockName=Wheel
PortIndex=int32[3 ]1x1
Dimensions=int32[1 3 -1 ]1x3
Channel=int32[7 ]1x1
RootSource=root
TimeSource=time
DataSource=data
)");
}

TEST_F(Queries, ASignalWithoutMembersHasEveryField) {
  bind([](SessionWriter& session) {
    session.addRun({.id = 5});
    session.addSignal({.id = 1, .runID = 5});
  });
  const HostArray records = allSignals();
  ASSERT_EQ(records.fieldNames().size(), 19u);
  EXPECT_EQ(records.fieldAt(0, u"RunOrderIndex").scalarAsDouble(), 1) << "the run's place in the list";
  EXPECT_EQ(records.fieldAt(0, u"Domain").text(), u"Signal");
  EXPECT_EQ(records.fieldAt(0, u"Complexity").text(), u"real");
  EXPECT_EQ(records.fieldAt(0, u"ComplexFormat").text(), u"real-imaginary");
  EXPECT_EQ(records.fieldAt(0, u"Dimensions").rows(), 1u);
  EXPECT_EQ(records.fieldAt(0, u"Dimensions").columns(), 0u);
}

TEST_F(Queries, WithoutSignalsTheFieldsAreThereAllTheSame) {
  bind([](SessionWriter& session) { session.addRun({.id = 5}); });
  for (const HostArray& records : {allSignals(), signalsNamed(u"a")}) {
    EXPECT_EQ(records.rows(), 1u);
    EXPECT_EQ(records.columns(), 0u);
    EXPECT_EQ(records.fieldNames().size(), 19u);
  }
}

TEST_F(Queries, ANameIsFoundInEveryRunInTheOrderOfTheList) {
  bind([](SessionWriter& session) {
    for (const std::int32_t run : {9, 2}) session.addRun({.id = run});
    // The parts come in the order of the runs, whatever the order of adding is.
    session.addSignal({.id = 1, .runID = 2, .name = u"speed", .description = u"second run"});
    session.addSignal({.id = 2, .runID = 9, .name = u"speed", .description = u"first run"});
    session.addSignal({.id = 4, .runID = 9, .name = u"speed", .description = u"first run again"});
  });
  const HostArray found = signalsNamed(u"speed");
  ASSERT_EQ(found.columns(), 3u);
  EXPECT_EQ(found.fieldAt(0, u"Description").text(), u"first run");
  EXPECT_EQ(found.fieldAt(1, u"Description").text(), u"first run again");
  EXPECT_EQ(found.fieldAt(2, u"Description").text(), u"second run");
}

TEST_F(Queries, ComplexFormatsAndDomainsThatAreNotKnownAreEmpty) {
  struct Case {
    std::u16string domainType, domain, format;
  };
  const Case kSignals[] = {
      {u"tv_state_leaf", u"Tovrin", u"real-imaginary"},
      {u"tv_data", u"Tovrin", u"magnitude-phase"},
      {u"final_state", u"State", u"magnitude"},
      {u"state", u"State", u"phase"},
      {u"Outport", u"", u""},  // types are compared exactly
      {u"outport", u"Outport", u""},
  };
  bind([&](SessionWriter& session) {
    session.addRun({.id = 1});
    for (std::int32_t i = 0; i < 6; ++i) {
      session.addSignal({.id = i,
                         .runID = 1,
                         .domainType = kSignals[i].domainType,
                         .complexity = i,
                         .complexCoordSystem = i});
    }
  });
  const HostArray records = allSignals();
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(records.fieldAt(i, u"Domain").text(), kSignals[i].domain);
    EXPECT_EQ(records.fieldAt(i, u"ComplexFormat").text(), kSignals[i].format);
    EXPECT_EQ(records.fieldAt(i, u"Complexity").text(), i == 1 ? u"complex" : u"real");
  }
}

/// A run with a signal in its own part, and a further signals part.
support::SessionFixture::Fill withFurtherPart(std::string_view json) {
  return [json](SessionWriter& session) {
    session.addRun({.id = 1});
    session.addPart(u"/more.json", u"application/json", tavlox::relationship_types::kSignalsData, json);
    session.addSignal({.id = 5, .runID = 1});
  };
}

TEST_F(Queries, SignalsLieInAnyNumberOfPartsAndOneOfAnUnknownRunSpoilsThemAll) {
  bind(withFurtherPart(R"([{"id": 7, "runID": 1, "name": "further"}])"));
  EXPECT_EQ(allSignals().columns(), 2u);
  EXPECT_EQ(signalsNamed(u"further").columns(), 1u);
  rewrite(withFurtherPart(R"([{"id": 6, "runID": 1}, {"id": 7, "runID": 2}])"));
  EXPECT_EQ(raisedBy([&] { allSignals(); }).substr(0, 62),
            "simulation_data_repository:sdr:InvalidSessionData(signals part");
  rewrite(support::fillTwoRuns);
  EXPECT_EQ(allSignals().columns(), 4u) << "repaired";
}

}  // namespace
}  // namespace orra::tavloxio

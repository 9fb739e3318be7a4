#include "tests/module/queries/query_fixture.h"

namespace orra::tavloxio {
namespace {

using corvan::HostArray;
using tavlox::SessionWriter;

constexpr char kFullSignal[] = R"([{"id":1,"runID":2,"name":"wheel speed","domainType":"outport",
  "description":"the description","units":"rad/s","displayUnits":"rpm","dataTypeLabel":"double",
  "complexity":1,"complexCoordSystem":2,"sampleTime":"0.01","model":"drive_line",
  "displayBlockPath":"drive_line/Wheel","blockName":"Wheel","portIndex":3,"dimensions":[1,3,4294967295],
  "channel":[7],"rootSource":"root","timeSource":"time","dataSource":"data"},{"id":2,"runID":2}])";

/// Two runs, and signals in a part that holds this.
support::SessionFixture::Fill withSignalsPart(std::string_view json) {
  return [json](support::TestSession& session) {
    session.addRun({.id = 5});
    session.addRun({.id = 2, .orderIndex = 40});
    session.addPart(u"/more.json", u"application/json", tavlox::relationship_types::kSignalsData, json);
  };
}

TEST_F(Queries, ASignalWithEveryMemberFillsEveryField) {
  bind(withSignalsPart(kFullSignal));
  const HostArray records = allSignals();
  ASSERT_EQ(records.rows(), 1u);
  ASSERT_EQ(records.columns(), 2u);
  EXPECT_EQ(describeRecord(records, 0),
            "Name=wheel speed|RunOrderIndex=40 |Domain=Outport|Description=the description|DisplayUnits=rpm|"
            "StoredUnits=rad/s|DataType=double|Complexity=complex|ComplexFormat=magnitude|SampleTime=0.01|"
            "Model=drive_line|FullBlockPath=drive_line/Wheel|BlockName=Wheel|PortIndex=3 |"
            "Dimensions=1 3 -1 |Channel=7 |RootSource=root|TimeSource=time|DataSource=data|");
  EXPECT_EQ(describeRecord(records, 1),
            "Name=|RunOrderIndex=40 |Domain=Signal|Description=|DisplayUnits=|StoredUnits=|DataType=|"
            "Complexity=real|ComplexFormat=real-imaginary|SampleTime=|Model=|FullBlockPath=|BlockName=|"
            "PortIndex=0 |Dimensions=|Channel=|RootSource=|TimeSource=|DataSource=|");
  EXPECT_EQ(records.fieldAt(1, u"Dimensions").rows() * 10 + records.fieldAt(1, u"Dimensions").columns(), 10u);
}

TEST_F(Queries, NeighboursShareNoFieldThatDiffers) {
  constexpr std::string_view kBare =
      "Name=|RunOrderIndex=40 |Domain=Signal|Description=|DisplayUnits=|StoredUnits=|DataType=|Complexity=real|"
      "ComplexFormat=real-imaginary|SampleTime=|Model=|FullBlockPath=|BlockName=|PortIndex=0 |Dimensions=|"
      "Channel=|RootSource=|TimeSource=|DataSource=|";
  const std::pair<std::string_view, std::string_view> kMembers[] = {
      {R"("name":"x")", "Name=x"},
      {R"("domainType":"outport")", "Domain=Outport"},
      {R"("description":"x")", "Description=x"},
      {R"("displayUnits":"x")", "DisplayUnits=x"},
      {R"("units":"x")", "StoredUnits=x"},
      {R"("dataTypeLabel":"x")", "DataType=x"},
      {R"("complexity":1)", "Complexity=complex"},
      {R"("complexCoordSystem":2)", "ComplexFormat=magnitude"},
      {R"("sampleTime":"x")", "SampleTime=x"},
      {R"("model":"x")", "Model=x"},
      {R"("displayBlockPath":"a text that is long")", "FullBlockPath=a text that is long"},
      {R"("blockName":"x")", "BlockName=x"},
      {R"("portIndex":5)", "PortIndex=5 "},
      {R"("dimensions":[2,3])", "Dimensions=2 3 "},
      {R"("channel":[4])", "Channel=4 "},
      {R"("rootSource":"x")", "RootSource=x"},
      {R"("timeSource":"x")", "TimeSource=x"},
      {R"("dataSource":"x")", "DataSource=x"},
      {R"("portIndex":0)", "PortIndex=0 "},
  };
  // Each member in turn three times: it comes, stays and goes. Then again, further away from a whole record.
  std::string json;
  std::vector<std::string> expected;
  for (std::size_t i = 0; i < 15 * std::size(kMembers); ++i) {
    const auto& [member, field] = kMembers[i / 3 % std::size(kMembers)];
    json += std::string(json.empty() ? "[" : ",") + R"({"id":)" + std::to_string(i) + R"(,"runID":2,)" +
            std::string(member) + "}";
    std::string& record = expected.emplace_back(kBare);
    const std::size_t begin = record.find(field.substr(0, field.find('=') + 1));
    record.replace(begin, record.find('|', begin) - begin, field);
  }
  bind(withSignalsPart(json + "]"));
  const HostArray records = allSignals();
  ASSERT_EQ(records.columns(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(describeRecord(records, i), expected[i]) << i;
}

TEST_F(Queries, ANameIsFoundInEveryRunInTheOrderOfTheList) {
  bind([](SessionWriter& session) {
    for (const std::int32_t run : {9, 2}) session.addRun({.id = run});
    // The parts come in the order of the runs, whatever the order of adding is.
    session.addSignal({.id = 1, .runID = 2, .name = u"speed", .description = u"3"});
    session.addSignal({.id = 2, .runID = 9, .name = u"speed", .description = u"1"});
    session.addSignal({.id = 4, .runID = 9, .name = u"speed", .description = u"2"});
  });
  const HostArray found = signalsNamed(u"speed"), none = signalsNamed(u"Speed");
  EXPECT_EQ(none.rows() * 10 + none.columns(), 10u) << "1x0";
  EXPECT_EQ(none.fieldNames().size(), 19u);
  ASSERT_EQ(found.columns(), 3u);
  for (std::size_t i = 0; i < 3; ++i)
    EXPECT_EQ(found.fieldAt(i, u"Description").text(), std::u16string(1, static_cast<char16_t>(u'1' + i)));
}

TEST_F(Queries, ComplexFormatsAndDomainsThatAreNotKnownAreEmpty) {
  const char16_t* const kTypes[] = {u"tv_state_leaf", u"tv_data", u"final_state", u"state", u"Outport"};
  bind([&](SessionWriter& session) {
    session.addRun({.id = 1});
    for (std::int32_t i = 0; i < 5; ++i)
      session.addSignal({.id = i, .runID = 1, .domainType = kTypes[i], .complexCoordSystem = i});
  });
  const HostArray records = allSignals();
  std::u16string domains, formats;
  for (std::size_t i = 0; i < 5; ++i) {
    (domains += records.fieldAt(i, u"Domain").text()) += u"|";
    (formats += records.fieldAt(i, u"ComplexFormat").text()) += u"|";
  }
  EXPECT_EQ(domains, u"Tovrin|Tovrin|State|State||") << "types are compared exactly";
  EXPECT_EQ(formats, u"real-imaginary|magnitude-phase|magnitude|phase||");
}

}  // namespace
}  // namespace orra::tavloxio

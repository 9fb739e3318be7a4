#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "platform/samples/recorded_session.h"
#include "tests/platform/samples/session_of.h"
#include "tests/support/raised.h"

using namespace tavlox;
using namespace tavlox::samples;
using support::sessionOf;

namespace {

/// "time: value value; …", and where texts were asked for those instead.
std::string show(SampleReader reader) {
  std::string shown;
  for (SampleBlock block; reader.next(block);) {
    for (std::size_t row = 0; row < block.rows; ++row) {
      shown += fmt::format("{}{}:", shown.empty() ? "" : "; ", block.times[row]);
      for (const auto& values : block.values) shown += fmt::format(" {}", values[row]);
      for (const auto& texts : block.texts) shown += fmt::format(" {}", texts[row]);
    }
  }
  return shown;
}

/// What a reader shows, or the rule that its table breaks and where, less the names of package and part.
std::string resultOf(const std::function<std::string()>& work) {
  std::string shown;
  const std::string raised = support::raisedBy([&] { shown = work(); });
  if (raised.empty()) return shown;
  constexpr std::string_view kPart = "/session/data/1.csv";
  return raised.substr(0, raised.find('(')) + raised.substr(raised.find(kPart) + kPart.size());
}

}  // namespace

TEST(Reading, GivesNumbersWhateverTheFormOfTheTable) {
  const support::SessionFixture files;
  const struct {
    std::string table;
    std::vector<std::uint32_t> columns;
    const char* shown;
  } kTables[] = {
      {"time,a,b\n0,1,2\n1,3,4\n", {2, 3}, "0: 1 2; 1: 3 4"},
      {"time,a,b\n0,1,2\n1,3,4", {3, 2, 3, 1}, "0: 2 1 2 0; 1: 4 3 4 1"},
      {"t [ms],a\r\n7,1e3\r\n9,-inf\r\n", {2}, "0.007: 1000; 0.009: -inf"},
      {"time[min],a\n1,2\n", {2}, "60: 2"},
      // As if it had been written in seconds, to the last bit.
      {"t [us],a\n0.1,1\n0.7,2\n1e3,3\n", {2}, "1e-07: 1; 7e-07: 2; 0.001: 3"},
      {"\xEF\xBB\xBF\n \nt,\"a, \"\"b\"\"\nc\",d\n\n0 , \"+1\" , 2\n  \n\t1,nan,\n",
       {2, 3},
       "0: 1 2; 1: nan nan"},
      {"t,a,b\r0,1,2\r1,3,4\r", {3}, "0: 2; 1: 4"},
      {"t,a,b\n0,\"1,5\",2\n", {3}, "0: 2"},
      {"t,a\n0,1\n0,2\n", {2}, "0: 1; 0: 2"},
      {"t,a\n0,1e999\n1,-1e-999\n", {2}, "0: inf; 1: -0"},
      {"t,a\n", {2}, ""},
      {"t,a", {2}, ""},
      {"t,a\n0,1\n1,x\n", {}, "0:; 1:"},
      {"", {}, "samples:part:NoHeading)"},
      {"t [furlong],a\n", {2}, "samples:part:UnknownTimeUnit, furlong)"},
      {"t,a\n0,1\n", {3}, "samples:part:NoSuchColumn, 3, 2)"},
      {"t,a,b\n0,1,2\n\n1,3\n", {3}, "samples:part:ShortRow, 4, 3)"},
      {"t,a\n0,1\n\n1,1x\n", {2}, "samples:part:NotANumber, 4, 2, 1x)"},
      {"t,\"a\nb\"\nnan,1\n", {2}, "samples:part:NotANumber, 3, 1, nan)"},
      {"t,a\n1,1\n0,1\n", {2}, "samples:part:TimeDecreases, 3)"},
  };
  for (const auto& [table, columns, shown] : kTables) {
    const RecordedSession session = sessionOf(files, "s.tavlox", {table});
    RecordedRun run = session.runs().front();
    // An empty table has no signals, and is nobody's.
    run.samples = opc::model::PartName(u"/session/data/1.csv");
    EXPECT_EQ(resultOf([&] { return show(session.read(run, {.columns = columns})); }), shown) << table;
  }
}

TEST(Reading, GivesTheTextsOfATimeRangeDigitForDigit) {
  const support::SessionFixture files;
  const RecordedSession session =
      sessionOf(files, "s.tavlox", {"t [ms],a,b\n0,1,2\n1.0,1.50,0x\n2,\" 1e+00\",-0\n3,4,5\nbroken"});
  const Wanted wanted{.columns = {3, 2}, .from = 0.001, .to = 0.002, .cells = Wanted::Cells::Texts};
  // Behind the end of the range nothing is read.
  EXPECT_EQ(show(session.read(session.runs()[0], wanted)), "0.001: 0x 1.50; 0.002: -0  1e+00");
}

TEST(Reading, IsTheSameWhereverTheBufferEnds) {
  // Rows of growing length, so that every kind of cell meets the end of a buffer somewhere.
  const support::SessionFixture files;
  std::string table = "t,a,b\n";
  double sum = 0;
  constexpr int kRows = 60'000;
  for (int i = 0; i < kRows; ++i) {
    table +=
        fmt::format("{},{},\"{}\"\r\n", i, std::string(static_cast<std::size_t>(i % 97), '0') + "1", i % 7);
    sum += i % 7;
  }
  // One line is longer than the buffer.
  table += fmt::format("{},{}1,0\n", kRows, std::string(300'000, '0'));
  const RecordedSession session = sessionOf(files, "s.tavlox", {table});
  SampleReader reader = session.read(session.runs()[0], {.columns = {2, 3}});
  std::size_t rows = 0;
  for (SampleBlock block; reader.next(block); rows += block.rows) {
    for (std::size_t i = 0; i < block.rows; ++i) {
      ASSERT_EQ(block.times[i], static_cast<double>(rows + i));
      ASSERT_EQ(block.values[0][i], 1);
      sum -= block.values[1][i];
    }
  }
  EXPECT_EQ(rows, kRows + 1);
  EXPECT_EQ(sum, 0);
}

TEST(RecordedSessions, FindSamplesByNameAndInOlderFilesByOrder) {
  const support::SessionFixture files;
  const std::u16string path = files.write("s.tavlox", [](SessionWriter& session) {
    const auto sink = [](const auto& take) { take("t,a,b\n"); };
    // The first has signals but no samples, the second no signals, the third names another part than the
    // order would give it.
    session.addRun({.id = 4});
    session.addSignal({.id = 1, .runID = 4});
    session.addRun({.id = 9});
    session.addRun({.id = 2});
    session.addSignal({.id = 1, .runID = 2, .column = 3});
    session.addSignal({.id = 2, .runID = 2});
    session.addRun({.id = 5});
    session.addSignal({.id = 1, .runID = 5});
    session.addSignal({.id = 2, .runID = 5});
    for (const int run : {5, 2}) session.addSamples(run, sink);
  });
  // The writer names the samples of every run, earlier ones did not.
  opc::model::Package package(path);
  package.open(opc::interfaces::OpenMode::Modify);
  const auto runs = package.startData();
  const std::string_view list = R"([{"id": 4, "samples": "/elsewhere.csv"}, {"id": 9},
      {"id": 2, "orderIndex": 7, "samples": "/session/data/4.csv"}, {"id": 5}])";
  runs->write(list.data(), list.size());
  const opc::model::PartName name(u"/session/runs.json");
  package.replacePart(name, package.getPart(name).getContentType(), runs);
  package.close();

  const RecordedSession session(path);
  // The places alone are the same.
  const SessionPlaces places(path, SessionPlaces::Of::Signals), ofRuns(path, SessionPlaces::Of::Runs);
  const auto textOf = [](const auto& part) { return part ? fl::i18n::to_string(part->text()) : "none"; };
  std::string shown;
  for (const RecordedRun& run : session.runs()) {
    const RunPlace& place = *places.findRun(run.id());
    shown += fmt::format("{} {} {}", run.id(), run.orderIndex, textOf(run.samples));
    EXPECT_EQ(place.orderIndex, run.orderIndex);
    EXPECT_EQ(textOf(place.samples), textOf(run.samples));
    EXPECT_EQ(textOf(ofRuns.findRun(run.id())->samples), textOf(run.samples));
    ASSERT_EQ(place.signals.size(), run.signals.size());
    for (std::size_t i = 0; i < run.signals.size(); ++i) {
      shown += fmt::format(" {}", run.signals[i].column);
      EXPECT_EQ(place.signals[i].column, run.signals[i].column);
    }
    shown += "\n";
  }
  EXPECT_EQ(shown, "4 1 none 0\n9 2 none\n2 7 /session/data/4.csv 3 0\n5 4 /session/data/3.csv 2 3\n");
}

TEST(RecordedSessions, NeedNoSignalsForPlacesOnlyIfOrderIndicesTellTheRuns) {
  const support::SessionFixture files;
  for (const std::int32_t order : {2, 1}) {
    const std::u16string path = files.write("s.tavlox", [&](SessionWriter& session) {
      session.addRun({.id = 5});
      session.addRun({.id = 3, .orderIndex = order});
      for (const int run : {5, 3}) session.addSignal({.id = run, .runID = run, .name = u"s"});
    });
    const SessionPlaces places(path, SessionPlaces::Of::Signals);
    EXPECT_EQ(places.hasSignals(), order == 1);
    EXPECT_EQ(places.runs()[1].signals.size(), order == 1 ? 1u : 0u);
    EXPECT_EQ(places.findRun(4), nullptr);
  }
}

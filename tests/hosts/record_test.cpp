#include <fstream>
#include <string>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "hosts/cli/command.h"
#include "hosts/cli/sample_table.h"
#include "platform/progress/progress.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

namespace {

using tavlox::cli::SampleTable;

/// Feeds the table in pieces of the given size, as a file arrives.
void readInPieces(SampleTable& table, std::string_view csv, std::size_t pieceSize) {
  for (std::size_t at = 0; at < csv.size(); at += pieceSize) table.take(csv.substr(at, pieceSize));
  table.finish();
}

std::string raisedByTable(std::string_view csv, std::size_t pieceSize) {
  SampleTable table(u"t.csv");
  return support::raisedBy([&] { readInPieces(table, csv, pieceSize); });
}

/// CSV, and what it raises, without the common "tavlox:record:".
const std::pair<std::string_view, std::string> kBadTables[] = {
    {"", "EmptyTable(t.csv, 1, 1)"},
    {"\n\n", "EmptyTable(t.csv, 1, 1)"},
    {"time,v\n", "NoRows(t.csv, 2, 1)"},
    {"time;v\n0;1\n", "NoSignals(t.csv, 1, 2)"},
    {"time,,v\n0,1,2\n", "EmptyHeading(t.csv, 1, 2)"},
    {"time,v\xFF\n0,1\n", "HeadingNotUtf8(t.csv, 1, 2)"},
    {"time [fortnight],v\n0,1\n", "UnknownTimeUnit(t.csv, 1, 1, fortnight)"},
    {"time,v,w\n0,1,2\n1,2\n", "UnevenRow(t.csv, 3, 3, 3)"},
    {"time,v\n0,1\n1,2,3\n", "UnevenRow(t.csv, 3, 3, 2)"},
    {"time,v\n0,1\n\n\n1\n", "UnevenRow(t.csv, 5, 2, 2)"},  // empty lines count, but are no rows
    {"time,v\r\n0,1\r\n1,x\r\n", "SampleNotANumber(t.csv, 3, 2, x)"},
    {"time,v\n0,1\n1,", "SampleNotANumber(t.csv, 3, 2, )"},  // the last line has no end
    {"time,v\n0,1 V\n", "SampleNotANumber(t.csv, 2, 2, 1 V)"},
    {"time,v\n0,0x10\n", "SampleNotANumber(t.csv, 2, 2, 0x10)"},
    {"time,v\n0,\"1,5\"\n", "SampleNotANumber(t.csv, 2, 2, 1,5)"},  // a decimal comma
    {"time,v\nstart,1\n", "TimeNotANumber(t.csv, 2, 1, start)"},
    {"time,v\n0,1\ninf,1\n", "TimeNotANumber(t.csv, 3, 1, inf)"},
    {"time,v\n1e999,1\n", "TimeNotANumber(t.csv, 2, 1, 1e999)"},
    {"time,v\n0,1\n1,1\n1.0,1\n", "TimeNotIncreasing(t.csv, 4, 1, 1.0)"},
    {"time,v\n0,1\n1,2\"\n", "BadQuoting(t.csv, 3, 2)"},
    {"time,v\n0,\"1\n2,3\n", "BadQuoting(t.csv, 4, 2)"},  // found at the end of the file
    {"time,\"v\nolts\"\n0,1\n1,x\n", "SampleNotANumber(t.csv, 4, 2, x)"},
};

TEST(SampleTable, RefusesBadTablesAndSaysWhere) {
  for (const auto& [csv, raised] : kBadTables) {
    EXPECT_EQ(raisedByTable(csv, 4096), "tavlox:record:" + raised) << csv;
    EXPECT_EQ(raisedByTable(csv, 1), "tavlox:record:" + raised) << "byte by byte: " << csv;
  }
}

TEST(SampleTable, NeitherKeepsNorShowsALongCell) {
  EXPECT_EQ(raisedByTable("time,v\n0,\"" + std::string(1 << 20, '1') + "\n", 4096),
            "tavlox:record:CellTooLong(t.csv, 2, 2)");
  EXPECT_EQ(raisedByTable("time,v\n0," + std::string(100, 'x') + "\n", 4096),
            "tavlox:record:SampleNotANumber(t.csv, 2, 2, " + std::string(40, 'x') + "...)");
}

TEST(SampleTable, TakesWhatSimulatorsAndSpreadsheetsWrite) {
  SampleTable table(u"t.csv");
  readInPieces(table,
               "\xEF\xBB\xBF\"time, of day [s]\" , v(out) [V]\r\n+0.5 , -1e-320\r\n1.5,nan\r\n2.5,-INF", 3);
  EXPECT_EQ(table.time().name, u"time, of day");
  EXPECT_EQ(std::tuple(table.rowCount(), table.startTime(), table.stopTime()), std::tuple(3u, 0.5, 2.5));
}

TEST(SampleTable, SplitsHeadingsIntoNameAndUnit) {
  struct {
    std::string_view heading;
    std::u16string_view name, unit;
  } const headings[] = {
      {"v(out) [V]", u"v(out)", u"V"},   {"bus[3]", u"bus[3]", u"none"},  // an index, no unit
      {"bus[3] [mA]", u"bus[3]", u"mA"}, {"speed   [m/s]", u"speed", u"m/s"},
      {"ratio []", u"ratio", u""},       {"[V]", u"[V]", u"none"},
      {"a [V] b", u"a [V] b", u"none"},  {"\xCE\xB8 [\xC2\xB0]", u"\u03B8", u"\u00B0"},
  };
  for (const auto& expected : headings) {
    const auto parsed = tavlox::cli::parseHeading(expected.heading);
    EXPECT_EQ(parsed.name, expected.name) << expected.heading;
    EXPECT_EQ(parsed.unit.value_or(u"none"), expected.unit) << expected.heading;
  }
}

TEST(SampleTable, TellsFixedStepsFromVariableOnes) {
  struct {
    std::string_view csv;
    std::u16string_view sampleTime;
  } const tables[] = {
      {"time,v\n0,1\n", u""},
      {"time,v\n0,1\n0.1,1\n0.2,1\n0.3,1\n", u"0.1"},
      {"time,v\n0,1\n3.33e-4,1\n6.67e-4,1\n1e-3,1\n", u"variable"},            // rounded too much to be told
      {"time,v\n0,1\n3.3333e-4,1\n6.6667e-4,1\n1e-3,1\n", u"0.000333333333"},  // rounded as tables are
      {"time,v\n0,1\n1,1\n2,1\n3.01,1\n", u"variable"},
      {"time [ms],v\n5,1\n10,1\n15,1\n", u"0.005"},
      {"time [h],v\n0,1\n1,1\n", u"3600"},
  };
  for (const auto& expected : tables) {
    SampleTable table(u"t.csv");
    readInPieces(table, expected.csv, 4096);
    EXPECT_EQ(table.sampleTime(), expected.sampleTime) << expected.csv;
  }
}

TEST(Record, RefusesATableThatGrowsWhileItIsRead) {
  const support::TemporaryFolder folder;
  const auto table = folder.write("growing.csv", "time [s],v [V]\n0,1\n1,2\n");
  bool grown = false;
  const corvan::ProgressSubscription growOnce([&](const corvan::Progress&) {
    if (!std::exchange(grown, true)) std::ofstream(table, std::ios::app) << "2,3\n";
  });
  tavlox::cli::Request request;
  request.values = {{"OUT", {folder.wide("s.tavlox")}}, {"CSV", {folder.wide("growing.csv")}}};
  EXPECT_EQ(support::raisedBy([&] { tavlox::cli::findCommand("record")->run(request); }),
            "tavlox:record:TableChanged(" + table.string() + ")");
  EXPECT_EQ(folder.entryCount(), 1u);
}

}  // namespace

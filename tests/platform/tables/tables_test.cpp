#include <fstream>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "platform/recording/recorder.h"
#include "platform/recording/run_settings.h"
#include "platform/tables/columns_table.h"
#include "platform/tables/open_table.h"
#include "tests/support/command.h"
#include "tests/support/raised.h"
#include "tests/support/temporary_folder.h"

namespace {

using namespace tavlox::tables;
using tavlox::SessionWriter;
using tavlox::recording::RecordedRun;

/// The table in plain form and what was assumed, or what was raised without the common "tavlox:record:".
std::string read(Table& table) {
  std::string plain = table.description().headingLine;
  Row row;
  while (table.next(row)) plain += row.plain;
  plain += row.plain;
  for (const std::string& assumed : table.description().assumed) plain += "| " + assumed;
  for (const Heading& heading : table.description().headings)
    if (heading.dataType == u"boolean") plain += "| " + fl::i18n::to_string(heading.name) + " is logical";
  return plain;
}

std::string read(std::string_view bytes, const TableOptions& options = {}) {
  const support::TemporaryFolder folder;
  folder.write("t.csv", bytes);
  std::string plain;
  std::string raised =
      support::raisedBy([&] { plain = read(*openTable(TableFile(folder.wide("t.csv")), options)); });
  const std::string path = folder.narrow("t.csv");
  if (const auto at = raised.find(path); at != std::string::npos) raised.replace(at, path.size(), "t");
  return raised.empty() ? plain : raised.substr(std::string("tavlox:record:").size());
}

std::string utf16(std::string_view ascii, bool isBigEndian) {
  std::string bytes = isBigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (const char character : ascii)
    bytes += isBigEndian ? std::string{'\0', character} : std::string{character, '\0'};
  return bytes;
}

TEST(Tables, AreReadInEveryDialect) {
  const struct {
    std::string bytes, plain;
    TableOptions options = {};
  } dialects[] = {
      // As it is, with its line ends, blanks, quotes and empty lines.
      {"\"t, of day [s]\" , v\r\n\r\n+0.5 , -1e-320\r\n1.5,nan\n\n2.5,-INF",
       "\"t, of day [s]\" , v\r\n\r\n+0.5 , -1e-320\r\n1.5,nan\n\n2.5,-INF"},
      {"\xEF\xBB\xBFt,v\n0,1\n\n", "t,v\n0,1\n\n"},
      {"t,v\r0,1\r1,2\r", "t,v\r0,1\r1,2\r"},
      // A row that is not plain is rewritten, the others stay.
      {"t,v,w\n0,1.50, 2\n1,,NA\n2,TRUE,false\n3,1.0D+00,2d-3\n",
       "t,v,w\n0,1.50, 2\n1,nan,nan\n2,1,0\n3,1.0e+00,2e-3\n"
       "| 1 empty cell as nan| \"NA\" as nan| 2 true or false cells as 1 or 0| exponents written with D"},
      {"t,v,w\n0,null,-\n1,#n/a,1\n",
       "t,v,w\n0,nan,nan\n1,nan,1\n| \"#N/A\" as nan| \"null\" as nan| \"-\" as nan"},
      {"t,v,\n0,1,\n1,2\n", "t [s],v\n0,1\n1,2\n| a delimiter at the end of the lines"},
      {"t,v,w,x\n0,true,true,NA\n1,,1,NA\n",
       "t,v,w,x\n0,1,1,nan\n1,nan,1,nan\n| 1 empty cell as nan| \"NA\" as nan| 2 true or false cells as 1 or 0| v is logical"},
      {"t;v\n0;1,5\n1;2\n", "t [s],v\n0,1.5\n1,2\n| semicolons between cells| decimal commas"},
      {"t;v\n0;1.5\n1;2\n", "t [s],v\n0,1.5\n1,2\n| semicolons between cells"},
      {"t\tv w\n0\t1\n", "t [s],v w\n0,1\n| tabs between cells"},
      {"  t [ms]   v\n  0  1,5 \n 1\t2\n", "t [ms],v\n0,1.5\n1,2\n| blanks between cells| decimal commas"},
      {"sep=|\nt|v\n0|1\n", "t [s],v\n0,1\n| other delimiters between cells"},
      {"# made today\nt,v\n0,1\n# half\n1,2\n", "t,v\n0,1\n1,2\n| lines with \"#\" as comments"},
      {"#t,v\n0,1\n", "#t,v\n0,1\n", {.comment = '\0'}},
      {"note\nt,v\n0,1\n", "t,v\n0,1\n", {.skip = 1}},
      {"t,v\nms,V\n0,1\n", "t [ms],v [V]\n0,1\n| a row of units"},
      {"0,1\n1,2\n", "time [s],column 2\n0,1\n1,2\n", {.hasHeadings = false}},
      {"t;v\n0;1.234,5\n",
       "t [s],v\n0,1234.5\n| semicolons between cells",
       {.decimal = ',', .thousands = '.'}},
      {"t,v\n2026-03-01T12:00:00.9+01:00,1\n2026-03-01T11:00:01Z,2\n",
       "t [s],v\n0,1\n0.1,2\n| dates for times, as seconds from the first"},
      {"t,v\n2026/02/28,1\n2026/03/01 00:01,2\n",
       "t [s],v\n0,1\n86460,2\n| dates for times, as seconds from the first"},
      {"t,v\n28.2.2026 12:00:00,1\n01.03.2026,2\n",
       "t [s],v\n0,1\n43200,2\n| dates of day, month and year for times, as seconds from the first"},
      {"t,v\n0:00:01,1\n30:00:02.5,2\n",
       "t [s],v\n1,1\n108002.5,2\n| hours, minutes and seconds for times, as seconds from 0:00:00"},
      {"t;\xB0\n0;1\n", "t [s],\xC2\xB0\n0,1\n| Latin-1 text, as it is no UTF-8| semicolons between cells"},
      {utf16("t,v\n0,1\n", false), "t,v\n0,1\n| UTF-16 text"},
      {utf16("t,v\n0,1\n", true), "t,v\n0,1\n| UTF-16 text"},
      {"t_ms,v\n0,1\n", "t [ms],v\n0,1\n"},
      {"t [msec],v\n0,1\n", "t [ms],v\n0,1\n"},
      {"t,v\n0,1\n", "t [h],v\n0,1\n", {.timeUnit = "h"}},
      // What cannot be read, and where.
      {"", "EmptyTable(t, 1, 1)"},
      {"\n\n", "EmptyTable(t, 1, 1)"},
      {"t,v\n", "NoRows(t, 2, 1)"},
      {"t\n0\n", "NoSignals(t, 1, 2)"},
      {"t,,v\n0,1,2\n", "EmptyHeading(t, 1, 2)"},
      {"t,v,w,v [V]\n0,1,2,3\n", "EqualHeadings(t, 1, 2, 4, v)"},
      {"0,1\n1,2\n", "HeadingsMissing(t, 1, 1)"},
      {"2026-11-21T10:00:00Z,1\n2026-11-21T10:00:01Z,2\n", "HeadingsMissing(t, 1, 1)"},
      {"01/02/2026,1\n01/03/2026,2\n", "HeadingsMissing(t, 1, 1)"},
      {"t,v,\n0,1,2\n", "UnevenRow(t, 2, 3, 2)"},
      {"t,v\n01/02/2026 10:00,1\n", "UnclearTime(t, 2, 1, 01/02/2026 10:00)"},
      {"t,v\n0:30,1\n", "UnclearTime(t, 2, 1, 0:30)"},
      {"t,v\n2026-03-01,1\n0:00:01,2\n", "TimeNotANumber(t, 3, 1, 0:00:01)"},
      {"t,v\n30.2.2026,1\n", "TimeNotANumber(t, 2, 1, 30.2.2026)"},
      {"t [fortnight],v\n0,1\n", "UnknownTimeUnit(t, 1, 1, fortnight)"},
      {"t,v,w\n0,1,2\n1,2\n", "UnevenRow(t, 3, 3, 3)"},
      {"t,v\n0,1\n1,2,3\n", "UnevenRow(t, 3, 3, 2)"},
      {"t,v\n0,1\n\n\n1\n", "UnevenRow(t, 5, 2, 2)"},
      {"t,v\r\n0,1\r\n1,x\r\n", "SampleNotANumber(t, 3, 2, x)"},
      {"t,v\n0,0x1D\n", "SampleNotANumber(t, 2, 2, 0x1D)"},
      {"t,v\n0,\"1,234\"\n", "SampleNotANumber(t, 2, 2, 1,234)"},  // thousands are never guessed
      {"t,v\n0,\xFF\n", "SampleNotANumber(t, 2, 2, \xC3\xBF)"},
      {"t,v\nstart,1\n", "TimeNotANumber(t, 2, 1, start)"},
      {"t,v\n0,1\nNA,1\n", "TimeNotANumber(t, 3, 1, NA)"},
      {"t,v\n1e999,1\n", "TimeNotANumber(t, 2, 1, 1e999)"},
      {"t,v\n0,1\n1,2\"\n", "BadQuoting(t, 3, 2)"},
      {"t,v\n0,\"1\n2,3\n", "BadQuoting(t, 4, 2)"},
      {"t,\"v\nolts\"\n0,1\n1,x\n", "SampleNotANumber(t, 4, 2, x)"},
      {"t,v\n0,\"" + std::string(1 << 20, '1') + "\n1,1\n2,1\n", "CellTooLong(t, 2, 2)"},
      {"t,v\n0," + std::string(100, 'x') + "\n",
       "SampleNotANumber(t, 2, 2, " + std::string(40, 'x') + "...)"},
      {"t,v;w\n0 a,b;c\n1 a,d;e\n",
       "UnclearDialect(t, blanks (33 %), blanks and decimal commas (33 %), commas (0 %), semicolons (0 %), "
       "semicolons and decimal commas (0 %))"},
      {"t,;v\n,;\n",
       "UnclearDialect(t, commas (50 %), semicolons (50 %), semicolons and decimal commas (50 %))"},
      {"\x1F\x8B\x08nothing packed", "DamagedCompression(t, gzip)"},
      {"Title: x\nPlotname: op\nNo. Variables: 1\nNo. Points: 1\nVariables:\n\t0\tv\tvoltage\nValues:\n0\t1\n",
       "NoTimePlot(t, \"op\")"},
  };
  for (const auto& [bytes, plain, options] : dialects)
    EXPECT_EQ(read(bytes, options), plain) << bytes.substr(0, 60);
}

TEST(Tables, HeadingsHaveUnitsWhereTheyAreSurelyOnes) {
  const struct {
    std::string_view heading, time, signal;
  } headings[] = {
      {"v [V]", "v V", "v V"},
      {"v[V]", "v[V]", "v V"},
      {"bus[3]", "bus[3]", "bus[3]"},
      {"v(out) [V]", "v(out) V", "v(out) V"},
      {"gain (old)", "gain (old)", "gain (old)"},
      {"v (V)", "v (V)", "v V"},
      {"v(V)", "v(V)", "v(V)"},
      {"U/V", "U/V", "U V"},
      {"km/h", "km h", "km/h"},
      {"speed in 1/min", "speed in 1 min", "speed in 1/min"},
      {"in/out", "in/out", "in/out"},
      {"wheel_speed", "wheel_speed", "wheel_speed"},
      {"Time(ms)", "Time ms", "Time(ms)"},
      {"t_us", "t us", "t_us"},
      {"[V]", "[V]", "[V]"},
  };
  const auto shown = [](const Heading& heading) {
    return fl::i18n::to_string(heading.name + (heading.unit ? u" " + *heading.unit : u""));
  };
  for (const auto& [heading, time, signal] : headings) {
    EXPECT_EQ(shown(timeHeading(heading)), time) << heading;
    EXPECT_EQ(shown(signalHeading(heading)), signal) << heading;
  }
}

TEST(Tables, RawFilesGiveTheirResultsOverTime) {
  const std::string folder = PROJECT_FOLDER "/tests/fuzz/corpus/sampleTable/";
  const auto open = [&](const char* name) {
    return openTable(TableFile(fl::i18n::to_ustring(folder + name)), {});
  };
  const std::string ascii = read(*open("raw-ascii")), binary = read(*open("raw-binary"));
  EXPECT_TRUE(ascii.starts_with("time [s],v(in) [V],v(out) [V],i(v1) [A]\n0.000000000000000e+00,0."))
      << ascii;
  EXPECT_TRUE(ascii.ends_with("alone, without \"AC Analysis\", \"Operating Point\"")) << ascii;
  EXPECT_EQ(std::count(binary.begin(), binary.end(), '\n'), 76);
  EXPECT_NE(binary.find("\n2e-04,5,"), std::string::npos) << binary;
  std::ifstream file(folder + "raw-binary");
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(read(bytes.substr(0, bytes.size() - 1)), "DamagedRawFile(t, it ends within its numbers)");
  EXPECT_EQ(read(bytes + bytes), "SeveralTimePlots(t)");
}

RecordedRun record(Table& table) {
  const support::TemporaryFolder folder;
  SessionWriter writer(folder.wide("s.tavlox"));
  return tavlox::recording::Recorder(writer).add(table, {});
}

TEST(Recorder, TellsFixedStepsFromVariableOnes) {
  const struct {
    std::u16string unit;
    std::vector<double> times;
    std::u16string_view sampleTime;
  } tables[] = {
      {u"s", {0}, u""},
      {u"s", {0, 0.1, 0.2, 0.3}, u"0.1"},
      {u"s", {1.7e9, 1.7e9 + 0.1, 1.7e9 + 0.2, 1.7e9 + 0.3}, u"0.1"},
      {u"s", {0, 3.33e-4, 6.67e-4, 1e-3}, u"variable"},            // rounded too much to be told
      {u"s", {0, 3.3333e-4, 6.6667e-4, 1e-3}, u"0.000333333333"},  // rounded as tables are
      {u"s", {0, 1, 2, 3.01}, u"variable"},
      {u"ms", {5, 10, 15}, u"0.005"},
      {u"h", {0, 1}, u"3600"},
  };
  for (const auto& [unit, times, sampleTime] : tables) {
    ColumnsTable table(u"run", {{u"t", unit, times}, {u"v", u"", times}});
    EXPECT_EQ(record(table).sampleTime, sampleTime) << times.back();
  }
  const std::vector<double> times{0, 0.1, 0.1}, short_{1};
  ColumnsTable equal(u"run", {{u"t", u"", times}, {u"v", u"", times}});
  EXPECT_EQ(support::raisedBy([&] { record(equal); }), "tavlox:record:TimeNotIncreasing(run, 4, 1, 0.1)");
  EXPECT_EQ(support::raisedBy([&] {
              ColumnsTable(u"run", {{u"t", u"", times}, {u"v", u"", short_}});
            }),
            "tavlox:record:UnevenColumns(run, v, 1, 3)");
}

TEST(Recorder, SetsTheFieldsThatHostsShow) {
  orra::RunRecord run;
  tavlox::recording::set(run, u"solvername", u"gear");
  tavlox::recording::set(run, u"SolverStepSize", u"auto");
  tavlox::recording::set(run, u"Status", u"done");
  tavlox::recording::set(run, u"ModelExecutionTime", u"1.5");
  EXPECT_EQ(run.metadata, (decltype(run.metadata){{"SolverName", u"gear"}, {"SolverMaxStepSize", u"auto"}}));
  EXPECT_EQ(*run.status, u"done");
  EXPECT_EQ(*run.simTime, 1.5);
  EXPECT_EQ(support::raisedBy([&] { tavlox::recording::set(run, u"Sovername", u"x"); }),
            "tavlox:record:NotAKey(Sovername, Did you mean \"SolverName\"?)");
}

}  // namespace

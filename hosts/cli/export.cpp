// Recorded samples as a table for other programs. Rows are made one by one from what is read block by block,
// and leave in pieces, so that memory grows neither with the rows nor with the number of different times.
// Cells are the texts that were recorded, unless values have to be found between them.
#include <algorithm>
#include <charconv>
#include <cmath>

#include <fmt/format.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/output.h"
#include "hosts/cli/output_file.h"
#include "hosts/cli/selection.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/samples/grid.h"
#include "platform/tables/hdf5_support.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

using fl::i18n::to_string_lossy;
using foundation::core::except::raise;
using samples::Grid;
using samples::RecordedSession;
using samples::RunOnGrid;
using samples::SampleBlock;
using samples::SampleReader;
using samples::Wanted;

using Selected = std::vector<SelectedRun>;
using Row = std::vector<std::string_view>;

// Large enough that writes cost nothing beside the making of the rows.
constexpr std::size_t kPieceSize = std::size_t{64} * 1024;
// Rows of a union that one should know of before they are made.
constexpr std::uint64_t kManyTimes = 1'000'000;

/// A value as text that reads back as the same number.
class NumberText {
 public:
  std::string_view of(double number) {
    const auto written = std::to_chars(text_, std::end(text_), number);
    return {text_, written.ptr};
  }

 private:
  char text_[32];
};

// ---- forms of a table ----

enum class Form { Csv, JsonLines, Hdf5 };

/// Takes a table row by row and writes it as text, in one of the two forms that are.
class TableWriter {
 public:
  TableWriter(Form form, const OutputFile::Sink& write) : form_(form), write_(write) {}

  /// Names the columns; to be called once, before the rows.
  void begin(const std::vector<std::string>& headings) {
    for (const std::string& heading : headings) {
      fl::i18n::JsonWriter name;
      // What stands in front of each value: the object's brace or the comma, and the member's name.
      names_.push_back((names_.empty() ? "{" : ",") + name.value(heading).take() + ":");
    }
    if (form_ == Form::Csv) add(Row(headings.begin(), headings.end()));
  }

  void add(const Row& cells) {
    form_ == Form::Csv ? addCsv(cells) : addJson(cells);
    if (piece_.size() >= kPieceSize) writeOut();
  }

  void end() { writeOut(); }

 private:
  void addCsv(const Row& cells) {
    // A comma behind each, of which the last becomes the end of the line.
    for (const std::string_view cell : cells) {
      appendCsv(cell);
      piece_ += ',';
    }
    piece_.back() = '\n';
  }

  /// In quotes only where it needs them: samples never do, so only the first character is looked at.
  void appendCsv(std::string_view cell) {
    const bool isNumber = !cell.empty() && cell.front() <= '9' && cell.front() >= '+' && cell.front() != ',';
    if (isNumber && cell.find_first_of(",\"") == std::string_view::npos) {
      piece_ += cell;
      return;
    }
    const bool hasBlanks = !cell.empty() && (cell.front() == ' ' || cell.back() == ' ');
    if (!hasBlanks && cell.find_first_of(",\"\r\n\t") == std::string_view::npos) {
      piece_ += cell;
      return;
    }
    piece_ += '"';
    for (const char byte : cell) piece_.append(byte == '"' ? 2 : 1, byte);
    piece_ += '"';
  }

  void addJson(const Row& cells) {
    for (std::size_t i = 0; i < cells.size(); ++i) {
      piece_ += names_[i];
      appendJson(cells[i]);
    }
    piece_ += "}\n";
  }

  /// A number as it stands there if JSON can write it so (no plus sign, no point at either end); null for
  /// nan, inf and nothing; a text for what is no number: the name of a signal.
  void appendJson(std::string_view cell) {
    double number = 0;
    const char* const last = cell.data() + cell.size();
    const bool hasPlus = cell.starts_with('+');
    const auto [end, error] = std::from_chars(cell.data() + (hasPlus ? 1 : 0), last, number);
    fl::i18n::JsonWriter json;
    if (!cell.empty() && (end != last || error == std::errc::invalid_argument)) {
      piece_ += json.value(cell).take();
      return;
    }
    const std::size_t digit = cell.starts_with('-') ? 1 : 0;
    const auto isDigit = [&](std::size_t at) {
      return at < cell.size() && cell[at] >= '0' && cell[at] <= '9';
    };
    const std::size_t point = cell.find('.');
    const bool isJson = isDigit(digit) && !(cell[digit] == '0' && isDigit(digit + 1)) &&
                        (point == std::string_view::npos || isDigit(point + 1));
    piece_ += cell.empty() ? "null" : isJson ? std::string(cell) : json.value(number).take();
  }

  void writeOut() {
    write_(piece_);
    piece_.clear();
  }

  Form form_;
  const OutputFile::Sink& write_;
  std::vector<std::string> names_;
  std::string piece_;
};

// ---- what goes into it ----

Wanted wantedOf(const Request& request, std::vector<std::uint32_t> columns, Wanted::Cells cells) {
  Wanted wanted = rangeOf(request);
  wanted.columns = std::move(columns);
  wanted.cells = cells;
  return wanted;
}

/// Goes through the rows of one run.
class Cursor {
 public:
  explicit Cursor(SampleReader reader) : reader_(std::move(reader)) {}

  bool next() {
    if (++row_ < block_.rows) return true;
    row_ = 0;
    return reader_.next(block_);
  }
  double time() const { return block_.times[row_]; }
  std::string_view timeText() const { return block_.timeTexts[row_]; }
  std::string_view text(std::size_t column) const { return block_.texts[column][row_]; }

 private:
  SampleReader reader_;
  SampleBlock block_;
  std::size_t row_ = 0;
};

std::vector<Cursor> cursorsOver(const Request& request, const RecordedSession& session, const Selected& runs,
                                Wanted::Cells cells) {
  std::vector<Cursor> cursors;
  for (const SelectedRun& run : runs) {
    // Without texts only the times are of interest.
    auto columns = cells == Wanted::Cells::Texts ? run.columns() : std::vector<std::uint32_t>();
    cursors.emplace_back(session.read(*run.run, wantedOf(request, std::move(columns), cells)));
  }
  return cursors;
}

/// Raises tavlox:export:OtherTimes if two of the runs have not the same times. They are read once more for
/// it: what was written of a table cannot be taken back.
void requireSameTimes(const Request& request, const RecordedSession& session, const Selected& runs) {
  if (runs.size() < 2) return;
  std::vector<Cursor> cursors = cursorsOver(request, session, runs, Wanted::Cells::Numbers);
  const auto refuse = [&](std::size_t other) {
    raise("tavlox:export:OtherTimes", session.path(), runs.front().run->id(), runs[other].run->id());
  };
  for (bool isMore = true; isMore;) {
    isMore = cursors.front().next();
    for (std::size_t i = 1; i < cursors.size(); ++i) {
      if (cursors[i].next() != isMore) refuse(i);
      if (isMore && cursors[i].time() != cursors.front().time()) refuse(i);
    }
  }
}

/// The heading of the time column if all runs write their times in one unit, so that the times can be given
/// as they stand there; nothing if not.
std::optional<std::string> commonTimeHeading(const RecordedSession& session, const Selected& runs) {
  std::optional<std::string> heading;
  const tables::TimeUnit* unit = nullptr;
  // One after the other: an open reader takes memory, and there may be thousands of runs.
  for (const SelectedRun& run : runs) {
    const SampleReader reader = session.read(*run.run, {});
    if (unit != nullptr && unit != &reader.timeUnit()) return std::nullopt;
    unit = &reader.timeUnit();
    if (!heading) heading = reader.headings().front();
  }
  return heading;
}

/// The time's heading, and one for each signal; among several runs with the run's label.
std::vector<std::string> headingsOf(const RecordedSession& session, const Selected& runs, std::string time) {
  std::vector<std::string> headings{std::move(time)};
  for (const SelectedRun& run : runs) {
    const std::u16string label = runs.size() == 1 ? u"" : session.labelOf(*run.run) + u": ";
    for (const auto& signal : run.signals) headings.push_back(to_string_lossy(label + headingOf(signal)));
  }
  return headings;
}

constexpr const char* kSeconds = "time [s]";

/// Runs on the same times, side by side, as they were recorded.
void writeRecorded(const Request& request, const RecordedSession& session, const Selected& runs,
                   TableWriter& table) {
  requireSameTimes(request, session, runs);
  const auto timeHeading = commonTimeHeading(session, runs);
  std::vector<Cursor> cursors = cursorsOver(request, session, runs, Wanted::Cells::Texts);
  table.begin(headingsOf(session, runs, timeHeading.value_or(kSeconds)));
  NumberText seconds;
  Row row;
  while (std::ranges::all_of(cursors, [](Cursor& cursor) { return cursor.next(); })) {
    row.assign(1, timeHeading ? cursors.front().timeText() : seconds.of(cursors.front().time()));
    for (std::size_t run = 0; run < runs.size(); ++run) {
      for (std::size_t i = 0; i < runs[run].signals.size(); ++i) row.push_back(cursors[run].text(i));
    }
    table.add(row);
  }
}

/// A row for each sample of each signal, as it was recorded.
void writeLong(const Request& request, const RecordedSession& session, const Selected& runs,
               TableWriter& table) {
  const auto timeHeading = commonTimeHeading(session, runs);
  table.begin({"run", timeHeading.value_or(kSeconds), "signal", "value"});
  NumberText seconds;
  for (const SelectedRun& run : runs) {
    const std::string id = std::to_string(run.run->id());
    std::vector<std::string> names;
    for (const auto& signal : run.signals) names.push_back(to_string_lossy(headingOf(signal)));
    Cursor cursor(session.read(*run.run, wantedOf(request, run.columns(), Wanted::Cells::Texts)));
    while (cursor.next()) {
      const std::string_view time = timeHeading ? cursor.timeText() : seconds.of(cursor.time());
      for (std::size_t i = 0; i < names.size(); ++i) table.add({id, time, names[i], cursor.text(i)});
    }
  }
}

enum class Columns { All, None };

std::vector<RunOnGrid> runsOnGrid(const RecordedSession& session, const Selected& runs, Columns columns) {
  std::vector<RunOnGrid> onGrid;
  for (const SelectedRun& run : runs) {
    // Rows outside of the times are read too: values at the limits lie between them. Only the grid is cut.
    Wanted wanted;
    std::vector<samples::Between> between;
    if (columns == Columns::All) {
      wanted.columns = run.columns();
      for (const auto& signal : run.signals)
        between.push_back(samples::betweenSamplesOf(signal.dataTypeLabel));
    }
    onGrid.emplace_back(session.read(*run.run, wanted), between);
  }
  return onGrid;
}

/// First and last time of any of the runs, within what was asked for.
std::pair<double, double> limitsOf(const Request& request, const RecordedSession& session,
                                   const Selected& runs) {
  double first = std::numeric_limits<double>::infinity(), last = -first;
  for (const SelectedRun& run : runs) {
    const samples::Span span = samples::spanOf(session.read(*run.run, {}));
    if (span.rows == 0) continue;
    first = std::min(first, span.first);
    last = std::max(last, span.last);
  }
  // Steps are counted from the time that was asked for, also where it lies before the first sample.
  return {numberOf(request, "--from").value_or(first),
          std::min(numberOf(request, "--to").value_or(last), last)};
}

Grid gridOf(const Request& request, const RecordedSession& session, const Selected& runs, Columns columns) {
  auto onGrid = runsOnGrid(session, runs, columns);
  const auto step = numberOf(request, "--step");
  if (!step) return Grid(std::move(onGrid));
  const auto [first, last] = limitsOf(request, session, runs);
  return {std::move(onGrid), first, last, *step};
}

/// Runs on other times than each other's, with values found between their samples.
void writeOnGrid(const Request& request, const RecordedSession& session, const Selected& runs,
                 TableWriter& table) {
  const Wanted range = rangeOf(request);
  if (!request.has("--step") && runs.size() > 1) {
    std::uint64_t times = 0;
    for (Grid grid = gridOf(request, session, runs, Columns::None); grid.next();)
      if (grid.time() >= range.from && grid.time() <= range.to) ++times;
    if (times > kManyTimes) warn(request.format, "tavlox:export:ManyTimes", times);
  }
  table.begin(headingsOf(session, runs, kSeconds));
  Grid grid = gridOf(request, session, runs, Columns::All);
  std::vector<NumberText> texts(grid.values().size() + 1);
  Row row(texts.size());
  while (grid.next()) {
    if (grid.time() > range.to) break;
    if (grid.time() < range.from) continue;
    row[0] = texts[0].of(grid.time());
    for (std::size_t i = 1; i < row.size(); ++i) row[i] = texts[i].of(grid.values()[i - 1]);
    table.add(row);
  }
}

// ---- a group for each run ----

/// The run's samples as they were recorded.
void writeRecorded(const Request& request, const RecordedSession& session, const SelectedRun& run,
                   tables::Hdf5Writer& writer) {
  SampleReader reader = session.read(*run.run, wantedOf(request, run.columns(), Wanted::Cells::Numbers));
  std::vector<double> row(run.signals.size() + 1);
  for (SampleBlock block; reader.next(block);) {
    for (std::size_t at = 0; at < block.rows; ++at) {
      row[0] = block.times[at];
      for (std::size_t i = 1; i < row.size(); ++i) row[i] = block.values[i - 1][at];
      writer.add(row);
    }
  }
}

/// The run's samples at the times of the grid of all runs.
void writeOnGrid(const Request& request, const RecordedSession& session, const Selected& runs,
                 std::size_t run, tables::Hdf5Writer& writer) {
  // The others give their times only.
  Selected others = runs;
  for (std::size_t i = 0; i < others.size(); ++i)
    if (i != run) others[i].signals.clear();
  const Wanted range = rangeOf(request);
  std::vector<double> row;
  for (Grid grid = gridOf(request, session, others, Columns::All); grid.next() && grid.time() <= range.to;) {
    if (grid.time() < range.from) continue;
    row.assign(1, grid.time());
    row.insert(row.end(), grid.values().begin(), grid.values().end());
    writer.add(row);
  }
}

void writeHdf5(const Request& request, const RecordedSession& session, const Selected& runs,
               const OutputFile& output) {
  const auto writer =
      tables::hdf5Support(request.one("--output")).makeWriter(request.one("--output"), output.descriptor());
  for (std::size_t run = 0; run < runs.size(); ++run) {
    std::vector<tables::Hdf5Writer::Column> columns{{u"time", u"s"}};
    for (const auto& signal : runs[run].signals) columns.push_back({signal.name, signal.units});
    writer->beginRun(session.labelOf(*runs[run].run), runs[run].run->id(), columns);
    if (request.has("--grid") || request.has("--step"))
      writeOnGrid(request, session, runs, run, *writer);
    else
      writeRecorded(request, session, runs[run], *writer);
  }
  writer->finish();
}

// ---- the command ----

/// What was asked for by name, or what the name of the output says. Raises tavlox:export:UnknownFormat.
Form formOf(const Request& request) {
  const std::u16string output = request.oneOr("--output", u"");
  const bool isNamedHdf5 = output.ends_with(u".h5") || output.ends_with(u".hdf5");
  // --json also has messages in JSON, which goes with any output.
  const std::u16string text = request.format == OutputFormat::Json ? u"jsonl" : u"csv";
  const std::u16string name = request.oneOr("--format", isNamedHdf5 ? u"hdf5" : text);
  if (name == u"csv") return Form::Csv;
  if (name == u"jsonl") return Form::JsonLines;
  if (name != u"hdf5") raise("tavlox:export:UnknownFormat", name);
  return Form::Hdf5;
}

void writeTable(const Request& request, const RecordedSession& session, const Selected& runs,
                const OutputFile::Sink& write) {
  TableWriter table(formOf(request), write);
  if (request.has("--long"))
    writeLong(request, session, runs, table);
  else if (request.has("--grid") || request.has("--step"))
    writeOnGrid(request, session, runs, table);
  else
    writeRecorded(request, session, runs, table);
  table.end();
}

void checkExport(const Request& request) {
  for (const std::u16string& word : request.all("--run")) toRunID(word);
  rangeOf(request);
  const auto step = numberOf(request, "--step");
  if (step && *step <= 0) raise("tavlox:cli:NotANumber", "--step", request.one("--step"));
  const std::u16string grid = request.oneOr("--grid", step ? u"step" : u"union");
  if (grid != u"union" && grid != u"step") raise("tavlox:export:UnknownGrid", grid);
  if ((grid == u"step") != step.has_value()) raise("tavlox:export:StepMissing");
  const bool isHdf5 = formOf(request) == Form::Hdf5;
  if (isHdf5 && !request.has("--output")) raise("tavlox:export:Hdf5NeedsOutput");
  if (isHdf5 && request.has("--long")) raise("tavlox:export:Hdf5IsByRun");
  if (request.has("--long") && (request.has("--grid") || step)) raise("tavlox:export:LongIsAsRecorded");
}

ExitCode runExport(const Request& request) {
  const RecordedSession session(request.one("FILE"));
  const Selected runs = selectSamples(request, session);
  if (!request.has("--output")) {
    writeTable(request, session, runs, [](std::string_view piece) { print(piece); });
    return ExitCode::Done;
  }
  const bool isHdf5 = formOf(request) == Form::Hdf5;
  // Before anything is written.
  if (isHdf5) tables::hdf5Support(request.one("--output"));
  OutputFile output(request);
  if (isHdf5)
    writeHdf5(request, session, runs, output);
  else
    writeTable(request, session, runs, [&](std::string_view piece) { output.write(piece); });
  output.finish();
  return ExitCode::Done;
}

}  // namespace

extern const Command kExport = {
    .name = "export",
    .summary = "Give out recorded samples as a table",
    .examples = R"help(  tavlox export filter.tavlox --run 1 > nominal.csv
  tavlox export filter.tavlox --grid union --signal "v(*)" -o corners.csv
  tavlox export filter.tavlox --step 1e-6 --from 0 --to 1e-4
  tavlox export filter.tavlox --long --json | jq .value
  tavlox export filter.tavlox -o filter.h5
)help",
    .details =
        R"(The table has the time in its first column and a signal in each further one,
with the unit in brackets behind the name; with --long it has a row for each
sample: run, time, signal, value. It is CSV (RFC 4180), or with --json an
object per row on a line of its own; nan and inf are null there.

In HDF5, which OUT is if it ends in .h5 or .hdf5, each run is a group with a
dataset for each signal and one named time, in seconds; the attributes "units"
hold the units.

Cells are what was recorded, digit for digit, and the time is in the unit that
it was recorded in. Runs can stand side by side if their times are the same;
their names then stand before the signals. If the times differ, say how to join
them:

  --grid union   every time of any run
  --step T       every T seconds, from --from or the first time on

Between two samples, floating-point signals are interpolated linearly;
integers, booleans and enumerations keep the earlier value. Where a run has no
samples its cells are nan. The time is then in seconds.
)",
    .parameters = {{"FILE", Takes::One, "The package to look into"},
                   kRunOption,
                   kSignalOption,
                   kFromOption,
                   kToOption,
                   {"--grid", Takes::Value, "Times of runs that differ: union or step", "HOW"},
                   {"--step", Takes::Value, "A row every so many seconds", "T"},
                   {"--long", Takes::Flag, "A row for each sample"},
                   {"--format", Takes::Value, "csv, jsonl or hdf5, whatever OUT is called", "FORM"},
                   kOutputOption,
                   {"--force", Takes::Flag, "Replace OUT if it exists"}},
    .run = runExport,
    .check = checkExport,
};

}  // namespace tavlox::cli

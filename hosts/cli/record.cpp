#include <fmt/format.h>

#include "hosts/cli/command.h"
#include "hosts/cli/output.h"
#include "hosts/cli/recorder.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

RecordingPlan planOf(const Request& request) {
  RecordingPlan plan{.output = request.one("OUT"), .tables = request.all("CSV"), .description = {}};
  if (request.has("--description")) plan.description = request.one("--description");
  if (request.has("--force")) plan.existing = SessionWriter::Existing::Replace;
  return plan;
}

void printTable(const std::vector<RecordedRun>& runs) {
  const auto number = [](auto value) { return fl::i18n::to_ustring(fmt::format("{}", value)); };
  Table table({"id", "Name", "NumSignals", "NumRows", "StartTime", "StopTime", "SampleTime"});
  for (const RecordedRun& recorded : runs) {
    const RunRecord& run = recorded.run;
    table.addRow({number(run.id), *run.name, number(recorded.signalCount), number(recorded.rowCount),
                  number(*run.startTime), number(*run.stopTime), recorded.sampleTime});
  }
  print(table);
}

void printJson(const std::u16string& output, const std::vector<RecordedRun>& runs) {
  fl::i18n::JsonWriter json;
  json.beginObject().member("Filename").value(std::u16string_view(fl::filesystem::absolute(output)));
  json.member("Runs").beginArray();
  for (const RecordedRun& recorded : runs) {
    const RunRecord& run = recorded.run;
    json.beginObject().member("id").value(run.id).member("Name").value(std::u16string_view(*run.name));
    json.member("NumSignals").value(static_cast<std::uint64_t>(recorded.signalCount));
    json.member("NumRows").value(recorded.rowCount);
    json.member("StartTime").value(*run.startTime).member("StopTime").value(*run.stopTime);
    json.member("SampleTime").value(std::u16string_view(recorded.sampleTime)).endObject();
  }
  json.endArray().endObject();
  print(json);
}

ExitCode runRecord(const Request& request) {
  const std::vector<RecordedRun> runs = recordSession(planOf(request));
  request.format == OutputFormat::Json ? printJson(request.one("OUT"), runs) : printTable(runs);
  return ExitCode::Done;
}

}  // namespace

const Command kRecord = {
    .name = "record",
    .summary = "Make a session of result tables",
    .examples =
        "  tavlox record filter.tavlox nominal.csv hot.csv worst.csv\n"
        "  tavlox record filter.tavlox *.csv --force --description \"RC filter, three corners\"\n",
    .details =
        R"(A table is comma-separated text with a heading line, for example

  time [s],v(in) [V],v(out) [V]
  0,0,0
  1e-6,1,0.0095

Each table becomes a run, named like the file. The first column is the time; it must increase from row to row
and is in seconds unless its heading names another unit (ms, us, ns, ps, fs, min, h). Each further column
becomes a signal; a unit stands in brackets behind its name. Every cell must hold a number; write nan where
there is no value. A cell with a comma in it goes in double quotes.

Recorded are names, units, start and stop time, the date of the file, and the sample time: the step if all steps
are equal to within a thousandth, else "variable". Nothing is guessed: what a table does not say is left out. The
table itself is kept in the package, byte for byte; the compression type is recorded as "normal".

Prints a line for each run: id, name, number of signals and of rows, start, stop and sample time.
)",
    .parameters = {{"OUT", Takes::One, "The package to make"},
                   {"CSV", Takes::OneOrMore, "The tables, one for each run"},
                   {"--force", Takes::Flag, "Replace OUT if it exists"},
                   {"--description", Takes::Value, "The description of the session"}},
    .run = runRecord,
};

}  // namespace tavlox::cli

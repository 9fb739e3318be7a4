// Making a session of result tables, or adding runs to one. What tables may look like and how they become
// runs is the platform's; here it is decided what may be written where, options are turned into what is known
// of the tables, and people are told what was made and what was assumed. The package appears under its name,
// or gets its runs, only when all of them are complete; until then a session that was there stays.
#include <algorithm>
#include <charconv>
#include <optional>
#include <set>

#include <fmt/format.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/output.h"
#include "hosts/cli/saving.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/recording/recorder.h"
#include "platform/recording/run_settings.h"
#include "platform/tables/open_table.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using fl::i18n::to_string;
using fl::i18n::to_ustring;
using foundation::core::except::raise;
using recording::RecordedRun;

// What stands for standard input.
constexpr std::u16string_view kStandardInput = u"-";

/// The name of a file without its folders, its last extension and that of a compression.
std::u16string stem(const std::u16string& path) {
  std::u16string name = fs::extract_filename(path);
  for (const std::u16string_view packed : {u".gz", u".zst"})
    if (name.ends_with(packed) && name.size() > packed.size()) name.resize(name.size() - packed.size());
  const std::u16string extension = fs::extract_extension(name);
  return extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
}

struct NamedCharacter {
  std::u16string_view name;
  char character;
};
constexpr NamedCharacter kCharacters[] = {
    {u"comma", ','}, {u"semicolon", ';'}, {u"tab", '\t'}, {u"\\t", '\t'}, {u"space", ' '},
    {u"blank", ' '}, {u"point", '.'},     {u"dot", '.'},  {u"none", 0},
};

/// A character that is given as itself or, since shells make that difficult, by its name. Nothing if it was
/// not given. Raises tavlox:record:OptionValue unless it is among the possible ones; an empty list takes any
/// printable ASCII.
std::optional<char> characterOf(const Request& request, std::string_view option, std::string_view possible,
                                std::string_view help) {
  if (!request.has(option)) return std::nullopt;
  const std::u16string& value = request.one(option);
  const auto* const named = std::ranges::find(kCharacters, value, &NamedCharacter::name);
  const bool isNamed = named != std::end(kCharacters);
  const bool isOne = value.size() == 1 && value[0] > 0 && value[0] < 0x7F;
  if (!isNamed && !isOne) raise("tavlox:record:OptionValue", option, value, help);
  const char character = isNamed ? named->character : static_cast<char>(value[0]);
  const bool isPossible = possible.empty() ? character != '"' && character != '\n' && character != '\r'
                                           : possible.find(character) != std::string_view::npos;
  if (!isPossible) raise("tavlox:record:OptionValue", option, value, help);
  return character;
}

/// Raises tavlox:record:OptionValue.
tables::TableOptions optionsOf(const Request& request) {
  tables::TableOptions options;
  options.delimiter = characterOf(request, "--delimiter", "", "a character, tab or space");
  if (options.delimiter == '\0') raise("tavlox:record:OptionValue", "--delimiter", "none", "a character");
  options.decimal = characterOf(request, "--decimal", ".,", "a point or a comma");
  options.thousands = characterOf(request, "--thousands", ",.' _", "one of , . ' _ and space");
  options.comment = characterOf(request, "--comment", "", "a character, or none");
  options.hasUnitsRow = request.has("--units-row");
  options.hasHeadings = !request.has("--no-header");
  if (request.has("--skip")) {
    const std::string value = to_string(request.one("--skip"));
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), options.skip);
    if (error != std::errc() || end != value.data() + value.size())
      raise("tavlox:record:OptionValue", "--skip", value, "a number of lines");
  }
  if (request.has("--time-unit")) {
    options.timeUnit = to_string(request.one("--time-unit"));
    if (tables::findTimeUnit(*options.timeUnit) == nullptr)
      raise("tavlox:record:OptionValue", "--time-unit", *options.timeUnit, "s, ms, us, ns, ps, fs, min or h");
  }
  if (request.has("--group")) options.group = to_string(request.one("--group"));
  return options;
}

/// What --set says of every run. Raises tavlox:record:NotASetting, NotAKey, KeyTwice or OptionValue.
RunRecord settingsOf(const Request& request) {
  RunRecord run;
  std::vector<std::u16string> keys;
  for (const std::u16string& setting : request.all("--set")) {
    const std::size_t equals = setting.find(u'=');
    if (equals == 0 || equals == std::u16string::npos) raise("tavlox:record:NotASetting", setting);
    keys.push_back(setting.substr(0, equals));
    if (std::ranges::count(keys, keys.back()) > 1) raise("tavlox:record:KeyTwice", keys.back());
    recording::set(run, keys.back(), std::u16string_view(setting).substr(equals + 1));
  }
  if (request.has("--name")) run.name = request.one("--name");
  return run;
}

void checkRecord(const Request& request) {
  checkWait(request);
  optionsOf(request);
  settingsOf(request);
  const auto& paths = request.all("TABLE");
  if (request.has("--name") && paths.size() > 1) raise("tavlox:record:NameForSeveral", paths.size());
  if (std::ranges::count(paths, kStandardInput) > 1) raise("tavlox:record:StandardInputTwice");
}

/// Raises before any table is read, which may take long: tavlox:record:OutputIsTable, OutputName,
/// OutputExists, NotReplaced or WithoutPackage.
void refuseWrongOutput(const Request& request) {
  const std::u16string& output = request.one("OUT");
  const std::u16string resolved = fs::weakly_canonical(output);
  for (const std::u16string& table : request.all("TABLE")) {
    // Not even with --force: whoever forgets the name of the package would lose the first table.
    if (table != kStandardInput && fs::weakly_canonical(table) == resolved)
      raise("tavlox:record:OutputIsTable", output);
  }
  const bool exists = fs::exists(output), isForced = request.has("--force");
  if (request.has("--append")) {
    if (!exists) raise("tavlox:record:WithoutPackage", output);
    return;
  }
  if (!isForced && !output.ends_with(u".tavlox")) raise("tavlox:record:OutputName", output);
  if (exists && !isForced) raise("tavlox:record:OutputExists", output);
  if (exists && !recording::isTavloxPackage(output)) raise("tavlox:record:NotReplaced", output);
}

/// The tables of one command. Standard input is kept, since a save that waits for another program reads all
/// tables again.
class Inputs {
 public:
  explicit Inputs(const Request& request) : request_(request), options_(optionsOf(request)) {}

  std::unique_ptr<tables::Table> open(const std::u16string& path) {
    if (path != kStandardInput) return tables::openTable(tables::TableFile(path), options_);
    if (standardInput_ == nullptr) standardInput_ = tables::spooledStandardInput();
    return tables::openTable({path, standardInput_}, options_);
  }

  /// Says what was assumed of the table, unless that was said before.
  void tellAssumptions(const std::u16string& path, const tables::TableDescription& table) {
    if (!told_.insert(path).second) return;
    const std::string assumed = fmt::format("{}", fmt::join(table.assumed, ", "));
    if (!assumed.empty() && table.isText) warn(request_.format, "tavlox:record:Assumed", path, assumed);
    if (!assumed.empty() && !table.isText) warn(request_.format, "tavlox:record:Chosen", path, assumed);
    if (table.isTimeUnitAssumed) inSeconds_.push_back(path);
  }
  /// Once for all tables.
  void tellSeconds() const {
    if (!inSeconds_.empty())
      warn(request_.format, "tavlox:record:SecondsAssumed", namesInMessage(inSeconds_));
  }

 private:
  const Request& request_;
  tables::TableOptions options_;
  std::shared_ptr<const fs::Descriptor> standardInput_;
  std::set<std::u16string> told_;
  std::vector<std::u16string> inSeconds_;
};

SessionWriter writerFor(const Request& request) {
  if (request.has("--append")) return SessionWriter::append(request.one("OUT"));
  using Existing = SessionWriter::Existing;
  // The writer is told as well: a package could appear at the path while the tables are read.
  SessionWriter writer(request.one("OUT"), request.has("--force") ? Existing::Replace : Existing::Refuse);
  // Samples are kept with the package's normal compression.
  writer.setCompressionType(u"normal");
  return writer;
}

/// Where it raises there is no package, and one that was to be changed is as it was.
std::vector<RecordedRun> recordSession(const Request& request, Inputs& inputs) {
  refuseWrongOutput(request);
  SessionWriter writer = writerFor(request);
  recording::Recorder recorder(writer);
  std::vector<RecordedRun> runs;
  for (const std::u16string& path : request.all("TABLE")) {
    RunRecord run = settingsOf(request);
    const std::unique_ptr<tables::Table> table = inputs.open(path);
    if (!run.name && !table->description().name.empty()) run.name = table->description().name;
    if (!run.name) run.name = path == kStandardInput ? std::u16string(u"standard input") : stem(path);
    runs.push_back(recorder.add(*table, std::move(run)));
    inputs.tellAssumptions(path, table->description());
  }
  if (request.has("--description")) writer.setDescription(request.one("--description"));
  // Only here the package appears; without this call the destructor gives everything up.
  writer.close();
  return runs;
}

/// A line for each run. Times are printed with as many digits as it takes to read back the same number.
void printTable(const std::vector<RecordedRun>& runs) {
  const auto number = [](auto value) { return to_ustring(fmt::format("{}", value)); };
  print(Table{
      {"id", "Name", "NumSignals", "NumRows", "StartTime", "StopTime", "SampleTime"},
      runs.size(),
      [&](std::size_t i) {
        const auto& [run, signalCount, rowCount, sampleTime] = runs[i];
        return std::vector{
            number(run.id),        *run.name, number(signalCount), number(rowCount), number(*run.startTime),
            number(*run.stopTime), sampleTime};
      }});
}

/// The object for --json; times are numbers, in seconds.
void printJson(const std::u16string& output, const std::vector<RecordedRun>& runs) {
  fl::i18n::JsonWriter json = beginAnswer(output);
  json.member("Runs").beginArray();
  for (const auto& [run, signalCount, rowCount, sampleTime] : runs) {
    json.beginObject().member("id").value(run.id).member("Name").value(*run.name);
    json.member("NumSignals").value(static_cast<std::uint64_t>(signalCount));
    json.member("NumRows").value(rowCount);
    json.member("StartTime").value(*run.startTime).member("StopTime").value(*run.stopTime);
    json.member("SampleTime").value(sampleTime).endObject();
  }
  print(json.endArray().endObject());
}

ExitCode runRecord(const Request& request) {
  std::vector<RecordedRun> runs;
  Inputs inputs(request);
  save(request, request.one("OUT"), [&] { runs = recordSession(request, inputs); });
  inputs.tellSeconds();
  request.format == OutputFormat::Json ? printJson(request.one("OUT"), runs) : printTable(runs);
  return ExitCode::Done;
}

}  // namespace

extern const Command kRecord = {
    .name = "record",
    .summary = "Make a session of result tables, or add runs to one",
    .examples = R"(  tavlox record filter.tavlox nominal.csv hot.csv worst.csv
  tavlox record filter.tavlox cold.raw --append --set SolverName=gear
  simulate | tavlox record filter.tavlox - --name nominal --force
)",
    .details = R"help(Each table becomes a run, named like the file. The first column is the time and
must increase from row to row; each further column becomes a signal. Tables are

  delimited text  commas, semicolons, tabs or blanks between the cells, a line
                  of headings; decimal points or commas; UTF-8, UTF-16, Latin-1;
                  lines that begin with # or % are comments; gzip and zstd too
  raw files       of ngspice, ASCII or binary: the results over time
  HDF5            a group with a dataset for each signal and one named time or
                  t, a compound dataset, or a matrix whose attribute "columns"
                  names its columns; attributes "units" hold their units

How a text is written is found out from its first lines; what else than plain
commas was found is said on standard error. A first row of numbers, and a table
that could be read in two ways, are errors: say it with the options.

The time's unit is one of s, ms, us, ns, ps, fs, min and h, written "t [ms]",
"t (ms)", "t/ms" or "t_ms"; seconds if there is none. Signals have theirs as
"v [V]", and common ones as "v (V)" or "v/V". Dates as times (ISO 8601) become
seconds from the first. An empty cell, NA and nan are no value.

The samples are kept in the package as plain comma-separated text, every number
with its own digits; a table that is that already is kept byte for byte. The
sample time is the step if all steps are equal to within a thousandth, else
"variable". What a table does not say is left out.

Keys of --set are the names that "tavlox runs --json" shows: Name, Description,
Tag, DateCreated, Model, SimMode, Status, UserID, MachineName, Platform,
SolverType, SolverName, SolverStepSize, UserString and so on.

Prints a line for each run: id, name, number of signals and of rows, start, stop
and sample time.
)help",
    .parameters = {{"OUT", Takes::One, "The package to make"},
                   {"TABLE", Takes::OneOrMore, "The tables, one for each run; - is standard input"},
                   {"--append", Takes::Flag, "Add the runs to OUT"},
                   {"--force", Takes::Flag, "Replace OUT, if it is a package"},
                   {"--description", Takes::Value, "The description of the session"},
                   {"--name", Takes::Value, "The name of the run"},
                   {"--set", Takes::Values, "A field of the runs; also several times", "KEY=VALUE"},
                   {"--time-unit", Takes::Value, "The unit of the times", "UNIT"},
                   {"--delimiter", Takes::Value, "Between the cells; also \"tab\", \"space\"", "CHAR"},
                   {"--decimal", Takes::Value, "The decimal sign: . or ,", "CHAR"},
                   {"--thousands", Takes::Value, "Between groups of digits, left out", "CHAR"},
                   {"--comment", Takes::Value, "What comment lines begin with, or none", "CHAR"},
                   {"--skip", Takes::Value, "Lines to leave out at the beginning", "COUNT"},
                   {"--units-row", Takes::Flag, "Below the headings is a row of units"},
                   {"--no-header", Takes::Flag, "The first row is one of numbers"},
                   {"--group", Takes::Value, "The group or dataset of an HDF5 file", "PATH"},
                   kWait},
    .run = runRecord,
    .check = checkRecord,
};

}  // namespace tavlox::cli

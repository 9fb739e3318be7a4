// Making a session of result tables. A table is read twice: first all of it is checked, and the times and
// headings are taken from it; then its bytes are copied into the package as they are, so that nothing of a
// simulator's output is rounded or lost. Neither pass holds more than a piece of the table. The package
// appears under its name only when it is complete; until then a session that was there stays.
#include <cerrno>
#include <functional>

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "hosts/cli/command.h"
#include "hosts/cli/output.h"
#include "hosts/cli/sample_table.h"
#include "hosts/cli/saving.h"
#include "platform/errors/exceptions.h"
#include "platform/export_file/session_writer.h"
#include "platform/files/descriptor.h"
#include "platform/files/filesystem.h"
#include "platform/progress/progress.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using fl::i18n::to_ustring;
using foundation::core::except::raise;

// Between two pieces progress is reported, and an interrupt can end the program.
constexpr std::size_t kPieceSize = std::size_t{256} * 1024;

/// One table on disk. It is read twice, to check it and to keep it, and must not change in between.
class TableFile {
 public:
  explicit TableFile(const std::u16string& path)
      : path_(path), file_(open(fl::i18n::to_string(path).c_str(), O_RDONLY | O_CLOEXEC)) {
    if (!file_) refuse(errno);
    opened_ = status();
  }

  /// Gives every byte from the first on.
  void read(const std::function<void(std::string_view)>& take) {
    std::string piece(kPieceSize, '\0');
    for (std::uint64_t offset = 0;;) {
      const fs::ReadResult got = fs::readAt(file_.get(), offset, piece.data(), piece.size());
      if (got.error != 0) refuse(got.error);
      // The end of the file as it is now; whether it grew is asked by requireUnchanged.
      if (got.count == 0) return;
      take({piece.data(), got.count});
      offset += got.count;
    }
  }

  void requireUnchanged() const {
    const struct stat now = status();
    // The size alone would miss a table that is written anew with the same number of rows.
    const bool same = now.st_size == opened_.st_size && now.st_mtim.tv_sec == opened_.st_mtim.tv_sec &&
                      now.st_mtim.tv_nsec == opened_.st_mtim.tv_nsec;
    if (!same) raise("tavlox:record:TableChanged", path_);
  }

  /// Bytes, when it was opened.
  std::uint64_t size() const { return static_cast<std::uint64_t>(opened_.st_size); }

  /// When the table was written, in UTC: "2026-11-15T12:44:29Z".
  std::u16string date() const {
    return to_ustring(fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(opened_.st_mtim.tv_sec)));
  }

 private:
  /// `error` is an errno.
  [[noreturn]] void refuse(int error) const {
    if (error == ENOENT) raise("tavlox:general:FileNotFound", path_);
    raise("tavlox:record:CannotReadTable", path_, fs::systemReason(error));
  }

  struct stat status() const {
    struct stat found {};
    if (fstat(file_.get(), &found) != 0) refuse(errno);
    return found;
  }

  std::u16string path_;
  fs::Descriptor file_;
  struct stat opened_ {};
};

/// What became of one table.
struct RecordedRun {
  RunRecord run;
  std::size_t signalCount = 0;
  std::uint64_t rowCount = 0;
  std::u16string sampleTime;  ///< seconds or "variable"; empty for a single row
};

/// The name of a file without its folders and its last extension.
std::u16string stem(const std::u16string& path) {
  const std::u16string name = fs::extract_filename(path), extension = fs::extract_extension(path);
  return extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
}

/// What a column says of its signal; fields that it says nothing of are not recorded.
SignalRecord signalOf(const SampleTable& table, const ColumnHeading& column, const std::u16string& path) {
  SignalRecord signal;
  signal.name = column.name;
  signal.units = signal.displayUnits = column.unit;
  signal.dataTypeLabel = u"double";
  // Samples are real scalars: a cell holds one number.
  signal.complexity = 0;
  signal.dimensions = {1};
  if (table.rowCount() > 1) signal.sampleTime = table.sampleTime();
  signal.rootSource = fs::extract_filename(path);
  signal.timeSource = table.time().heading;
  signal.dataSource = column.heading;
  return signal;
}

/// Makes a run of each table, with a signal for each of its columns but the first, and gives runs and signals
/// their identifiers, from 1 through the whole session. Each table is checked and then kept byte for byte as
/// the run's samples, in constant memory. Only what the tables say is recorded, everything else is left out.
class Recording {
 public:
  explicit Recording(SessionWriter& writer) : writer_(writer) {}

  RecordedRun addTable(const std::u16string& path) {
    TableFile file(path);
    SampleTable table(path);
    check(file, table, u"Reading " + path);
    RunRecord run;
    run.id = ++lastRun_;
    // Runs are numbered in the order in which the tables were given.
    run.runNumber = static_cast<std::uint32_t>(run.id);
    run.name = stem(path);
    run.dateCreated = file.date();
    run.startTime = table.startTime();
    run.stopTime = table.stopTime();
    writer_.addRun(run);
    writer_.addSamples(run.id, [&](const SessionWriter::Sink& keep) { file.read(keep); });
    // After the second pass: what was kept must be what was checked. The package was not made yet.
    file.requireUnchanged();
    // One signal after the other: their descriptions are small, their samples were kept above.
    const std::vector<ColumnHeading> columns = table.signalColumns();
    for (const ColumnHeading& column : columns) {
      SignalRecord signal = signalOf(table, column, path);
      signal.id = ++lastSignal_;
      signal.runID = run.id;
      writer_.addSignal(signal);
    }
    return {run, columns.size(), table.rowCount(), table.sampleTime()};
  }

 private:
  /// Reads all of the table; raises tavlox:record:… errors for what it must not hold.
  static void check(TableFile& file, SampleTable& table, const std::u16string& activity) {
    std::uint64_t done = 0;
    file.read([&](std::string_view bytes) {
      table.take(bytes);
      done += bytes.size();
      corvan::reportProgress({.activity = activity.c_str(), .done = done, .total = file.size()});
    });
    table.finish();
  }

  SessionWriter& writer_;
  std::int32_t lastRun_ = 0, lastSignal_ = 0;
};

/// Raises tavlox:record:OutputIsTable or tavlox:record:OutputExists, before any table is read, which may take
/// long.
void refuseWrongOutput(const Request& request) {
  const std::u16string& output = request.one("OUT");
  const std::u16string resolved = fs::weakly_canonical(output);
  for (const std::u16string& table : request.all("CSV")) {
    // Not even with --force: whoever forgets the name of the package would lose the first table.
    if (fs::weakly_canonical(table) == resolved) raise("tavlox:record:OutputIsTable", output);
  }
  if (!request.has("--force") && fs::exists(output)) raise("tavlox:record:OutputExists", output);
}

/// Where it raises there is no package, and one that was to be replaced is as it was.
std::vector<RecordedRun> recordSession(const Request& request) {
  refuseWrongOutput(request);
  using Existing = SessionWriter::Existing;
  // The writer is told as well: a package could appear at the path while the tables are read.
  SessionWriter writer(request.one("OUT"), request.has("--force") ? Existing::Replace : Existing::Refuse);
  Recording recording(writer);
  std::vector<RecordedRun> runs;
  for (const std::u16string& path : request.all("CSV")) runs.push_back(recording.addTable(path));
  // Samples are kept with the package's normal compression.
  writer.setCompressionType(u"normal");
  const std::u16string description = request.oneOr("--description", u"");
  if (!description.empty()) writer.setDescription(description);
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
  save(request, request.one("OUT"), [&] { runs = recordSession(request); });
  request.format == OutputFormat::Json ? printJson(request.one("OUT"), runs) : printTable(runs);
  return ExitCode::Done;
}

}  // namespace

extern const Command kRecord = {
    .name = "record",
    .summary = "Make a session of result tables",
    .examples = R"(  tavlox record filter.tavlox nominal.csv hot.csv worst.csv
  tavlox record filter.tavlox *.csv --force --description "RC filter, three corners"
)",
    .details = R"(A table is comma-separated text with a heading line, for example

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
                   {"--description", Takes::Value, "The description of the session"},
                   kWait},
    .run = runRecord,
    .check = checkWait,
};

}  // namespace tavlox::cli

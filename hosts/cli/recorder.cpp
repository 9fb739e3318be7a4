#include "hosts/cli/recorder.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include <fmt/chrono.h>

#include "hosts/cli/sample_table.h"
#include "platform/errors/except_with_causes.h"
#include "platform/filesystem/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using foundation::core::except::raise;

constexpr std::size_t kPieceSize = 256 * 1024;

template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* handle) const noexcept {
    Free(handle);
  }
};
using File = std::unique_ptr<std::FILE, FreeWith<std::fclose>>;

[[noreturn]] void refuseTable(const std::u16string& path, int error) {
  if (error == ENOENT) raise("tavlox:general:FileNotFound", path);
  raise("tavlox:record:CannotReadTable", path, std::generic_category().message(error));
}

File openTable(const std::u16string& path) {
  File file(std::fopen(fl::i18n::to_string(path).c_str(), "rbe"));
  if (!file) refuseTable(path, errno);
  // The pieces read are large, a second buffer would only be copied through.
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  return file;
}

/// Hands every byte of the table to both the check and the package, in one pass: what is checked is what is
/// kept.
void readTable(const RecordingPlan& plan, const std::u16string& path, SampleTable& table,
               const SessionWriter::Sink& keep) {
  const File file = openTable(path);
  std::string piece(kPieceSize, '\0');
  std::uint64_t total = 0;
  while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), file.get())) {
    const std::string_view bytes(piece.data(), size);
    table.take(bytes);
    keep(bytes);
    total += size;
    if (plan.progress) plan.progress(path, total);
  }
  if (std::ferror(file.get()) != 0) refuseTable(path, errno);
  table.finish();
}

std::u16string stem(const std::u16string& path) {
  const std::u16string name = fs::extract_filename(path), extension = fs::extract_extension(path);
  return extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
}

/// When the table was written, in UTC: "2026-11-15T12:44:29Z".
std::u16string dateOf(const std::u16string& path) {
  const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
  const auto seconds = (fs::status(path).lastWriteTime - epoch).total_seconds();
  return fl::i18n::to_ustring(
      fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(static_cast<std::time_t>(seconds))));
}

RunRecord runOf(const SampleTable& table, const std::u16string& path, std::int32_t id) {
  RunRecord run;
  run.id = id;
  run.runNumber = static_cast<std::uint32_t>(id);
  run.name = stem(path);
  run.dateCreated = dateOf(path);
  run.startTime = table.startTime();
  run.stopTime = table.stopTime();
  return run;
}

SignalRecord signalOf(const SampleTable& table, const ColumnHeading& column, const std::u16string& path) {
  SignalRecord signal;
  signal.name = column.name;
  signal.units = signal.displayUnits = column.unit;
  signal.dataTypeLabel = u"double";
  signal.complexity = 0;
  signal.dimensions = {1};
  if (table.rowCount() > 1) signal.sampleTime = table.sampleTime();
  signal.rootSource = fs::extract_filename(path);
  signal.timeSource = table.time().heading;
  signal.dataSource = column.heading;
  return signal;
}

void refuseWrongOutput(const RecordingPlan& plan) {
  const std::u16string output = fs::weakly_canonical(plan.output);
  for (const std::u16string& table : plan.tables) {
    if (fs::weakly_canonical(table) == output) raise("tavlox:record:OutputIsTable", plan.output);
  }
  if (plan.existing == SessionWriter::Existing::Refuse && fs::exists(plan.output)) {
    raise("tavlox:record:OutputExists", plan.output);
  }
}

/// Gives runs and signals their identifiers, from 1 through the whole session.
class Recording {
 public:
  explicit Recording(const RecordingPlan& plan) : plan_(plan), writer_(plan.output, plan.existing) {}

  RecordedRun addTable(const std::u16string& path) {
    SampleTable table(path);
    const std::int32_t id = ++lastRun_;
    writer_.addSamples(id, [&](const SessionWriter::Sink& keep) { readTable(plan_, path, table, keep); });
    const RunRecord run = runOf(table, path, id);
    writer_.addRun(run);
    const std::vector<ColumnHeading> columns = table.signalColumns();
    for (const ColumnHeading& column : columns) {
      SignalRecord signal = signalOf(table, column, path);
      signal.id = ++lastSignal_;
      signal.runID = id;
      writer_.addSignal(signal);
    }
    return {.run = run,
            .signalCount = columns.size(),
            .rowCount = table.rowCount(),
            .sampleTime = table.sampleTime()};
  }

  void close() {
    // Samples are kept with the package's normal compression.
    writer_.setCompressionType(u"normal");
    if (!plan_.description.empty()) writer_.setDescription(plan_.description);
    writer_.close();
  }

 private:
  const RecordingPlan& plan_;
  SessionWriter writer_;
  std::int32_t lastRun_ = 0, lastSignal_ = 0;
};

}  // namespace

std::vector<RecordedRun> recordSession(const RecordingPlan& plan) {
  refuseWrongOutput(plan);
  Recording recording(plan);
  std::vector<RecordedRun> runs;
  for (const std::u16string& path : plan.tables) runs.push_back(recording.addTable(path));
  recording.close();
  return runs;
}

}  // namespace tavlox::cli

#include "hosts/cli/recorder.h"

#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <system_error>

#include <fmt/chrono.h>
#include <sys/stat.h>

#include "hosts/cli/sample_table.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/progress/progress.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {
namespace {

namespace fs = fl::filesystem;
using foundation::core::except::raise;

constexpr std::size_t kPieceSize = std::size_t{256} * 1024;

template <auto Free>
struct FreeWith {
  template <class T>
  void operator()(T* handle) const noexcept {
    // A file that was only read loses nothing when it cannot be closed.
    static_cast<void>(Free(handle));
  }
};
using File = std::unique_ptr<std::FILE, FreeWith<std::fclose>>;

/// One table on disk. It is read twice, to check it and to keep it, and must not change in between.
class TableFile {
 public:
  explicit TableFile(const std::u16string& path)
      : path_(path), file_(std::fopen(fl::i18n::to_string(path).c_str(), "rbe")) {
    if (!file_) refuse(errno);
    // The pieces read are large, a second buffer would only be copied through.
    static_cast<void>(std::setvbuf(file_.get(), nullptr, _IONBF, 0));
    opened_ = status();
  }

  /// Gives every byte from the first on.
  void read(const std::function<void(std::string_view)>& take) {
    if (std::fseek(file_.get(), 0, SEEK_SET) != 0) refuse(errno);
    std::string piece(kPieceSize, '\0');
    while (const std::size_t size = std::fread(piece.data(), 1, piece.size(), file_.get())) {
      take({piece.data(), size});
    }
    if (std::ferror(file_.get()) != 0) refuse(errno);
  }

  void requireUnchanged() const {
    const struct stat now = status();
    const bool same = now.st_size == opened_.st_size && now.st_mtim.tv_sec == opened_.st_mtim.tv_sec &&
                      now.st_mtim.tv_nsec == opened_.st_mtim.tv_nsec;
    if (!same) raise("tavlox:record:TableChanged", path_);
  }

  /// Bytes, when it was opened.
  std::uint64_t size() const { return static_cast<std::uint64_t>(opened_.st_size); }

  /// When the table was written, in UTC: "2026-11-15T12:44:29Z".
  std::u16string date() const {
    return fl::i18n::to_ustring(fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(opened_.st_mtim.tv_sec)));
  }

 private:
  [[noreturn]] void refuse(int error) const {
    if (error == ENOENT) raise("tavlox:general:FileNotFound", path_);
    raise("tavlox:record:CannotReadTable", path_, std::generic_category().message(error));
  }

  struct stat status() const {
    struct stat found {};
    if (fstat(fileno(file_.get()), &found) != 0) refuse(errno);
    return found;
  }

  std::u16string path_;
  File file_;
  struct stat opened_ {};
};

std::u16string stem(const std::u16string& path) {
  const std::u16string name = fs::extract_filename(path), extension = fs::extract_extension(path);
  return extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
}

RunRecord runOf(const SampleTable& table, const TableFile& file, const std::u16string& path,
                std::int32_t id) {
  RunRecord run;
  run.id = id;
  run.runNumber = static_cast<std::uint32_t>(id);
  run.name = stem(path);
  run.dateCreated = file.date();
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
    TableFile file(path);
    SampleTable table(path);
    file.read([&, activity = u"Reading " + path, done = std::uint64_t{0}](std::string_view bytes) mutable {
      table.take(bytes);
      corvan::reportProgress(
          {.activity = activity.c_str(), .done = done += bytes.size(), .total = file.size()});
    });
    table.finish();
    return addRun(file, table, path);
  }

  void close() {
    // Samples are kept with the package's normal compression.
    writer_.setCompressionType(u"normal");
    if (!plan_.description.empty()) writer_.setDescription(plan_.description);
    writer_.close();
  }

 private:
  RecordedRun addRun(TableFile& file, const SampleTable& table, const std::u16string& path) {
    const RunRecord run = runOf(table, file, path, ++lastRun_);
    writer_.addRun(run);
    writer_.addSamples(run.id, [&](const SessionWriter::Sink& keep) { file.read(keep); });
    file.requireUnchanged();
    const std::vector<ColumnHeading> columns = table.signalColumns();
    for (const ColumnHeading& column : columns) {
      SignalRecord signal = signalOf(table, column, path);
      signal.id = ++lastSignal_;
      signal.runID = run.id;
      writer_.addSignal(signal);
    }
    return {.run = run,
            .signalCount = columns.size(),
            .rowCount = table.rowCount(),
            .sampleTime = table.sampleTime()};
  }

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

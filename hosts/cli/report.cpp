// A page of everything that a session holds. Properties, runs, signals and user files come from the module,
// as in the commands that print them; the samples are read by the platform. Each run is read twice: once for
// its length, which decides how finely the samples of all runs are kept, and once for its samples.
#include "hosts/cli/report.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>

#include "hosts/cli/command.h"
#include "hosts/cli/error_report.h"
#include "hosts/cli/host_json.h"
#include "hosts/cli/module.h"
#include "hosts/cli/output.h"
#include "hosts/cli/output_file.h"
#include "platform/errors/exceptions.h"
#include "platform/files/filesystem.h"
#include "platform/opc/package.h"
#include "platform/progress/progress.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {

namespace fs = fl::filesystem;
using corvan::HostArray;
using fl::i18n::JsonWriter;
using fl::i18n::to_ustring;
using foundation::core::except::raise;

SampleBudget::SampleBudget(Detail detail, std::uint64_t values, std::uint64_t curves) {
  // A number takes eight bytes, and base64 makes four characters of three bytes.
  constexpr std::uint64_t kMostCharacters = 3'500'000, kFewestBuckets = 250;
  constexpr double kCharacters = 8 * 4 / 3.0;
  // Of a bucket there are up to four samples, each with a time of its own.
  constexpr double kBucketCharacters = 4 * 2 * kCharacters;
  isReduced_ = detail == Detail::Reduced && static_cast<double>(values) * kCharacters > kMostCharacters;
  const double share =
      kMostCharacters / kBucketCharacters / static_cast<double>(std::max<std::uint64_t>(curves, 1));
  buckets_ = std::max<std::uint64_t>(kFewestBuckets, static_cast<std::uint64_t>(share));
}

CurveSamples SampleBudget::curveOf(const samples::Span& span) const {
  if (!isReduced_ || span.rows <= 4 * buckets_) return CurveSamples(span.rows);
  return CurveSamples(span, buckets_);
}

std::vector<CurveSamples> readCurves(const samples::RecordedSession& session, const PlottedRun& plotted,
                                     const SampleBudget& budget) {
  samples::Wanted wanted;
  for (const samples::RecordedSignal& signal : plotted.signals) wanted.columns.push_back(signal.column);
  std::vector<CurveSamples> curves;
  for (std::size_t i = 0; i < plotted.signals.size(); ++i) curves.push_back(budget.curveOf(plotted.span));
  samples::SampleReader reader = session.read(*plotted.run, wanted);
  const std::u16string activity = u"Reading the samples of " + plotted.label;
  samples::SampleBlock block;
  for (std::uint64_t done = 0; reader.next(block); done += block.rows) {
    corvan::reportProgress({.activity = activity.c_str(), .done = done, .total = plotted.span.rows});
    for (std::size_t i = 0; i < curves.size(); ++i) {
      for (std::size_t row = 0; row < block.rows; ++row)
        curves[i].add(block.times[row], block.values[i][row]);
    }
  }
  return curves;
}

namespace {

/// The page of one session while it is made.
class Report {
 public:
  Report(const Request& request, Page::Sink write)
      : request_(request),
        path_(request.one("FILE")),
        file_(openFile(request, path_)),
        session_(path_),
        write_(std::move(write)) {}

  /// Whether all samples could be read. What could not is reported, and the page says so.
  bool make() {
    Page::Facts facts = readFacts();
    Page page(write_, head_);
    addCurves(page);
    addStatistics(page);
    addRuns(page);
    addSignals(page);
    addUserFiles(page);
    if (!unreadable_.empty()) facts.emplace_back("Samples that cannot be read", unreadable_);
    page.finish(facts);
    return unreadable_.empty();
  }

 private:
  /// What the table of statistics shows of a curve.
  struct Statistics {
    CurveLabel label;
    std::uint64_t count;
    double minimum, maximum, mean, last;
  };

  /// Whether the work on the run's samples could be done. If not it is reported, and the other runs are still
  /// shown.
  bool isReadable(const PlottedRun& run, const std::function<void()>& work) {
    try {
      work();
      return true;
    } catch (const std::exception&) {
      report(request_.format, path_);
      unreadable_ += (unreadable_.empty() ? u"" : u", ") + run.label;
      return false;
    }
  }

  /// The runs that have samples, with their lengths.
  std::vector<PlottedRun> measureRuns() {
    std::vector<PlottedRun> runs;
    for (const samples::RecordedRun& run : session_.runs()) {
      PlottedRun plotted{&run, {}, session_.labelOf(run), {}};
      std::ranges::copy_if(run.signals, std::back_inserter(plotted.signals),
                           [](const auto& signal) { return signal.column != 0; });
      if (!run.samples || plotted.signals.empty()) continue;
      if (!isReadable(plotted, [&] { plotted.span = spanOf(session_.read(run, {})); })) continue;
      runs.push_back(std::move(plotted));
    }
    return runs;
  }

  Page::Facts readFacts() {
    Page::Facts facts;
    for (const zobs::COSProperty& property : fileClass(request_).properties()) {
      const std::string& name = property.name.text();
      const std::u16string value = cellText(zobs::getProperty(file_, name));
      name == "Description" ? void(head_.subtitle = value) : void(facts.emplace_back(name, value));
    }
    head_.title = fs::extract_filename(path_);
    return facts;
  }

  void addCurves(Page& page) {
    const std::vector<PlottedRun> runs = measureRuns();
    std::uint64_t values = 0, curves = 0;
    for (const PlottedRun& run : runs) {
      curves += run.signals.size();
      // The times of a run stand in the page once.
      values += run.span.rows * (run.signals.size() + 1);
    }
    const SampleBudget budget(request_.has("--full") ? Detail::Full : Detail::Reduced, values, curves);
    for (const PlottedRun& run : runs) addCurvesOf(page, run, budget);
  }

  void addCurvesOf(Page& page, const PlottedRun& plotted, const SampleBudget& budget) {
    std::vector<CurveSamples> read;
    if (!isReadable(plotted, [&] { read = readCurves(session_, plotted, budget); })) return;
    std::map<std::pair<std::u16string, std::u16string>, int> namesakes;
    for (std::size_t i = 0; i < read.size(); ++i) {
      const samples::RecordedSignal& signal = plotted.signals[i];
      CurveLabel label{.name = signal.name, .unit = signal.units, .series = plotted.label};
      label.between = samples::betweenSamplesOf(signal.dataTypeLabel);
      // Signals may have one name if they come from different blocks.
      const int which = ++namesakes[{label.name, label.unit}];
      if (which > 1) label.name += to_ustring(fmt::format(" ({})", which));
      page.addCurve(label, read[i]);
      statistics_.push_back(
          {label, read[i].count(), read[i].minimum(), read[i].maximum(), read[i].mean(), read[i].last()});
    }
  }

  void addStatistics(Page& page) {
    static const std::vector<std::string> kFields = {
        "Signal", "Run", "Unit", "Samples", "Minimum", "Maximum", "Mean of samples", "Last"};
    if (statistics_.empty()) return;
    page.beginTable("Recorded samples", kFields, kFields);
    for (const auto& [label, count, minimum, maximum, mean, last] : statistics_) {
      JsonWriter& json = page.beginRow();
      json.value(label.name).value(label.series).value(label.unit).value(count);
      for (const double number : {minimum, maximum, mean, last}) writeNumber(json, number);
      page.endRow();
    }
  }

  static std::vector<std::string> namesOf(const HostArray& structures) {
    std::vector<std::string> names;
    for (const std::u16string& name : structures.fieldNames())
      names.push_back(fl::i18n::to_string_lossy(name));
    return names;
  }

  static void addRow(Page& page, const HostArray& structures, std::size_t index) {
    JsonWriter& json = page.beginRow();
    for (std::size_t field = 0; field < structures.fieldNames().size(); ++field)
      writeJson(json, structures.fieldAt(index, field));
    page.endRow();
  }

  void addRuns(Page& page) {
    static const std::vector<std::string> kColumns = {"id",        "Name",     "Model", "DateCreated",
                                                      "StartTime", "StopTime", "Status"};
    const HostArray column = callForArray(file_, "getAllRunIDs");
    bool isFirst = true;
    for (const std::int32_t id : column.values<std::int32_t>()) {
      const HostArray run = callForArray(file_, "getRunInfo", {HostArray::int32Scalar(id)});
      if (std::exchange(isFirst, false)) page.beginTable("Runs", namesOf(run), kColumns);
      addRow(page, run, 0);
    }
  }

  void addSignals(Page& page) {
    static const std::vector<std::string> kColumns = {"Name", "RunOrderIndex", "StoredUnits", "DataType",
                                                      "FullBlockPath"};
    const HostArray signals = callForArray(file_, "getAllSignalsInfo");
    if (signals.elementCount() == 0) return;
    page.beginTable("Signals", namesOf(signals), kColumns);
    for (std::size_t i = 0; i < signals.elementCount(); ++i) addRow(page, signals, i);
  }

  void addUserFiles(Page& page) {
    static const std::vector<std::string> kFields = {"User file", "Path", "Type", "Bytes"};
    const HostArray entries = callForArray(file_, "list", {std::u16string(kUserFolder)});
    if (entries.elementCount() == 0) return;
    opc::model::Package package(path_);
    package.open(opc::interfaces::OpenMode::Read);
    page.beginTable("User files", kFields, kFields);
    for (std::size_t i = 0; i < entries.elementCount(); ++i) {
      const std::u16string path(entries.fieldAt(i, u"FullPath").text());
      JsonWriter& json = page.beginRow().value(entries.fieldAt(i, u"Name").text()).value(path);
      json.value(entries.fieldAt(i, u"Type").text())
          .value(package.getPart(opc::model::PartName(path)).getSize());
      page.endRow();
    }
  }

  const Request& request_;
  const std::u16string& path_;
  zobs::COSInterfacePointer file_;
  samples::RecordedSession session_;
  Page::Sink write_;
  Page::Head head_{.kind = "Recorded session", .seriesTitle = "Runs"};
  std::u16string unreadable_;  // names of runs
  std::vector<Statistics> statistics_;
};

void requireOutput(const Request& request) {
  if (!request.has("--output")) raise("tavlox:report:NoOutput");
}

ExitCode runReport(const Request& request) {
  OutputFile output(request);
  const bool isWhole = Report(request, [&](std::string_view bytes) { output.write(bytes); }).make();
  output.finish();
  printPaths(request, "Reports", {fs::absolute(request.one("--output"))});
  return isWhole ? ExitCode::Done : ExitCode::Failed;
}

}  // namespace

extern const Command kReport = {
    .name = "report",
    .summary = "Make a page that shows a session",
    .examples = R"(  tavlox report filter.tavlox -o filter.html
  tavlox report filter.tavlox -o filter.html --full --force
)",
    .details =
        R"(The page is one file that any browser opens, also from a disk and without a network: the properties, the runs,
the signals and the user files in tables, and plots of the recorded samples to zoom, compare and read off.

Long runs are reduced: each short stretch of time keeps its first, smallest, largest and last sample, so that no
spike is lost and the page stays below 5 MB, whatever the number of samples, for up to 150 signals, those of all
runs counted. The page says so where it is reduced. With --full it carries every sample.

Prints the page's path. A run whose samples cannot be read is reported, the page shows the others, and the exit
code is 1.
)",
    .parameters = {{"FILE", Takes::One, "The package to show"},
                   {"--output", Takes::Value, "The page to make; must be given", "PAGE", "-o"},
                   {"--full", Takes::Flag, "Carry every sample"},
                   {"--force", Takes::Flag, "Replace PAGE if it exists"}},
    .run = runReport,
    .check = requireOutput,
};

}  // namespace tavlox::cli

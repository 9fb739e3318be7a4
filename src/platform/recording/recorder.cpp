#include "platform/recording/recorder.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "platform/errors/exceptions.h"
#include "platform/errors/package_errors.h"
#include "platform/export_file/data_export_file.h"
#include "platform/files/filesystem.h"
#include "platform/text/conversion.h"

namespace tavlox::recording {
namespace {

using fl::i18n::to_ustring;
using foundation::core::except::raise;

// Simulators print times with few digits, so steps that were equal differ a little in a table.
constexpr double kStepTolerance = 1e-3;
constexpr int kMostDigits = 9;
constexpr std::int32_t kHighestID = std::numeric_limits<std::int32_t>::max();

/// What is known of the times of a run, in the unit of its table.
class Times {
 public:
  /// False for a time that is not later than the one before.
  bool add(double time) {
    const double step = time - last_;
    if (count_ > 0 && step <= 0) return false;
    if (count_ == 0) first_ = time;
    if (count_ == 1) shortest_ = longest_ = step;
    if (count_ > 1) {
      shortest_ = std::min(shortest_, step);
      longest_ = std::max(longest_, step);
    }
    last_ = time;
    ++count_;
    return true;
  }

  std::uint64_t count() const { return count_; }
  double first() const { return first_; }
  double last() const { return last_; }

  /// The step in seconds, if the longest and the shortest step differ by no more than a thousandth of the
  /// mean one and what doubles lose of such times; "variable" if not; empty for a single row.
  std::u16string sampleTime(const tables::TimeUnit& unit) const {
    if (count_ < 2) return {};
    const double steps = static_cast<double>(count_ - 1), mean = (last_ - first_) / steps;
    // Of times such as 1.7e9 a double keeps no more than seven decimals, each step is wrong by as much.
    const double loss =
        2 * std::max(std::abs(first_), std::abs(last_)) * std::numeric_limits<double>::epsilon();
    if (longest_ - shortest_ > kStepTolerance * mean + loss) return u"variable";
    return to_ustring(shortest(unit.toSeconds(mean), unit.toSeconds(loss / steps)));
  }

 private:
  /// The number with as few digits as are needed to tell it from those that differ by more than `loss`, nine
  /// at most: 0.1, and not 0.100000024.
  static std::string shortest(double number, double loss) {
    for (int digits = 1; digits < kMostDigits; ++digits) {
      const std::string text = fmt::format("{:.{}g}", number, digits);
      double read = 0;
      std::from_chars(text.data(), text.data() + text.size(), read);
      if (std::abs(read - number) <= loss) return fmt::format("{}", read);
    }
    return fmt::format("{:.{}g}", number, kMostDigits);
  }

  std::uint64_t count_ = 0;
  double first_ = 0, last_ = 0, shortest_ = 0, longest_ = 0;
};

/// What a column says of its signal; fields that it says nothing of are not recorded.
SignalRecord signalOf(const tables::TableDescription& table, std::size_t column) {
  const tables::Heading& heading = table.headings[column];
  SignalRecord signal;
  signal.name = heading.name;
  signal.units = signal.displayUnits = heading.unit;
  signal.dataTypeLabel = heading.dataType;
  // Samples are real scalars: a cell holds one number.
  signal.complexity = 0;
  signal.dimensions = {1};
  if (!table.source.empty()) signal.rootSource = table.source;
  signal.timeSource = table.headings.front().written;
  signal.dataSource = heading.written;
  signal.column = static_cast<std::uint32_t>(column + 1);
  return signal;
}

}  // namespace

bool isTavloxPackage(const std::u16string& path) {
  using namespace relationship_types;
  try {
    opc::model::Package package(path);
    package.open(opc::interfaces::OpenMode::Read);
    const auto links = package.getRelationships(opc::model::ExcludeMode::None);
    return links.empty() || std::ranges::any_of(links, [](const opc::model::Relationship& link) {
             const std::u16string_view types[] = {
                 kRunData, kSignalsData, kCompression, kView, kSamples, kThumbnail, u"UserAssetsPartRelType"};
             return std::ranges::find(types, link.getType()) != std::end(types);
           });
  } catch (const opc::Exception&) {
    return false;
  }
}

RecordedRun Recorder::add(tables::Table& table, RunRecord run) {
  if (writer_.highestRunID() == kHighestID) raise("tavlox:record:SessionFull", run.name.value_or(u""));
  run.id = writer_.highestRunID() + 1;
  // Runs are numbered in the order in which they were recorded.
  run.runNumber = static_cast<std::uint32_t>(writer_.runCount() + 1);
  // Before its samples, whose part is named after it; what only the rows tell is put in afterwards.
  writer_.addRun(run);
  const tables::TableDescription& description = table.description();
  Times times;
  writer_.addSamples(run.id, [&](const SessionWriter::Sink& keep) {
    keep(description.headingLine);
    tables::Row row;
    for (; table.next(row); keep(row.plain)) {
      // Equal times are refused too: a sample would have two values at one time.
      if (!times.add(row.time)) table.refuseTime();
    }
    // Empty lines behind the last row, so that the table stays byte for byte.
    keep(row.plain);
  });
  // Times and date are known only now.
  run.startTime = description.timeUnit.toSeconds(times.first());
  run.stopTime = description.timeUnit.toSeconds(times.last());
  if (!run.dateCreated && !description.date.empty()) run.dateCreated = description.date;
  writer_.changeRun(run);
  const std::u16string sampleTime = times.sampleTime(description.timeUnit);
  for (std::size_t column = 1; column < description.headings.size(); ++column) {
    SignalRecord signal = signalOf(description, column);
    if (!sampleTime.empty()) signal.sampleTime = sampleTime;
    signal.id = nextSignalID();
    signal.runID = run.id;
    writer_.addSignal(signal);
  }
  return {run, description.headings.size() - 1, times.count(), sampleTime};
}

std::int32_t Recorder::nextSignalID() const {
  if (writer_.highestSignalID() == kHighestID) raise("tavlox:record:SessionFull", u"");
  return writer_.highestSignalID() + 1;
}

}  // namespace tavlox::recording

#include "platform/samples/recorded_session.h"

#include <algorithm>
#include <cmath>
#include <istream>
#include <set>
#include <streambuf>
#include <unordered_map>

#include "platform/errors/exceptions.h"
#include "platform/repository/session_records.h"

namespace tavlox::samples {
namespace {

using opc::model::Part;
using opc::model::PartName;

// Column 1 is the time.
constexpr std::uint32_t kFirstSignalColumn = 2;

/// Lets a stream read the data of a part. Errors pass through: records are read from the buffer itself.
class PartBuffer : public std::streambuf {
 public:
  explicit PartBuffer(const Part& part) : input_(part.getInputStream()) { input_->restart(); }

 private:
  int_type underflow() override {
    const std::size_t got = input_->read(block_.data(), block_.size());
    setg(block_.data(), block_.data(), block_.data() + got);
    return got == 0 ? traits_type::eof() : traits_type::to_int_type(block_.front());
  }

  std::shared_ptr<opc::InputStream> input_;
  std::vector<char> block_ = std::vector<char>(std::size_t{64} << 10);
};

std::vector<RecordedRun> readRuns(const DataExportFile& file) {
  std::vector<RecordedRun> runs;
  // Of several run lists the first counts.
  for (const Part& part : file.getPartsByRelationshipType(relationship_types::kRunData)) {
    PartBuffer buffer(part);
    std::istream stream(&buffer);
    orra::forEachRun(stream, [&](const orra::RunRecord& record) {
      const auto place = static_cast<std::int32_t>(runs.size()) + 1;
      runs.push_back({.record = record, .orderIndex = record.orderIndex.value_or(place)});
    });
    break;
  }
  return runs;
}

void readSignals(const DataExportFile& file, std::vector<RecordedRun>& runs) {
  std::unordered_map<std::int32_t, std::size_t> runOf;
  for (std::size_t i = 0; i < runs.size(); ++i) runOf.emplace(runs[i].id(), i);
  for (const Part& part : file.getPartsByRelationshipType(relationship_types::kSignalsData)) {
    PartBuffer buffer(part);
    std::istream stream(&buffer);
    orra::forEachSignal(stream, [&](const orra::SignalRecord& signal) {
      const auto run = runOf.find(signal.runID);
      // Readers of the records refuse such a part; here the samples of the others can still be had.
      if (run == runOf.end()) return;
      runs[run->second].signals.push_back({signal.id, orra::textOf(signal.name), orra::textOf(signal.units),
                                           orra::textOf(signal.dataTypeLabel), signal.column.value_or(0)});
    });
  }
}

/// The part that a run names, if there is one of that name.
std::optional<PartName> namedPart(const opc::model::Package& package, const orra::RunRecord& run) {
  if (!run.samples) return std::nullopt;
  const auto name = PartName::tryFromText(*run.samples);
  return name && package.hasPart(*name) ? name : std::nullopt;
}

/// Gives the runs that name no part the samples parts that no run names.
void findSamples(const DataExportFile& file, std::vector<RecordedRun>& runs) {
  std::set<std::string> taken;
  for (RecordedRun& run : runs) {
    run.samples = namedPart(file.getPackageImpl(), run.record);
    if (run.samples) taken.insert(run.samples->key());
  }
  auto run = runs.begin();
  for (const Part& part : file.getPartsByRelationshipType(relationship_types::kSamples)) {
    if (taken.contains(part.getName().key())) continue;
    run = std::find_if(run, runs.end(), [](const RecordedRun& candidate) {
      return !candidate.record.samples && !candidate.signals.empty();
    });
    if (run == runs.end()) return;
    (run++)->samples = part.getName();
  }
}

void findColumns(std::vector<RecordedRun>& runs) {
  for (RecordedRun& run : runs) {
    const bool isNamed =
        std::ranges::any_of(run.signals, [](const auto& signal) { return signal.column != 0; });
    std::uint32_t column = kFirstSignalColumn;
    for (RecordedSignal& signal : run.signals) {
      if (!run.samples) signal.column = 0;
      // Only where no signal names one: those of a run are named all together or not at all.
      else if (!isNamed)
        signal.column = column++;
    }
  }
}

/// ASCII letters only, which is all that types are written in.
std::u16string inLowerCase(std::u16string_view text) {
  std::u16string lower(text);
  for (char16_t& unit : lower)
    if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit + (u'a' - u'A'));
  return lower;
}

}  // namespace

Between betweenSamplesOf(std::u16string_view dataTypeLabel) {
  static constexpr std::u16string_view kFloatingPoint[] = {
      u"", u"double", u"single", u"half", u"real", u"float", u"float16", u"float32", u"float64"};
  const bool isFloating =
      std::ranges::find(kFloatingPoint, inLowerCase(dataTypeLabel)) != std::end(kFloatingPoint);
  return isFloating ? Between::Linear : Between::Held;
}

double interpolated(double time, double firstTime, double first, double secondTime, double second) {
  // Also for two equal infinities, whose difference is none. Not std::lerp, which may give the second value
  // where the first is NaN.
  if (first == second) return first;
  const double rise = second - first;
  // Multiplied first: round numbers then mostly give round numbers.
  const double exact = first + rise * (time - firstTime) / (secondTime - firstTime);
  if (std::isfinite(exact)) return exact;
  const double share = (time - firstTime) / (secondTime - firstTime);
  return (1 - share) * first + share * second;
}

RecordedSession::RecordedSession(const std::u16string& path) : path_(path) {
  file_.modifyReadPackage(path);
  runs_ = readRuns(file_);
  readSignals(file_, runs_);
  findSamples(file_, runs_);
  findColumns(runs_);
}

SampleReader RecordedSession::read(const RecordedRun& run, Wanted wanted) const {
  if (!run.samples) foundation::core::except::raise("samples:session:NoSamples", path_, run.id());
  return {file_.getPackageImpl(), *run.samples, std::move(wanted)};
}

}  // namespace tavlox::samples
